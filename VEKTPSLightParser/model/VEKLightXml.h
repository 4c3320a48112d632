// The light XML layer: byte streams, a parsed tree of elements, parsing and serialising.
//
// The tree holds elements only: text becomes its element's value, and whitespace, comments,
// processing instructions and the document type declaration are never children. Elements handed
// out by GetChild, and strings returned by reference, stay valid while any VEKLightXmlElement that
// designates a node of the same document lives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "VEKExport.h"
#include "VEKUnicodeString.h"

class VEK_API VEKLightXmlInputStream {
 public:
  virtual ~VEKLightXmlInputStream();
  // Number of bytes the stream holds.
  virtual int GetLength() const = 0;
  // The bytes as one contiguous block, or null when the stream has no such block.
  virtual const unsigned char* GetBytes() const = 0;
  // Copies up to `capacity` bytes from the current position into `target`; returns the count
  // copied, 0 at the end.
  virtual int Read(unsigned char* target, int capacity) = 0;
};

class VEK_API VEKLightXmlOutputStream {
 public:
  virtual ~VEKLightXmlOutputStream();
  // Appends `length` bytes; returns the count taken (less than `length` when memory runs out).
  virtual int Write(const unsigned char* bytes, int length) = 0;
  // Number of bytes written so far.
  virtual int GetLength() const = 0;
  // Forgets everything written.
  virtual void Clear() = 0;
};

// An input stream over `length` bytes owned by the caller (not copied, not freed).
class VEK_API VEKLightXmlInputStreamBuffer final : public VEKLightXmlInputStream {
 public:
  VEKLightXmlInputStreamBuffer(const unsigned char* bytes, int length) noexcept;
  ~VEKLightXmlInputStreamBuffer() override;
  int GetLength() const override;
  const unsigned char* GetBytes() const override;
  int Read(unsigned char* target, int capacity) override;

 private:
  const unsigned char* bytes_;
  int length_;
  int position_ = 0;
};

// An output stream collecting bytes in memory.
class VEK_API VEKLightXmlOutputStreamBuffer final : public VEKLightXmlOutputStream {
 public:
  VEKLightXmlOutputStreamBuffer() noexcept;
  ~VEKLightXmlOutputStreamBuffer() override;
  VEKLightXmlOutputStreamBuffer(const VEKLightXmlOutputStreamBuffer&) = delete;
  VEKLightXmlOutputStreamBuffer& operator=(const VEKLightXmlOutputStreamBuffer&) = delete;
  int Write(const unsigned char* bytes, int length) override;
  int GetLength() const override;
  void Clear() override;
  // Hands the collected bytes over as an array owned by the caller (release with delete[]) and
  // their count, and leaves the stream empty. Nothing collected: `bytes` null and `length` 0.
  void GetBuffer(unsigned char*& bytes, int& length) noexcept;

 private:
  unsigned char* bytes_ = nullptr;
  int length_ = 0;
  int capacity_ = 0;
};

// Receives the children of an element as views (see ForEachChildValue).
class VEK_API VEKLightXmlValueVisitor {
 public:
  virtual ~VEKLightXmlValueVisitor();
  // One child element: its name and the value of the attribute asked for (empty when absent);
  // `nested` for a child of a child the walk descended into.
  virtual void Visit(std::string_view name, std::string_view value, bool nested) = 0;
};

// One element of a parsed tree. Every read on an element that designates nothing returns an
// empty result (null position, null child, empty string, 0).
class VEK_API VEKLightXmlElementItf {
 public:
  virtual ~VEKLightXmlElementItf();

