// Well-formedness checks that the tree parser leaves out, made in one pass over the UTF-8 text
// before it is parsed, and the conversion of other encodings to UTF-8 that comes first.
#pragma once

#include <cstddef>

namespace vek_lightxml_detail {

// The first fault found: its byte offset and a short English description.
struct WellFormedError {
  std::ptrdiff_t offset = -1;
  const char* description = "";
};

// The encodings read besides UTF-8, as told by a byte order mark, the first character or the XML
// declaration.
enum class TextEncoding {
  kUtf8,
  kUtf16LittleEndian,
  kUtf16BigEndian,
  kUtf32LittleEndian,
  kUtf32BigEndian,
  kLatin1
};

// Where a checked document stands in its bytes.
struct DocumentExtent {
  // The document proper, without the zeros that may pad it.
  std::size_t length = 0;
  // The root element: its '<' and the byte after its end.
  std::size_t rootBegin = 0;
  std::size_t rootEnd = 0;
  // Whether a document type declaration came before the root.
  bool doctype = false;
};

// Checks the UTF-8 document [bytes, bytes + length) for everything the tree parser does not:
// encoding and characters, names, references, attribute values, comments, declarations, text
// outside the root element, repeated attributes. The declared encoding is not compared with the
// bytes, which were told apart by their first bytes. Nesting and tag matching are left to the
// parser. Returns false with `error` set at the first fault; true with `extent` set; may throw
// std::bad_alloc.
bool CheckWellFormed(const unsigned char* bytes, std::size_t length, WellFormedError& error,
                     DocumentExtent& extent);

// The encoding of the document that starts with [bytes, bytes + length).
TextEncoding DetectEncoding(const unsigned char* bytes, std::size_t length) noexcept;

// Writes [bytes, bytes + length) in `encoding` as UTF-8 without a byte order mark into `output`,
// which holds at least Utf8Capacity(length) bytes; returns the length written, or -1 with `error`
// set at the first malformed code unit (a lone surrogate, a value beyond U+10FFFF, a cut unit).
// A zero code unit ends the text.
std::ptrdiff_t ConvertToUtf8(const unsigned char* bytes, std::size_t length, TextEncoding encoding,
                             unsigned char* output, WellFormedError& error) noexcept;

// Room enough for the UTF-8 form of `length` bytes in any encoding above (Latin-1 doubles at
// most; UTF-16 needs at most 3 bytes per 2); 0 when that does not fit in a size_t.
std::size_t Utf8Capacity(std::size_t length) noexcept;

}  // namespace vek_lightxml_detail
