// Our glTF reader against tinygltf: the same decision and the same values, except where our reader
// decides by a rule of its own (GltfReadersAgree.h). A disagreement stops the run.
//
// Mutations that change a blob's size break its chunk lengths, and the container check would then
// stop every such input before the JSON is read. The input is therefore framed anew: a GLB gives
// its JSON chunk (cut to the bytes present) and whatever follows as the BIN chunk; any other input
// is taken as JSON text alone.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "GlbBuilder.h"
#include "GltfReadersAgree.h"

namespace {

constexpr std::size_t kGlbHeaderSize = 12;
constexpr std::size_t kChunkHeaderSize = 8;

std::vector<char> Reframe(const std::uint8_t* data, std::size_t size) {
  const auto* text = reinterpret_cast<const char*>(data);
  const std::size_t jsonStart = kGlbHeaderSize + kChunkHeaderSize;
  if (size < jsonStart || std::memcmp(data, "glTF", 4) != 0) {
    return vek_test::BuildGlb(std::string(text, size));
  }
  const std::size_t declared = std::size_t{data[12]} | (std::size_t{data[13]} << 8) |
                               (std::size_t{data[14]} << 16) | (std::size_t{data[15]} << 24);
  const std::size_t jsonEnd = jsonStart + std::min(declared, size - jsonStart);
  std::vector<unsigned char> bin;
  if (size - jsonEnd > kChunkHeaderSize) {
    bin.assign(data + jsonEnd + kChunkHeaderSize, data + size);
  }
  return vek_test::BuildGlb(std::string(text + jsonStart, text + jsonEnd), bin);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> glb = Reframe(data, size);
  if (vek_fuzz::CompareGltfReaders(reinterpret_cast<const std::uint8_t*>(glb.data()), glb.size()) ==
      vek_fuzz::GltfReadersVerdict::kDisagree) {
    std::abort();
  }
  return 0;
}
