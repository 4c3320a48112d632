// The light XML layer: parsing, the element tree, serialising and the memory streams.
#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "FailingAllocator.h"
#include "LightXmlTestSupport.h"
#include "VEKLightXml.h"

namespace {

using lightxml_test::Children;
using lightxml_test::Dump;
using lightxml_test::Parse;
using lightxml_test::Take;
using lightxml_test::Text;
using lightxml_test::Tree;

// An element of some other XML layer.
class ForeignElement final : public VEKLightXmlElementItf {
 public:
  bool IsNull() const override { return false; }
  int SetElement(VEKLightXmlElementItf*) override { return 0; }
  int GetChildCount() const override { return 0; }
  void* GetChildren() const override { return nullptr; }
  VEKLightXmlElementItf* GetChild(void*&) const override { return nullptr; }
  VEKLightXmlElementItf* GetParent() const override { return nullptr; }
  const VEKUnicodeString& GetName() const override { return text_; }
  int GetAttributeCount() const override { return 0; }
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString&,
                                            const VEKUnicodeString&) const override {
    return text_;
  }
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString&) const override {
    return text_;
  }
  const VEKUnicodeString& GetAttributeName(int) const override { return text_; }
  const VEKUnicodeString& GetAttributeValueAt(int) const override { return text_; }
  bool HasAttribute(const VEKUnicodeString&) const override { return false; }
  const VEKUnicodeString& GetValue() const override { return text_; }
  std::ptrdiff_t GetSourceOffset() const override { return -1; }
  const void* GetNodeIdentity() const override { return this; }

 private:
  VEKUnicodeString text_{"foreign"};
};

// An input stream without a contiguous block that hands out a few bytes per read.
class TrickleStream final : public VEKLightXmlInputStream {
 public:
  explicit TrickleStream(std::string bytes) : bytes_(std::move(bytes)) {}
  int GetLength() const override { return 0; }
  const unsigned char* GetBytes() const override { return nullptr; }
  int Read(unsigned char* target, int capacity) override {
    const int count = std::min({capacity, 3, static_cast<int>(bytes_.size() - position_)});
    std::memcpy(target, bytes_.data() + position_, static_cast<std::size_t>(count));
    position_ += static_cast<std::size_t>(count);
    return count;
  }

 private:
  std::string bytes_;
  std::size_t position_ = 0;
};

// An output stream that takes at most `budget` bytes in all.
class FullStream final : public VEKLightXmlOutputStream {
 public:
  explicit FullStream(int budget) : budget_(budget) {}
  int Write(const unsigned char*, int length) override {
    const int count = std::min(length, budget_ - written_);
    written_ += count;
    return count;
  }
  int GetLength() const override { return written_; }
  void Clear() override { written_ = 0; }

 private:
  int budget_;
  int written_ = 0;
};

// The writer steps over plain runs in blocks: every escaped byte is found wherever it falls in
// a long run, and bytes from 0x80 up pass unchanged.
TEST(LightXmlTest, GetXmlEscapesAtEveryPositionOfLongRuns) {
  struct Special {
    const char* text;       // as the value holds it
    const char* attribute;  // as the writer writes it in an attribute
    const char* content;    // and in text
  };
  const Special specials[] = {{"&", "&amp;", "&amp;"},  {"<", "&lt;", "&lt;"},
                              {">", "&gt;", "&gt;"},    {"\"", "&quot;", "\""},
                              {"\t", "&#9;", "\t"},     {"\n", "&#10;", "\n"},
                              {"\r", "&#13;", "&#13;"}, {"\xC3\xA9", "\xC3\xA9", "\xC3\xA9"}};
  for (const Special& special : specials) {
    for (std::size_t run = 0; run <= 40; ++run) {
      const std::string plain(run, 'a');
      VEKLightXmlElement root;
      const std::string value = plain + special.text + "b";
      const std::string expected =
          "<r v=\"" + plain + special.attribute + "b\">" + plain + special.content + "b</r>";
      // Parse the expected text itself: it must read back as `value` in both places.
      ASSERT_TRUE(Parse(expected, root)) << expected;
      ASSERT_EQ(std::string(root.GetAttributeValue("v").ConvertToChar()), value);
      ASSERT_EQ(std::string(root.GetValue().ConvertToChar()), value);
      EXPECT_EQ(Dump(root), expected) << "run " << run;
    }
  }
}

