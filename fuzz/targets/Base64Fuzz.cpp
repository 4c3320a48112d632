// Base64 decoding of the input as zero-terminated text.
#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "VEKCodePage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  unsigned char* bytes = nullptr;
  unsigned int length = 0;
  const int result = VEKCodePage::ConvertFromBase64(text.c_str(), bytes, length);
  const std::unique_ptr<unsigned char[]> owned(bytes);
  // Failure leaves nothing behind; success yields at most 3 bytes per 4 characters.
  if (result < 0 && (bytes || length != 0)) __builtin_trap();
  if (result >= 0 && (!bytes || length > size / 4 * 3)) __builtin_trap();
  return 0;
}
