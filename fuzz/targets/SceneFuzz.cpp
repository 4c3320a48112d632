// The glTF scene of a model whose one annotation shows the input as its graphic: whatever the
// scene builder writes, the scene-graph reader reads back, with the same triangles and lines.
#include <climits>
#include <cstdlib>
#include <memory>
#include <vector>

#include "FuzzSupport.h"
#include "VEKSceneGraph.h"
#include "VEKTPSLightScene.h"

namespace {

// The number of floats of the triangles and of the lines; -1 each when they cannot be had.
std::pair<long, long> Shapes(const VEKRep& rep) {
  std::vector<float> triangles, lines;
  if (VEKFailed(VEKRepTriangles(rep, triangles)) || VEKFailed(VEKRepLines(rep, lines))) {
    return {-1, -1};
  }
  return {static_cast<long>(triangles.size()), static_cast<long>(lines.size())};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > INT_MAX) return 0;
  std::vector<char> blob(data, data + size);
  std::unique_ptr<VEKRep> rep(
      VEKReadSceneGraph(blob.empty() ? nullptr : blob.data(), static_cast<int>(size)));
  if (!rep) return 0;
  const std::pair<long, long> expected = Shapes(*rep);

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
  const std::pair<long, long> written = Shapes(*back);
  if (counts.graphics == 1 && expected.first >= 0 && written.first >= 0 && written != expected) {
    std::abort();
  }
  return 0;
}
