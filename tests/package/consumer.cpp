// A host built against the installed package: loads a document, prints the counts of every set,
// draws each annotation's graphic from its indices and world matrices (and checks the drawing
// against the library's own world-space triangles), and writes the load as JSON, so that the
// parser, the model, the scene graph, the foundation and the export all link and run from the
// install.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "ConsumerLoad.h"
#include "VEKTPSLightJsonExport.h"

// The package needs C++17 or later but must leave the host's own standard alone.
#ifndef VEK_CONSUMER_STANDARD
#error "define VEK_CONSUMER_STANDARD as the standard the host asks for (17 or 20)"
#endif
static_assert(__cplusplus == (VEK_CONSUMER_STANDARD == 17   ? 201703L
                              : VEK_CONSUMER_STANDARD == 20 ? 202002L
                                                            : 0L),
              "the host is not built in the language standard it asked for");

namespace {

std::string NameOf(VEKITPSLightSet& set) {
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(set.QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf())))
    return "?";
  const std::optional<VEKUnicodeString> name = light->GetName();
  return name ? name->ConvertToChar() : "-";
}

// The world-space triangles of a graphic's triangle lists, as a renderer would make them: each
// corner through the primitive's indices (or in order), moved by its node's world matrix.
std::vector<float> Draw(const VEKRep& rep) {
  std::vector<float> corners;
  for (const VEKRepNode& node : rep.GetNodes()) {
    if (node.mesh < 0) continue;
    for (const VEKRepPrimitive& primitive : rep.GetMeshes()[node.mesh].primitives) {
      if (primitive.mode != 4 || !primitive.positions) continue;
      const std::vector<float>& positions = *primitive.positions;
      const std::size_t count =
          primitive.indices ? primitive.indices->size() : positions.size() / 3;
      for (std::size_t corner = 0; corner < count; ++corner) {
        const std::size_t index = primitive.indices ? (*primitive.indices)[corner] : corner;
        const float* p = &positions[3 * index];
        const double* m = node.worldMatrix;
        for (int axis = 0; axis < 3; ++axis) {
          corners.push_back(static_cast<float>(m[axis] * p[0] + m[4 + axis] * p[1] +
                                               m[8 + axis] * p[2] + m[12 + axis]));
        }
      }
    }
  }
  return corners;
}

// Draws every annotation graphic of `set`; false when a drawing differs from the library's.
bool DrawGraphics(VEKITPSLightSet& set) {
  std::size_t drawn = 0;
  const VEKLightObjectList& annotations = *set.GetAnnotations();
  for (int position = 0; position < annotations.Count(); ++position) {
    VEKComPtr<VEKITPSLightAnnotation> annotation;
    if (VEKFailed(VEKComPtr<VEKBaseUnknown>(annotations.Get(position)).As(&annotation))) continue;
    const VEKRep* graphic = annotation->GetGraphicRep();
    if (!graphic) continue;
    std::vector<float> expected;
    if (VEKFailed(VEKRepTriangles(*graphic, expected))) return false;
    const std::vector<float> corners = Draw(*graphic);
    if (corners.size() != expected.size()) return false;
    for (std::size_t k = 0; k < corners.size(); ++k) {
      const float difference = corners[k] - expected[k];
      if (difference > 1e-4f || difference < -1e-4f) return false;
    }
    drawn += corners.size() / 9;
  }
  std::printf("drew %zu triangles of annotation graphics\n", drawn);
  return drawn > 0;
}

bool WriteFile(const char* path, const std::string& text) {
  std::FILE* file = std::fopen(path, "wb");
  if (!file) return false;
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s DOCUMENT OUT.json\n", argv[0]);
    return 2;
  }
  const ConsumerLoad load = LoadDocument(argv[1]);
  std::printf("C++ %ld, load result 0x%08x\n", static_cast<long>(__cplusplus),
              static_cast<unsigned>(load.result));
  std::vector<VEKComPtr<VEKITPSLightSet>> sets;
  if (VEKFailed(load.result) || VEKFailed(VEKGetSetsOfLoad(load.lastSet.Get(), sets)) ||
      sets.empty())
    return 1;
  for (const VEKComPtr<VEKITPSLightSet>& set : sets) {
    std::printf(
        "set \"%s\": TTRS %d, annotations %d, views %d, reference frames %d, construction "
        "geometries %d, captures %d\n",
        NameOf(*set.Get()).c_str(), set->GetTTRS().Count(), set->GetAnnotations()->Count(),
        set->GetViews().Count(), set->GetRefFrames().Count(), set->GetCGs().Count(),
        set->GetCaptures().Count());
    if (!DrawGraphics(*set.Get())) return 1;
  }
  std::string json;
  if (VEKFailed(VEKExportLoadToJson(VEKTPSLightSchema::Current, load.result, load.lastSet.Get(),
                                    false, json)))
    return 1;
  // Ended like the tool's output, so that the check can compare the two byte for byte.
  return WriteFile(argv[2], json + '\n') ? 0 : 1;
}
