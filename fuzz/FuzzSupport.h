// Shared pieces of the fuzz targets: a scratch working directory for the loads' dump file, and the
// entry point every target defines.
#pragma once

#include <cstddef>
#include <cstdint>

// libFuzzer's entry point: runs one input through the code under test. Always returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace vek_fuzz {

// Moves the process, once, into a fresh temporary directory that is removed at exit, so the dump
// file a current-schema load writes never lands in the caller's directory. Later calls do nothing.
void EnterScratchDirectory();

}  // namespace vek_fuzz
