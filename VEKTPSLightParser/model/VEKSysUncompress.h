// One-shot zlib-format (RFC 1950) decompression.
#pragma once

#include "VEKExport.h"

extern "C" {

// The failures of VEKSysUncompress.
enum VEKUncompressFailure {
  VEKUncompressInvalidArgument = -1,
  VEKUncompressOutOfMemory = -2,
  VEKUncompressCorruptData = -3,  // truncated or corrupt data
  // the output passes the capacity (also a stream cut short, whose missing bits read as more)
  VEKUncompressTargetTooSmall = -4,
  VEKUncompressTrailingBytes = -5,  // bytes left over after the end of the stream
};

// Decompresses the `sourceLength` bytes of one zlib stream into `target`, whose capacity is
// `*targetLength`; on success stores the produced length in `*targetLength` and returns 0.
// Never writes past the capacity. Returns a VEKUncompressFailure (and leaves `*targetLength` as
// it was) for null arguments, a negative source length, truncated or corrupt data, output that
// would exceed the capacity, or bytes left over after the end of the stream.
VEK_API int VEKSysUncompress(const char* source, int sourceLength, char* target,
                             unsigned int* targetLength);
}
