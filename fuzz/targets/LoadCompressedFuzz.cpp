// Current-schema load of compressed input. The first 8 bytes are the declared uncompressed size
// and the compressed size (little-endian 32-bit words), the rest is the zlib stream. The declared
// size is taken modulo 16 MB so that the fuzzer does not spend itself on huge allocations, and the
// compressed size never exceeds the bytes that follow, since the caller vouches for that length.
#include <cstring>
#include <vector>

#include "FuzzSupport.h"
#include "VEKComPtr.h"
#include "VEKTPSLightParserUtil.h"

namespace {

constexpr std::uint32_t kMaxDeclaredSize = 16u << 20;

std::uint32_t ReadWord(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vek_fuzz::EnterScratchDirectory();
  if (size < 8) return 0;
  const std::size_t streamLength = size - 8;
  const auto uncompressedSize = static_cast<int>(ReadWord(data) % kMaxDeclaredSize);
  const auto compressedSize = static_cast<int>(ReadWord(data + 4) % (streamLength + 1));
  // An exact-size copy, so reading past the stream shows under AddressSanitizer.
  std::vector<char> stream(data + 8, data + size);
  // With a zero size the load falls back to the text source: an empty one.
  VEKUnicodeString source;
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  (void)parser.GenerateLightModelFromBase(source, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                          stream.empty() ? nullptr : stream.data(),
                                          uncompressedSize, compressedSize);
  return 0;
}
