// Base64 with the standard alphabet and padding: the encoder, and a table-driven decoder that
// takes eight characters per step while the text holds no blanks or padding.
#include "VEKCodePage.h"

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr int kInvalidText = -1;
constexpr int kOutOfMemory = -2;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Table values: 0..63 for the alphabet, then the three kinds of other characters.
constexpr std::uint8_t kPadding = 0x40;
constexpr std::uint8_t kBlank = 0x41;
constexpr std::uint8_t kInvalid = 0xFF;

constexpr std::array<std::uint8_t, 256> MakeDecodeTable() {
  std::array<std::uint8_t, 256> table{};
  for (auto& entry : table) entry = kInvalid;
  for (std::uint8_t value = 0; value < 64; ++value) {
    table[static_cast<unsigned char>(kAlphabet[value])] = value;
  }
  table['='] = kPadding;
  table[' '] = kBlank;
  table['\t'] = kBlank;
  table['\r'] = kBlank;
  table['\n'] = kBlank;
  return table;
}

constexpr std::array<std::uint8_t, 256> kDecode = MakeDecodeTable();

// The same lookup pre-shifted to each character's place in a quantum's 24 bits, for the fast
// path: OR-ing four entries gives the quantum, and bit 24 marks any non-alphabet character.
struct ShiftedTables {
  std::uint32_t place[4][256];
};
constexpr std::uint32_t kNotAlphabetBit = 1u << 24;

constexpr ShiftedTables MakeShiftedTables() {
  ShiftedTables tables{};
  for (int place = 0; place < 4; ++place) {
    for (int c = 0; c < 256; ++c) {
      const std::uint32_t value = kDecode[c];
      tables.place[place][c] = value < 64 ? value << (18 - 6 * place) : kNotAlphabetBit;
    }
  }
  return tables;
}

constexpr ShiftedTables kShifted = MakeShiftedTables();

void Store3(unsigned char* out, std::uint32_t bits) {
  out[0] = static_cast<unsigned char>(bits >> 16);
  out[1] = static_cast<unsigned char>(bits >> 8);
  out[2] = static_cast<unsigned char>(bits);
}

// The 24 bits of the quantum at `in`, with kNotAlphabetBit set when a character is not in the
// alphabet.
std::uint32_t Quantum(const unsigned char* in) {
  return kShifted.place[0][in[0]] | kShifted.place[1][in[1]] | kShifted.place[2][in[2]] |
         kShifted.place[3][in[3]];
}

// The 48 bits of two quanta as six bytes, most significant first.
void Store6(unsigned char* out, std::uint64_t bits) {
  std::uint64_t word = bits << 16;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  word = __builtin_bswap64(word);
#endif
  std::memcpy(out, &word, 6);
}

// Decodes [in, end) into `out` of `capacity` bytes; returns the produced length, or -1 for text
// that is not base64 or whose output would not fit.
std::int64_t Decode(const unsigned char* in, const unsigned char* end, unsigned char* out,
                    std::uint64_t capacity) {
  unsigned char* const first = out;
  unsigned char* const outEnd = out + capacity;
  for (;;) {
    // Plain quanta, two per step: as many as both the text and the output can take, without
    // further checks. A pair with a character outside the alphabet leaves its first quantum to
    // the single step below.
    std::uint64_t quanta = static_cast<std::uint64_t>(end - in) / 4;
    const std::uint64_t room = static_cast<std::uint64_t>(outEnd - out) / 3;
    if (room < quanta) quanta = room;
    for (; quanta >= 2; quanta -= 2) {
      const std::uint32_t high = Quantum(in);
      const std::uint32_t low = Quantum(in + 4);
      if ((high | low) & kNotAlphabetBit) break;
      Store6(out, (std::uint64_t{high} << 24) | low);
      in += 8;
      out += 6;
    }
    if (quanta > 0) {
      const std::uint32_t bits = Quantum(in);
      if (!(bits & kNotAlphabetBit)) {
        Store3(out, bits);
        in += 4;
        out += 3;
        continue;
      }
    }

    // One quantum character by character: blanks, padding, the end or an invalid character.
    std::uint32_t bits = 0;
    int count = 0;
    bool padded = false;
    while (count < 4 && in != end && !padded) {
      const std::uint8_t value = kDecode[*in++];
      if (value < 64) {
        bits = (bits << 6) | value;
        ++count;
      } else if (value == kPadding) {
        padded = true;
      } else if (value != kBlank) {
        return -1;
      }
    }
    if (count == 4) {
      if (outEnd - out < 3) return -1;
      Store3(out, bits);
      out += 3;
      continue;
    }
    if (!padded) {
      if (count == 0) break;
      return -1;
    }
    // Only padding ends a partial quantum: "xx==" or "xxx=", followed by blanks alone.
    if (count < 2) return -1;
    int padding = 1;
    for (; in != end; ++in) {
      const std::uint8_t value = kDecode[*in];
      if (value == kPadding && padding + count < 4) {
        ++padding;
      } else if (value != kBlank) {
        return -1;
      }
    }
    if (padding + count != 4) return -1;
    const int produced = count - 1;
    if (outEnd - out < produced) return -1;
    bits <<= 6 * padding;
    out[0] = static_cast<unsigned char>(bits >> 16);
    if (produced == 2) out[1] = static_cast<unsigned char>(bits >> 8);
    out += produced;
    break;
  }
  return out - first;
}

}  // namespace

