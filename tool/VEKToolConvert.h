// vektps convert: documents of either schema, in any input form, written in the current schema.
#pragma once

#include <string>
#include <vector>

#include "VEKTPSLightDocument.h"

namespace CLI {
class App;
}  // namespace CLI

struct VEKToolConvertOptions {
  std::vector<std::string> files;
  // One document's destination; empty or "-": standard output.
  std::string output;
  // Where each document goes under its own name, when given.
  std::string outDir;
  bool base64 = false;
  bool zlib = false;
  bool allWarnings = false;
  VEKTPSLightLoadOptions load;
};

// Adds the command to `app`, its options landing in `options`.
CLI::App* VEKToolAddConvert(CLI::App& app, VEKToolConvertOptions& options);

// Converts every file: 0 when each was written, 1 when one could not be loaded or written, 2 on
// usage errors.
int VEKToolConvert(const VEKToolConvertOptions& options);
