// The Unicode string: UTF-8 storage, character positions, repair of invalid input and
// locale-independent number conversions.
#include "VEKUnicodeString.h"

#include <locale.h>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "VEKUtf8.h"

static_assert(sizeof(wchar_t) == 4, "wide characters are UTF-32");

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD";
constexpr std::size_t kReplacementBytes = 3;
constexpr std::uint64_t kHighBits = 0x8080808080808080ull;

// The cursor word: the character position in the low 31 bits, the byte offset above. A string
// holds at most INT32_MAX characters of at most 4 bytes, so every offset fits in the 33 bits left.
constexpr int kCursorCharBits = 31;
constexpr std::uint64_t kCursorCharMask = (std::uint64_t{1} << kCursorCharBits) - 1;

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Offset of the first byte >= 0x80 in [bytes, bytes + count), or count; eight bytes per step.
std::size_t AsciiPrefixLength(const unsigned char* bytes, std::size_t count) {
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes + i, sizeof word);
    if (word & kHighBits) break;
  }
  while (i < count && bytes[i] < 0x80) ++i;
  return i;
}

// Length of the well-formed UTF-8 sequence at `bytes` (1 to 4), or 0 when its first byte cannot
// start one.
std::size_t SequenceLength(const unsigned char* bytes, std::size_t available) {
  std::uint32_t unused = 0;
  return static_cast<std::size_t>(VEKDecodeUtf8(bytes, bytes + available, unused));
}

// Number of characters in [bytes, bytes + count), each invalid byte counting as one; `invalid`
// receives the number of invalid bytes.
std::size_t CountCharacters(const unsigned char* bytes, std::size_t count, std::size_t& invalid) {
  std::size_t chars = 0;
  invalid = 0;
  for (std::size_t i = 0; i < count;) {
    const std::size_t ascii = AsciiPrefixLength(bytes + i, count - i);
    chars += ascii;
    i += ascii;
    if (i == count) break;
    const std::size_t length = SequenceLength(bytes + i, count - i);
    ++chars;
    if (length == 0) {
      ++invalid;
      ++i;
    } else {
      i += length;
    }
  }
  return chars;
}

// Length of the sequence whose first byte is `lead`, in text already known to be valid.
std::size_t ValidSequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  return 4;
}

std::uint32_t ValidCodePoint(wchar_t wide) {
  const auto codePoint = static_cast<std::uint32_t>(wide);
  if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return kReplacement;
  return codePoint;
}

// The blanks of the "C" locale's isspace, tested without consulting the current locale.
bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Case-insensitive match of the lowercase ASCII `word` at the start of [text, end).
bool StartsWithWord(const char* text, const char* end, const char* word) {
  for (; *word; ++word, ++text) {
    if (text == end || (*text | 0x20) != *word) return false;
  }
  return true;
}

// A "C" locale made once, for the strtod_l fallback that decides overflow and underflow.
locale_t ClassicLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return locale;
}

// Points past the leading blanks of the zero-terminated text; null when only blanks remain.
const char* SkipBlanks(const char* text, const char* end) {
  while (text != end && IsBlank(*text)) ++text;
  return text == end || *text == '\0' ? nullptr : text;
}

// Parses a floating number without a sign at [text, end) into *magnitude; false when none.
// `signedText` is the text from its sign, for the out-of-range fallback.
bool ParseUnsignedDouble(const char* text, const char* end, const char* signedText,
                         double* magnitude) {
  if (StartsWithWord(text, end, "inf")) {
    *magnitude = std::numeric_limits<double>::infinity();
    return true;
  }
  if (StartsWithWord(text, end, "nan")) {
    *magnitude = std::numeric_limits<double>::quiet_NaN();
    return true;
  }
  std::from_chars_result result{text, std::errc::invalid_argument};
  if (end - text > 2 && text[0] == '0' && (text[1] | 0x20) == 'x') {
    result = std::from_chars(text + 2, end, *magnitude, std::chars_format::hex);
  }
  if (result.ec == std::errc::invalid_argument) {
    result = std::from_chars(text, end, *magnitude, std::chars_format::general);
  }
  if (result.ec == std::errc::result_out_of_range) {
    // strtod_l gives the correctly rounded +-HUGE_VAL, subnormal or zero; its sign is undone
    // here because the caller applies it.
    // The text may run on past `end`, so strtod_l reads a zero-terminated copy.
    const locale_t classic = ClassicLocale();
    if (!classic) return false;
    try {
      const std::string number(signedText, end);
      *magnitude = std::fabs(strtod_l(number.c_str(), nullptr, classic));
    } catch (const std::bad_alloc&) {
      return false;
    }
    return true;
  }
  return result.ec == std::errc();
}

}  // namespace