TEST(LightXmlTest, ChildrenAreElementsOnlyInDocumentOrder) {
  VEKLightXmlElement indented;
  VEKLightXmlElement oneLine;
  ASSERT_TRUE(
      Parse("<?xml version=\"1.0\"?>\n<!-- head -->\n<r>\n  <!-- c -->\n  <a/>\n  <?pi x?>\n"
            "  <b><c/></b>\n  <a/>\n</r>\n<!-- tail -->\n",
            indented));
  ASSERT_TRUE(Parse("<r><a/><b><c/></b><a/></r>", oneLine));
  EXPECT_EQ(Tree(indented), Tree(oneLine));

  const std::vector<VEKLightXmlElementItf*> children = Children(oneLine);
  ASSERT_EQ(children.size(), 3u);
  EXPECT_EQ(oneLine.GetChildCount(), 3);
  EXPECT_STREQ(children[1]->GetName().ConvertToChar(), "b");
  EXPECT_EQ(children[1]->GetParent()->GetNodeIdentity(), oneLine.GetNodeIdentity());
  EXPECT_EQ(oneLine.GetParent(), nullptr);
  EXPECT_EQ(children[0]->GetChildren(), nullptr);
  // A second walk designates the same nodes.
  EXPECT_EQ(Children(oneLine), children);
  void* none = nullptr;
  EXPECT_EQ(oneLine.GetChild(none), nullptr);
  // Offsets point at each element's '<'.
  EXPECT_EQ(oneLine.GetSourceOffset(), 0);
  EXPECT_EQ(children[1]->GetSourceOffset(), 7);
}

TEST(LightXmlTest, AttributesByNameAndIndex) {
  VEKLightXmlElement root;
  ASSERT_TRUE(Parse("<r a=\"1\" empty=\"\" b=\"two words\"/>", root));
  const VEKUnicodeString fallback("fallback");
  EXPECT_STREQ(root.GetAttributeValue("a", fallback).ConvertToChar(), "1");
  EXPECT_STREQ(root.GetAttributeValue("empty", fallback).ConvertToChar(), "");
  EXPECT_EQ(&root.GetAttributeValue("A", fallback), &fallback);
  EXPECT_STREQ(root.GetAttributeValue("missing").ConvertToChar(), "");
  EXPECT_TRUE(root.HasAttribute("empty"));
  EXPECT_FALSE(root.HasAttribute("a "));
  EXPECT_EQ(root.GetAttributeCount(), 3);

  const struct {
    int index;
    const char* name;
    const char* value;
  } rows[] = {{INT_MIN, "", ""}, {-1, "", ""},          {0, "", ""}, {1, "a", "1"},
              {2, "empty", ""},  {3, "b", "two words"}, {4, "", ""}, {INT_MAX, "", ""}};
  for (const auto& row : rows) {
    EXPECT_STREQ(root.GetAttributeName(row.index).ConvertToChar(), row.name) << row.index;
    EXPECT_STREQ(root.GetAttributeValueAt(row.index).ConvertToChar(), row.value) << row.index;
  }
}

TEST(LightXmlTest, ValueJoinsTextAndCdata) {
  VEKLightXmlElement root;
  ASSERT_TRUE(Parse("<r>a &amp; <![CDATA[<b>]]><x>inner</x> &#x20AC;&#65;</r>", root));
  EXPECT_STREQ(root.GetValue().ConvertToChar(),
               "a & <b> \xE2\x82\xAC"
               "A");
  EXPECT_EQ(&root.GetValue(), &root.GetValue());
  ASSERT_TRUE(Parse("<r><e/></r>", root));
  EXPECT_STREQ(root.GetValue().ConvertToChar(), "");
}

