// UTF-8 decoding and encoding of single characters, shared by the strings and the XML layer.
// Inline: the XML well-formedness checks decode every character from 0x80 up in their hot loop.
#pragma once

#include <cstddef>
#include <cstdint>

// Decodes the character at `p` (p < end) into `codePoint`. Returns the length of its UTF-8
// sequence (1 to 4), or 0 (`codePoint` unchanged) when the bytes there are not the shortest form
// of a scalar value: overlong forms, surrogates, values beyond U+10FFFF, a stray continuation
// byte, or a sequence cut by `end`.
inline int VEKDecodeUtf8(const unsigned char* p, const unsigned char* end,
                         std::uint32_t& codePoint) noexcept {
  const unsigned lead = p[0];
  const std::ptrdiff_t left = end - p;
  const auto continuation = [](unsigned char byte) { return (byte & 0xC0) == 0x80; };
  if (lead < 0x80) {
    codePoint = lead;
    return 1;
  }
  if (lead >= 0xC2 && lead <= 0xDF) {
    if (left < 2 || !continuation(p[1])) return 0;
    codePoint = ((lead & 0x1Fu) << 6) | (p[1] & 0x3Fu);
    return 2;
  }
  if (lead >= 0xE0 && lead <= 0xEF) {
    // The second byte's range excludes the overlong forms (after E0) and the surrogates (ED).
    const unsigned low = lead == 0xE0 ? 0xA0 : 0x80;
    const unsigned high = lead == 0xED ? 0x9F : 0xBF;
    if (left < 3 || p[1] < low || p[1] > high || !continuation(p[2])) return 0;
    codePoint = ((lead & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
    return 3;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    // The overlong forms (after F0) and the values beyond U+10FFFF (after F4).
    const unsigned low = lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xF4 ? 0x8F : 0xBF;
    if (left < 4 || p[1] < low || p[1] > high || !continuation(p[2]) || !continuation(p[3])) {
      return 0;
    }
    codePoint =
        ((lead & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
    return 4;
  }
  return 0;
}

// Writes the UTF-8 form of the scalar value `codePoint` (not a surrogate, at most U+10FFFF) to
// `out`, which has room for 4 bytes; returns the number of bytes written.
inline std::size_t VEKEncodeUtf8(std::uint32_t codePoint, unsigned char* out) noexcept {
  if (codePoint < 0x80) {
    out[0] = static_cast<unsigned char>(codePoint);
    return 1;
  }
  if (codePoint < 0x800) {
    out[0] = static_cast<unsigned char>(0xC0 | (codePoint >> 6));
    out[1] = static_cast<unsigned char>(0x80 | (codePoint & 0x3F));
    return 2;
  }
  if (codePoint < 0x10000) {
    out[0] = static_cast<unsigned char>(0xE0 | (codePoint >> 12));
    out[1] = static_cast<unsigned char>(0x80 | ((codePoint >> 6) & 0x3F));
    out[2] = static_cast<unsigned char>(0x80 | (codePoint & 0x3F));
    return 3;
  }
  out[0] = static_cast<unsigned char>(0xF0 | (codePoint >> 18));
  out[1] = static_cast<unsigned char>(0x80 | ((codePoint >> 12) & 0x3F));
  out[2] = static_cast<unsigned char>(0x80 | ((codePoint >> 6) & 0x3F));
  out[3] = static_cast<unsigned char>(0x80 | (codePoint & 0x3F));
  return 4;
}