VEKUnicodeString::VEKUnicodeString() noexcept = default;

VEKUnicodeString::VEKUnicodeString(const char* utf8) noexcept {
  if (utf8) Assign(utf8, std::strlen(utf8));
}

VEKUnicodeString::VEKUnicodeString(const char* utf8, std::size_t byteLength) noexcept {
  if (utf8) Assign(utf8, byteLength);
}

VEKUnicodeString::VEKUnicodeString(BorrowTag, const char* utf8, std::size_t byteLength) noexcept {
  if (!utf8) return;
  std::size_t invalid = 0;
  const std::size_t chars =
      CountCharacters(reinterpret_cast<const unsigned char*>(utf8), byteLength, invalid);
  if (invalid > 0 || chars > static_cast<std::size_t>(INT32_MAX)) {
    // Text that needs repair (or is too long) takes the copying path.
    Assign(utf8, byteLength);
    return;
  }
  SetOutside(utf8);
  size_ = byteLength;
  length_ = static_cast<std::int32_t>(chars);
  ascii_ = chars == byteLength;
  storage_ = Storage::kBorrowed;
}

VEKUnicodeString::VEKUnicodeString(const wchar_t* utf32) noexcept {
  if (!utf32) return;
  // ASCII text, the usual case, is narrowed in one pass once its length is known.
  std::size_t chars = 0;
  wchar_t highest = 0;
  for (const wchar_t* wide = utf32; *wide; ++wide, ++chars) highest |= *wide;
  if (chars > static_cast<std::size_t>(INT32_MAX)) return;
  if (highest >= 0 && highest < 0x80) {
    char* out = Reserve(chars);
    if (!out) return;
    for (std::size_t i = 0; i < chars; ++i) out[i] = static_cast<char>(utf32[i]);
    length_ = static_cast<std::int32_t>(chars);
    return;
  }
  std::size_t bytes = 0;
  chars = 0;
  unsigned char scratch[4];
  for (const wchar_t* wide = utf32; *wide; ++wide, ++chars) {
    bytes += VEKEncodeUtf8(ValidCodePoint(*wide), scratch);
  }
  if (chars > static_cast<std::size_t>(INT32_MAX)) return;
  char* out = Reserve(bytes);
  if (!out) return;
  auto* next = reinterpret_cast<unsigned char*>(out);
  for (const wchar_t* wide = utf32; *wide; ++wide)
    next += VEKEncodeUtf8(ValidCodePoint(*wide), next);
  length_ = static_cast<std::int32_t>(chars);
  ascii_ = bytes == chars;
}

VEKUnicodeString::VEKUnicodeString(const VEKUnicodeString& other) noexcept { CopyFrom(other); }

VEKUnicodeString::VEKUnicodeString(VEKUnicodeString&& other) noexcept { TakeFrom(other); }

VEKUnicodeString::~VEKUnicodeString() {
  if (storage_ == Storage::kHeap) delete[] const_cast<char*>(outside_.pointer);
}

VEKUnicodeString& VEKUnicodeString::operator=(const VEKUnicodeString& other) noexcept {
  if (this != &other) {
    VEKUnicodeString copy(other);
    *this = std::move(copy);
  }
  return *this;
}

VEKUnicodeString& VEKUnicodeString::operator=(VEKUnicodeString&& other) noexcept {
  if (this != &other) TakeFrom(other);
  return *this;
}

void VEKUnicodeString::Reset() noexcept {
  if (storage_ == Storage::kHeap) delete[] const_cast<char*>(outside_.pointer);
  size_ = 0;
  length_ = 0;
  ascii_ = true;
  storage_ = Storage::kInline;
  inline_[0] = '\0';
}

char* VEKUnicodeString::Reserve(std::size_t byteLength) noexcept {
  Reset();
  char* room = inline_;
  if (byteLength > kInlineCapacity) {
    if (byteLength == SIZE_MAX) return nullptr;
    room = new (std::nothrow) char[byteLength + 1];
    if (!room) return nullptr;
    SetOutside(room);
    storage_ = Storage::kHeap;
  }
  room[byteLength] = '\0';
  size_ = byteLength;
  return room;
}

void VEKUnicodeString::CopyFrom(const VEKUnicodeString& other) noexcept {
  char* room = Reserve(other.size_);
  if (!room) return;
  std::memcpy(room, other.Data(), other.size_);
  length_ = other.length_;
  ascii_ = other.ascii_;
}

void VEKUnicodeString::TakeFrom(VEKUnicodeString& other) noexcept {
  if (other.storage_ != Storage::kHeap) {
    // Inline bytes are copied; borrowed ones too, since the result may outlive their owner.
    CopyFrom(other);
  } else {
    Reset();
    SetOutside(other.outside_.pointer);
    size_ = other.size_;
    length_ = other.length_;
    ascii_ = other.ascii_;
    storage_ = Storage::kHeap;
    other.storage_ = Storage::kInline;
  }
  other.Reset();
}

