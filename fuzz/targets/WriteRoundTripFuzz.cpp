// Loads the input in any form and schema, writes its model with the current-schema writer, loads
// what was written and requires the same model, but for what the writer named in its warnings.
#include <cstdio>
#include <cstdlib>

#include "FuzzSupport.h"
#include "VEKTPSLightDocument.h"
#include "WriterRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  VEKTPSLightLoadOptions load;
  // A legacy document rebuilds every object once per set: keep each run small.
  load.maxObjects = 20000;
  const VEKTPSLightDocument document = VEKLoadDocument(data, size, load);
  if (document.Sets().empty()) return 0;
  // Each input is written in one of the three forms, chosen by its size.
  constexpr VEKTPSLightForm kForms[] = {VEKTPSLightForm::Plain, VEKTPSLightForm::Base64,
                                        VEKTPSLightForm::Zlib};
  VEKTPSLightWriteOptions options;
  options.form = kForms[size % 3];
  options.compressionLevel = 1;
  const vek_fuzz::RoundTrip trip = vek_fuzz::WriteAndReload(document.Sets(), options);
  if (!trip.difference.empty()) {
    std::fprintf(stderr, "round trip changed the model: %s\n", trip.difference.c_str());
    std::abort();
  }
  return 0;
}
