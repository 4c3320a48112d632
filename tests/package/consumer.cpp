// Links against the installed package and makes an annotation set through the container.
#include <VEKComPtr.h>
#include <VEKTPSLightParserUtil.h>

int main() {
  if (TORVALE_RIMKIT_INTERNAL_VEKTPSLightParser() != 1) return 1;
  VEKComPtr<VEKTPSLightContainer> container;
  container.Attach(new VEKTPSLightContainer());
  if (!container) return 2;
  VEKComPtr<VEKITPSLightSet> set;
  if (VEKFailed(container->CreateLightSet(set.ReleaseAndGetAddressOf(), nullptr))) return 3;
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(set->QueryInterface(IID_VEKITPSLight, light.ReleaseAndGetVoidAddressOf()))) return 4;
  return light->SetName(L"consumer") == S_OK ? 0 : 5;
}
