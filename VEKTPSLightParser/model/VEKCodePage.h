// Base64 (RFC 4648, standard alphabet with padding).
#pragma once

#include <cstddef>
#include <cstdint>

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
  // Decodes the `length` characters at `text` (no terminating zero needed) by the same rules into
  // `bytes`, which holds `capacity` bytes. Returns the number of bytes written (0 for blanks
  // alone), or -1 for text those rules refuse or whose bytes would not fit.
  [[nodiscard]] static std::int64_t ReadBase64(const char* text, std::size_t length,
                                               unsigned char* bytes, std::size_t capacity) noexcept;
  // Encodes `length` bytes as base64 with padding and no line breaks into `text`. Returns 0, or
  // a negative value (text unchanged) for null bytes with a non-zero length or when memory runs
  // out.
  static int ConvertToBase64(const unsigned char* bytes, unsigned int length,
                             VEKUnicodeString& text) noexcept;
  // The number of characters of the base64 text of `length` bytes: 4 for every 3 bytes begun;
  // 0 for no bytes, or when the number does not fit in a size_t.
  static std::size_t Base64Length(std::size_t length) noexcept;
  // Writes the base64 text of `length` bytes, with padding, no line breaks and no terminating
  // zero, into `text`, which holds `capacity` characters. Returns Base64Length(length), or 0 with
  // nothing written when the text does not fit or `bytes` is null with a non-zero length.
  [[nodiscard]] static std::size_t WriteBase64(const unsigned char* bytes, std::size_t length,
                                               char* text, std::size_t capacity) noexcept;
};
