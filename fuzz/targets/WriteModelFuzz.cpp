// Builds a model through the container the way a host does, from operations the input spells
// (objects with ids that collide, values at the edges of their types or never set, texts XML cannot
// carry, links of any object to any other), writes it and requires the same model back, but for
// what the writer named in its warnings.
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "FuzzSupport.h"
#include "GlbBuilder.h"
#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"
#include "WriterRoundTrip.h"

namespace {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool More() const { return at_ < size_; }
  unsigned Byte() { return at_ < size_ ? data_[at_++] : 0; }
  template <class T>
  const T& Pick(const std::vector<T>& values) {
    return values[Byte() % values.size()];
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

const std::vector<int> kInts = {0, 1, 2, 3, -1, 7, INT_MIN, INT_MAX};
const std::vector<double> kDoubles = {0.0, -0.0, 0.1, -2.5e-310, 1e308, HUGE_VAL, NAN, 1.0 / 3};
const std::vector<const wchar_t*> kTexts = {
    L"",       L" a  b ", L"<&>\"'", L"\t\n\r\n", L"\u00e9\u20ac\U0001D11E",
    L"x\x01y", L"\uffff", L"]]>"};

template <class U>
VEKComPtr<U> Query(VEKBaseUnknown* object) {
  VEKComPtr<U> face;
  if (object) (void)object->QueryInterface(U::kIID, face.ReleaseAndGetVoidAddressOf());
  return face;
}

// A new object of the family `create` makes, as its identity.
template <class Interface, HRESULT (VEKTPSLightContainer::*create)(Interface**, VEKITPSLightSet*)>
VEKComPtr<VEKBaseUnknown> Create(VEKTPSLightContainer& container, VEKITPSLightSet& set) {
  VEKComPtr<Interface> made;
  (void)(container.*create)(made.ReleaseAndGetAddressOf(), &set);
  return Query<VEKBaseUnknown>(made.Get());
}

using Creator = VEKComPtr<VEKBaseUnknown> (*)(VEKTPSLightContainer&, VEKITPSLightSet&);
const Creator kCreators[] = {
    &Create<VEKITPSLightTTRS, &VEKTPSLightContainer::CreateTTRS>,
    &Create<VEKITPSLightAnnotation, &VEKTPSLightContainer::CreateAnnotation>,
    &Create<VEKITPSLightView, &VEKTPSLightContainer::CreateView>,
    &Create<VEKITPSLightRefFrame, &VEKTPSLightContainer::CreateRefFrame>,
    &Create<VEKITPSLightCG, &VEKTPSLightContainer::CreateCG>,
    &Create<VEKITPSLightCapture, &VEKTPSLightContainer::CreateCapture>};

VEKRep* Graphic(unsigned extraBytes) {
  static const std::vector<char> kGlb = vek_test::BuildMeshesGlb(1, 1, 0);
  std::vector<char> blob = kGlb;
  blob.resize(blob.size() + extraBytes % 3, '\0');
  return VEKReadSceneGraph(blob.data(), static_cast<int>(blob.size()));
}

void SetCommon(Input& input, VEKITPSLight& light) {
  const unsigned which = input.Byte();
  if (which & 1) (void)light.SetName(input.Pick(kTexts));
  if (which & 2) (void)light.SetUuid(input.Pick(kTexts));
  if (which & 4) (void)light.SetType(static_cast<unsigned short>(input.Pick(kInts)));
  if (which & 8) (void)light.SetStatus(static_cast<unsigned short>(input.Pick(kInts)));
  if (which & 16) (void)light.SetId(input.Pick(kInts));
  if (which & 32) (void)light.SetRep(Graphic(input.Byte()));
}

// One operation on the set or its objects.
void Apply(Input& input, VEKTPSLightContainer& container, VEKITPSLightSet& set,
           std::vector<VEKComPtr<VEKBaseUnknown>>& objects) {
  const unsigned operation = input.Byte() % 8;
  if (operation == 0 || objects.empty()) {
    VEKComPtr<VEKBaseUnknown> made = kCreators[input.Byte() % std::size(kCreators)](container, set);
    if (made) objects.push_back(made);
    return;
  }
  VEKBaseUnknown* object = input.Pick(objects).Get();
  VEKBaseUnknown* other = input.Pick(objects).Get();
  if (operation == 1) {
    if (VEKComPtr<VEKITPSLight> light = Query<VEKITPSLight>(object)) SetCommon(input, *light.Get());
    return;
  }
  if (operation == 2) {
    VEKComPtr<VEKITPSLight> light = Query<VEKITPSLight>(&set);
    SetCommon(input, *light.Get());
    if (input.Byte() & 1) (void)set.SetStandard(input.Pick(kTexts));
    return;
  }
  const int value = input.Pick(kInts);
  const double x = input.Pick(kDoubles);
  if (VEKComPtr<VEKITPSLightTTRS> ttrs = Query<VEKITPSLightTTRS>(object)) {
    VEKRawCollint* ids = nullptr;
    if (operation != 3) {
      ids = new VEKRawCollint(0);
      for (unsigned k = input.Byte() % 4; k > 0; --k) (void)ids->Append(input.Pick(kInts));
    }
    (void)ttrs->AddGeometry(ids);
  } else if (VEKComPtr<VEKITPSLightAnnotation> annotation = Query<VEKITPSLightAnnotation>(object)) {
    VEKComPtr<VEKITPSLightModel> links = Query<VEKITPSLightModel>(object);
    if (operation == 3) (void)annotation->SetValue(x);
    if (operation == 3) (void)annotation->SetDefault(value);
    if (operation == 4) (void)annotation->SetReference(value);
    if (operation == 4) (void)annotation->SetAttribute(input.Pick(kTexts));
    if (operation == 5) (void)annotation->AddTTRS(value);
    if (operation == 5) (void)annotation->SetRep(Graphic(input.Byte()));
    if (operation == 6) (void)links->SetView(Query<VEKITPSLightView>(other).Get());
    if (operation == 7) {
      auto* group = new VEKLightObjectList();
      for (unsigned k = input.Byte() % 4; k > 0; --k)
        (void)group->Append(input.Pick(objects).Get());
      if (VEKFailed(links->SetOrderGroup(group))) delete group;
    }
  } else if (VEKComPtr<VEKITPSLightView> view = Query<VEKITPSLightView>(object)) {
    if (operation == 3) (void)view->SetOrigin(x, -x, 1);
    if (operation == 4) (void)view->SetNormal(0, x, 0);
    if (operation == 5) (void)view->SetDirection(x, 0, x);
    if (operation == 6) (void)view->AddTPS(other);
    if (operation == 7) (void)view->AddCapture(other);
  } else if (VEKComPtr<VEKITPSLightRefFrame> frame = Query<VEKITPSLightRefFrame>(object)) {
    if (operation <= 4) (void)frame->SetAttribute(input.Pick(kTexts));
    if (operation == 5) (void)frame->AddTTRS(value);
    if (operation >= 6) (void)frame->AddDatum(other);
  } else if (VEKComPtr<VEKITPSLightCG> geometry = Query<VEKITPSLightCG>(object)) {
    if (operation == 3) (void)geometry->SetAttribute(input.Pick(kTexts));
    if (operation == 4 || operation == 6) (void)geometry->AddTTRS(value);
    if (operation == 5 || operation == 7) (void)geometry->AddTRep(value);
  } else if (VEKComPtr<VEKITPSLightCapture> capture = Query<VEKITPSLightCapture>(object)) {
    if (operation == 3) (void)capture->SetActiveView(other);
    VEKComPtr<VEKITPSLightView> view = Query<VEKITPSLightView>(other);
    if (operation == 3 && view && (input.Byte() & 1)) (void)view->AddCapture(object);
    if (operation == 4) (void)capture->SetClippingPlane(value);
    if (operation == 4) (void)capture->SetCameraType(input.Pick(kInts));
    if (operation == 5) (void)capture->SetCameraPosition(x, x, 0);
    if (operation == 5) (void)capture->SetCameraTarget(0, x, 1);
    if (operation == 6) (void)capture->AddTPS(other);
    if (operation == 6) (void)capture->AddCG(other);
    if (operation == 7) (void)capture->AddView(other);
    if (operation == 7) (void)capture->SetRep(Graphic(input.Byte()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  VEKComPtr<VEKTPSLightContainer> container;
  container.Attach(new VEKTPSLightContainer());
  std::vector<VEKComPtr<VEKITPSLightSet>> sets;
  for (unsigned count = 1 + input.Byte() % 2; count > 0; --count) {
    VEKComPtr<VEKITPSLightSet> set;
    if (VEKFailed(container->CreateLightSet(set.ReleaseAndGetAddressOf(), nullptr))) return 0;
    sets.push_back(set);
  }
  std::vector<VEKComPtr<VEKBaseUnknown>> objects;
  for (int operations = 0; input.More() && operations < 400; ++operations) {
    VEKITPSLightSet* set = sets[input.Byte() % sets.size()].Get();
    Apply(input, *container.Get(), *set, objects);
  }
  const vek_fuzz::RoundTrip trip = vek_fuzz::WriteAndReload(sets);
  if (!trip.difference.empty()) {
    std::fprintf(stderr, "round trip changed the model: %s\n", trip.difference.c_str());
    std::abort();
  }
  return 0;
}
