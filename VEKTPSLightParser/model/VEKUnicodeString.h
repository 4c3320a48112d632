// Unicode string value type. Held as UTF-8; positions and lengths count characters (code
// points), not bytes. Text that is not valid UTF-8 is repaired on entry: each invalid byte
// becomes U+FFFD, so a string always holds valid UTF-8. Any number of threads may read one string
// at once (const members only); changing it while another thread reads it is a race.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "VEKExport.h"

namespace vek_lightxml_detail {
class Document;
}  // namespace vek_lightxml_detail

class VEK_API VEKUnicodeString {
 public:
  enum VEKSearchMode { VEKSearchForward = 1 };

  VEKUnicodeString() noexcept;
  // From a zero-terminated UTF-8 text; null gives the empty string.
  VEKUnicodeString(const char* utf8) noexcept;
  // From `byteLength` bytes of UTF-8 (zero bytes included).
  VEKUnicodeString(const char* utf8, std::size_t byteLength) noexcept;
  // From a zero-terminated UTF-32 text (wchar_t is 4 bytes); invalid code points become U+FFFD.
  explicit VEKUnicodeString(const wchar_t* utf32) noexcept;
  VEKUnicodeString(const VEKUnicodeString& other) noexcept;
  VEKUnicodeString(VEKUnicodeString&& other) noexcept;
  ~VEKUnicodeString();
  VEKUnicodeString& operator=(const VEKUnicodeString& other) noexcept;
  VEKUnicodeString& operator=(VEKUnicodeString&& other) noexcept;

  // Exact, case-sensitive comparison of the whole string; non-zero when the relation holds.
  int operator==(const char* utf8) const noexcept;
  int operator==(const VEKUnicodeString& other) const noexcept;
  int operator!=(const char* utf8) const noexcept;
  int operator!=(const VEKUnicodeString& other) const noexcept;

  // Number of characters; 0 for the empty string.
  int GetLengthInChar() const noexcept;
  // Number of bytes of the UTF-8 form, without the terminating zero.
  std::size_t GetLengthInByte() const noexcept;

  // The UTF-8 form, zero-terminated, owned by the string and valid until it changes; never null.
  const char* ConvertToChar() const noexcept;
  // The same text as a C string (used for file names).
  const char* CastToCharPtr() const noexcept;
  // Writes the characters as UTF-32 plus a terminating zero into `target`, which must hold
  // GetLengthInChar() + 1 wide characters. Null target: nothing is written.
  void ConvertToWChar(wchar_t* target) const noexcept;

  // scanf-like conversion, independent of the C locale. "%d": optional leading blanks, a sign and
  // decimal digits; values beyond the int range saturate to INT_MIN / INT_MAX. "%le" (also "%lf",
  // "%lg"): a decimal or hexadecimal floating number, "inf" or "nan"; overflow gives +-infinity.
  // Text after the number is ignored. Returns 1 when a number was stored, 0 when nothing converts
  // or the format is not supported, -1 when the string is empty or blank; `*value` is written
  // only on 1.
  int ConvertToNum(int* value, const char* format) const noexcept;
  int ConvertToNum(double* value, const char* format) const noexcept;
  // The same conversions of a UTF-8 text given as a view.
  static int ConvertViewToNum(std::string_view utf8, int* value, const char* format) noexcept;
  static int ConvertViewToNum(std::string_view utf8, double* value, const char* format) noexcept;
  // Writes the characters of the UTF-8 text `utf8` as UTF-32 plus a terminating zero into
  // `target`, which must hold utf8.size() + 1 wide characters; a byte that starts no character
  // becomes U+FFFD. Null target: nothing is written.
  static void ConvertViewToWChar(std::string_view utf8, wchar_t* target) noexcept;
  // The UTF-8 form as a view, valid until the string changes.
  std::string_view View() const noexcept { return {Data(), size_}; }
  // Makes the string the decimal form of `value` ("%d"); returns its length, or -1 (string left
  // unchanged) for any other format.
  int BuildFromNum(int value, const char* format) noexcept;

  // Position of the first occurrence of `sub` at or after character `start` (negative start
  // counts as 0), or -1 when there is none. An empty `sub` is found at `start` when start is
  // within the string or at its end.
  int SearchSubString(const VEKUnicodeString& sub, int start, VEKSearchMode mode) const noexcept;
  // The `length` characters from `start`, clamped to the string: a negative start counts from
  // 0, a negative length or a start past the end gives the empty string.
  VEKUnicodeString SubString(int start, int length) const noexcept;

 private:
  friend class vek_lightxml_detail::Document;

  enum class Storage : std::uint8_t { kInline, kHeap, kBorrowed };
  // Room for a uuid's 36 characters, the longest text a model object usually keeps.
  static constexpr std::size_t kInlineCapacity = 39;

  struct BorrowTag {};
  // Refers to the `byteLength` bytes at `utf8`, followed by a zero byte, in place when they are
  // valid UTF-8 (they must then outlive the string); copies and repairs them otherwise. Only the
  // XML layer makes such strings, for text that lives as long as its document; every copy of one
  // owns its bytes.
  VEKUnicodeString(BorrowTag, const char* utf8, std::size_t byteLength) noexcept;

  const char* Data() const noexcept {
    return storage_ == Storage::kInline ? inline_ : outside_.pointer;
  }
  // Frees what the string owns and leaves it empty.
  void Reset() noexcept;
  // Makes room for `byteLength` bytes plus the terminating zero, which is written; returns where
  // the bytes go, or null (string left empty) when memory runs out.
  char* Reserve(std::size_t byteLength) noexcept;
  void CopyFrom(const VEKUnicodeString& other) noexcept;
  void TakeFrom(VEKUnicodeString& other) noexcept;
  void Assign(const char* utf8, std::size_t byteLength) noexcept;
  std::size_t ByteOffsetOf(int charPosition) const noexcept;
  // Stores the cursor at `charPosition`, which starts at `byteOffset`.
  void MoveCursor(std::int32_t charPosition, std::size_t byteOffset) const noexcept;

  // Text stored outside the string: a heap block it owns, or borrowed text. The cursor is the last
  // character position translated to a byte offset in non-ASCII text, so that sequential scans
  // cost linear time in total instead of quadratic (inline text is short enough to scan). Reads
  // from several threads at once may move it: both values share one relaxed atomic word, so each
  // read sees a pair that holds for this text, whichever thread stored it.
  struct Outside {
    const char* pointer;
    mutable std::atomic<std::uint64_t> cursor;
  };
  // Makes outside_ the active member, holding `pointer` with the cursor at the beginning.
  void SetOutside(const char* pointer) noexcept;
  // The bytes, always followed by a zero byte: in inline_ for short text, else in outside_.
  union {
    char inline_[kInlineCapacity + 1] = {};
    Outside outside_;
  };
  std::size_t size_ = 0;
  std::int32_t length_ = 0;
  bool ascii_ = true;
  Storage storage_ = Storage::kInline;
};
