#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "DocumentForms.h"
#include "FailingAllocator.h"
#include "VEKCodePage.h"

namespace {

constexpr const char* kFailed = "<failed>";

// Decodes `text`; on success returns the bytes, on failure kFailed after checking that no
// buffer was handed out.
std::string Decode(const char* text) {
  unsigned char* bytes = reinterpret_cast<unsigned char*>(1);
  unsigned int length = 99;
  if (VEKCodePage::ConvertFromBase64(text, bytes, length) < 0) {
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(length, 0u);
    return kFailed;
  }
  std::string decoded(reinterpret_cast<const char*>(bytes), length);
  delete[] bytes;
  return decoded;
}

struct Vector {
  const char* bytes;
  const char* text;
};
const Vector kRfcVectors[] = {{"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
                              {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};

TEST(Base64, RfcVectorsBothWays) {
  EXPECT_EQ(vek_test::ToBase64(""), "");
  for (const Vector& vector : kRfcVectors) {
    EXPECT_EQ(vek_test::ToBase64(vector.bytes), vector.text);
    EXPECT_EQ(Decode(vector.text), vector.bytes);
  }
}

// Where a quantum ends, in the first quantum and after whole ones: the fast path takes pairs of
// whole quanta, then one more, and the last is read character by character, so a fault may show
// in one place only. Whole texts without blanks are in kRfcVectors.
const Vector kAccepted[] = {{"foof", "Zm9vZg=="},
                            {"foobarf", "Zm9vYmFyZg=="},
                            // Blanks and line breaks anywhere, padding included.
                            {"foobar", " Zm9v\r\nYmFy\t"},
                            {"foob", "Z m 9 v Y g = = \n"},
                            {"fooba", "\n\nZm9vYmE=\r\n"},
                            {"foof", "Zm9vZg\n=\t="},
                            {"foof", "Zm9v \r\n Zg=="},
                            {"foof", "Zm9vZ\ng=\r\n=  "},
                            // Bits below the last byte are ignored, not checked to be zero.
                            {"f", "Zh=="},
                            {"foofo", "Zm9vZm9="}};
const char* const kRefused[] = {
    // No bytes, no buffer to hand over: refused by design.
    "", " \t\r\n ",
    // One character of a quantum, with any padding.
    "Z", "Z===", "Zm9vZ", "Zm9vZ=", "Zm9vZ===",
    // Padding that does not complete the quantum, or goes past it.
    "Zg=", "Zm9vZg=", "Zm9vZg= \n",
    "Zg===", "Zm9vZg===", "Zm9vZm8==", "Zm9v=", "Zm9v====", "====", "Zm9", "Zm9vY",
    // Padding not at the end.
    "Zg=a", "Zm9vZg=a", "=Zm9", "Zm=v", "Zg==Zg==", "Zg==\nA", "Zm9vZm8=Zm9v",
    // Characters outside the alphabet, blanks other than space, tab and line breaks.
    "Zm9v!mFy", "Zm9vYmFy!mF6", "Zm9vYmFyYmF6Zm9vYmF-", "Zm9vYmF-", "Zm9vYmF_", "Zm9v\vYmFy",
    "Zm9v\xC3\xA9", "Zm9vZg==\x80", "Zm9vZg==\f"};

TEST(Base64, DecodesOrRefusesEachBoundaryCase) {
  for (const Vector& row : kAccepted) {
    EXPECT_EQ(Decode(row.text), row.bytes) << testing::PrintToString(std::string(row.text));
  }
  for (const char* text : kRefused) {
    EXPECT_EQ(Decode(text), kFailed) << testing::PrintToString(std::string(text));
  }
  EXPECT_EQ(Decode(nullptr), kFailed);
}

TEST(Base64, WritesIntoABufferOnlyWhenTheTextFits) {
  // Zero where the text would not fit in a size_t.
  const std::size_t most = SIZE_MAX / 4 * 3;
  const std::pair<std::size_t, std::size_t> lengths[] = {
      {0, 0}, {1, 4}, {3, 4}, {4, 8}, {most, most / 3 * 4}, {most + 1, 0}, {SIZE_MAX, 0}};
  for (const auto& [in, out] : lengths) EXPECT_EQ(VEKCodePage::Base64Length(in), out) << in;

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
  EXPECT_EQ(decoded, kFailed);
}

}  // namespace
