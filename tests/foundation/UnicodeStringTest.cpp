#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "VEKUnicodeString.h"

namespace {

// One character each of 1, 2, 3 and 4 UTF-8 bytes, then a 3-byte symbol and ASCII.
const char kMixed[] = "a\xC3\xA9\xE2\x8C\x80\xF0\x9F\x98\x80\xE2\x93\x82z";
const std::u32string kMixed32 = U"a\u00E9\u2300\U0001F600\u24C2z";

std::u32string Wide(const VEKUnicodeString& text) {
  std::vector<wchar_t> wide(static_cast<std::size_t>(text.GetLengthInChar()) + 1, L'?');
  text.ConvertToWChar(wide.data());
  EXPECT_EQ(wide.back(), L'\0');
  return std::u32string(wide.begin(), wide.end() - 1);
}

TEST(UnicodeString, CountsCharactersAndComparesExactly) {
  const VEKUnicodeString text(kMixed);
  EXPECT_EQ(text.GetLengthInByte(), sizeof kMixed - 1);
  EXPECT_EQ(Wide(text), kMixed32);
  EXPECT_TRUE(text == kMixed && text == VEKUnicodeString(kMixed));
  EXPECT_TRUE(text != "A\xC3\xA9\xE2\x8C\x80\xF0\x9F\x98\x80\xE2\x93\x82z");
  EXPECT_TRUE(text != "a" && text != VEKUnicodeString());

  const VEKUnicodeString empty(static_cast<const char*>(nullptr));
  EXPECT_EQ(empty.GetLengthInChar(), 0);
  EXPECT_STREQ(empty.CastToCharPtr(), "");
  EXPECT_TRUE(empty == static_cast<const char*>(nullptr));
  const VEKUnicodeString withZero("a\0b", 3);
  EXPECT_EQ(withZero.GetLengthInChar(), 3);
  EXPECT_TRUE(withZero != "a");
}

TEST(UnicodeString, BuildsFromUtf32AndReplacesInvalidCodePoints) {
  const VEKUnicodeString text(L"\u23000.05 \u24C2\U0001F600");
  EXPECT_TRUE(text == "\xE2\x8C\x80\x30.05 \xE2\x93\x82\xF0\x9F\x98\x80");
  EXPECT_EQ(text.GetLengthInChar(), 8);

  const wchar_t invalid[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), L'x',
                             L'\0'};
  EXPECT_TRUE(VEKUnicodeString(invalid) == "\xEF\xBF\xBD\xEF\xBF\xBDx");
  EXPECT_TRUE(VEKUnicodeString(static_cast<const wchar_t*>(nullptr)) == "");
}

TEST(UnicodeString, RepairsEachInvalidByte) {
  struct Row {
    std::string input;
    std::u32string expected;
  };
  const std::u32string bad(1, U'\uFFFD');
  const Row rows[] = {
      {"\xC0\xAF", bad + bad},                                // overlong '/'
      {"\xE0\x80\xAF", bad + bad + bad},                      // overlong, three bytes
      {"\xED\xA0\x80", bad + bad + bad},                      // surrogate U+D800
      {"\xF4\x90\x80\x80", bad + bad + bad + bad},            // above U+10FFFF
      {"\xF5\x80", bad + bad},                                // lead byte never valid
      {"\xE2\x82", bad + bad},                                // truncated at the end
      {"\xE2\x82\x41", bad + bad + U"A"},                     // truncated before ASCII
      {"a\x80\x62", U"a" + bad + U"b"},                       // stray continuation
      {"\xFF\xFE", bad + bad},                                // never in UTF-8
      {"\xF0\x9F\x98\x80\xE2\x82\xAC", U"\U0001F600\u20AC"},  // valid, kept
  };
  for (const Row& row : rows) {
    const VEKUnicodeString text(row.input.data(), row.input.size());
    EXPECT_EQ(Wide(text), row.expected) << "input of " << row.input.size() << " bytes";
  }
}

TEST(UnicodeString, CopiesAndMovesAreValues) {
  VEKUnicodeString original(kMixed);
  VEKUnicodeString copy(original);
  original = VEKUnicodeString("changed");
  EXPECT_TRUE(copy == kMixed);
  const VEKUnicodeString moved(std::move(copy));
  EXPECT_EQ(moved.GetLengthInChar(), 6);
  EXPECT_EQ(copy.GetLengthInChar(), 0);  // NOLINT(bugprone-use-after-move): moved-from is empty
}

TEST(UnicodeString, SearchesForwardInCharacterPositions) {
  const VEKUnicodeString text("\xE2\x8C\x80\x30.05 \xE2\x93\x82 0.05");
  const struct {
    const char* needle;
    int start;
    int expected;
  } rows[] = {{"0.05", -5, 1}, {"0.05", 0, 1},  {"0.05", 1, 1},        {"0.05", 2, 8},
              {"0.05", 8, 8},  {"0.05", 9, -1}, {"0.05", 12, -1},      {"0.05", 13, -1},
              {"", 12, 12},    {"", 13, -1},    {"\xE2\x93\x82", 0, 6}};
  for (const auto& row : rows) {
    EXPECT_EQ(text.SearchSubString(VEKUnicodeString(row.needle), row.start,
                                   VEKUnicodeString::VEKSearchForward),
              row.expected)
        << row.needle << " from " << row.start;
  }
  EXPECT_EQ(VEKUnicodeString("abc").SearchSubString(VEKUnicodeString("abcd"), 0,
                                                    VEKUnicodeString::VEKSearchForward),
            -1);
}

// Rows name the expected piece by its first character and length in kMixed32.
TEST(UnicodeString, SubStringClampsToTheString) {
  const VEKUnicodeString text(kMixed);
  const struct {
    int start;
    int length;
    std::size_t from;
    std::size_t count;
  } rows[] = {{0, 6, 0, 6}, {0, 100, 0, 6}, {2, 2, 2, 2},         {-3, 2, 0, 2},
              {5, 1, 5, 1}, {5, 2, 5, 1},   {6, 1, 6, 0},         {7, 1, 6, 0},
              {1, 0, 1, 0}, {1, -1, 1, 0},  {0, 2147483647, 0, 6}};
  for (const auto& row : rows) {
    EXPECT_EQ(Wide(text.SubString(row.start, row.length)), kMixed32.substr(row.from, row.count))
        << "start " << row.start << " length " << row.length;
  }
}

TEST(UnicodeString, FailedAllocationsLeaveEmptyStrings) {
  const std::string longText(200, 'x');
  const VEKUnicodeString source(longText.c_str());
  VEKUnicodeString copy("kept until assigned");
  VEKUnicodeString piece;
  int constructedLength = -1;
  {
    vektest::FailingAllocations failAll(1);
    constructedLength = VEKUnicodeString(longText.c_str()).GetLengthInChar();
    copy = source;
    piece = source.SubString(10, 100);
  }
  EXPECT_EQ(constructedLength, 0);
  EXPECT_TRUE(copy == "");
  EXPECT_EQ(copy.GetLengthInChar(), 0);
  EXPECT_EQ(piece.GetLengthInChar(), 0);
}

}  // namespace
