// Running a load of the library for the command-line tool, away from the user's directory.
#pragma once

#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"
#include "VEKToolInput.h"

// A private directory, made on first use and removed with everything in it when this object goes.
// Every current-schema load writes a dump of its document into the working directory; loads run
// inside this directory so that the dump never lands where the user works.
class VEKToolScratch {
 public:
  VEKToolScratch() = default;
  ~VEKToolScratch();
  VEKToolScratch(const VEKToolScratch&) = delete;
  VEKToolScratch& operator=(const VEKToolScratch&) = delete;

  // Makes the directory if needed. False with a message when it cannot be made.
  bool Prepare(std::string& error);
  // The directory's absolute path; empty before Prepare.
  const std::string& Directory() const { return directory_; }
  // Absolute path of the dump file that a load run in the directory writes.
  std::string DumpPath() const;

 private:
  std::string directory_;
};

// The outcome of one load.
struct VEKToolLoadResult {
  HRESULT result = E_FAIL;
  // The set returned by the load (the last it made); null when it made none.
  VEKComPtr<VEKITPSLightSet> lastSet;
  // Whether the load wrote its dump file.
  bool dumped = false;
};

// Loads `document` (decoded and parsed, schema known) in the form it was read in, with the working
// directory switched to `scratch` for the call only; its dump stays in `scratch` until the next
// load. False with a message when the scratch directory cannot be used (nothing loaded).
bool VEKToolLoad(const VEKToolDocument& document, VEKToolScratch& scratch, VEKToolLoadResult& out,
                 std::string& error);

// Copies the dump of the last load run in `scratch` to `path` (relative to the working
// directory). False with a message when it cannot be written.
bool VEKToolKeepDump(const VEKToolScratch& scratch, const std::string& path, std::string& error);

// Why a load of a document that parsed with a known root failed, as far as the document tells it;
// empty when it does not.
std::string VEKToolExplainFailedLoad(const VEKToolDocument& document);