TEST(LightXmlTest, SetElementRedirectsHandlesOnly) {
  VEKLightXmlElement root;
  ASSERT_TRUE(Parse("<r><a k=\"v\"/><b/></r>", root));
  VEKLightXmlElementItf* a = Children(root)[0];

  VEKLightXmlElement handle;
  EXPECT_TRUE(handle.IsNull());
  EXPECT_EQ(handle.SetElement(a), 1);
  EXPECT_EQ(handle.GetNodeIdentity(), a->GetNodeIdentity());
  EXPECT_STREQ(handle.GetAttributeValue("k").ConvertToChar(), "v");

  VEKLightXmlElement copy;
  EXPECT_EQ(copy.SetElement(&handle), 1);
  EXPECT_EQ(copy.GetNodeIdentity(), a->GetNodeIdentity());
  EXPECT_EQ(copy.SetElement(&copy), 1);
  EXPECT_EQ(copy.GetNodeIdentity(), a->GetNodeIdentity());

  ForeignElement foreign;
  EXPECT_EQ(copy.SetElement(&foreign), 0);
  EXPECT_EQ(copy.GetNodeIdentity(), a->GetNodeIdentity());
  EXPECT_EQ(a->SetElement(&root), 0);
  EXPECT_STREQ(a->GetName().ConvertToChar(), "a");

  EXPECT_EQ(copy.SetElement(nullptr), 1);
  EXPECT_TRUE(copy.IsNull());
  EXPECT_EQ(copy.GetNodeIdentity(), nullptr);
  void* position = a;
  EXPECT_EQ(copy.GetChild(position), nullptr);
  EXPECT_EQ(position, nullptr);
  EXPECT_EQ(copy.GetChildren(), nullptr);
  EXPECT_EQ(copy.GetChildCount(), 0);
  EXPECT_STREQ(copy.GetName().ConvertToChar(), "");
  EXPECT_EQ(copy.GetSourceOffset(), -1);
}

// Handles keep the document alive; strings handed out point into its text, and their copies must
// own their bytes.
TEST(LightXmlTest, HandlesAndCopiedStringsOutliveTheDocument) {
  VEKLightXmlElement child;
  const VEKUnicodeString* name = nullptr;
  VEKUnicodeString value, longValue, text;
  {
    VEKLightXmlElement root;
    ASSERT_TRUE(
        Parse("<r a='\xE2\x8C\x80 0.05' b='a value longer than any inline "
              "buffer'><a><b>deep</b></a>t</r>",
              root));
    ASSERT_EQ(child.SetElement(Children(root)[0]), 1);
    name = &child.GetName();
    value = root.GetAttributeValue("a");
    longValue = root.GetAttributeValue("b");
    text = root.GetValue();
  }
  EXPECT_STREQ(name->ConvertToChar(), "a");
  EXPECT_STREQ(Children(child)[0]->GetValue().ConvertToChar(), "deep");
  EXPECT_STREQ(child.GetParent()->GetName().ConvertToChar(), "r");
  VEKLightXmlElement assigned;
  assigned = child;
  child = VEKLightXmlElement();
  EXPECT_EQ(Dump(assigned), "<a><b>deep</b></a>");
  EXPECT_STREQ(value.ConvertToChar(), "\xE2\x8C\x80 0.05");
  EXPECT_EQ(value.GetLengthInChar(), 6);
  EXPECT_EQ(value.SubString(2, 4), "0.05");
  EXPECT_STREQ(longValue.ConvertToChar(), "a value longer than any inline buffer");
  EXPECT_STREQ(text.ConvertToChar(), "t");
}

// Seventeen distinct attributes, then a repeat of the fourth: past the pairwise comparison.
std::string ManyAttributes() {
  std::string text = "<a";
  for (int index = 0; index < 17; ++index) text += " a" + std::to_string(index) + "=''";
  return text + " a3=''/>";
}

