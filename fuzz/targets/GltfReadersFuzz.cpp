// The direct reader of the common glTF shape against tinygltf: whatever the direct reader reads,
// tinygltf must read too, into the same values. A disagreement stops the run.
#include <cstdlib>

#include "FuzzSupport.h"
#include "GltfReadersAgree.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (vek_fuzz::CompareGltfReaders(data, size) == vek_fuzz::GltfReadersVerdict::kDisagree) {
    std::abort();
  }
  return 0;
}
