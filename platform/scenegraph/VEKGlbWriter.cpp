// The GLB container around a JSON text and binary data: sizes are checked in 64 bits before
// anything is allocated, and the whole container is built before it replaces the caller's.
#include "VEKGlbWriter.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr std::uint32_t kVersion = 2;
constexpr std::uint64_t kHeaderSize = 12;
constexpr std::uint64_t kChunkHeaderSize = 8;
constexpr std::uint64_t kMaxLength = UINT32_MAX;

std::uint64_t PaddedTo4(std::uint64_t length) { return (length + 3) / 4 * 4; }

char* PutLittleEndian32(char* out, std::uint64_t value) {
  for (int shift = 0; shift < 32; shift += 8) *out++ = static_cast<char>((value >> shift) & 0xFF);
  return out;
}

// Writes a chunk of `length` bytes at `data` padded with `padding` to `paddedLength`.
char* PutChunk(char* out, const char type[4], const void* data, std::uint64_t length,
               std::uint64_t paddedLength, char padding) {
  out = PutLittleEndian32(out, paddedLength);
  std::memcpy(out, type, 4);
  out += 4;
  if (length > 0) std::memcpy(out, data, length);
  std::memset(out + length, padding, paddedLength - length);
  return out + paddedLength;
}

}  // namespace

VEKGlbWriteResult VEKWriteGlb(std::string_view json, const unsigned char* bin,
                              std::size_t binLength, std::vector<char>& glb) noexcept {
  if (!bin && binLength > 0) return VEKGlbWriteResult::NullBinary;
  // Each length alone is checked first, so that the sums below cannot wrap.
  if (json.size() > kMaxLength || binLength > kMaxLength) return VEKGlbWriteResult::TooLarge;
  const std::uint64_t jsonPadded = PaddedTo4(json.size());
  const std::uint64_t binPadded = PaddedTo4(binLength);
  const std::uint64_t total = kHeaderSize + kChunkHeaderSize + jsonPadded +
                              (binLength > 0 ? kChunkHeaderSize + binPadded : 0);
  if (total > kMaxLength) return VEKGlbWriteResult::TooLarge;

  std::vector<char> container;
  try {
    container.resize(static_cast<std::size_t>(total));
  } catch (const std::bad_alloc&) {
    return VEKGlbWriteResult::OutOfMemory;
  }
  char* out = container.data();
  std::memcpy(out, "glTF", 4);
  out = PutLittleEndian32(out + 4, kVersion);
  out = PutLittleEndian32(out, total);
  out = PutChunk(out, "JSON", json.data(), json.size(), jsonPadded, ' ');
  if (binLength > 0) (void)PutChunk(out, "BIN\0", bin, binLength, binPadded, '\0');
  glb.swap(container);
  return VEKGlbWriteResult::Written;
}