  // Whether this element designates no node.
  virtual bool IsNull() const = 0;
  // Makes this element designate the same node as `other` (null: nothing). Returns non-zero on
  // success; 0 when this element cannot be redirected (elements handed out by GetChild always
  // designate their own node) or `other` is not of this XML layer.
  virtual int SetElement(VEKLightXmlElementItf* other) = 0;
  // Number of element children.
  virtual int GetChildCount() const = 0;
  // Position of the first child element; null when there is none.
  virtual void* GetChildren() const = 0;
  // The child at `position`; advances `position` to the next child (null after the last).
  // Children come in document order. A null position gives null.
  virtual VEKLightXmlElementItf* GetChild(void*& position) const = 0;
  // The parent element; null for the root or an empty element.
  virtual VEKLightXmlElementItf* GetParent() const = 0;
  // The tag name.
  virtual const VEKUnicodeString& GetName() const = 0;
  // Number of attributes.
  virtual int GetAttributeCount() const = 0;
  // Value of attribute `name`, or `defaultValue` when absent.
  virtual const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name,
                                                    const VEKUnicodeString& defaultValue) const = 0;
  // Value of attribute `name`; the empty string when absent.
  virtual const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name) const = 0;
  // Name of attribute `index` (1-based, document order); empty outside 1..GetAttributeCount().
  virtual const VEKUnicodeString& GetAttributeName(int index) const = 0;
  // Value of attribute `index` (1-based); empty outside the range.
  virtual const VEKUnicodeString& GetAttributeValueAt(int index) const = 0;
  // Whether attribute `name` is present.
  virtual bool HasAttribute(const VEKUnicodeString& name) const = 0;
  // The text content: the element's own text and CDATA children, concatenated in order.
  virtual const VEKUnicodeString& GetValue() const = 0;
  // Byte offset of the element's start in the parsed input (after conversion to UTF-8 for UTF-16
  // input); -1 when unknown.
  virtual std::ptrdiff_t GetSourceOffset() const = 0;
  // An opaque identity of the designated node: equal for two elements designating the same node,
  // null for an element designating nothing.
  virtual const void* GetNodeIdentity() const = 0;

  // The tag name, the value of attribute `name` (empty when absent) and the text content as UTF-8
  // views, valid as long as the strings returned by reference. Parsed elements answer from their
  // document without making strings; these defaults answer from the reads above.
  virtual std::string_view GetNameView() const;
  virtual std::string_view GetAttributeView(std::string_view name) const;
  virtual std::string_view GetValueView() const;
  // Visits each child element in document order with its name and the value of its attribute
  // `attribute`; right after a child named `descendInto`, visits that child's own children the
  // same way (nested). Parsed elements read their document without making element records for
  // the children visited; the default walks GetChild.
  virtual void ForEachChildValue(std::string_view attribute, std::string_view descendInto,
                                 VEKLightXmlValueVisitor& visitor) const;
};

// Writes XML text into a stream element by element, through a buffer of its own. Names are
// written as given (they must be XML names). Attribute values and text are escaped so that they
// parse back to the same strings: markup characters as entities; tabs, line breaks and other
// control characters in attribute values and carriage returns in text as character references
// (the parser would otherwise normalise them); text made only of whitespace starts with a
// character reference (the parser would otherwise drop it). Characters that XML cannot carry at
// all (a zero byte and the other control characters but tab, line feed and carriage return,
// U+FFFE, U+FFFF) are written as U+FFFD and counted. With `indent`, elements start on lines of
// their own, two spaces deeper than their parent, and the whitespace only ever stands between two
// tags, where the parser drops it. Once the stream refuses bytes, nothing more is written.
class VEK_API VEKLightXmlWriter {
 public:
  explicit VEKLightXmlWriter(VEKLightXmlOutputStream& output, bool indent = false) noexcept;
  ~VEKLightXmlWriter();
  VEKLightXmlWriter(const VEKLightXmlWriter&) = delete;
  VEKLightXmlWriter& operator=(const VEKLightXmlWriter&) = delete;

  // Text written as it is: an XML declaration before the root, a line break after it.
  void Raw(std::string_view text) noexcept;
  // Opens an element; its attributes follow, then its text and children, then EndElement.
  void StartElement(std::string_view name) noexcept;
  void Attribute(std::string_view name, std::string_view value) noexcept;
  void Text(std::string_view text) noexcept;
  // Text as CDATA sections (a "]]>" inside splits it in two).
  void Cdata(std::string_view text) noexcept;
  // Closes the innermost open element, named `name`; "/>" when nothing came inside it.
  void EndElement(std::string_view name) noexcept;
  // Hands the buffered bytes to the stream; whether the stream took every byte written so far.
  [[nodiscard]] bool Flush() noexcept;
  // Characters written as U+FFFD so far.
  std::size_t Replaced() const noexcept { return replaced_; }

 private:
  enum class Last { Nothing, StartTag, Text, EndTag };
  void CloseStartTag() noexcept;
  void NewLine() noexcept;
  void WriteEscaped(std::string_view text, unsigned char context) noexcept;
  void Put(char character) noexcept;
  void Put(std::string_view text) noexcept;

  VEKLightXmlOutputStream& output_;
  const bool indent_;
  bool complete_ = true;
  Last last_ = Last::Nothing;
  int depth_ = 0;
  std::size_t replaced_ = 0;
  std::size_t used_ = 0;
  char buffer_[16 * 1024];
};

namespace vek_lightxml_detail {
class Document;
class Node;
}  // namespace vek_lightxml_detail

// A handle on an element: default-constructed it designates nothing; it receives a parse result
// (and then owns the document) or is made to designate another element's node with SetElement.
// The document lives as long as any handle on one of its nodes.
class VEK_API VEKLightXmlElement final : public VEKLightXmlElementItf {
 public:
  VEKLightXmlElement() noexcept;
  VEKLightXmlElement(const VEKLightXmlElement& other) noexcept;
  VEKLightXmlElement& operator=(const VEKLightXmlElement& other) noexcept;
  ~VEKLightXmlElement() override;

