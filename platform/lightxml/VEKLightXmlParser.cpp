// Parsing streams into documents and writing elements back as XML text.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "VEKLightXml.h"
#include "VEKLightXmlDocument.h"
#include "VEKLightXmlWellFormed.h"

using vek_lightxml_detail::CheckWellFormed;
using vek_lightxml_detail::ConvertToUtf8;
using vek_lightxml_detail::DetectEncoding;
using vek_lightxml_detail::Document;
using vek_lightxml_detail::DocumentExtent;
using vek_lightxml_detail::Node;
using vek_lightxml_detail::TextEncoding;
using vek_lightxml_detail::Utf8Capacity;
using vek_lightxml_detail::WellFormedError;

namespace {

constexpr const char* kOutOfMemory = "Could not allocate memory";

using ParseError = VEKLightXmlParser::ParseError;

// Writes `root` and everything under it, walking the tree without recursion.
void WriteTree(pugi::xml_node root, VEKLightXmlWriter& writer) {
  pugi::xml_node node = root;
  for (;;) {
    if (node.type() == pugi::node_element) {
      writer.StartElement(node.name());
      for (pugi::xml_attribute attribute = node.first_attribute(); attribute;
           attribute = attribute.next_attribute()) {
        writer.Attribute(attribute.name(), attribute.value());
      }
      if (node.first_child()) {
        node = node.first_child();
        continue;
      }
      writer.EndElement(node.name());
    } else if (node.type() == pugi::node_pcdata) {
      writer.Text(node.value());
    } else if (node.type() == pugi::node_cdata) {
      writer.Cdata(node.value());
    }
    while (node != root && !node.next_sibling()) {
      node = node.parent();
      writer.EndElement(node.name());
    }
    if (node == root) break;
    node = node.next_sibling();
  }
}

// Text in memory from pugixml's allocator, which a document can take over.
struct OwnedText {
  struct Free {
    void operator()(unsigned char* bytes) const { pugi::get_memory_deallocation_function()(bytes); }
  };
  static unsigned char* Allocate(std::size_t size) {
    return static_cast<unsigned char*>(pugi::get_memory_allocation_function()(size));
  }
  std::unique_ptr<unsigned char, Free> bytes;
  std::size_t size = 0;
};

// Streams without a contiguous block are read whole into memory; false when memory runs out
// (with no bytes left) or the stream holds more than INT_MAX bytes.
bool ReadWhole(VEKLightXmlInputStream& input, OwnedText& text) {
  constexpr std::size_t kMaxBytes = INT_MAX;
  // One byte beyond the announced length lets the end show without growing.
  std::size_t capacity = static_cast<std::size_t>(std::max(input.GetLength(), 0)) + 1;
  text.bytes.reset(OwnedText::Allocate(capacity));
  text.size = 0;
  while (text.bytes) {
    if (text.size == capacity) {
      if (capacity > kMaxBytes) return false;
      const std::size_t grown = std::min(capacity * 2, kMaxBytes + 1);
      OwnedText::Free free;
      std::unique_ptr<unsigned char, OwnedText::Free> larger(OwnedText::Allocate(grown), free);
      if (!larger) {
        text.bytes.reset();
        return false;
      }
      std::copy(text.bytes.get(), text.bytes.get() + text.size, larger.get());
      text.bytes = std::move(larger);
      capacity = grown;
    }
    const int room = static_cast<int>(std::min<std::size_t>(capacity - text.size, INT_MAX));
    const int count = input.Read(text.bytes.get() + text.size, room);
    if (count <= 0) return true;
    text.size += static_cast<std::size_t>(std::min(count, room));
  }
  return false;
}

// The input as the tree parser gets it.
struct CheckedText {
  // The input's bytes, or `read` when the stream had no block of its own.
  const unsigned char* bytes = nullptr;
  std::size_t size = 0;
  OwnedText read;
  // The UTF-8 form of input in another encoding.
  OwnedText converted;
  TextEncoding encoding = TextEncoding::kUtf8;
  DocumentExtent extent;

