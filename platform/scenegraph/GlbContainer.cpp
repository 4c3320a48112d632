#include "GlbContainer.h"

#include <cstring>

namespace vek_scenegraph_detail {
namespace {

constexpr std::uint32_t kGlbMagic = 0x46546C67;  // "glTF"
constexpr std::uint32_t kGlbVersion = 2;
constexpr std::uint32_t kChunkTypeJson = 0x4E4F534A;  // "JSON"
constexpr std::uint32_t kChunkTypeBin = 0x004E4942;   // "BIN\0"
constexpr std::uint64_t kGlbHeaderSize = 12;
constexpr std::uint64_t kChunkHeaderSize = 8;

std::uint32_t ReadLittleEndian32(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} | (std::uint32_t{bytes[1]} << 8) |
         (std::uint32_t{bytes[2]} << 16) | (std::uint32_t{bytes[3]} << 24);
}

}  // namespace

bool ReadGlbLayout(const unsigned char* bytes, std::uint64_t length, GlbLayout& layout) noexcept {
  if (length < kGlbHeaderSize + kChunkHeaderSize || ReadLittleEndian32(bytes) != kGlbMagic ||
      ReadLittleEndian32(bytes + 4) != kGlbVersion) {
    return false;
  }
  const std::uint64_t totalLength = ReadLittleEndian32(bytes + 8);
  if (totalLength > length || totalLength < kGlbHeaderSize + kChunkHeaderSize) {
    return false;
  }
  const std::uint64_t jsonLength = ReadLittleEndian32(bytes + kGlbHeaderSize);
  const std::uint64_t jsonEnd = kGlbHeaderSize + kChunkHeaderSize + jsonLength;
  if (ReadLittleEndian32(bytes + kGlbHeaderSize + 4) != kChunkTypeJson || jsonLength == 0 ||
      jsonLength % 4 != 0 || jsonEnd > totalLength) {
    return false;
  }
  if (jsonEnd != totalLength) {
    if (totalLength - jsonEnd < kChunkHeaderSize) {
      return false;
    }
    const std::uint64_t binLength = ReadLittleEndian32(bytes + jsonEnd);
    // An empty BIN chunk is refused too: tinygltf cannot represent one.
    if (ReadLittleEndian32(bytes + jsonEnd + 4) != kChunkTypeBin || binLength == 0 ||
        binLength % 4 != 0 || binLength != totalLength - jsonEnd - kChunkHeaderSize) {
      return false;
    }
    layout.bin = bytes + jsonEnd + kChunkHeaderSize;
    layout.binLength = static_cast<std::size_t>(binLength);
  }
  const char* json = reinterpret_cast<const char*>(bytes + kGlbHeaderSize + kChunkHeaderSize);
  // JSON in a GLB must not start with a byte order mark; the JSON reader would skip it silently.
  if (jsonLength >= 3 && std::memcmp(json, "\xEF\xBB\xBF", 3) == 0) {
    return false;
  }
  layout.totalLength = static_cast<std::uint32_t>(totalLength);
  layout.json = json;
  layout.jsonLength = static_cast<std::size_t>(jsonLength);
  return true;
}

}  // namespace vek_scenegraph_detail
