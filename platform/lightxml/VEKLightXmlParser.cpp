// Parsing streams into documents and writing elements back as XML text.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "VEKLightXml.h"
#include "VEKLightXmlDocument.h"

using vek_lightxml_detail::Document;
using vek_lightxml_detail::Node;

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
      text = SkipPlainWords(text, end);
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

  // Skips whole 8-byte words of [text, end) that hold no byte below 0x20 and none of & < > ",
  // so long plain runs (numbers, base64) cost a few operations per word; the byte loop finishes.
  static const char* SkipPlainWords(const char* text, const char* end) {
    constexpr std::uint64_t kOnes = 0x0101010101010101ull;
    constexpr std::uint64_t kHighs = 0x8080808080808080ull;
    while (end - text >= 8) {
      std::uint64_t word;
      std::memcpy(&word, text, sizeof word);
      // A high bit in each mask marks a byte below 0x20, or equal to the character tested.
      const auto equal = [word](unsigned char character) {
        const std::uint64_t bytes = word ^ (kOnes * character);
        return (bytes - kOnes) & ~bytes;
      };
      const std::uint64_t special =
          ((word - kOnes * 0x20) & ~word) | equal('&') | equal('<') | equal('>') | equal('"');
      if (special & kHighs) break;
      text += 8;
    }
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

// Streams without a contiguous block are read whole into memory that the document then owns.
pugi::xml_parse_result LoadByReading(VEKLightXmlInputStream& input, pugi::xml_document& xml) {
  constexpr std::size_t kMaxBytes = INT_MAX;
  const pugi::allocation_function allocate = pugi::get_memory_allocation_function();
  const pugi::deallocation_function deallocate = pugi::get_memory_deallocation_function();
  // One byte beyond the announced length lets the end show without growing.
  std::size_t capacity = static_cast<std::size_t>(std::max(input.GetLength(), 0)) + 1;
  auto* buffer = static_cast<unsigned char*>(allocate(capacity));
  std::size_t size = 0;
  pugi::xml_parse_result failure;
  failure.status = pugi::status_out_of_memory;
  while (buffer) {
    if (size == capacity) {
      if (capacity > kMaxBytes) {
        failure.status = pugi::status_io_error;
        break;
      }
      const std::size_t grown = std::min(capacity * 2, kMaxBytes + 1);
      auto* larger = static_cast<unsigned char*>(allocate(grown));
      if (!larger) break;
      std::copy(buffer, buffer + size, larger);
      deallocate(buffer);
      buffer = larger;
      capacity = grown;
    }
    const int room = static_cast<int>(std::min<std::size_t>(capacity - size, INT_MAX));
    const int count = input.Read(buffer + size, room);
    if (count <= 0) return xml.load_buffer_inplace_own(buffer, size);
    size += static_cast<std::size_t>(std::min(count, room));
  }
  if (buffer) deallocate(buffer);
  return failure;
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
    // The default options keep no document type declaration and expand only the predefined
    // entities and character references, so entity declarations cannot blow the text up.
    const unsigned char* bytes = input.GetBytes();
    const int length = input.GetLength();
    const pugi::xml_parse_result result =
        bytes && length >= 0 ? document->xml.load_buffer(bytes, static_cast<std::size_t>(length))
                             : LoadByReading(input, document->xml);
    if (!result) {
      const bool placed =
          result.status != pugi::status_out_of_memory && result.status != pugi::status_io_error;
      errorOffset_ = placed ? result.offset : -1;
      errorDescription_ = result.description();
      return 0;
    }
    pugi::xml_node element;
    for (pugi::xml_node child = document->xml.first_child(); child; child = child.next_sibling()) {
      if (child.type() != pugi::node_element) continue;
      if (element) {
        // The parser records where the name starts; the element starts at the '<' before it.
        errorOffset_ = child.offset_debug() - 1;
        errorDescription_ = "More than one root element";
        return 0;
      }
      element = child;
    }
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
