// Current-schema load of the input as plain XML text.
#include "FuzzSupport.h"
#include "VEKComPtr.h"
#include "VEKTPSLightParserUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vek_fuzz::EnterScratchDirectory();
  VEKUnicodeString text(reinterpret_cast<const char*>(data), size);
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  (void)parser.GenerateLightModelFromBase(text, nullptr, set.ReleaseAndGetAddressOf(), 0, nullptr,
                                          0, 0);
  return 0;
}