int VEKCodePage::ConvertFromBase64(const char* text, unsigned char*& bytes,
                                   unsigned int& length) noexcept {
  bytes = nullptr;
  length = 0;
  if (!text) return kInvalidText;
  const std::uint64_t textLength = std::strlen(text);
  // Four characters give at most three bytes; the result must be countable in an unsigned int.
  std::uint64_t capacity = textLength / 4 * 3;
  if (capacity == 0) return kInvalidText;
  if (capacity > UINT_MAX) capacity = UINT_MAX;
  std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[capacity]);
  if (!buffer) return kOutOfMemory;
  const std::int64_t produced =
      ReadBase64(text, static_cast<std::size_t>(textLength), buffer.get(), capacity);
  if (produced <= 0) return kInvalidText;
  bytes = buffer.release();
  length = static_cast<unsigned int>(produced);
  return 0;
}

std::int64_t VEKCodePage::ReadBase64(const char* text, std::size_t length, unsigned char* bytes,
                                     std::size_t capacity) noexcept {
  if ((!text && length > 0) || (!bytes && capacity > 0)) return -1;
  const auto* in = reinterpret_cast<const unsigned char*>(text);
  return Decode(in, in + length, bytes, capacity);
}

int VEKCodePage::ConvertToBase64(const unsigned char* bytes, unsigned int length,
                                 VEKUnicodeString& text) noexcept {
  if (!bytes && length > 0) return kInvalidText;
  const std::size_t textLength = Base64Length(length);
  // A string counts its characters in 32 bits.
  if (textLength > INT32_MAX) return kOutOfMemory;
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[textLength]);
  if (!buffer) return kOutOfMemory;
  if (WriteBase64(bytes, length, buffer.get(), textLength) != textLength) return kInvalidText;
  VEKUnicodeString encoded(buffer.get(), textLength);
  if (encoded.GetLengthInByte() != textLength) return kOutOfMemory;
  text = std::move(encoded);
  return 0;
}

std::size_t VEKCodePage::Base64Length(std::size_t length) noexcept {
  const std::size_t quanta = length / 3 + (length % 3 != 0);
  return quanta <= SIZE_MAX / 4 ? quanta * 4 : 0;
}

std::size_t VEKCodePage::WriteBase64(const unsigned char* bytes, std::size_t length, char* text,
                                     std::size_t capacity) noexcept {
  const std::size_t textLength = Base64Length(length);
  if ((!bytes && length > 0) || (textLength == 0 && length > 0) || textLength > capacity) return 0;
  char* out = text;
  std::size_t i = 0;
  for (; length - i >= 3; i += 3) {
    const std::uint32_t bits = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    *out++ = kAlphabet[bits >> 18];
    *out++ = kAlphabet[(bits >> 12) & 63];
    *out++ = kAlphabet[(bits >> 6) & 63];
    *out++ = kAlphabet[bits & 63];
  }
  if (length - i > 0) {
    const bool two = length - i == 2;
    const std::uint32_t bits = (bytes[i] << 16) | (two ? bytes[i + 1] << 8 : 0);
    *out++ = kAlphabet[bits >> 18];
    *out++ = kAlphabet[(bits >> 12) & 63];
    *out++ = two ? kAlphabet[(bits >> 6) & 63] : '=';
    *out++ = '=';
  }
  return textLength;
}