int VEKUnicodeString::operator==(const char* utf8) const noexcept {
  if (!utf8) utf8 = "";
  const std::size_t length = std::strlen(utf8);
  return length == size_ && std::memcmp(Data(), utf8, length) == 0;
}

int VEKUnicodeString::operator==(const VEKUnicodeString& other) const noexcept {
  return size_ == other.size_ && std::memcmp(Data(), other.Data(), size_) == 0;
}

int VEKUnicodeString::operator!=(const char* utf8) const noexcept { return !(*this == utf8); }

int VEKUnicodeString::operator!=(const VEKUnicodeString& other) const noexcept {
  return !(*this == other);
}

int VEKUnicodeString::GetLengthInChar() const noexcept { return length_; }

std::size_t VEKUnicodeString::GetLengthInByte() const noexcept { return size_; }

const char* VEKUnicodeString::ConvertToChar() const noexcept { return Data(); }

const char* VEKUnicodeString::CastToCharPtr() const noexcept { return Data(); }

void VEKUnicodeString::ConvertToWChar(wchar_t* target) const noexcept {
  if (!target) return;
  if (!ascii_) {
    ConvertViewToWChar(View(), target);
    return;
  }
  // One byte per character: a plain widening copy.
  const auto* bytes = reinterpret_cast<const unsigned char*>(Data());
  for (std::size_t i = 0; i < size_; ++i) target[i] = static_cast<wchar_t>(bytes[i]);
  target[size_] = L'\0';
}

int VEKUnicodeString::ConvertToNum(int* value, const char* format) const noexcept {
  return ConvertViewToNum(View(), value, format);
}

int VEKUnicodeString::ConvertToNum(double* value, const char* format) const noexcept {
  return ConvertViewToNum(View(), value, format);
}

int VEKUnicodeString::ConvertViewToNum(std::string_view utf8, int* value,
                                       const char* format) noexcept {
  if (!value || !format || std::strcmp(format, "%d") != 0) return 0;
  const char* end = utf8.data() + utf8.size();
  const char* text = SkipBlanks(utf8.data(), end);
  if (!text) return -1;
  const bool negative = *text == '-';
  const char* digits = (negative || *text == '+') ? text + 1 : text;
  if (digits == end || !IsDigit(*digits)) return 0;
  int parsed = 0;
  // from_chars takes the minus sign itself, so INT_MIN parses without overflow.
  const auto result = std::from_chars(negative ? text : digits, end, parsed);
  if (result.ec == std::errc::result_out_of_range) {
    parsed = negative ? INT_MIN : INT_MAX;
  } else if (result.ec != std::errc()) {
    return 0;
  }
  *value = parsed;
  return 1;
}

int VEKUnicodeString::ConvertViewToNum(std::string_view utf8, double* value,
                                       const char* format) noexcept {
  if (!value || !format ||
      (std::strcmp(format, "%le") != 0 && std::strcmp(format, "%lf") != 0 &&
       std::strcmp(format, "%lg") != 0)) {
    return 0;
  }
  const char* end = utf8.data() + utf8.size();
  const char* text = SkipBlanks(utf8.data(), end);
  if (!text) return -1;
  const bool negative = *text == '-';
  const char* unsignedText = (negative || *text == '+') ? text + 1 : text;
  double magnitude = 0.0;
  if (!ParseUnsignedDouble(unsignedText, end, text, &magnitude)) return 0;
  *value = negative ? -magnitude : magnitude;
  return 1;
}

void VEKUnicodeString::ConvertViewToWChar(std::string_view utf8, wchar_t* target) noexcept {
  if (!target) return;
  const auto* bytes = reinterpret_cast<const unsigned char*>(utf8.data());
  const unsigned char* end = bytes + utf8.size();
  for (const unsigned char* at = bytes; at < end;) {
    std::uint32_t codePoint = 0xFFFD;
    const int length = VEKDecodeUtf8(at, end, codePoint);
    // Never met in a string's own text, which is valid: a byte that starts no character stands
    // for itself as U+FFFD.
    at += length > 0 ? length : 1;
    *target++ = static_cast<wchar_t>(codePoint);
  }
  *target = L'\0';
}

int VEKUnicodeString::BuildFromNum(int value, const char* format) noexcept {
  if (!format || std::strcmp(format, "%d") != 0) return -1;
  char digits[16];
  const auto result = std::to_chars(digits, digits + sizeof digits, value);
  Assign(digits, static_cast<std::size_t>(result.ptr - digits));
  return length_;
}

