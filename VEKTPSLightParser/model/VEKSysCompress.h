// One-shot zlib-format (RFC 1950) compression, the counterpart of VEKSysUncompress.
#pragma once

#include <cstddef>

#include "VEKExport.h"

extern "C" {

// The failures of VEKSysCompress.
enum VEKCompressFailure {
  VEKCompressInvalidArgument = -1,  // null arguments, or a level outside 0 to 12
  VEKCompressOutOfMemory = -2,
  VEKCompressTargetTooSmall = -3,  // the stream does not fit in the capacity
};

// The most bytes VEKSysCompress can produce from `sourceLength` bytes, at any level.
VEK_API std::size_t VEKSysCompressBound(std::size_t sourceLength);

// Compresses the `sourceLength` bytes at `source` into one zlib stream in `target`, whose capacity
// is `*targetLength`, at `level` (1 fastest, 6 the usual balance, 12 smallest; 0 stores the bytes
// uncompressed). On success stores the stream's length in `*targetLength` and returns 0; otherwise
// returns a VEKCompressFailure and leaves `*targetLength` as it was. A capacity of
// VEKSysCompressBound(sourceLength) always suffices.
VEK_API int VEKSysCompress(const char* source, std::size_t sourceLength, int level, char* target,
                           std::size_t* targetLength);
}
