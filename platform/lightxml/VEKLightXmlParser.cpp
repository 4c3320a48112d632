// Parsing streams into documents and writing elements back as XML text.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "VEKLightXml.h"
#include "VEKLightXmlDocument.h"
#include "VEKLightXmlWellFormed.h"

using vek_lightxml_detail::CheckWellFormed;
using vek_lightxml_detail::ConvertToUtf8;
using vek_lightxml_detail::DetectEncoding;
using vek_lightxml_detail::Document;
using vek_lightxml_detail::Node;
using vek_lightxml_detail::TextEncoding;
using vek_lightxml_detail::Utf8Capacity;
using vek_lightxml_detail::WellFormedError;

namespace {

constexpr const char* kOutOfMemory = "Could not allocate memory";

// Bytes written as references in text and in attribute values; the zero byte ends both.
constexpr unsigned char kInText = 1;
constexpr unsigned char kInAttribute = 2;
constexpr std::array<unsigned char, 256> MakeEscapes() {
  std::array<unsigned char, 256> escapes{};
  for (std::size_t byte = 0; byte < 0x20; ++byte) {
    escapes[byte] = kInAttribute | (byte == '\t' || byte == '\n' ? 0 : kInText);
  }
  escapes['&'] = escapes['<'] = escapes['>'] = kInText | kInAttribute;
  escapes['"'] = kInAttribute;
  return escapes;
}
constexpr std::array<unsigned char, 256> kEscapes = MakeEscapes();

// Writes XML text through a small buffer into a stream, remembering whether every byte was taken.
// The escaping is chosen so that the text parses back to the same tree: line breaks, tabs and
// other control characters in attributes and carriage returns in text become character
// references (the parser would otherwise normalise them), and text made only of whitespace starts
// with a character reference (the parser would otherwise drop it).
class XmlWriter {
 public:
  explicit XmlWriter(VEKLightXmlOutputStream& output) : output_(output) {}

  // Writes `root` and everything under it, walking the tree without recursion.
  void WriteTree(pugi::xml_node root) {
    pugi::xml_node node = root;
    while (complete_) {
      if (node.type() == pugi::node_element) {
        WriteStartTag(node);
        if (node.first_child()) {
          node = node.first_child();
          continue;
        }
      } else if (node.type() == pugi::node_pcdata) {
        WriteText(node.value());
      } else if (node.type() == pugi::node_cdata) {
        WriteCdata(node.value());
      }
      while (node != root && !node.next_sibling()) {
        node = node.parent();
        WriteEndTag(node);
      }
      if (node == root) break;
      node = node.next_sibling();
    }
    Flush();
  }

  bool Complete() const { return complete_; }

 private:
  void WriteStartTag(pugi::xml_node element) {
    Put('<');
    Put(element.name());
    for (pugi::xml_attribute attribute = element.first_attribute(); attribute;
         attribute = attribute.next_attribute()) {
      Put(' ');
      Put(attribute.name());
      Put("=\"");
      WriteEscaped(attribute.value(), kInAttribute);
      Put('"');
    }
    Put(element.first_child() ? ">" : "/>");
  }

  void WriteEndTag(pugi::xml_node element) {
    Put("</");
    Put(element.name());
    Put('>');
  }

  void WriteText(const char* text) {
    const char* cursor = text;
    while (IsSpace(*cursor)) ++cursor;
    if (*cursor == '\0' && *text != '\0') {
      PutCharacterReference(static_cast<unsigned char>(*text));
      ++text;
    }
    WriteEscaped(text, kInText);
  }

  void WriteCdata(const char* text) {
    Put("<![CDATA[");
    // A terminator inside the text closes the section and opens the next one after "]]".
    for (const char* end = std::strstr(text, "]]>"); end; end = std::strstr(text, "]]>")) {
      Put(text, static_cast<std::size_t>(end - text) + 2);
      Put("]]><![CDATA[");
      text = end + 2;
    }
    Put(text);
    Put("]]>");
  }

  void WriteEscaped(const char* text, unsigned char context) {
    const char* const end = text + std::strlen(text);
    for (;;) {
      const char* run = text;
      text = SkipPlainBlocks(text, end);
      while ((kEscapes[static_cast<unsigned char>(*text)] & context) == 0) ++text;
      Put(run, static_cast<std::size_t>(text - run));
      const unsigned char byte = static_cast<unsigned char>(*text);
      if (byte == '\0') return;
      if (byte == '&') {
        Put("&amp;");
      } else if (byte == '<') {
        Put("&lt;");
      } else if (byte == '>') {
        Put("&gt;");
      } else if (byte == '"') {
        Put("&quot;");
      } else {
        PutCharacterReference(byte);
      }
      ++text;
    }
  }

  // Skips whole 16-byte blocks of [text, end) that hold no byte below 0x20 and none of & < > ",
  // so long plain runs (numbers, base64) cost a few operations per block; the byte loop finishes.
  static const char* SkipPlainBlocks(const char* text, const char* end) {
#if defined(__SSE2__)
    const __m128i control = _mm_set1_epi8(0x1F);
    while (end - text >= 16) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
      // Unsigned: bytes from 0x80 up are plain here.
      __m128i special = _mm_cmpeq_epi8(_mm_min_epu8(block, control), block);
      for (const char character : {'&', '<', '>', '"'}) {
        special = _mm_or_si128(special, _mm_cmpeq_epi8(block, _mm_set1_epi8(character)));
      }
      if (_mm_movemask_epi8(special) != 0) break;
      text += 16;
    }
#else
    (void)end;
#endif
    return text;
  }