  const unsigned char* Utf8() const { return converted.bytes ? converted.bytes.get() : bytes; }
};

// Converts [bytes, bytes + size) from `encoding` into new UTF-8 text in `text`. False with
// `fault` set when the text is malformed, or with `text` empty when memory runs out.
bool ConvertText(const unsigned char* bytes, std::size_t size, TextEncoding encoding,
                 OwnedText& text, WellFormedError& fault) {
  const std::size_t capacity = Utf8Capacity(size);
  text.bytes.reset(capacity ? OwnedText::Allocate(capacity) : nullptr);
  if (!text.bytes) return false;
  const std::ptrdiff_t written = ConvertToUtf8(bytes, size, encoding, text.bytes.get(), fault);
  text.size = written < 0 ? static_cast<std::size_t>(std::max<std::ptrdiff_t>(fault.offset, 0))
                          : static_cast<std::size_t>(written);
  return written >= 0;
}

// Whether a line ends at byte `at`: a line feed, or a carriage return not followed by one.
bool IsLineBreak(const unsigned char* text, std::size_t size, std::size_t at) {
  const unsigned char c = text[at];
  if (c > '\r') return false;
  return c == '\n' || (c == '\r' && (at + 1 == size || text[at + 1] != '\n'));
}

// The line and column, from 1, of byte `offset` of the UTF-8 text [text, text + size): the column
// counts characters, and a byte order mark starting the text is not one.
void PlaceOffset(const unsigned char* text, std::size_t size, std::size_t offset, int& line,
                 int& column) {
  const std::size_t end = std::min(offset, size);
  std::size_t lineStart = 0;
  std::int64_t lines = 1;
  for (std::size_t at = 0; at < end; ++at) {
    if (IsLineBreak(text, size, at)) {
      ++lines;
      lineStart = at + 1;
    }
  }
  if (lineStart == 0 && size >= 3 && text[0] == 0xEF && text[1] == 0xBB && text[2] == 0xBF) {
    lineStart = std::min<std::size_t>(3, end);
  }
  std::int64_t characters = 1;
  for (std::size_t at = lineStart; at < end; ++at) characters += (text[at] & 0xC0) != 0x80;
  line = static_cast<int>(std::min<std::int64_t>(lines, INT_MAX));
  column = static_cast<int>(std::min<std::int64_t>(characters, INT_MAX));
}

// A fault at `fault.offset` of the UTF-8 text [text, text + size), which must be intact.
ParseError Placed(const WellFormedError& fault, const unsigned char* text, std::size_t size) {
  ParseError error;
  error.offset = fault.offset;
  error.description = fault.description;
  if (fault.offset >= 0) {
    PlaceOffset(text, size, static_cast<std::size_t>(fault.offset), error.line, error.column);
  }
  return error;
}

// Reads `input` into `text` as checked UTF-8: the caller's bytes when they are UTF-8 already in
// one block, or a copy of ours. False with `error` set when it is not a well-formed document.
bool PrepareText(VEKLightXmlInputStream& input, CheckedText& text, ParseError& error) {
  text.bytes = input.GetBytes();
  text.size = static_cast<std::size_t>(std::max(input.GetLength(), 0));
  if (!text.bytes || input.GetLength() < 0) {
    if (!ReadWhole(input, text.read)) {
      error.description = text.read.bytes ? "The input is too large" : kOutOfMemory;
      return false;
    }
    text.bytes = text.read.bytes.get();
    text.size = text.read.size;
  }
  text.encoding = DetectEncoding(text.bytes, text.size);
  WellFormedError fault;
  if (text.encoding != TextEncoding::kUtf8 &&
      !ConvertText(text.bytes, text.size, text.encoding, text.converted, fault)) {
    if (!text.converted.bytes) {
      error.description = kOutOfMemory;
      return false;
    }
    error = Placed(fault, text.converted.bytes.get(), text.converted.size);
    return false;
  }
  const std::size_t size = text.converted.bytes ? text.converted.size : text.size;
  if (!CheckWellFormed(text.Utf8(), size, fault, text.extent)) {
    error = Placed(fault, text.Utf8(), size);
    return false;
  }
  return true;
}

// Parses the checked `text` into `document`. Zeros padding the document are left out: the parser
// would stop at the first, and copying them would make its memory follow the declared length
// rather than the document. The checks leave the parser nesting and tag matching. Its default
// options keep no document type declaration and expand only the predefined entities and
// character references, so entity declarations cannot blow the text up.
bool LoadTree(Document& document, CheckedText& text, ParseError& error) {
  const bool converted = text.converted.bytes != nullptr;
  const pugi::xml_parse_result result =
      converted
          ? document.xml.load_buffer_inplace_own(text.converted.bytes.release(), text.extent.length,
                                                 pugi::parse_default, pugi::encoding_utf8)
          : document.xml.load_buffer(text.bytes, text.extent.length, pugi::parse_default,
                                     pugi::encoding_utf8);
  if (result) return true;
  if (result.status == pugi::status_out_of_memory) {
    error.description = kOutOfMemory;
    return false;
  }
  WellFormedError fault;
  fault.offset = result.offset;
  fault.description = result.description();
  if (!converted) {
    error = Placed(fault, text.bytes, text.size);
    return false;
  }
  // The parser wrote into the converted text it took; its place is told on a fresh copy.
  document.xml.reset();
  OwnedText again;
  WellFormedError unused;
  if (ConvertText(text.bytes, text.size, text.encoding, again, unused)) {
    error = Placed(fault, again.bytes.get(), again.size);
  } else {
    error.offset = fault.offset;
    error.description = fault.description;
  }
  return false;
}

// The node of the parsed document's element; null with `error` set when there is none or memory
// runs out. The checks let one element at most stand at the top.
Node* RootNode(Document& document, ParseError& error) {
  pugi::xml_node element = document.xml.first_child();
  while (element && element.type() != pugi::node_element) element = element.next_sibling();
  if (!element) {
    error.description = "No document element found";
    return nullptr;
  }
  Node* node = document.NewRoot(element);
  if (!node) error.description = kOutOfMemory;
  return node;
}

}  // namespace

