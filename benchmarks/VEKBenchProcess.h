// Peak resident memory of one load, measured in a fresh process so that nothing the benchmark
// itself holds is counted: the child reads the document, takes its resident size as the
// baseline, resets the kernel's high-water mark, runs one load and reports how far the mark rose.
#pragma once

#include <cstdint>
#include <string>

// What a child process loads.
enum class VEKMemoryLoad { Current, Legacy, Pugixml };

// Runs `program` (this benchmark) as a child that loads the document in `file` as `load`, in the
// working directory `directory`. Returns the bytes the load added at its peak; throws
// std::runtime_error when the child fails.
std::int64_t VEKMeasureLoadPeak(const std::string& program, VEKMemoryLoad load,
                                const std::string& file, const std::string& directory);

// The child's side, reached through the arguments VEKMeasureLoadPeak passes: prints the added
// peak in bytes on standard output. Returns the process exit status.
int VEKRunMemoryChild(const std::string& load, const std::string& file);
