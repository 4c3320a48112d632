// Scene graph read from the input as a GLB blob, and its triangles and lines.
#include <climits>
#include <memory>
#include <vector>

#include "FuzzSupport.h"
#include "VEKSceneGraph.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > INT_MAX) return 0;
  std::vector<char> blob(data, data + size);
  const std::unique_ptr<VEKRep> rep(
      VEKReadSceneGraph(blob.empty() ? nullptr : blob.data(), static_cast<int>(size)));
  if (rep) {
    std::vector<float> elements;
    (void)VEKRepTriangles(*rep, elements);
    (void)VEKRepLines(*rep, elements);
  }
  return 0;
}