  bool IsNull() const override;
  int SetElement(VEKLightXmlElementItf* other) override;
  int GetChildCount() const override;
  void* GetChildren() const override;
  VEKLightXmlElementItf* GetChild(void*& position) const override;
  VEKLightXmlElementItf* GetParent() const override;
  const VEKUnicodeString& GetName() const override;
  int GetAttributeCount() const override;
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name,
                                            const VEKUnicodeString& defaultValue) const override;
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name) const override;
  const VEKUnicodeString& GetAttributeName(int index) const override;
  const VEKUnicodeString& GetAttributeValueAt(int index) const override;
  bool HasAttribute(const VEKUnicodeString& name) const override;
  const VEKUnicodeString& GetValue() const override;
  std::ptrdiff_t GetSourceOffset() const override;
  const void* GetNodeIdentity() const override;
  std::string_view GetNameView() const override;
  std::string_view GetAttributeView(std::string_view name) const override;
  std::string_view GetValueView() const override;
  void ForEachChildValue(std::string_view attribute, std::string_view descendInto,
                         VEKLightXmlValueVisitor& visitor) const override;

 private:
  friend class VEKLightXmlParser;
  std::shared_ptr<vek_lightxml_detail::Document> document_;
  vek_lightxml_detail::Node* node_ = nullptr;
};

class VEK_API VEKLightXmlParser {
 public:
  VEKLightXmlParser() noexcept;
  ~VEKLightXmlParser();
  VEKLightXmlParser(const VEKLightXmlParser&) = delete;
  VEKLightXmlParser& operator=(const VEKLightXmlParser&) = delete;

  // Parses all of `input` (UTF-8 with or without BOM, or UTF-16 with a BOM) into `root`, which
  // must be a VEKLightXmlElement; `root` then designates the document element. Returns non-zero
  // on success; 0 on malformed input, input without exactly one root element, a `root` of another
  // class, or when memory runs out (`root` is then left designating nothing).
  int Parse(VEKLightXmlInputStream& input, VEKLightXmlElementItf& root) noexcept;
  // Writes `root` and everything under it as XML text (UTF-8, no declaration, no indentation)
  // that parses back to the same tree. Returns non-zero on success, 0 when `root` designates
  // nothing or the output did not take every byte.
  int GetXml(const VEKLightXmlElementItf& root, VEKLightXmlOutputStream& output) noexcept;
  // Writes the document element that the last Parse of `input` gave `root` as the input's own
  // bytes, from its '<' to the end of its end tag, when those alone parse back to the same tree
  // (UTF-8 input in one block, without a document type declaration); otherwise, or for any other
  // element, as GetXml writes it. `input` must still hold the bytes Parse read. Returns as GetXml.
  int WriteParsedRoot(const VEKLightXmlInputStream& input, const VEKLightXmlElementItf& root,
                      VEKLightXmlOutputStream& output) noexcept;

  // Where the last Parse failed: byte offset into the input (-1 when it did not fail or the
  // failure has no place) and a short English description (empty when it did not fail).
  std::ptrdiff_t GetErrorOffset() const noexcept;
  const char* GetErrorDescription() const noexcept;
  // The same place as a line and a column, both from 1, the column counted in characters (a byte
  // order mark is not one); 0 when the failure has no place.
  int GetErrorLine() const noexcept;
  int GetErrorColumn() const noexcept;
  // Whether the last Parse failed because memory ran out.
  bool OutOfMemory() const noexcept;

  // Whether later Parse calls note where each line of their text starts, so that GetLineOf can
  // answer (off by default: the note costs 4 bytes a line).
  void KeepLineStarts(bool keep) noexcept;
  // The line, from 1, holding byte `offset` of the last parsed text, offsets counted as
  // GetSourceOffset and GetErrorOffset count them (in the UTF-8 form of the text); 0 for a
  // negative offset, or when line starts were not kept or memory ran out keeping them.
  int GetLineOf(std::ptrdiff_t offset) const noexcept;

  // Where and why a Parse failed; an empty description when it did not.
  struct ParseError {
    std::ptrdiff_t offset = -1;
    const char* description = "";
    int line = 0;
    int column = 0;
  };

 private:
  // Keeps `error` as the last Parse's; 1 when it holds no fault, else 0.
  int Report(const ParseError& error) noexcept;
  void NoteLineStarts(const unsigned char* text, std::size_t size) noexcept;

  std::ptrdiff_t errorOffset_ = -1;
  const char* errorDescription_ = "";
  int errorLine_ = 0;
  int errorColumn_ = 0;
  bool keepLineStarts_ = false;
  std::vector<std::uint32_t> lineStarts_;
  // The root of the last Parse, where its bytes in the input may stand for it.
  struct OwnRoot {
    const unsigned char* input = nullptr;
    std::size_t offset = 0;
    std::size_t length = 0;
    const vek_lightxml_detail::Node* node = nullptr;
  } ownRoot_;
};
