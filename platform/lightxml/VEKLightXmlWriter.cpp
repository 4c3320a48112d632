// XML text written element by element, escaped so that it parses back to the same strings.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "VEKLightXml.h"

namespace {

// What a byte needs where it stands: a reference in text, in attribute values, or a look at the
// bytes after it (0xEF may start U+FFFE or U+FFFF). Zero is no byte of a valid string but is
// replaced like the other control characters if it comes.
constexpr unsigned char kInText = 1;
constexpr unsigned char kInAttribute = 2;
constexpr std::array<unsigned char, 256> MakeEscapes() {
  std::array<unsigned char, 256> escapes{};
  for (std::size_t byte = 0; byte < 0x20; ++byte) {
    escapes[byte] = kInAttribute | (byte == '\t' || byte == '\n' ? 0 : kInText);
  }
  escapes['&'] = escapes['<'] = escapes['>'] = kInText | kInAttribute;
  escapes['"'] = kInAttribute;
  escapes[0xEF] = kInText | kInAttribute;
  return escapes;
}
constexpr std::array<unsigned char, 256> kEscapes = MakeEscapes();

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Skips whole 16-byte blocks of [text, end) that hold no byte below 0x20, none of & < > " and no
// 0xEF, so that long plain runs (numbers, base64) cost a few operations per block.
const char* SkipPlainBlocks(const char* text, const char* end) noexcept {
#if defined(__SSE2__)
  const __m128i control = _mm_set1_epi8(0x1F);
  while (end - text >= 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    // Unsigned: bytes from 0x80 up are plain here, but for 0xEF.
    __m128i special = _mm_cmpeq_epi8(_mm_min_epu8(block, control), block);
    for (const char character : {'&', '<', '>', '"', '\xEF'}) {
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

bool IsSpace(char character) noexcept {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

// Whether the control character `byte` is one that XML can carry (as a reference where needed).
bool IsXmlControl(unsigned char byte) noexcept {
  return byte == '\t' || byte == '\n' || byte == '\r';
}

}  // namespace

VEKLightXmlWriter::VEKLightXmlWriter(VEKLightXmlOutputStream& output, bool indent) noexcept
    : output_(output), indent_(indent) {}

VEKLightXmlWriter::~VEKLightXmlWriter() = default;

void VEKLightXmlWriter::Raw(std::string_view text) noexcept { Put(text); }

void VEKLightXmlWriter::StartElement(std::string_view name) noexcept {
  CloseStartTag();
  // Never right after text: the whitespace would join that text.
  if (last_ != Last::Text) NewLine();
  Put('<');
  Put(name);
  last_ = Last::StartTag;
  ++depth_;
}

void VEKLightXmlWriter::Attribute(std::string_view name, std::string_view value) noexcept {
  Put(' ');
  Put(name);
  Put("=\"");
  WriteEscaped(value, kInAttribute);
  Put('"');
}

void VEKLightXmlWriter::Text(std::string_view text) noexcept {
  if (text.empty()) return;
  CloseStartTag();
  std::size_t blanks = 0;
  while (blanks < text.size() && IsSpace(text[blanks])) ++blanks;
  if (blanks == text.size()) {
    char reference[8];
    const int length =
        std::snprintf(reference, sizeof reference, "&#%u;", static_cast<unsigned char>(text[0]));
    Put(std::string_view(reference, static_cast<std::size_t>(length)));
    text.remove_prefix(1);
  }
  WriteEscaped(text, kInText);
  last_ = Last::Text;
}

void VEKLightXmlWriter::Cdata(std::string_view text) noexcept {
  CloseStartTag();
  Put("<![CDATA[");
  // A terminator inside the text closes the section and opens the next one after "]]".
  for (std::size_t end = text.find("]]>"); end != std::string_view::npos; end = text.find("]]>")) {
    Put(text.substr(0, end + 2));
    Put("]]><![CDATA[");
    text.remove_prefix(end + 2);
  }
  Put(text);
  Put("]]>");
  last_ = Last::Text;
}

void VEKLightXmlWriter::EndElement(std::string_view name) noexcept {
  --depth_;
  if (last_ == Last::StartTag) {
    Put("/>");
  } else {
    if (last_ == Last::EndTag) NewLine();
    Put("</");
    Put(name);
    Put('>');
  }
  last_ = Last::EndTag;
}

bool VEKLightXmlWriter::Flush() noexcept {
  if (complete_ && used_ > 0) {
    const int count = static_cast<int>(used_);
    complete_ = output_.Write(reinterpret_cast<const unsigned char*>(buffer_), count) == count;
  }
  used_ = 0;
  return complete_;
}

void VEKLightXmlWriter::CloseStartTag() noexcept {
  if (last_ != Last::StartTag) return;
  Put('>');
  last_ = Last::Nothing;
}

void VEKLightXmlWriter::NewLine() noexcept {
  if (!indent_ || (last_ == Last::Nothing && depth_ == 0)) return;
  Put('\n');
  for (int level = 0; level < depth_; ++level) Put("  ");
}

void VEKLightXmlWriter::WriteEscaped(std::string_view value, unsigned char context) noexcept {
  const char* text = value.data();
  const char* const end = text + value.size();
  while (text < end) {
    const char* run = text;
    text = SkipPlainBlocks(text, end);
    while (text < end && (kEscapes[static_cast<unsigned char>(*text)] & context) == 0) ++text;
    Put(std::string_view(run, static_cast<std::size_t>(text - run)));
    if (text == end) return;
    const unsigned char byte = static_cast<unsigned char>(*text);
    if (byte == '&') {
      Put("&amp;");
    } else if (byte == '<') {
      Put("&lt;");
    } else if (byte == '>') {
      Put("&gt;");
    } else if (byte == '"') {
      Put("&quot;");
    } else if (byte == 0xEF) {
      // U+FFFE and U+FFFF are EF BF BE and EF BF BF; any other character from 0xEF is plain.
      if (end - text >= 3 && static_cast<unsigned char>(text[1]) == 0xBF &&
          (static_cast<unsigned char>(text[2]) & 0xFE) == 0xBE) {
        Put(kReplacement);
        ++replaced_;
        text += 2;
      } else {
        Put('\xEF');
      }
    } else if (IsXmlControl(byte)) {
      char reference[8];
      const int length = std::snprintf(reference, sizeof reference, "&#%u;", byte);
      Put(std::string_view(reference, static_cast<std::size_t>(length)));
    } else {
      Put(kReplacement);
      ++replaced_;
    }
    ++text;
  }
}

void VEKLightXmlWriter::Put(char character) noexcept {
  if (used_ == sizeof buffer_) (void)Flush();
  buffer_[used_++] = character;
}

void VEKLightXmlWriter::Put(std::string_view text) noexcept {
  if (text.size() <= sizeof buffer_ - used_) {
    // The common case: the run fits in the room left.
    std::memcpy(buffer_ + used_, text.data(), text.size());
    used_ += text.size();
    return;
  }
  if (text.size() >= sizeof buffer_) {
    // Long runs go straight to the stream.
    (void)Flush();
    while (complete_ && !text.empty()) {
      const int count = static_cast<int>(std::min<std::size_t>(text.size(), INT_MAX));
      complete_ =
          output_.Write(reinterpret_cast<const unsigned char*>(text.data()), count) == count;
      text.remove_prefix(static_cast<std::size_t>(count));
    }
    return;
  }
  while (!text.empty()) {
    if (used_ == sizeof buffer_) (void)Flush();
    const std::size_t count = std::min(text.size(), sizeof buffer_ - used_);
    std::memcpy(buffer_ + used_, text.data(), count);
    used_ += count;
    text.remove_prefix(count);
  }
}
