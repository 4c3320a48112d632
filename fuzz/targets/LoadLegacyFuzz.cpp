// Legacy-schema load of the input as zero-terminated XML text.
#include <string>

#include "FuzzSupport.h"
#include "VEKComPtr.h"
#include "VEKTPSLightParserUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vek_fuzz::EnterScratchDirectory();
  const std::string text(reinterpret_cast<const char*>(data), size);
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  (void)parser.GenerateLightModel(text.c_str(), nullptr, set.ReleaseAndGetAddressOf());
  return 0;
}
