// Base64 (RFC 4648, standard alphabet with padding).
#pragma once

#include "VEKExport.h"
#include "VEKUnicodeString.h"

class VEK_API VEKCodePage {
 public:
  // Decodes `text` into a new array owned by the caller (release with delete[]) and its length.
  // Blanks, tabs and line breaks are skipped. Returns 0 on success; a negative value, with
  // `bytes` null and `length` 0, for a null or empty text, a character outside the alphabet,
  // misplaced padding or a length that is not a whole number of quanta, or when memory runs out.
  static int ConvertFromBase64(const char* text, unsigned char*& bytes,
                               unsigned int& length) noexcept;
  // Encodes `length` bytes as base64 with padding and no line breaks into `text`. Returns 0, or
  // a negative value (text unchanged) for null bytes with a non-zero length or when memory runs
  // out.
  static int ConvertToBase64(const unsigned char* bytes, unsigned int length,
                             VEKUnicodeString& text) noexcept;
};
