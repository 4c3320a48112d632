// The glTF scene of a model whose one annotation shows the input as its graphic: whatever the
// scene builder writes, the scene-graph reader reads back, with the same triangles and lines.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "FuzzSupport.h"
#include "VEKSceneGraph.h"
#include "VEKTPSLightScene.h"

namespace {

// The triangles and the segments, each as the bits of its floats, sorted so that two
// representations of the same geometry compare equal whatever their node order; none when they
// cannot be had.
using Shapes = std::array<std::vector<std::vector<std::uint32_t>>, 2>;
std::optional<Shapes> ShapesOf(const VEKRep& rep) {
  std::vector<float> triangles, lines;
  if (VEKFailed(VEKRepTriangles(rep, triangles)) || VEKFailed(VEKRepLines(rep, lines))) {
    return std::nullopt;
  }
  Shapes shapes;
  const std::vector<float>* floats[] = {&triangles, &lines};
  for (std::size_t kind = 0; kind < 2; ++kind) {
    const std::size_t size = kind == 0 ? 9 : 6;
    for (std::size_t k = 0; k + size <= floats[kind]->size(); k += size) {
      std::vector<std::uint32_t> bits(size);
      std::memcpy(bits.data(), floats[kind]->data() + k, size * sizeof(float));
      shapes[kind].push_back(std::move(bits));
    }
    std::sort(shapes[kind].begin(), shapes[kind].end());
  }
  return shapes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > INT_MAX) return 0;
  std::vector<char> blob(data, data + size);
  std::unique_ptr<VEKRep> rep(
      VEKReadSceneGraph(blob.empty() ? nullptr : blob.data(), static_cast<int>(size)));
  if (!rep) return 0;
  const std::optional<Shapes> expected = ShapesOf(*rep);

  VEKComPtr<VEKTPSLightContainer> container;
  container.Attach(new VEKTPSLightContainer());
  std::vector<VEKComPtr<VEKITPSLightSet>> sets(1);
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  if (VEKFailed(container->CreateLightSet(sets[0].ReleaseAndGetAddressOf(), nullptr)) ||
      VEKFailed(container->CreateAnnotation(annotation.ReleaseAndGetAddressOf(), sets[0].Get())) ||
      VEKFailed(annotation->SetRep(rep.get()))) {
    return 0;
  }
  rep.release();
  std::vector<char> scene;
  VEKTPSLightSceneCounts counts;
  if (VEKFailed(VEKBuildScene(sets, scene, &counts))) return 0;
  const std::unique_ptr<VEKRep> back(
      VEKReadSceneGraph(scene.data(), static_cast<int>(scene.size())));
  if (!back) std::abort();
  const std::optional<Shapes> written = ShapesOf(*back);
  if (counts.graphics == 1 && expected && written && *written != *expected) {
    std::abort();
  }
  return 0;
}
