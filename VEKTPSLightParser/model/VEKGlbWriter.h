// Writes binary glTF 2.0 (GLB) containers from a JSON text and binary data held in memory.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "VEKExport.h"

enum class VEKGlbWriteResult : int {
  Written = 0,
  NullBinary = 1,   // null binary bytes with a non-zero length
  TooLarge = 2,     // the container would pass the 4 GiB - 1 bytes its 32-bit lengths can count
  OutOfMemory = 3,  // the container could not be allocated
};

// Frames `json`, the JSON chunk's text (written as it is, never parsed), and the `binLength` bytes
// at `bin` as a GLB in `glb`: the 12-byte header, the JSON chunk padded with spaces to a multiple
// of 4 bytes and, when `binLength` is not 0, the BIN chunk padded with zeros (without binary bytes
// there is no BIN chunk). `glb` is replaced on success and left as it was on failure.
[[nodiscard]] VEK_API VEKGlbWriteResult VEKWriteGlb(std::string_view json, const unsigned char* bin,
                                                    std::size_t binLength,
                                                    std::vector<char>& glb) noexcept;
