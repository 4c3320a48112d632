// Loads an annotation document (current or legacy schema) and prints the set it yields, the way a
// host application would read the model back.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "VEKCodePage.h"
#include "VEKComPtr.h"
#include "VEKTPSLightParserUtil.h"

namespace {

std::string Text(const std::optional<VEKUnicodeString>& value) {
  return value ? std::string("\"") + value->ConvertToChar() + "\"" : "-";
}

template <class T>
std::string Number(const std::optional<T>& value) {
  return value ? std::to_string(*value) : "-";
}

std::string Vector(const std::optional<VEKVector3>& value) {
  if (!value) return "-";
  char text[96];
  std::snprintf(text, sizeof text, "(%g %g %g)", value->x, value->y, value->z);
  return text;
}

// The ids of the objects of a list, as "[1 3 4]".
std::string Ids(const VEKLightObjectList& list) {
  std::string text = "[";
  for (int position = 0; position < list.Count(); ++position) {
    VEKComPtr<VEKITPSLight> light;
    VEKBaseUnknown* object = list.Get(position);
    if (position > 0) text += ' ';
    if (object &&
        VEKSucceeded(object->QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf())))
      text += Number(light->GetId());
    else
      text += '?';
  }
  return text + "]";
}

std::string Ints(const std::vector<int>& values) {
  std::string text = "[";
  for (std::size_t i = 0; i < values.size(); ++i)
    text += (i ? " " : "") + std::to_string(values[i]);
  return text + "]";
}

// Prints the common values of any object, then hands its family interface to `details`.
template <class Family, class Details>
void PrintFamily(const char* title, const VEKLightObjectList& list, Details details) {
  std::printf("%s: %d\n", title, list.Count());
  for (int position = 0; position < list.Count(); ++position) {
    VEKComPtr<VEKBaseUnknown> object(list.Get(position));
    VEKComPtr<VEKITPSLight> light;
    VEKComPtr<Family> family;
    if (VEKFailed(object.As(&light)) || VEKFailed(object.As(&family))) continue;
    std::printf("  id %s %s type %s status %s", Number(light->GetId()).c_str(),
                Text(light->GetName()).c_str(), Number(light->GetType()).c_str(),
                Number(light->GetStatus()).c_str());
    details(*family.Get());
    std::printf("\n");
  }
}

void PrintSet(VEKITPSLightSet* set) {
  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(set->QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf()))) {
    std::printf("set %s standard %s uuid %s\n", Text(light->GetName()).c_str(),
                Text(set->GetStandard()).c_str(), Text(light->GetUuid()).c_str());
  }
  PrintFamily<VEKITPSLightTTRS>("TTRS", set->GetTTRS(), [](VEKITPSLightTTRS& ttrs) {
    for (int i = 0; i < ttrs.GetGeometryCount(); ++i) {
      const VEKRawCollint* ids = ttrs.GetGeometry(i);
      std::printf(" geometry [");
      for (int k = 1; ids && k <= ids->Size(); ++k) std::printf(k > 1 ? " %d" : "%d", (*ids)[k]);
      std::printf("]");
    }
  });
  PrintFamily<VEKITPSLightAnnotation>(
      "annotations", *set->GetAnnotations(), [](VEKITPSLightAnnotation& annotation) {
        std::printf(" value %s%s attribute %s ttrs %s",
                    annotation.GetValue() ? std::to_string(*annotation.GetValue()).c_str() : "-",
                    annotation.IsDefault() ? " default" : "",
                    Text(annotation.GetAttribute()).c_str(), Ints(annotation.GetTTRS()).c_str());
        VEKComPtr<VEKITPSLightModel> links;
        if (VEKSucceeded(
                annotation.QueryInterface(VEKITPSLightModel::kIID, links.ReleaseAndGetVoidAddressOf()))) {
          std::printf(" views %s", Ids(links->GetViews()).c_str());
          if (const VEKLightObjectList* group = links->GetOrderGroup())
            std::printf(" group %s", Ids(*group).c_str());
        }
      });
  PrintFamily<VEKITPSLightView>("views", set->GetViews(), [](VEKITPSLightView& view) {
    std::printf(" origin %s normal %s direction %s annotations %s captures %s",
                Vector(view.GetOrigin()).c_str(), Vector(view.GetNormal()).c_str(),
                Vector(view.GetDirection()).c_str(), Ids(view.GetAnnotations()).c_str(),
                Ids(view.GetCaptures()).c_str());
  });
  PrintFamily<VEKITPSLightRefFrame>(
      "reference frames", set->GetRefFrames(), [](VEKITPSLightRefFrame& frame) {
        std::printf(" attribute %s datums %s ttrs %s", Text(frame.GetAttribute()).c_str(),
                    Ids(frame.GetDatums()).c_str(), Ints(frame.GetTTRS()).c_str());
      });
  PrintFamily<VEKITPSLightCG>("construction geometries", set->GetCGs(), [](VEKITPSLightCG& cg) {
    std::printf(" attribute %s ttrs %s treps %s", Text(cg.GetAttribute()).c_str(),
                Ints(cg.GetTTRS()).c_str(), Ints(cg.GetTReps()).c_str());
  });
  PrintFamily<VEKITPSLightCapture>(
      "captures", set->GetCaptures(), [](VEKITPSLightCapture& capture) {
        std::printf(
            " clipping %s camera %s at %s annotations %s views %s cgs %s",
            Number(capture.GetClippingPlane()).c_str(), Number(capture.GetCameraType()).c_str(),
            Vector(capture.GetCameraPosition()).c_str(), Ids(capture.GetAnnotations()).c_str(),
            Ids(capture.GetViews()).c_str(), Ids(capture.GetCGs()).c_str());
      });
  for (const VEKTPSLightUnresolved& missing : set->GetUnresolvedReferences())
    std::printf("unresolved: id %d of kind %d\n", missing.id, missing.kind);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DOCUMENT.xml\n", argv[0]);
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "%s: cannot open %s\n", argv[0], argv[1]);
    return 1;
  }
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());

  VEKTPSLightParserUtil parser;
  VEKITPSLightSet* rawSet = nullptr;
  HRESULT result;
  if (bytes.find("<TolerancingData") != std::string::npos) {
    result = parser.GenerateLightModel(bytes.c_str(), nullptr, &rawSet);
  } else {
    // Base64 hands the parser the document's exact bytes, whatever characters it holds.
    VEKUnicodeString base64;
    if (VEKCodePage::ConvertToBase64(reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<unsigned int>(bytes.size()), base64) < 0) {
      std::fprintf(stderr, "%s: out of memory\n", argv[0]);
      return 1;
    }
    result = parser.GenerateLightModelFromBase(base64, nullptr, &rawSet, 1, nullptr, 0, 0);
  }
  VEKComPtr<VEKITPSLightSet> set;
  set.Attach(rawSet);
  std::printf("load result 0x%08x\n", static_cast<unsigned>(result));
  if (!set) return 1;
  PrintSet(set.Get());
  return VEKSucceeded(result) ? 0 : 1;
}
