// Writes sets with the current-schema writer, loads what was written, and tells whether the
// same model came back: the JSON exports of both agree but for the members the writer named in
// its warnings and the references the source could not resolve.
#pragma once

#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"
#include "VEKTPSLightWriter.h"

namespace vek_fuzz {

struct RoundTrip {
  // The writer's result (its bytes included).
  VEKTPSLightWriteResult written;
  // Empty when the same model came back; otherwise the first difference found, in words.
  std::string difference;
};

// Writes `sets` with `options`, loads the result in the form written, and compares.
RoundTrip WriteAndReload(const std::vector<VEKComPtr<VEKITPSLightSet>>& sets,
                         const VEKTPSLightWriteOptions& options = {});

}  // namespace vek_fuzz
