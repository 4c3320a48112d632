// One-shot zlib-format (RFC 1950) decompression.
#pragma once

#include "VEKExport.h"

extern "C" {

// Decompresses the `sourceLength` bytes of one zlib stream into `target`, whose capacity is
// `*targetLength`; on success stores the produced length in `*targetLength` and returns 0.
// Never writes past the capacity. Returns a negative value (and leaves `*targetLength` as it was)
// for null arguments, a negative source length, truncated or corrupt data, output that would
// exceed the capacity, or bytes left over after the end of the stream.
VEK_API int VEKSysUncompress(const char* source, int sourceLength, char* target,
                             unsigned int* targetLength);
}
