#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "FailingAllocator.h"
#include "VEKCodePage.h"

namespace {

// Decodes `text`; on success returns the bytes, on failure "<failed>" after checking that no
// buffer was handed out.
std::string Decode(const char* text) {
  unsigned char* bytes = reinterpret_cast<unsigned char*>(1);
  unsigned int length = 99;
  if (VEKCodePage::ConvertFromBase64(text, bytes, length) < 0) {
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(length, 0u);
    return "<failed>";
  }
  std::string decoded(reinterpret_cast<const char*>(bytes), length);
  delete[] bytes;
  return decoded;
}

std::string Encode(const std::string& bytes) {
  VEKUnicodeString text;
  EXPECT_EQ(VEKCodePage::ConvertToBase64(reinterpret_cast<const unsigned char*>(bytes.data()),
                                         static_cast<unsigned int>(bytes.size()), text),
            0);
  return text.ConvertToChar();
}

struct Vector {
  const char* bytes;
  const char* text;
};
const Vector kRfcVectors[] = {{"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
                              {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};

TEST(Base64, RfcVectorsBothWays) {
  EXPECT_EQ(Encode(""), "");
  for (const Vector& vector : kRfcVectors) {
    EXPECT_EQ(Encode(vector.bytes), vector.text);
    EXPECT_EQ(Decode(vector.text), vector.bytes);
  }
}

TEST(Base64, SkipsBlanksAnywhere) {
  EXPECT_EQ(Decode(" Zm9v\r\nYmFy\t"), "foobar");
  EXPECT_EQ(Decode("Z m 9 v Y g = = \n"), "foob");
  EXPECT_EQ(Decode("\n\nZm9vYmE=\r\n"), "fooba");
}

TEST(Base64, RejectsMalformedText) {
  const char* const malformed[] = {
      "",      " \t\r\n ", "Zm9v!mFy", "Zm9vYmF-",   "Zm9vYmF_",     "Zm9",
      "Zm9vY", "Zg=",      "Zg===",    "Z===",       "====",         "=Zm9",
      "Zm=v",  "Zg==Zg==", "Zg==\nA",  "Zm9v\vYmFy", "Zm9v\xC3\xA9",
  };
  for (const char* text : malformed) EXPECT_EQ(Decode(text), "<failed>") << '"' << text << '"';
  EXPECT_EQ(Decode(nullptr), "<failed>");
}

// Blanks at every spacing move the text in and out of the four-at-a-time path.
TEST(Base64, RoundTripsAllByteValuesWithBlanksAtAnySpacing) {
  std::string bytes;
  for (int repeat = 0; repeat < 4; ++repeat) {
    for (int value = 0; value < 256; ++value) bytes += static_cast<char>(value);
  }
  for (std::size_t length = 0; length < 7; ++length) {
    EXPECT_EQ(Decode(Encode(bytes.substr(0, length)).c_str()),
              length == 0 ? "<failed>" : bytes.substr(0, length));
  }
  const std::string text = Encode(bytes);
  for (std::size_t spacing = 1; spacing < 10; ++spacing) {
    std::string spaced;
    for (std::size_t i = 0; i < text.size(); i += spacing) {
      spaced += text.substr(i, spacing);
      spaced += spacing % 2 ? "\n" : " \r\n";
    }
    EXPECT_EQ(Decode(spaced.c_str()), bytes) << "spacing " << spacing;
  }
}

TEST(Base64, WritesIntoABufferOnlyWhenTheTextFits) {
  EXPECT_EQ(VEKCodePage::Base64Length(0), 0u);
  EXPECT_EQ(VEKCodePage::Base64Length(1), 4u);
  EXPECT_EQ(VEKCodePage::Base64Length(3), 4u);
  EXPECT_EQ(VEKCodePage::Base64Length(4), 8u);
  EXPECT_EQ(VEKCodePage::Base64Length(SIZE_MAX / 4 * 3), SIZE_MAX / 4 * 4);
  EXPECT_EQ(VEKCodePage::Base64Length(SIZE_MAX / 4 * 3 + 1), 0u) << "does not fit in a size_t";
  EXPECT_EQ(VEKCodePage::Base64Length(SIZE_MAX), 0u);

  const unsigned char bytes[] = {'f', 'o', 'o', 'b'};
  char text[9] = "--------";
  EXPECT_EQ(VEKCodePage::WriteBase64(bytes, 4, text, 7), 0u) << "one short";
  EXPECT_EQ(VEKCodePage::WriteBase64(nullptr, 1, text, 8), 0u);
  EXPECT_EQ(VEKCodePage::WriteBase64(bytes, SIZE_MAX, text, 8), 0u);
  EXPECT_STREQ(text, "--------");
  EXPECT_EQ(VEKCodePage::WriteBase64(nullptr, 0, text, 0), 0u);
  EXPECT_EQ(VEKCodePage::WriteBase64(bytes, 4, text, 8), 8u);
  EXPECT_STREQ(text, "Zm9vYg==");
}

TEST(Base64, FailuresLeaveOutputsAlone) {
  VEKUnicodeString text("kept");
  EXPECT_LT(VEKCodePage::ConvertToBase64(nullptr, 1, text), 0);
  EXPECT_TRUE(text == "kept");
  EXPECT_EQ(VEKCodePage::ConvertToBase64(nullptr, 0, text), 0);
  EXPECT_TRUE(text == "");

  text = VEKUnicodeString("kept again");
  const unsigned char bytes[] = "a long enough payload";
  int encodeResult = 0;
  std::string decoded;
  {
    vektest::FailingAllocations failAll(1);
    encodeResult = VEKCodePage::ConvertToBase64(bytes, sizeof bytes - 1, text);
    decoded = Decode("Zm9vYmFy");
  }
  EXPECT_LT(encodeResult, 0);
  EXPECT_TRUE(text == "kept again");
  EXPECT_EQ(decoded, "<failed>");
}

}  // namespace