  static bool IsSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
  }

  void PutCharacterReference(unsigned char byte) {
    char reference[8];
    const int length = std::snprintf(reference, sizeof reference, "&#%u;", byte);
    Put(reference, static_cast<std::size_t>(length));
  }

  void Put(char character) {
    if (used_ == sizeof buffer_) Flush();
    buffer_[used_++] = character;
  }
  void Put(const char* text) { Put(text, std::strlen(text)); }
  void Put(const char* text, std::size_t length) {
    if (length <= sizeof buffer_ - used_) {
      // The common case: the run fits in the room left.
      std::memcpy(buffer_ + used_, text, length);
      used_ += length;
      return;
    }
    if (length >= sizeof buffer_) {
      // Long runs go straight to the stream.
      Flush();
      while (complete_ && length > 0) {
        const int count = static_cast<int>(std::min<std::size_t>(length, INT_MAX));
        complete_ = output_.Write(reinterpret_cast<const unsigned char*>(text), count) == count;
        text += count;
        length -= static_cast<std::size_t>(count);
      }
      return;
    }
    while (length > 0) {
      if (used_ == sizeof buffer_) Flush();
      const std::size_t count = std::min(length, sizeof buffer_ - used_);
      std::memcpy(buffer_ + used_, text, count);
      used_ += count;
      text += count;
      length -= count;
    }
  }

  void Flush() {
    if (complete_ && used_ > 0) {
      const int count = static_cast<int>(used_);
      complete_ = output_.Write(reinterpret_cast<const unsigned char*>(buffer_), count) == count;
    }
    used_ = 0;
  }

  VEKLightXmlOutputStream& output_;
  bool complete_ = true;
  std::size_t used_ = 0;
  char buffer_[16 * 1024];
};

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

}  // namespace

VEKLightXmlParser::VEKLightXmlParser() noexcept = default;

VEKLightXmlParser::~VEKLightXmlParser() = default;

int VEKLightXmlParser::Parse(VEKLightXmlInputStream& input, VEKLightXmlElementItf& root) noexcept {
  errorOffset_ = -1;
  errorDescription_ = "";
  auto* target = dynamic_cast<VEKLightXmlElement*>(&root);
  if (!target) {
    errorDescription_ = "The root is not a VEKLightXmlElement";
    return 0;
  }
  target->document_.reset();
  target->node_ = nullptr;
  try {
    auto document = std::make_shared<Document>();
    // The text as UTF-8: the caller's bytes when they are UTF-8 already, or a copy of ours.
    const unsigned char* bytes = input.GetBytes();
    std::size_t size = static_cast<std::size_t>(std::max(input.GetLength(), 0));
    OwnedText owned;
    if (!bytes || input.GetLength() < 0) {
      if (!ReadWhole(input, owned)) {
        errorDescription_ = owned.bytes ? "The input is too large" : kOutOfMemory;
        return 0;
      }
      bytes = owned.bytes.get();
      size = owned.size;
    }
    const TextEncoding encoding = DetectEncoding(bytes, size);
    WellFormedError fault;
    std::size_t documentLength = 0;
    if (encoding != TextEncoding::kUtf8) {
      const std::size_t capacity = Utf8Capacity(size);
      OwnedText converted;
      converted.bytes.reset(capacity ? OwnedText::Allocate(capacity) : nullptr);
      if (!converted.bytes) {
        errorDescription_ = kOutOfMemory;
        return 0;
      }
      const std::ptrdiff_t written =
          ConvertToUtf8(bytes, size, encoding, converted.bytes.get(), fault);
      converted.size = static_cast<std::size_t>(written);
      if (written < 0 ||
          !CheckWellFormed(converted.bytes.get(), converted.size, fault, documentLength)) {
        errorOffset_ = fault.offset;
        errorDescription_ = fault.description;
        return 0;
      }
      owned = std::move(converted);
      bytes = owned.bytes.get();
    } else if (!CheckWellFormed(bytes, size, fault, documentLength)) {
      errorOffset_ = fault.offset;
      errorDescription_ = fault.description;
      return 0;
    }
    // Zeros padding the document are left out: the parser would stop at the first, and copying
    // them would make its memory follow the declared length rather than the document.
    // The checks above leave the parser nesting and tag matching. Its default options keep no
    // document type declaration and expand only the predefined entities and character
    // references, so entity declarations cannot blow the text up.
    const pugi::xml_parse_result result =
        owned.bytes
            ? document->xml.load_buffer_inplace_own(owned.bytes.release(), documentLength,
                                                    pugi::parse_default, pugi::encoding_utf8)
            : document->xml.load_buffer(bytes, documentLength, pugi::parse_default,
                                        pugi::encoding_utf8);
    if (!result) {
      errorOffset_ = result.status != pugi::status_out_of_memory ? result.offset : -1;
      errorDescription_ = result.description();
      return 0;
    }
    // The checks let one element at most stand at the top.
    pugi::xml_node element = document->xml.first_child();
    while (element && element.type() != pugi::node_element) element = element.next_sibling();
    if (!element) {
      errorDescription_ = "No document element found";
      return 0;
    }
    Node* node = document->NewRoot(element);
    if (!node) {
      errorDescription_ = kOutOfMemory;
      return 0;
    }
    target->document_ = std::move(document);
    target->node_ = node;
    return 1;
  } catch (const std::bad_alloc&) {
    errorDescription_ = kOutOfMemory;
    return 0;
  }
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
  XmlWriter writer(output);
  writer.WriteTree(node->GetXmlNode());
  return writer.Complete() ? 1 : 0;
}

std::ptrdiff_t VEKLightXmlParser::GetErrorOffset() const noexcept { return errorOffset_; }

const char* VEKLightXmlParser::GetErrorDescription() const noexcept { return errorDescription_; }
