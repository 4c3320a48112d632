// One-shot zlib-format decompression over libdeflate.
#include "VEKSysUncompress.h"

#include <libdeflate.h>

#include <cstddef>
#include <memory>

namespace {

struct DecompressorDeleter {
  void operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
  }
};
using Decompressor = std::unique_ptr<libdeflate_decompressor, DecompressorDeleter>;

}  // namespace

extern "C" int VEKSysUncompress(const char* source, int sourceLength, char* target,
                                unsigned int* targetLength) {
  if (!source || sourceLength < 0 || !target || !targetLength) return VEKUncompressInvalidArgument;
  // A decompressor per call keeps the function free of shared state; it costs one small
  // allocation.
  const Decompressor decompressor(libdeflate_alloc_decompressor());
  if (!decompressor) return VEKUncompressOutOfMemory;
  std::size_t consumed = 0;
  std::size_t produced = 0;
  const libdeflate_result result = libdeflate_zlib_decompress_ex(
      decompressor.get(), source, static_cast<std::size_t>(sourceLength), target, *targetLength,
      &consumed, &produced);
  if (result == LIBDEFLATE_INSUFFICIENT_SPACE) return VEKUncompressTargetTooSmall;
  if (result != LIBDEFLATE_SUCCESS) return VEKUncompressCorruptData;
  if (consumed != static_cast<std::size_t>(sourceLength)) return VEKUncompressTrailingBytes;
  *targetLength = static_cast<unsigned int>(produced);
  return 0;
}