int VEKUnicodeString::SearchSubString(const VEKUnicodeString& sub, int start,
                                      VEKSearchMode mode) const noexcept {
  if (mode != VEKSearchForward) return -1;
  if (start < 0) start = 0;
  if (start > length_) return -1;
  if (sub.size_ == 0) return start;
  const std::size_t from = ByteOffsetOf(start);
  const std::size_t found =
      std::string_view(Data(), size_).find(std::string_view(sub.Data(), sub.size_), from);
  if (found == std::string_view::npos) return -1;
  if (ascii_) return static_cast<int>(found);
  // Both texts are valid UTF-8, so a byte match starts on a character boundary.
  std::int32_t position = start;
  for (std::size_t i = from; i < found; ++i) {
    position += !IsContinuation(static_cast<unsigned char>(Data()[i]));
  }
  if (storage_ != Storage::kInline) MoveCursor(position, found);
  return position;
}

VEKUnicodeString VEKUnicodeString::SubString(int start, int length) const noexcept {
  VEKUnicodeString piece;
  if (start < 0) start = 0;
  if (length <= 0 || start >= length_) return piece;
  const std::int32_t count = length < length_ - start ? length : length_ - start;
  const std::size_t first = ByteOffsetOf(start);
  const std::size_t last = ByteOffsetOf(start + count);
  char* room = piece.Reserve(last - first);
  if (!room) return piece;
  std::memcpy(room, Data() + first, last - first);
  piece.length_ = count;
  piece.ascii_ = static_cast<std::size_t>(count) == last - first;
  return piece;
}

void VEKUnicodeString::Assign(const char* utf8, std::size_t byteLength) noexcept {
  Reset();
  const auto* bytes = reinterpret_cast<const unsigned char*>(utf8);

  // One pass counts the characters and the invalid bytes; valid text is then copied as it is.
  std::size_t invalid = 0;
  const std::size_t chars = CountCharacters(bytes, byteLength, invalid);
  if (chars > static_cast<std::size_t>(INT32_MAX)) return;

  if (invalid > (SIZE_MAX - byteLength) / (kReplacementBytes - 1)) return;
  const std::size_t size = byteLength + invalid * (kReplacementBytes - 1);
  char* out = Reserve(size);
  if (!out) return;
  if (invalid == 0) {
    std::memcpy(out, utf8, byteLength);
  } else {
    for (std::size_t i = 0; i < byteLength;) {
      const std::size_t length = SequenceLength(bytes + i, byteLength - i);
      if (length == 0) {
        std::memcpy(out, kReplacementUtf8, kReplacementBytes);
        out += kReplacementBytes;
        ++i;
      } else {
        std::memcpy(out, utf8 + i, length);
        out += length;
        i += length;
      }
    }
  }
  length_ = static_cast<std::int32_t>(chars);
  ascii_ = size == chars;
}

std::size_t VEKUnicodeString::ByteOffsetOf(int charPosition) const noexcept {
  if (ascii_) return static_cast<std::size_t>(charPosition);
  const auto* bytes = reinterpret_cast<const unsigned char*>(Data());
  // Start from whichever known point is nearest: the beginning, the cursor or the end. Inline
  // text keeps no cursor (it sits at the beginning).
  const bool hasCursor = storage_ != Storage::kInline;
  const std::uint64_t cursor = hasCursor ? outside_.cursor.load(std::memory_order_relaxed) : 0;
  const auto cursorChar = static_cast<std::int32_t>(cursor & kCursorCharMask);
  std::int32_t position = 0;
  std::size_t offset = 0;
  std::int32_t distance = charPosition;
  const std::int32_t fromCursor =
      charPosition >= cursorChar ? charPosition - cursorChar : cursorChar - charPosition;
  if (fromCursor < distance) {
    position = cursorChar;
    offset = static_cast<std::size_t>(cursor >> kCursorCharBits);
    distance = fromCursor;
  }
  if (length_ - charPosition < distance) {
    position = length_;
    offset = size_;
  }
  while (position < charPosition) {
    offset += ValidSequenceLength(bytes[offset]);
    ++position;
  }
  while (position > charPosition) {
    do {
      --offset;
    } while (IsContinuation(bytes[offset]));
    --position;
  }
  if (hasCursor) MoveCursor(position, offset);
  return offset;
}

void VEKUnicodeString::MoveCursor(std::int32_t charPosition,
                                  std::size_t byteOffset) const noexcept {
  const std::uint64_t cursor = (static_cast<std::uint64_t>(byteOffset) << kCursorCharBits) |
                               static_cast<std::uint32_t>(charPosition);
  outside_.cursor.store(cursor, std::memory_order_relaxed);
}

void VEKUnicodeString::SetOutside(const char* pointer) noexcept {
  new (&outside_) Outside{pointer, 0};
}
