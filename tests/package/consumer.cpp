// A host built against the installed package: loads a document, prints the counts of every set
// and of the triangles of its annotations' graphics, and writes the load as JSON, so that the
// parser, the model, the scene graph, the foundation and the export all link and run from the
// install.
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"

// The package needs C++17 or later but must leave the host's own standard alone.
#ifndef VEK_CONSUMER_STANDARD
#error "define VEK_CONSUMER_STANDARD as the standard the host asks for (17 or 20)"
#endif
// __cplusplus is the year and month of the standard: 201703 for C++17, 202002 for C++20.
static_assert(__cplusplus / 100 == 2000 + VEK_CONSUMER_STANDARD,
              "the host is not built in the language standard it asked for");

namespace {

std::string NameOf(VEKITPSLightSet& set) {
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(set.QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf())))
    return "?";
  const std::optional<VEKUnicodeString> name = light->GetName();
  return name ? name->ConvertToChar() : "-";
}

// The world-space triangles of every annotation graphic of `set`, as the scene graph gives them;
// false when there are none. (The example host draws them itself and compares.)
bool CountTriangles(VEKITPSLightSet& set) {
  std::size_t triangles = 0;
  const VEKLightObjectList& annotations = *set.GetAnnotations();
  for (int position = 0; position < annotations.Count(); ++position) {
    VEKComPtr<VEKITPSLightAnnotation> annotation;
    if (VEKFailed(VEKComPtr<VEKBaseUnknown>(annotations.Get(position)).As(&annotation))) continue;
    std::vector<float> corners;
    const VEKRep* graphic = annotation->GetGraphicRep();
    if (graphic && VEKFailed(VEKRepTriangles(*graphic, corners))) return false;
    triangles += corners.size() / 9;
  }
  std::printf("%zu triangles of annotation graphics\n", triangles);
  return triangles > 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s DOCUMENT OUT.json\n", argv[0]);
    return 2;
  }
  // The one-call load: any form and schema, found from the file's bytes, and no file written.
  const VEKTPSLightDocument load = VEKLoadDocumentFile(argv[1]);
  std::printf("C++ %ld, load result 0x%08x\n", static_cast<long>(__cplusplus),
              static_cast<unsigned>(load.Result()));
  if (!load.Loaded()) return 1;
  for (const VEKComPtr<VEKITPSLightSet>& set : load.Sets()) {
    std::printf(
        "set \"%s\": TTRS %d, annotations %d, views %d, reference frames %d, construction "
        "geometries %d, captures %d\n",
        NameOf(*set.Get()).c_str(), set->GetTTRS().Count(), set->GetAnnotations()->Count(),
        set->GetViews().Count(), set->GetRefFrames().Count(), set->GetCGs().Count(),
        set->GetCaptures().Count());
    if (!CountTriangles(*set.Get())) return 1;
  }
  std::string json;
  if (VEKFailed(VEKExportLoadToJson(*load.Schema(), load.Result(), load.Sets().back().Get(), false,
                                    json)))
    return 1;
  // Ended like the tool's output, so that the check can compare the two byte for byte.
  std::ofstream out(argv[2], std::ios::binary);
  out << json << '\n';
  out.close();
  return out ? 0 : 1;
}