TEST(LightXmlTest, MalformedInputFailsAndLeavesRootEmpty) {
  const std::string doctype = "<!DOCTYPE a [<!ENTITY l '<'><!ENTITY x SYSTEM 'x.xml'>";
  const struct {
    std::string text;
    std::ptrdiff_t offset;
  } rows[] = {
      // Structure.
      {"", 0},
      {"   ", 3},
      {"garbage", 0},
      {"<!-- only -->", 13},
      {"<a>", 2},
      {"<a></b>", 5},
      {"<a><b></a>", 8},
      {"<a x=1/>", 5},
      {"<a/><b/>", 4},
      {"</a>", 0},
      {"<>", 1},
      {"<a/>x", 4},
      {std::string("\0<a/>", 5), 0},
      {"<a/><![CDATA[x]]>", 4},
      {"<a/><!DOCTYPE a>", 4},
      {"<a x='1'y='2'/>", 8},
      {"<a x= 1/>", 6},
      {"<a x=", 5},
      {"<a/ >", 3},
      // Encoding and characters (more where long runs end): overlong, surrogate, beyond U+10FFFF,
      // U+FFFE.
      {"<a>\xC0\xAF</a>", 3},
      {"<a>\xED\xA0\x80</a>", 3},
      {"<a>\xF4\x90\x80\x80</a>", 3},
      {"<a>\xEF\xBF\xBE</a>", 3},
      {std::string("\xFF\xFE<\0a\0", 6), 2},
      {std::string("\xFF\xFE<\0\0\xD8", 6), 1},
      // A zero unit ends a converted text, here inside the root.
      {std::string("\xFF\xFE<\0a\0>\0\0\0<\0", 12), 2},
      // Names.
      {"<1a/>", 1},
      {"<a\xC3\x97/>", 2},
      {"<a -x='1'/>", 3},
      {"<a b=\"1\" b>", 9},
      {ManyAttributes(), static_cast<std::ptrdiff_t>(ManyAttributes().rfind(" a3=") + 1)},
      // References.
      {"<a>&#0;</a>", 3},
      {"<a x='&#xFFFE;'/>", 6},
      {"<a>&#x110000;</a>", 3},
      {"<a>&#12a;</a>", 7},
      {doctype + "]><a v='&l;'/>", 62},
      {doctype + "]><a v='&x;'/>", 62},
      {doctype + "]><a>&y;</a>", 59},
      // Attribute values, text, comments, processing instructions, declarations.
      {"<a><?XML x?></a>", 5},
      {" <?xml version='1.0'?><a/>", 1},
      {"<?xml version='2.0'?><a/>", 15},
      {"<?xml encoding='UTF-8'?><a/>", 6},
      {"<!DOCTYPE a [<!ENTITY e '%p;'>]><a/>", 25},
      {"<!DOCTYPE a [<!ELEMENT a ANY> x]><a/>", 30},
      {"<!DOCTYPE a [<!ELEMENT a %m;>]><a/>", 25},
      {"<!DOCTYPE a [<!ELEMENT a (b,c|d)>]><a/>", 29},
      {"<!DOCTYPE a [<!ELEMENT a (#PCDATA|b)>]><a/>", 36},
      {"<!DOCTYPE a [<!ATTLIST a x TEXT #IMPLIED>]><a/>", 27},
      {"<!DOCTYPE a [<!ATTLIST a x CDATA #DEFAULT>]><a/>", 33},
      {"<!DOCTYPE a [<!NOTATION n FILE 'x'>]><a/>", 26},
  };
  for (const auto& row : rows) {
    VEKLightXmlElement root;
    VEKLightXmlParser parser;
    ASSERT_TRUE(Parse("<old/>", root));
    EXPECT_FALSE(Parse(row.text, root, &parser)) << row.text;
    EXPECT_TRUE(root.IsNull()) << row.text;
    EXPECT_STRNE(parser.GetErrorDescription(), "") << row.text;
    EXPECT_EQ(parser.GetErrorOffset(), row.offset)
        << row.text << ": " << parser.GetErrorDescription();
  }

  // Every cut of a document that uses each construct fails.
  const std::string whole =
      "<?xml version='1.0' encoding='UTF-8' standalone='yes'?><!DOCTYPE r SYSTEM 's' ["
      "<!ENTITY e 'v&#38;'><!ELEMENT r (c|d)*><!ATTLIST r a CDATA #FIXED '1' b ID #IMPLIED>"
      "<!NOTATION n PUBLIC 'p' 's'><?p i?><!-- x -->]><r a=\"1\" b='x&amp;y&#x41;'><c>t&e;"
      "<![CDATA[u]]>\xC3\xA9</c><!-- k --><d/></r>";
  VEKLightXmlElement root;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(Parse(whole.substr(0, length), root)) << length;
  }
  ASSERT_TRUE(Parse(whole, root));

  VEKLightXmlParser parser;
  VEKLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>("<a/>"), 4);
  EXPECT_EQ(parser.Parse(input, *Children(root)[0]), 0);
  ForeignElement foreign;
  EXPECT_EQ(parser.Parse(input, foreign), 0);
  // A success after a failure with an offset clears the error.
  ASSERT_FALSE(Parse("<a>", root, &parser));
  ASSERT_EQ(parser.GetErrorOffset(), 2);
  EXPECT_EQ(parser.Parse(input, root), 1);
  EXPECT_EQ(parser.GetErrorOffset(), -1);
  EXPECT_STREQ(parser.GetErrorDescription(), "");
}

