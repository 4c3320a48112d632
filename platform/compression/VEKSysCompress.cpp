// One-shot zlib-format compression over libdeflate.
#include "VEKSysCompress.h"

#include <libdeflate.h>

#include <memory>

namespace {

struct CompressorDeleter {
  void operator()(libdeflate_compressor* compressor) const {
    libdeflate_free_compressor(compressor);
  }
};
using Compressor = std::unique_ptr<libdeflate_compressor, CompressorDeleter>;

constexpr int kMaxLevel = 12;

}  // namespace

extern "C" std::size_t VEKSysCompressBound(std::size_t sourceLength) {
  // A null compressor gives the bound over every level.
  return libdeflate_zlib_compress_bound(nullptr, sourceLength);
}

extern "C" int VEKSysCompress(const char* source, std::size_t sourceLength, int level, char* target,
                              std::size_t* targetLength) {
  if ((!source && sourceLength > 0) || !target || !targetLength || level < 0 || level > kMaxLevel) {
    return VEKCompressInvalidArgument;
  }
  // A compressor per call, as for decompression: no shared state between calls.
  const Compressor compressor(libdeflate_alloc_compressor(level));
  if (!compressor) return VEKCompressOutOfMemory;
  const std::size_t produced =
      libdeflate_zlib_compress(compressor.get(), source, sourceLength, target, *targetLength);
  if (produced == 0) return VEKCompressTargetTooSmall;
  *targetLength = produced;
  return 0;
}
