// Loading the documents named on the command line, and keeping interruptions away from files the
// tool is writing.
#pragma once

#include <csignal>
#include <string>

#include "VEKTPSLightDocument.h"

// Loads `path` through the library's one-call load into `document`, which tells every failure of
// the load (a file that cannot be read included); the load maps a large file, so the XML parser's
// copy is the only one. "-" reads standard input as it comes, stopped at options.maxInputBytes, and
// hands those bytes to the load uncopied; false with a message when it cannot be read whole.
bool VEKToolLoad(const std::string& path, const VEKTPSLightLoadOptions& options,
                 VEKTPSLightDocument& document, std::string& error);

// While it lives, SIGINT, SIGTERM and SIGHUP are held: a file being written (a dump, an output) is
// never left half-written by an interrupted run. A signal that came meanwhile ends the process as
// usual when the holder goes, once every file is whole or removed.
class VEKToolHeldSignals {
 public:
  VEKToolHeldSignals() noexcept;
  ~VEKToolHeldSignals();
  VEKToolHeldSignals(const VEKToolHeldSignals&) = delete;
  VEKToolHeldSignals& operator=(const VEKToolHeldSignals&) = delete;

 private:
  sigset_t previous_;
};