// The common corners of well-formed XML are the conformance suite's; these are this parser's.
TEST(LightXmlTest, WellFormedCornersAreAccepted) {
  const std::string rows[] = {
      "<!DOCTYPE a [<!ENTITY e ']]>'><!-- ] --><?p ]?><!ATTLIST a x CDATA 'v'>]><a>&e;</a>",
      // The first bytes tell the encoding; a declaration left over from another one is ignored.
      "<?xml version='1.0' encoding='UTF-16'?><a/>",
      "<!DOCTYPE a SYSTEM 'a.dtd'><a>&declaredOutside;</a>",
      "<!DOCTYPE a SYSTEM 'a.dtd' [<!ELEMENT a (b?,(c|d)*)+><!ELEMENT b (#PCDATA|c)*>"
      "<!ELEMENT c EMPTY><!ATTLIST a x (p|q) 'p' y NOTATION (n) #IMPLIED z CDATA #FIXED 'v'>"
      "<!NOTATION n PUBLIC 'p'>%pe;]><a/>",
      std::string("<a/>\0\0junk", 10),
      ManyAttributes().substr(0, ManyAttributes().rfind(" a3=")) + "/>",
  };
  for (const std::string& row : rows) {
    VEKLightXmlElement root;
    VEKLightXmlParser parser;
    EXPECT_TRUE(Parse(row, root, &parser)) << row << ": " << parser.GetErrorDescription();
  }
}

TEST(LightXmlTest, LongRunsStopAtEachSpecialByte) {
  // Plain runs are skipped many bytes at a time: whatever ends one must be found at every
  // position across those blocks, up to the last byte of a block exactly as long as the text.
  VEKLightXmlElement root;
  for (std::ptrdiff_t length = 0; length < 40; ++length) {
    const std::string run(static_cast<std::size_t>(length), 'x');
    const struct {
      std::string text;
      std::ptrdiff_t offset;
    } rows[] = {
        {"<a>" + run + "\x01</a>", 3},
        {"<a>" + run + "\xC3</a>", 3},
        {"<a>" + run + "]]></a>", 3},
        {"<a>" + run + "&u;</a>", 3},
        {"<a v='" + run + "\x1F'/>", 6},
        {"<a v='" + run + "<'/>", 6},
        {"<a v='" + run + "\xEF\xBF\xBE'/>", 6},
        {"<a v='" + run, 6},
        {"<a><!--" + run + "--x--></a>", 7},
        {"<a><![CDATA[" + run + "\x01]]></a>", 12},
    };
    for (const auto& row : rows) {
      VEKLightXmlParser parser;
      EXPECT_FALSE(Parse(row.text, root, &parser)) << row.text;
      EXPECT_EQ(parser.GetErrorOffset(), row.offset + length) << row.text;
    }
    const std::string accepted[] = {
        "<a v=\"" + run + "'\t\xC3\xA9&amp;" + run + "\"/>",
        "<a>" + run + "\n\t\xE2\x82\xAC]>\"" + run + "</a>",
        "<a><!--" + run + "-\t?]" + run + "--><![CDATA[" + run + "]]" + run + "]]></a>",
    };
    for (const std::string& text : accepted) {
      VEKLightXmlParser parser;
      EXPECT_TRUE(Parse(text, root, &parser)) << text << ": " << parser.GetErrorDescription();
    }
  }
}

// UTF-16 little-endian with a byte order mark, from ASCII and two-byte characters.
std::string Utf16(const std::u16string& text) {
  std::string bytes = "\xFF\xFE";
  for (char16_t unit : text)
    bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
  return bytes;
}