VEKLightXmlParser::VEKLightXmlParser() noexcept = default;

VEKLightXmlParser::~VEKLightXmlParser() = default;

int VEKLightXmlParser::Parse(VEKLightXmlInputStream& input, VEKLightXmlElementItf& root) noexcept {
  lineStarts_.clear();
  ownRoot_ = {};
  ParseError error;
  auto* target = dynamic_cast<VEKLightXmlElement*>(&root);
  if (!target) {
    error.description = "The root is not a VEKLightXmlElement";
    return Report(error);
  }
  target->document_.reset();
  target->node_ = nullptr;
  try {
    auto document = std::make_shared<Document>();
    CheckedText text;
    if (!PrepareText(input, text, error)) return Report(error);
    if (keepLineStarts_) NoteLineStarts(text.Utf8(), text.extent.length);
    if (!LoadTree(*document, text, error)) return Report(error);
    Node* node = RootNode(*document, error);
    if (!node) return Report(error);
    target->document_ = std::move(document);
    target->node_ = node;
    // Without a document type declaration nothing in the root refers outside it, so the root's
    // own UTF-8 bytes parse back to this tree.
    if (text.encoding == TextEncoding::kUtf8 && !text.extent.doctype && !text.read.bytes) {
      ownRoot_ = {text.bytes, text.extent.rootBegin, text.extent.rootEnd - text.extent.rootBegin,
                  node};
    }
    return Report(error);
  } catch (const std::bad_alloc&) {
    error = {};
    error.description = kOutOfMemory;
    return Report(error);
  }
}

