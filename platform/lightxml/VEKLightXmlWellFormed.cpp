// The well-formedness pass over a document's UTF-8 text and the conversion of other encodings.
#include "VEKLightXmlWellFormed.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "VEKUtf8.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vek_lightxml_detail {
namespace {

constexpr const char* kTruncated = "Unexpected end of document";
constexpr const char* kBadUtf8 = "Invalid UTF-8 sequence";
constexpr const char* kBadCharacter = "Character not allowed in XML";
constexpr const char* kBadDeclaration = "Malformed XML declaration";
constexpr const char* kBadDoctype = "Malformed document type declaration";

// Byte classes of the ASCII range; every byte from 0x80 up belongs to none.
enum : unsigned char {
  // Skipped as a whole in text: characters other than < & ] and the control characters.
  kTextPlain = 1,
  // Skipped as a whole in attribute values: characters other than < & ' " and the controls.
  kValuePlain = 2,
  // Skipped as a whole in comments, processing instructions and CDATA sections: characters
  // other than - ? ] and the controls.
  kMarkupPlain = 4,
  kNameStart = 8,
  kNameChar = 16,
  kSpace = 32,
};

constexpr std::array<unsigned char, 256> MakeClasses() {
  std::array<unsigned char, 256> classes{};
  for (std::size_t byte = 0x20; byte < 0x80; ++byte) {
    classes[byte] = kTextPlain | kValuePlain | kMarkupPlain;
    const bool letter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
    if (letter || byte == ':' || byte == '_') classes[byte] |= kNameStart | kNameChar;
    if ((byte >= '0' && byte <= '9') || byte == '-' || byte == '.') classes[byte] |= kNameChar;
  }
  for (unsigned char space : {'\t', '\n', '\r'}) {
    classes[space] = kTextPlain | kValuePlain | kMarkupPlain;
  }
  for (unsigned char space : {' ', '\t', '\n', '\r'}) classes[space] |= kSpace;
  classes['<'] &= static_cast<unsigned char>(~(kTextPlain | kValuePlain));
  classes['&'] &= static_cast<unsigned char>(~(kTextPlain | kValuePlain));
  classes[']'] &= static_cast<unsigned char>(~(kTextPlain | kMarkupPlain));
  classes['"'] &= static_cast<unsigned char>(~kValuePlain);
  classes['\''] &= static_cast<unsigned char>(~kValuePlain);
  classes['-'] &= static_cast<unsigned char>(~kMarkupPlain);
  classes['?'] &= static_cast<unsigned char>(~kMarkupPlain);
  return classes;
}
constexpr std::array<unsigned char, 256> kClasses = MakeClasses();

bool Is(unsigned char byte, unsigned char byteClass) { return (kClasses[byte] & byteClass) != 0; }

bool IsXmlChar(std::uint32_t c) {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
         (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

bool IsNameStart(std::uint32_t c) {
  if (c < 0x80) return Is(static_cast<unsigned char>(c), kNameStart);
  return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
         (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) || c == 0x200C || c == 0x200D ||
         (c >= 0x2070 && c <= 0x218F) || (c >= 0x2C00 && c <= 0x2FEF) ||
         (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
         (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
}

bool IsNameChar(std::uint32_t c) {
  if (c < 0x80) return Is(static_cast<unsigned char>(c), kNameChar);
  return IsNameStart(c) || c == 0xB7 || (c >= 0x300 && c <= 0x36F) || c == 0x203F || c == 0x2040;
}

bool EqualsNoCase(std::string_view text, const char* lower) {
  if (text.size() != std::strlen(lower)) return false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c =
        text[at] >= 'A' && text[at] <= 'Z' ? static_cast<char>(text[at] | 0x20) : text[at];
    if (c != lower[at]) return false;
  }
  return true;
}

// What a declared general entity may not be used for.
enum : unsigned char { kExternal = 1, kUnparsed = 2, kHoldsLessThan = 4 };

class Scanner {
 public:
  Scanner(const unsigned char* bytes, std::size_t length, WellFormedError& error)
      : begin_(bytes), end_(bytes + length), p_(bytes), error_(error) {}

  // The bytes up to the end of the document proper, once Run has accepted it.
  void GetExtent(DocumentExtent& extent) const {
    extent.length = ScannedLength();
    extent.rootBegin = rootBegin_ ? static_cast<std::size_t>(rootBegin_ - begin_) : 0;
    extent.rootEnd = rootEnd_ ? static_cast<std::size_t>(rootEnd_ - begin_) : extent.rootBegin;
    extent.doctype = doctypeSeen_;
  }

  std::size_t ScannedLength() const {
    return static_cast<std::size_t>((paddingStart_ ? paddingStart_ : end_) - begin_);
  }

  bool Run() {
    if (end_ - p_ >= 3 && std::memcmp(p_, "\xEF\xBB\xBF", 3) == 0) p_ += 3;
    declarationPlace_ = p_;
    while (p_ < end_) {
      if (depth_ > 0) {
        // Most text between tags is empty: one lookup rather than a block.
        if (Is(*p_, kTextPlain)) p_ = SkipRun<kTextPlain, '<', '&', ']'>(p_ + 1);
      } else {
        while (p_ < end_ && Is(*p_, kSpace)) ++p_;
      }
      if (p_ == end_) break;
      const unsigned char byte = *p_;
      if (byte == '<') {
        if (!ScanMarkup()) return false;
      } else if (depth_ == 0 && rootSeen_ && byte == '\0') {
        // The tree parser reads a zero byte as the end of the text, so zeros that pad a
        // document after its root element are ignored.
        paddingStart_ = p_;
        return true;
      } else if (depth_ == 0) {
        return Fail(p_, "Text outside the root element");
      } else if (byte == '&') {
        if (!ScanReference(false)) return false;
      } else if (byte == ']') {
        if (end_ - p_ >= 3 && p_[1] == ']' && p_[2] == '>') {
          return Fail(p_, "']]>' not allowed in text");
        }
        ++p_;
      } else if (!StepCharacter()) {
        return false;
      }
    }
    return true;
  }

 private:
  // Steps from `p` over the bytes of `kClass` to the first byte outside it. The class holds no
  // byte from 0x80 up and no control character but white space, and leaves out only kStops of the
  // rest, so a run is stepped over 16 bytes at a time while a block holds none of these: long runs
  // (base64, numbers) cost a few instructions per block. White space stops a block, not the run.
  template <unsigned char kClass, char... kStops>
  const unsigned char* SkipRun(const unsigned char* p) const {
    for (;;) {
#if defined(__SSE2__)
      while (end_ - p >= 16) {
        const unsigned mask = SpecialBytes<kStops...>(p);
        if (mask != 0) {
          p += __builtin_ctz(mask);
          break;
        }
        p += 16;
      }
#endif
      if (p == end_ || !Is(*p, kClass)) return p;
      ++p;
    }
  }

#if defined(__SSE2__)
  // A set bit for each of the 16 bytes at `at` that is a control character, white space included,
  // a byte from 0x80 up (as signed bytes, these compare below 0x20) or one of kStops.
  template <char... kStops>
  static unsigned SpecialBytes(const unsigned char* at) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    __m128i found = _mm_cmplt_epi8(block, _mm_set1_epi8(0x20));
    ((found = _mm_or_si128(found, _mm_cmpeq_epi8(block, _mm_set1_epi8(kStops)))), ...);
    return static_cast<unsigned>(_mm_movemask_epi8(found));
  }
#endif

  // Faults and the rarer constructs stay out of line, so the hot loops that reach them keep
  // few registers to save and stay small enough to be inlined themselves.
  [[gnu::cold]] bool Fail(const unsigned char* at, const char* description) {
    error_.offset = at - begin_;
    error_.description = description;
    return false;
  }
  [[gnu::cold]] bool Truncated() { return Fail(end_, kTruncated); }

  bool StartsWith(const char* text) const {
    const std::size_t length = std::strlen(text);
    return static_cast<std::size_t>(end_ - p_) >= length && std::memcmp(p_, text, length) == 0;
  }

  // Skips white space; true when there was some.
  bool SkipSpace() {
    const unsigned char* p = p_;
    while (p < end_ && Is(*p, kSpace)) ++p;
    const bool skipped = p != p_;
    p_ = p;
    return skipped;
  }

  // Steps over the one character at p_, which must be allowed in XML.
  [[gnu::noinline]] bool StepCharacter() {
    const unsigned char byte = *p_;
    if (byte < 0x80) {
      if (byte < 0x20 && !Is(byte, kMarkupPlain)) return Fail(p_, kBadCharacter);
      ++p_;
      return true;
    }
    std::uint32_t c = 0;
    const int length = VEKDecodeUtf8(p_, end_, c);
    if (length == 0) return Fail(p_, kBadUtf8);
    if (c == 0xFFFE || c == 0xFFFF) return Fail(p_, kBadCharacter);
    p_ += length;
    return true;
  }

  // Steps over a name, or a name token when `token` (whose first character may be any name
  // character); fails at the first character that may not stand where it does.
  bool ScanName(bool token = false) {
    const unsigned char* const start = p_;
    const unsigned char* p = start;
    if (p < end_ && Is(*p, token ? kNameChar : kNameStart)) {
      ++p;
      while (p < end_ && Is(*p, kNameChar)) ++p;
      p_ = p;
      // The common case: an ASCII name ended by a delimiter.
      if (p < end_ && *p < 0x80) return true;
    }
    return ScanNameRest(start, token);
  }

  // ScanName from where its ASCII run stopped.
  [[gnu::noinline]] bool ScanNameRest(const unsigned char* start, bool token) {
    while (p_ < end_) {
      std::uint32_t c = *p_;
      int length = 1;
      if (c >= 0x80) {
        length = VEKDecodeUtf8(p_, end_, c);
        if (length == 0) return Fail(p_, kBadUtf8);
      }
      const bool allowed = p_ == start && !token ? IsNameStart(c) : IsNameChar(c);
      if (!allowed) {
        if (c < 0x80 && (p_ != start || !IsNameChar(c))) break;
        return Fail(p_, p_ == start ? "Character not allowed at the start of a name"
                                    : "Character not allowed in a name");
      }
      p_ += length;
    }
    if (p_ == end_) return Truncated();
    if (p_ == start) return Fail(p_, "Name expected");
    return true;
  }

  bool ScanMarkup() {
    if (end_ - p_ < 2) return Truncated();
    switch (p_[1]) {
      case '/':
        return ScanEndTag();
      case '?':
        return ScanProcessingInstruction();
      case '!':
        if (StartsWith("<!--")) return ScanComment();
        if (StartsWith("<![CDATA[")) {
          if (depth_ == 0) return Fail(p_, "CDATA section outside the root element");
          return ScanCdata();
        }
        if (StartsWith("<!DOCTYPE")) return ScanDoctype();
        return Fail(p_, "Malformed markup");
      default:
        return ScanStartTag();
    }
  }

  bool ScanStartTag() {
    if (depth_ == 0 && rootSeen_) return Fail(p_, "More than one root element");
    if (depth_ == 0) rootBegin_ = p_;
    ++p_;
    if (!ScanName()) return false;
    attributeCount_ = 0;
    for (;;) {
      const bool spaced = SkipSpace();
      if (p_ == end_) return Truncated();
      if (*p_ == '>') {
        ++depth_;
        ++p_;
        rootSeen_ = true;
        return true;
      }
      if (*p_ == '/') {
        if (end_ - p_ < 2) return Truncated();
        if (p_[1] != '>') return Fail(p_ + 1, "Expected '>' after '/'");
        p_ += 2;
        if (depth_ == 0) rootEnd_ = p_;
        rootSeen_ = true;
        return true;
      }
      if (!spaced) return Fail(p_, "Expected white space before an attribute");
      const unsigned char* name = p_;
      if (!ScanName()) return false;
      if (!IsNewAttribute(name, static_cast<std::size_t>(p_ - name))) {
        return Fail(name, "Duplicate attribute");
      }
      // Most attributes are written name="value", with no white space to skip around '='.
      if (end_ - p_ >= 2 && p_[0] == '=' && (p_[1] == '"' || p_[1] == '\'')) {
        ++p_;
      } else {
        SkipSpace();
        if (p_ == end_) return Truncated();
        if (*p_ != '=') return Fail(p_, "Expected '=' after an attribute name");
        ++p_;
        SkipSpace();
        if (p_ == end_) return Truncated();
        if (*p_ != '"' && *p_ != '\'') return Fail(p_, "Attribute value must be quoted");
      }
      if (!ScanAttributeValue()) return false;
    }
  }

  // Remembers the attribute names of one start tag; repeats are found by comparing with each
  // earlier name while they are few, through a hash set beyond.
  bool IsNewAttribute(const unsigned char* name, std::size_t length) {
    const std::size_t count = attributeCount_;
    if (count < kPairwise) {
      for (std::size_t index = 0; index < count; ++index) {
        const AttributeName& earlier = attributes_[index];
        if (earlier.length == length && std::memcmp(earlier.bytes, name, length) == 0) {
          return false;
        }
      }
      attributes_[count] = AttributeName{name, length};
      attributeCount_ = count + 1;
      if (count + 1 == kPairwise) {
        attributeSet_.clear();
        for (const AttributeName& earlier : attributes_) {
          attributeSet_.emplace(reinterpret_cast<const char*>(earlier.bytes), earlier.length);
        }
      }
      return true;
    }
    return attributeSet_.emplace(reinterpret_cast<const char*>(name), length).second;
  }

  // From the opening quote to past the closing one.
  bool ScanAttributeValue() {
    const unsigned char quote = *p_++;
    for (;;) {
      const unsigned char* p = SkipRun<kValuePlain, '<', '&', '"', '\''>(p_);
      p_ = p;
      if (p == end_) return Truncated();
      if (*p == quote) {
        p_ = p + 1;
        return true;
      }
      if (*p_ == '<') return Fail(p_, "'<' not allowed in an attribute value");
      if (*p_ == '&') {
        if (!ScanReference(true)) return false;
      } else if (!StepCharacter()) {
        return false;
      }
    }
  }

  bool ScanEndTag() {
    if (depth_ == 0) return Fail(p_, "End tag without a start tag");
    p_ += 2;
    if (!ScanName()) return false;
    SkipSpace();
    if (p_ == end_) return Truncated();
    if (*p_ != '>') return Fail(p_, "Expected '>' at the end of an end tag");
    ++p_;
    if (--depth_ == 0) rootEnd_ = p_;
    return true;
  }

  // A reference at '&', in content or in an attribute value.
  [[gnu::noinline]] bool ScanReference(bool inAttribute) {
    const unsigned char* start = p_++;
    if (p_ == end_) return Truncated();
    if (*p_ == '#') return ScanCharacterReference(start);
    const unsigned char* name = p_;
    if (!ScanName()) return false;
    if (*p_ != ';') return Fail(p_, "Expected ';' at the end of an entity reference");
    const std::string_view text(reinterpret_cast<const char*>(name),
                                static_cast<std::size_t>(p_ - name));
    ++p_;
    if (text == "lt" || text == "gt" || text == "amp" || text == "apos" || text == "quot") {
      return true;
    }
    const auto entity = entities_.find(text);
    if (entity == entities_.end()) {
      // Declarations outside the document may declare the name.
      const bool mustBeDeclared =
          !doctypeSeen_ || standalone_ || (!externalSubset_ && !parameterReferences_);
      return mustBeDeclared ? Fail(start, "Reference to an undeclared entity") : true;
    }
    if (inAttribute && (entity->second & kExternal)) {
      return Fail(start, "Reference to an external entity in an attribute value");
    }
    if (inAttribute && (entity->second & kHoldsLessThan)) {
      return Fail(start, "Reference to an entity holding '<' in an attribute value");
    }
    if (entity->second & kUnparsed) return Fail(start, "Reference to an unparsed entity");
    return true;
  }

  // A reference at "&#" that must name a character allowed in XML.
  bool ScanCharacterReference(const unsigned char* start) {
    ++p_;
    const bool hex = p_ < end_ && *p_ == 'x';
    if (hex) ++p_;
    std::uint32_t value = 0;
    const unsigned char* digits = p_;
    for (; p_ < end_; ++p_) {
      unsigned digit = 0;
      const unsigned char byte = *p_;
      if (byte >= '0' && byte <= '9') {
        digit = byte - '0';
      } else if (hex && (byte | 0x20) >= 'a' && (byte | 0x20) <= 'f') {
        digit = (byte | 0x20) - 'a' + 10;
      } else {
        break;
      }
      // Saturates beyond the last code point, so long digit runs cannot wrap.
      value = value > 0x10FFFF ? value : value * (hex ? 16 : 10) + digit;
    }
    if (p_ == end_) return Truncated();
    if (p_ == digits || *p_ != ';') return Fail(p_, "Malformed character reference");
    ++p_;
    if (!IsXmlChar(value)) return Fail(start, "Character reference to a character not allowed");
    return true;
  }

  bool ScanComment() {
    p_ += 4;
    for (;;) {
      p_ = SkipRun<kMarkupPlain, '-', '?', ']'>(p_);
      if (p_ == end_) return Truncated();
      if (*p_ == '-' && end_ - p_ >= 2 && p_[1] == '-') {
        if (end_ - p_ < 3) return Truncated();
        if (p_[2] != '>') return Fail(p_, "'--' not allowed in a comment");
        p_ += 3;
        return true;
      }
      if (!StepCharacter()) return false;
    }
  }

  bool ScanCdata() {
    p_ += 9;
    for (;;) {
      p_ = SkipRun<kMarkupPlain, '-', '?', ']'>(p_);
      if (p_ == end_) return Truncated();
      if (*p_ == ']' && end_ - p_ >= 3 && p_[1] == ']' && p_[2] == '>') {
        p_ += 3;
        return true;
      }
      if (!StepCharacter()) return false;
    }
  }

  bool ScanProcessingInstruction() {
    const unsigned char* start = p_;
    p_ += 2;
    const unsigned char* target = p_;
    if (!ScanName()) return false;
    if (p_ - target == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
        (target[2] | 0x20) == 'l') {
      if (std::memcmp(target, "xml", 3) != 0) {
        return Fail(target, "Processing instruction target 'xml' is reserved");
      }
      if (start != declarationPlace_) {
        return Fail(start, "XML declaration not at the start of the document");
      }
      return ScanXmlDeclaration();
    }
    if (!SkipSpace() && !StartsWith("?>")) {
      return Fail(p_, "Expected white space after a processing instruction target");
    }
    for (;;) {
      p_ = SkipRun<kMarkupPlain, '-', '?', ']'>(p_);
      if (p_ == end_) return Truncated();
      if (StartsWith("?>")) {
        p_ += 2;
        return true;
      }
      if (!StepCharacter()) return false;
    }
  }

  // After "<?xml": version, then optional encoding and standalone, in that order.
  bool ScanXmlDeclaration() {
    std::string_view value;
    if (!SkipSpace() || !StartsWith("version")) return Fail(p_, kBadDeclaration);
    p_ += 7;
    if (!ScanPseudoAttribute(value)) return false;
    bool valid = value.size() > 2 && value.substr(0, 2) == "1.";
    for (std::size_t at = 2; at < value.size(); ++at) {
      valid = valid && value[at] >= '0' && value[at] <= '9';
    }
    if (!valid) return Fail(p_ - 1 - value.size(), kBadDeclaration);
    bool spaced = SkipSpace();
    if (spaced && StartsWith("encoding")) {
      p_ += 8;
      if (!ScanPseudoAttribute(value)) return false;
      valid = !value.empty() && Is(static_cast<unsigned char>(value[0]), kNameStart) &&
              value[0] != ':' && value[0] != '_';
      for (const char c : value) {
        valid = valid && (Is(static_cast<unsigned char>(c), kNameChar) || c == '_') && c != ':';
      }
      if (!valid) return Fail(p_ - 1 - value.size(), kBadDeclaration);
      spaced = SkipSpace();
    }
    if (spaced && StartsWith("standalone")) {
      p_ += 10;
      if (!ScanPseudoAttribute(value)) return false;
      if (value != "yes" && value != "no") return Fail(p_ - 1 - value.size(), kBadDeclaration);
      standalone_ = value == "yes";
      SkipSpace();
    }
    if (!StartsWith("?>")) return p_ == end_ ? Truncated() : Fail(p_, kBadDeclaration);
    p_ += 2;
    return true;
  }

  // `= "value"` of a pseudo-attribute of the XML declaration.
  bool ScanPseudoAttribute(std::string_view& value) {
    SkipSpace();
    if (p_ == end_) return Truncated();
    if (*p_ != '=') return Fail(p_, kBadDeclaration);
    ++p_;
    SkipSpace();
    if (p_ == end_) return Truncated();
    const unsigned char quote = *p_;
    if (quote != '"' && quote != '\'') return Fail(p_, kBadDeclaration);
    const unsigned char* start = ++p_;
    while (p_ < end_ && *p_ != quote) {
      if (*p_ < 0x20 || *p_ >= 0x80) return Fail(p_, kBadDeclaration);
      ++p_;
    }
    if (p_ == end_) return Truncated();
    value = std::string_view(reinterpret_cast<const char*>(start),
                             static_cast<std::size_t>(p_ - start));
    ++p_;
    return true;
  }

  bool ScanDoctype() {
    if (rootSeen_ || doctypeSeen_) return Fail(p_, "Misplaced document type declaration");
    doctypeSeen_ = true;
    p_ += 9;
    if (!SkipSpace()) return p_ == end_ ? Truncated() : Fail(p_, kBadDoctype);
    if (!ScanName()) return false;
    if (SkipSpace() && (StartsWith("SYSTEM") || StartsWith("PUBLIC"))) {
      if (!ScanExternalId()) return false;
      externalSubset_ = true;
      SkipSpace();
    }
    if (p_ == end_) return Truncated();
    if (*p_ == '[') {
      ++p_;
      if (!ScanInternalSubset()) return false;
      SkipSpace();
    }
    if (p_ == end_) return Truncated();
    if (*p_ != '>') return Fail(p_, kBadDoctype);
    ++p_;
    return true;
  }

  // At SYSTEM or PUBLIC: the keyword and its literals.
  bool ScanExternalId() {
    const bool isPublic = StartsWith("PUBLIC");
    p_ += 6;
    if (!SkipSpace()) return p_ == end_ ? Truncated() : Fail(p_, "Expected white space");
    if (isPublic) {
      if (!ScanLiteral(true)) return false;
      if (!SkipSpace()) return p_ == end_ ? Truncated() : Fail(p_, "Expected white space");
    }
    return ScanLiteral(false);
  }

  // A quoted system or public identifier.
  bool ScanLiteral(bool publicId) {
    if (p_ == end_) return Truncated();
    const unsigned char quote = *p_;
    if (quote != '"' && quote != '\'') return Fail(p_, "Expected a quoted literal");
    ++p_;
    while (p_ < end_ && *p_ != quote) {
      const unsigned char byte = *p_;
      const bool publicChar = byte == ' ' || byte == '\r' || byte == '\n' ||
                              (Is(byte, kNameChar) && byte != '.' && byte != ':' && byte != '_') ||
                              std::strchr("-'()+,./:=?;!*#@$_%", byte) != nullptr;
      if (publicId && (byte >= 0x80 || !publicChar)) {
        return Fail(p_, "Character not allowed in a public identifier");
      }
      if (!StepCharacter()) return false;
    }
    if (p_ == end_) return Truncated();
    ++p_;
    return true;
  }

  // From past '[' to past the closing ']'.
  bool ScanInternalSubset() {
    for (;;) {
      SkipSpace();
      if (p_ == end_) return Truncated();
      if (*p_ == ']') {
        ++p_;
        return true;
      }
      if (*p_ == '%') {
        ++p_;
        if (!ScanName()) return false;
        if (*p_ != ';') return Fail(p_, "Expected ';' at the end of a parameter entity reference");
        ++p_;
        parameterReferences_ = true;
        continue;
      }
      bool scanned = false;
      if (StartsWith("<!--")) {
        scanned = ScanComment();
      } else if (StartsWith("<?")) {
        scanned = ScanProcessingInstruction();
      } else if (StartsWith("<!ENTITY")) {
        scanned = ScanEntityDeclaration();
      } else if (StartsWith("<!ELEMENT")) {
        scanned = ScanElementDeclaration();
      } else if (StartsWith("<!ATTLIST")) {
        scanned = ScanAttributeListDeclaration();
      } else if (StartsWith("<!NOTATION")) {
        scanned = ScanNotationDeclaration();
      } else {
        return Fail(p_, "Malformed markup declaration");
      }
      if (!scanned) return false;
    }
  }

  // Fails at p_, which does not continue the declaration under way.
  bool Unexpected(const char* description) {
    if (p_ == end_) return Truncated();
    if (*p_ == '%') {
      return Fail(p_, "Parameter entity reference inside a declaration of the internal subset");
    }
    return Fail(p_, description);
  }

  bool RequireSpace(const char* description) {
    return SkipSpace() && p_ < end_ ? true : Unexpected(description);
  }

  // Steps over a run of capitals (a keyword of the declarations) and gives it.
  std::string_view ScanKeyword() {
    const unsigned char* start = p_;
    while (p_ < end_ && *p_ >= 'A' && *p_ <= 'Z') ++p_;
    return std::string_view(reinterpret_cast<const char*>(start),
                            static_cast<std::size_t>(p_ - start));
  }

  // Steps over one of ? * + if one follows.
  void SkipOccurrence() {
    if (p_ < end_ && (*p_ == '?' || *p_ == '*' || *p_ == '+')) ++p_;
  }

  // <!ELEMENT name EMPTY|ANY|mixed content|element content>. Groups nest without recursion:
  // the stack holds the separator each open group uses, 0 until its second member.
  bool ScanElementDeclaration() {
    constexpr const char* kBadModel = "Malformed content model";
    p_ += 9;
    if (!RequireSpace(kBadModel) || !ScanName() || !RequireSpace(kBadModel)) return false;
    const std::string_view keyword = ScanKeyword();
    if (keyword.empty() && *p_ == '(') {
      ++p_;
      SkipSpace();
      if (StartsWith("#PCDATA")) {
        p_ += 7;
        bool named = false;
        for (;;) {
          SkipSpace();
          if (p_ == end_ || *p_ != '|') break;
          ++p_;
          SkipSpace();
          if (!ScanName()) return false;
          named = true;
        }
        if (p_ == end_ || *p_ != ')') return Unexpected(kBadModel);
        ++p_;
        if (p_ < end_ && *p_ == '*') {
          ++p_;
        } else if (named) {
          return Unexpected("Expected ')*' after mixed content with names");
        }
      } else {
        groups_.assign(1, '\0');
        while (!groups_.empty()) {
          SkipSpace();
          if (p_ == end_) return Truncated();
          if (*p_ == '(') {
            ++p_;
            groups_.push_back('\0');
            continue;
          }
          if (!ScanName()) return false;
          SkipOccurrence();
          for (;;) {
            SkipSpace();
            if (p_ == end_) return Truncated();
            const unsigned char separator = *p_;
            if (separator == ')') {
              ++p_;
              SkipOccurrence();
              groups_.pop_back();
              if (groups_.empty()) break;
              continue;
            }
            if ((separator != '|' && separator != ',') ||
                (groups_.back() != '\0' && groups_.back() != static_cast<char>(separator))) {
              return Unexpected(kBadModel);
            }
            groups_.back() = static_cast<char>(separator);
            ++p_;
            break;
          }
        }
      }
    } else if (keyword != "EMPTY" && keyword != "ANY") {
      return keyword.empty() ? Unexpected(kBadModel) : Fail(p_ - keyword.size(), kBadModel);
    }
    SkipSpace();
    if (p_ == end_ || *p_ != '>') return Unexpected(kBadModel);
    ++p_;
    return true;
  }

  // ( name | name ... ), of names or of name tokens, at '('.
  bool ScanNameList(bool tokens) {
    ++p_;
    for (;;) {
      SkipSpace();
      if (!ScanName(tokens)) return false;
      SkipSpace();
      if (p_ < end_ && *p_ == ')') {
        ++p_;
        return true;
      }
      if (p_ == end_ || *p_ != '|') return Unexpected("Malformed enumeration");
      ++p_;
    }
  }

  // <!ATTLIST element (name type default)*>.
  bool ScanAttributeListDeclaration() {
    constexpr const char* kBadList = "Malformed attribute list declaration";
    p_ += 9;
    if (!RequireSpace(kBadList) || !ScanName()) return false;
    for (;;) {
      const bool spaced = SkipSpace();
      if (p_ < end_ && *p_ == '>') {
        ++p_;
        return true;
      }
      if (!spaced) return Unexpected(kBadList);
      if (!ScanName() || !RequireSpace(kBadList)) return false;
      const std::string_view type = ScanKeyword();
      if (type == "NOTATION") {
        if (!RequireSpace(kBadList)) return false;
        if (*p_ != '(') return Unexpected(kBadList);
        if (!ScanNameList(false)) return false;
      } else if (type.empty() && p_ < end_ && *p_ == '(') {
        if (!ScanNameList(true)) return false;
      } else if (type != "CDATA" && type != "ID" && type != "IDREF" && type != "IDREFS" &&
                 type != "ENTITY" && type != "ENTITIES" && type != "NMTOKEN" &&
                 type != "NMTOKENS") {
        return type.empty() ? Unexpected(kBadList)
                            : Fail(p_ - type.size(), "Unknown attribute type");
      }
      if (!RequireSpace(kBadList)) return false;
      bool valueNeeded = true;
      if (*p_ == '#') {
        ++p_;
        const std::string_view keyword = ScanKeyword();
        if (keyword == "FIXED") {
          if (!RequireSpace(kBadList)) return false;
        } else if (keyword == "REQUIRED" || keyword == "IMPLIED") {
          valueNeeded = false;
        } else {
          return Fail(p_ - keyword.size() - 1, "Unknown default declaration");
        }
      }
      if (valueNeeded) {
        if (*p_ != '"' && *p_ != '\'') return Unexpected("Attribute value must be quoted");
        if (!ScanAttributeValue()) return false;
      }
    }
  }

  // <!NOTATION name SYSTEM literal | PUBLIC literal [literal]>.
  bool ScanNotationDeclaration() {
    constexpr const char* kBadNotation = "Malformed notation declaration";
    p_ += 10;
    if (!RequireSpace(kBadNotation) || !ScanName() || !RequireSpace(kBadNotation)) return false;
    const std::string_view keyword = ScanKeyword();
    if (keyword != "SYSTEM" && keyword != "PUBLIC") {
      return keyword.empty() ? Unexpected(kBadNotation) : Fail(p_ - keyword.size(), kBadNotation);
    }
    if (!RequireSpace(kBadNotation) || !ScanLiteral(keyword == "PUBLIC")) return false;
    if (SkipSpace() && p_ < end_ && keyword == "PUBLIC" && (*p_ == '"' || *p_ == '\'')) {
      if (!ScanLiteral(false)) return false;
      SkipSpace();
    }
    if (p_ == end_ || *p_ != '>') return Unexpected(kBadNotation);
    ++p_;
    return true;
  }

  bool ScanEntityDeclaration() {
    p_ += 8;
    if (!SkipSpace() || p_ == end_) return EntityFault();
    const bool parameter = *p_ == '%';
    if (parameter) {
      ++p_;
      if (!SkipSpace() || p_ == end_) return EntityFault();
    }
    const unsigned char* name = p_;
    if (!ScanName()) return false;
    const std::string_view text(reinterpret_cast<const char*>(name),
                                static_cast<std::size_t>(p_ - name));
    if (!SkipSpace() || p_ == end_) return EntityFault();
    unsigned char flags = 0;
    if (*p_ == '"' || *p_ == '\'') {
      if (!ScanEntityValue(flags)) return false;
    } else if (StartsWith("SYSTEM") || StartsWith("PUBLIC")) {
      if (!ScanExternalId()) return false;
      flags = kExternal;
      if (SkipSpace() && StartsWith("NDATA")) {
        if (parameter) return Fail(p_, "Parameter entities cannot be unparsed");
        p_ += 5;
        if (!SkipSpace()) return p_ == end_ ? Truncated() : Fail(p_, "Expected white space");
        if (!ScanName()) return false;
        flags |= kUnparsed;
      }
    } else {
      return EntityFault();
    }
    SkipSpace();
    if (p_ == end_ || *p_ != '>') return EntityFault();
    ++p_;
    // The first declaration of a name binds it.
    if (!parameter) (void)entities_.emplace(text, flags);
    return true;
  }

  bool EntityFault() { return p_ == end_ ? Truncated() : Fail(p_, "Malformed entity declaration"); }

  // A quoted entity value: references in it must be well formed; it is never expanded.
  bool ScanEntityValue(unsigned char& flags) {
    const unsigned char quote = *p_++;
    for (;;) {
      if (p_ == end_) return Truncated();
      const unsigned char byte = *p_;
      if (byte == quote) {
        ++p_;
        return true;
      }
      if (byte == '%') {
        return Fail(p_, "Parameter entity reference inside a declaration of the internal subset");
      }
      if (byte == '<') flags |= kHoldsLessThan;
      if (byte == '&') {
        ++p_;
        if (p_ == end_) return Truncated();
        if (*p_ == '#') {
          if (!ScanCharacterReference(p_ - 1)) return false;
        } else {
          if (!ScanName()) return false;
          if (*p_ != ';') return Fail(p_, "Expected ';' at the end of an entity reference");
          ++p_;
        }
      } else if (!StepCharacter()) {
        return false;
      }
    }
  }

  const unsigned char* const begin_;
  const unsigned char* const end_;
  const unsigned char* paddingStart_ = nullptr;
  const unsigned char* p_;
  WellFormedError& error_;
  // Where an XML declaration may stand: the start, after a byte order mark.
  const unsigned char* declarationPlace_ = nullptr;
  std::size_t depth_ = 0;
  // The root element's first byte and the byte after it (where the tags balance, which the tree
  // parser confirms).
  const unsigned char* rootBegin_ = nullptr;
  const unsigned char* rootEnd_ = nullptr;
  bool rootSeen_ = false;
  bool doctypeSeen_ = false;
  bool externalSubset_ = false;
  bool parameterReferences_ = false;
  bool standalone_ = false;
  std::unordered_map<std::string_view, unsigned char> entities_;
  // The separators of the open groups of a content model.
  std::string groups_;
  struct AttributeName {
    const unsigned char* bytes;
    std::size_t length;
  };
  static constexpr std::size_t kPairwise = 16;
  std::array<AttributeName, kPairwise> attributes_{};
  std::size_t attributeCount_ = 0;
  std::unordered_set<std::string_view> attributeSet_;
};

// The encoding named by an XML declaration at the start, or an empty view.
std::string_view DeclaredEncoding(const unsigned char* bytes, std::size_t length) {
  const std::string_view text(reinterpret_cast<const char*>(bytes),
                              std::min<std::size_t>(length, 256));
  if (text.rfind("<?xml", 0) != 0) return {};
  const std::string_view declaration = text.substr(0, text.find("?>"));
  std::size_t at = declaration.find("encoding");
  if (at == std::string_view::npos) return {};
  at = declaration.find_first_of("\"'", at);
  if (at == std::string_view::npos) return {};
  const std::size_t close = declaration.find(declaration[at], at + 1);
  if (close == std::string_view::npos) return {};
  return declaration.substr(at + 1, close - at - 1);
}

}  // namespace

bool CheckWellFormed(const unsigned char* bytes, std::size_t length, WellFormedError& error,
                     DocumentExtent& extent) {
  Scanner scanner(bytes, length, error);
  if (!scanner.Run()) return false;
  scanner.GetExtent(extent);
  return true;
}

TextEncoding DetectEncoding(const unsigned char* b, std::size_t length) noexcept {
  const auto starts = [b, length](std::initializer_list<unsigned> prefix) {
    if (length < prefix.size()) return false;
    std::size_t at = 0;
    for (const unsigned byte : prefix) {
      if (b[at++] != byte) return false;
    }
    return true;
  };
  if (starts({0, 0, 0xFE, 0xFF}) || starts({0, 0, 0, '<'})) return TextEncoding::kUtf32BigEndian;
  if (starts({0xFF, 0xFE, 0, 0}) || starts({'<', 0, 0, 0})) {
    return TextEncoding::kUtf32LittleEndian;
  }
  if (starts({0xFE, 0xFF}) || starts({0, '<', 0, '?'})) return TextEncoding::kUtf16BigEndian;
  if (starts({0xFF, 0xFE}) || starts({'<', 0, '?', 0})) return TextEncoding::kUtf16LittleEndian;
  const std::string_view declared = DeclaredEncoding(b, length);
  if (EqualsNoCase(declared, "iso-8859-1") || EqualsNoCase(declared, "latin1")) {
    return TextEncoding::kLatin1;
  }
  return TextEncoding::kUtf8;
}

std::size_t Utf8Capacity(std::size_t length) noexcept {
  return length <= (SIZE_MAX - 1) / 2 ? 2 * length + 1 : 0;
}

std::ptrdiff_t ConvertToUtf8(const unsigned char* bytes, std::size_t length, TextEncoding encoding,
                             unsigned char* output, WellFormedError& error) noexcept {
  std::size_t written = 0;
  const auto fail = [&](const char* description) {
    error.offset = static_cast<std::ptrdiff_t>(written);
    error.description = description;
    return -1;
  };
  // A zero code unit ends the text for the scanner and the tree parser alike, so conversion stops
  // there: zeros padding a document cost nothing, however many there are.
  if (encoding == TextEncoding::kLatin1) {
    for (std::size_t at = 0; at < length && bytes[at] != 0; ++at) {
      written += VEKEncodeUtf8(bytes[at], output + written);
    }
    return static_cast<std::ptrdiff_t>(written);
  }
  const bool wide =
      encoding == TextEncoding::kUtf32LittleEndian || encoding == TextEncoding::kUtf32BigEndian;
  const bool little =
      encoding == TextEncoding::kUtf16LittleEndian || encoding == TextEncoding::kUtf32LittleEndian;
  const std::size_t unit = wide ? 4 : 2;
  const auto read = [&](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t byte = 0; byte < unit; ++byte) {
      value |= std::uint32_t{bytes[at + byte]} << (8 * (little ? byte : unit - 1 - byte));
    }
    return value;
  };
  std::size_t at = 0;
  if (length >= unit && read(0) == 0xFEFF) at = unit;
  for (; at + unit <= length; at += unit) {
    std::uint32_t c = read(at);
    if (c == 0) return static_cast<std::ptrdiff_t>(written);
    if (!wide && c >= 0xD800 && c <= 0xDBFF) {
      const std::uint32_t low = at + 2 * unit <= length ? read(at + unit) : 0;
      if (low < 0xDC00 || low > 0xDFFF) return fail("Invalid UTF-16 surrogate");
      c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
      at += unit;
    } else if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
      return fail(wide ? "Invalid UTF-32 code point" : "Invalid UTF-16 surrogate");
    }
    written += VEKEncodeUtf8(c, output + written);
  }
  if (at != length) return fail(kTruncated);
  return static_cast<std::ptrdiff_t>(written);
}

}  // namespace vek_lightxml_detail