TEST(LightXmlTest, ErrorsAndElementsArePlacedInLinesAndColumns) {
  struct Row {
    std::string text;
    int line;
    int column;
  };
  const Row rows[] = {
      // Found by the tree parser, after the checks.
      {"<a>\n  <b>\n</a>", 3, 3},
      // Columns count characters; a byte order mark is not one; CR LF and a lone CR end lines.
      {"<a>\n\xC3\xA9\xC3\xA9<</a>", 2, 4},
      {"\xEF\xBB\xBF<a>&</a>", 1, 5},
      {"<a>\r\n<b x='1' x='2'/></a>", 2, 10},
      {"<a>\r<b>\r</a>", 3, 3},
      {Utf16(u"<a>\n\u00e9<b>\n</a>"), 3, 3},
      {Utf16(u"<a>\n\u00e9&</a>"), 2, 3},
  };
  for (const Row& row : rows) {
    VEKLightXmlElement root;
    VEKLightXmlParser parser;
    ASSERT_FALSE(Parse(row.text, root, &parser)) << row.text;
    EXPECT_EQ(parser.GetErrorLine(), row.line) << row.text << ": " << parser.GetErrorDescription();
    EXPECT_EQ(parser.GetErrorColumn(), row.column) << row.text;
    EXPECT_FALSE(parser.OutOfMemory());
  }

  // Elements: their offsets as lines, in both encodings and with or without carriage returns,
  // only when line starts are kept.
  for (const std::string& text :
       {std::string("<a>\n<b/>\r\n\r\n<c/></a>"), std::string("<a>\n<b/>\n\n<c/></a>"),
        Utf16(u"<a>\n<b/>\r\n\r\n<c/></a>")}) {
    VEKLightXmlElement root;
    VEKLightXmlParser parser;
    ASSERT_TRUE(Parse(text, root, &parser));
    EXPECT_EQ(parser.GetLineOf(root.GetSourceOffset()), 0);
    parser.KeepLineStarts(true);
    ASSERT_TRUE(Parse(text, root, &parser));
    const std::vector<VEKLightXmlElementItf*> children = Children(root);
    EXPECT_EQ(parser.GetLineOf(root.GetSourceOffset()), 1);
    EXPECT_EQ(parser.GetLineOf(children[0]->GetSourceOffset()), 2);
    EXPECT_EQ(parser.GetLineOf(children[1]->GetSourceOffset()), 4);
    EXPECT_EQ(parser.GetLineOf(-1), 0);
    EXPECT_EQ(parser.GetErrorLine(), 0);
  }
}

TEST(LightXmlTest, InputStreams) {
  const std::string text = "<r><a v=\"1\"/>tail</r>";
  VEKLightXmlElement direct;
  VEKLightXmlElement trickled;
  ASSERT_TRUE(Parse(text, direct));
  TrickleStream trickle(text);
  VEKLightXmlParser parser;
  ASSERT_EQ(parser.Parse(trickle, trickled), 1);
  EXPECT_EQ(Tree(trickled), Tree(direct));
  TrickleStream nothing("");
  EXPECT_EQ(parser.Parse(nothing, trickled), 0);

  const auto* bytes = reinterpret_cast<const unsigned char*>("abcde");
  unsigned char target[8] = {};
  VEKLightXmlInputStreamBuffer input(bytes, 5);
  EXPECT_EQ(input.Read(target, 0), 0);
  EXPECT_EQ(input.Read(nullptr, 4), 0);
  EXPECT_EQ(input.Read(target, 2), 2);
  EXPECT_EQ(input.Read(target + 2, 8), 3);
  EXPECT_EQ(input.Read(target, 8), 0);
  EXPECT_STREQ(reinterpret_cast<char*>(target), "abcde");
  for (const auto& empty :
       {VEKLightXmlInputStreamBuffer(nullptr, 4), VEKLightXmlInputStreamBuffer(bytes, -1),
        VEKLightXmlInputStreamBuffer(bytes, INT_MIN)}) {
    EXPECT_EQ(empty.GetLength(), 0);
  }
}

TEST(LightXmlTest, OutputStreamBufferGrowsAndHandsOver) {
  VEKLightXmlOutputStreamBuffer output;
  const auto* piece = reinterpret_cast<const unsigned char*>("0123456789");
  EXPECT_EQ(output.Write(nullptr, 5), 0);
  EXPECT_EQ(output.Write(piece, 0), 0);
  EXPECT_EQ(output.Write(piece, -1), 0);
  unsigned char* bytes = reinterpret_cast<unsigned char*>(1);
  int length = 7;
  output.GetBuffer(bytes, length);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(length, 0);

  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(output.Write(piece, 1 + i % 10), 1 + i % 10);
    expected.append(reinterpret_cast<const char*>(piece), static_cast<std::size_t>(1 + i % 10));
  }
  EXPECT_EQ(output.GetLength(), static_cast<int>(expected.size()));
  EXPECT_EQ(Take(output), expected);
  EXPECT_EQ(output.GetLength(), 0);
  EXPECT_EQ(output.Write(piece, 3), 3);
  output.Clear();
  EXPECT_EQ(output.GetLength(), 0);
}