int VEKLightXmlParser::Report(const ParseError& error) noexcept {
  errorOffset_ = error.offset;
  errorDescription_ = error.description;
  errorLine_ = error.line;
  errorColumn_ = error.column;
  return *error.description ? 0 : 1;
}

int VEKLightXmlParser::GetXml(const VEKLightXmlElementItf& root,
                              VEKLightXmlOutputStream& output) noexcept {
  const Node* node = nullptr;
  if (const auto* handle = dynamic_cast<const VEKLightXmlElement*>(&root)) {
    node = handle->node_;
  } else {
    node = dynamic_cast<const Node*>(&root);
  }
  if (!node) return 0;
  VEKLightXmlWriter writer(output);
  WriteTree(node->GetXmlNode(), writer);
  return writer.Flush() ? 1 : 0;
}

int VEKLightXmlParser::WriteParsedRoot(const VEKLightXmlInputStream& input,
                                       const VEKLightXmlElementItf& root,
                                       VEKLightXmlOutputStream& output) noexcept {
  const auto* handle = dynamic_cast<const VEKLightXmlElement*>(&root);
  if (!handle || !ownRoot_.node || handle->node_ != ownRoot_.node ||
      input.GetBytes() != ownRoot_.input) {
    return GetXml(root, output);
  }
  const unsigned char* bytes = ownRoot_.input + ownRoot_.offset;
  std::size_t left = ownRoot_.length;
  while (left > 0) {
    const int piece = static_cast<int>(std::min<std::size_t>(left, INT_MAX));
    if (output.Write(bytes, piece) != piece) return 0;
    bytes += piece;
    left -= static_cast<std::size_t>(piece);
  }
  return 1;
}

std::ptrdiff_t VEKLightXmlParser::GetErrorOffset() const noexcept { return errorOffset_; }

int VEKLightXmlParser::GetErrorLine() const noexcept { return errorLine_; }

int VEKLightXmlParser::GetErrorColumn() const noexcept { return errorColumn_; }

bool VEKLightXmlParser::OutOfMemory() const noexcept { return errorDescription_ == kOutOfMemory; }

void VEKLightXmlParser::KeepLineStarts(bool keep) noexcept { keepLineStarts_ = keep; }

int VEKLightXmlParser::GetLineOf(std::ptrdiff_t offset) const noexcept {
  if (offset < 0 || lineStarts_.empty()) return 0;
  const auto after =
      std::upper_bound(lineStarts_.begin(), lineStarts_.end(), static_cast<std::uint64_t>(offset),
                       [](std::uint64_t at, std::uint32_t start) { return at < start; });
  return static_cast<int>(after - lineStarts_.begin());
}

void VEKLightXmlParser::NoteLineStarts(const unsigned char* text, std::size_t size) noexcept {
  // Texts stay within INT_MAX bytes, so every offset fits.
  try {
    lineStarts_.push_back(0);
    if (!std::memchr(text, '\r', size)) {
      // Without carriage returns only line feeds end lines, which memchr finds a word at a time.
      const unsigned char* end = text + size;
      for (const unsigned char* at = text;
           (at = static_cast<const unsigned char*>(std::memchr(at, '\n', end - at))) != nullptr;) {
        ++at;
        lineStarts_.push_back(static_cast<std::uint32_t>(at - text));
      }
      return;
    }
    for (std::size_t at = 0; at < size; ++at) {
      if (IsLineBreak(text, size, at)) lineStarts_.push_back(static_cast<std::uint32_t>(at + 1));
    }
  } catch (const std::bad_alloc&) {
    // Lines are then unknown; the parse itself goes on.
    std::vector<std::uint32_t>().swap(lineStarts_);
  }
}

const char* VEKLightXmlParser::GetErrorDescription() const noexcept { return errorDescription_; }
