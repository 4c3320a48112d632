// Measures made in child processes, where nothing the benchmark itself holds counts: one load in a
// freshly started process (the benchmark runs itself as the child), and whole programs run as a
// shell would run them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VEKBenchMeasures.h"

// What a fresh child loads.
enum class VEKChildLoad { Current, Legacy, Pugixml };

// One load made in a fresh process. The child reads the document, builds the host's input, takes
// its resident size as the baseline and resets the kernel's high-water mark; then it times the
// load and its teardown as the warm runs do (VEKTimeCurrentLoad, VEKTimeLegacyLoad,
// VEKTimePugixmlParse) and reads how far the mark rose.
struct VEKFreshLoad {
  VEKBenchTime time;
  // Bytes the load added to the resident size at its peak.
  std::int64_t addedPeak = 0;
};

// Runs `program` (this benchmark) as that child in `directory`, loading `file` as `load`; a current
// or legacy load must build `annotations` annotations. Throws std::runtime_error when the child
// fails.
VEKFreshLoad VEKMeasureFreshLoad(const std::string& program, VEKChildLoad load,
                                 const std::string& file, std::int64_t annotations,
                                 const std::string& directory);

// The child's side, reached through the arguments VEKMeasureFreshLoad passes after
// kVEKLoadChildFlag: prints its figures on standard output. Returns the process exit status.
constexpr char kVEKLoadChildFlag[] = "--load-child";
int VEKRunLoadChild(const std::string& load, const std::string& file,
                    const std::string& annotations);

// What the kernel accounts to a finished program (wait4): CPU time, user and system, and the peak
// of its resident size.
struct VEKProgramRun {
  double cpu = 0;
  std::int64_t peakBytes = 0;
};

// Runs `arguments` (the program's path first) in `directory`, its standard output discarded,
// through `program` (this benchmark) as a small go-between: the kernel counts the resident peak of
// the process an exec replaces in the peak of the program it starts, so a program started straight
// from this benchmark would carry the benchmark's own peak. Throws std::runtime_error unless the
// program exits with status 0.
VEKProgramRun VEKRunProgram(const std::string& program, const std::vector<std::string>& arguments,
                            const std::string& directory);

// The go-between's side, reached through the arguments VEKRunProgram passes after
// kVEKProgramChildFlag: runs `arguments` and prints what the kernel accounted to it. Returns the
// process exit status.
constexpr char kVEKProgramChildFlag[] = "--program-child";
int VEKRunProgramChild(const std::vector<std::string>& arguments);