TEST(LightXmlTest, GetXmlReportsIncompleteOutput) {
  VEKLightXmlElement root;
  ASSERT_TRUE(Parse("<r><a/></r>", root));
  VEKLightXmlParser parser;
  FullStream enough(11);
  EXPECT_EQ(parser.GetXml(root, enough), 1);
  FullStream shortByOne(10);
  EXPECT_EQ(parser.GetXml(root, shortByOne), 0);
  VEKLightXmlElement empty;
  EXPECT_EQ(parser.GetXml(empty, enough), 0);
  ForeignElement foreign;
  EXPECT_EQ(parser.GetXml(foreign, enough), 0);
}

TEST(LightXmlTest, WriterReplacesWhatXmlCannotCarryAndIndentsBetweenTagsOnly) {
  VEKLightXmlOutputStreamBuffer output;
  VEKLightXmlWriter writer(output, true);
  writer.Raw("<?xml version=\"1.0\"?>\n");
  writer.StartElement("r");
  writer.Attribute(
      "a", std::string_view("x\x01y\0z\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBD\xEF\xA4\x80", 17));
  writer.StartElement("b");
  writer.Text("  ");
  writer.EndElement("b");
  writer.StartElement("c");
  writer.Text("t\x1F");
  writer.StartElement("d");
  writer.EndElement("d");
  writer.Text("u");
  writer.EndElement("c");
  writer.StartElement("e");
  writer.EndElement("e");
  writer.EndElement("r");
  ASSERT_TRUE(writer.Flush());
  EXPECT_EQ(writer.Replaced(), 5u);
  const std::string text = Take(output);
  const std::string fffd = "\xEF\xBF\xBD";
  EXPECT_EQ(text, "<?xml version=\"1.0\"?>\n<r a=\"x" + fffd + "y" + fffd + "z" + fffd + fffd +
                      fffd + "\xEF\xA4\x80\">\n  <b>&#32; </b>\n  <c>t" + fffd +
                      "<d/>u</c>\n  <e/>\n</r>");
  VEKLightXmlElement root;
  ASSERT_TRUE(Parse(text, root)) << text;
  EXPECT_EQ(Tree(root), "r[a=x" + fffd + "y" + fffd + "z" + fffd + fffd + fffd +
                            "\xEF\xA4\x80]{b[]'  '{}c[]'t" + fffd + "u'{d[]{}}e[]{}}");
}

TEST(LightXmlTest, RunningOutOfMemoryFailsCleanly) {
  const std::string text =
      "<r a=\"1\"><b>text longer than a short string<![CDATA[more]]>tail</b>"
      "<c x=\"an attribute value of some length\" z=\"w\"/></r>";
  const VEKUnicodeString names[] = {"a", "x", "z"};
  bool refused = true;
  // Fails the first allocation, then the second, and so on until a run needs no more than that.
  for (std::size_t failing = 1; refused; ++failing) {
    VEKLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    TrickleStream trickle(text);
    VEKLightXmlParser parser;
    VEKLightXmlElement root;
    VEKLightXmlElement other;
    VEKLightXmlOutputStreamBuffer output;
    vektest::FailingAllocations failure(failing);
    // Nothing here allocates outside the library.
    if (parser.Parse(input, root) && parser.Parse(trickle, other)) {
      const VEKLightXmlElementItf* pending[8] = {&root};
      for (int count = 1; count > 0;) {
        const VEKLightXmlElementItf* element = pending[--count];
        (void)element->GetName();
        (void)element->GetValue();
        for (const VEKUnicodeString& name : names) (void)element->GetAttributeValue(name);
        (void)element->GetAttributeName(1);
        for (void* position = element->GetChildren(); position;) {
          pending[count++] = element->GetChild(position);
        }
      }
      (void)parser.GetXml(root, output);
      (void)other.SetElement(root.GetParent());
    }
    refused = failure.Refused();
  }
}

}  // namespace
