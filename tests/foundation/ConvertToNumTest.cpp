#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "VEKUnicodeString.h"

namespace {

// What a failed conversion leaves in the target.
constexpr int kUntouched = -777;

template <typename Number>
struct Row {
  const char* text;
  int result;
  Number value;
};

const Row<int> kIntRows[] = {
    {"42", 1, 42},
    {"  \t\r\n\v\f42", 1, 42},
    {"+7", 1, 7},
    {"-7", 1, -7},
    {"007", 1, 7},
    {"12abc", 1, 12},
    {"1.9", 1, 1},
    {"0x1A", 1, 0},
    {"2147483647", 1, INT_MAX},
    {"2147483648", 1, INT_MAX},
    {"99999999999999999999999", 1, INT_MAX},
    {"-2147483648", 1, INT_MIN},
    {"-2147483649", 1, INT_MIN},
    {"abc", 0, kUntouched},
    {"-", 0, kUntouched},
    {"+", 0, kUntouched},
    {"+-3", 0, kUntouched},
    {"- 3", 0, kUntouched},
    {".5", 0, kUntouched},
    {"", -1, kUntouched},
    {" \t\n", -1, kUntouched},
};

const double kInf = std::numeric_limits<double>::infinity();

const Row<double> kDoubleRows[] = {
    {"1.5", 1, 1.5},         {"  -2.5e3", 1, -2500.0},
    {"+.5", 1, 0.5},         {"5.", 1, 5.0},
    {"1E-2", 1, 0.01},       {"1e", 1, 1.0},
    {"1e+", 1, 1.0},         {"1,5", 1, 1.0},
    {"1.5xyz", 1, 1.5},      {"0.1", 1, 0.1},
    {"inf", 1, kInf},        {"-Infinity", 1, -kInf},
    {"+INF", 1, kInf},       {"0x1.8p3", 1, 12.0},
    {"-0X10", 1, -16.0},     {"0x", 1, 0.0},
    {"1e999", 1, kInf},      {"-1e999", 1, -kInf},
    {"0x1p99999", 1, kInf},  {"4.9e-324", 1, std::numeric_limits<double>::denorm_min()},
    {"1e-400", 1, 0.0},      {"abc", 0, kUntouched},
    {".", 0, kUntouched},    {"e5", 0, kUntouched},
    {"-", 0, kUntouched},    {"", -1, kUntouched},
    {"   ", -1, kUntouched},
};

template <typename Number, std::size_t count>
void ExpectRows(const Row<Number> (&rows)[count], std::initializer_list<const char*> formats) {
  for (const char* format : formats) {
    for (const Row<Number>& row : rows) {
      Number value = kUntouched;
      EXPECT_EQ(VEKUnicodeString(row.text).ConvertToNum(&value, format), row.result)
          << '"' << row.text << '"' << format;
      EXPECT_EQ(value, row.value) << '"' << row.text << '"' << format;
    }
  }
}

constexpr std::initializer_list<const char*> kDoubleFormats = {"%le", "%lf", "%lg"};

TEST(ConvertToNum, IntegersSaturateAndKeepTargetOnFailure) { ExpectRows(kIntRows, {"%d"}); }

TEST(ConvertToNum, DoublesCoverSignsSpecialsHexAndRange) {
  ExpectRows(kDoubleRows, kDoubleFormats);
}

TEST(ConvertToNum, NanSignedZeroAndUnsupportedFormats) {
  double real = 0.0;
  EXPECT_EQ(VEKUnicodeString("NaN").ConvertToNum(&real, "%le"), 1);
  EXPECT_TRUE(std::isnan(real));
  EXPECT_EQ(VEKUnicodeString("-1e-400").ConvertToNum(&real, "%le"), 1);
  EXPECT_TRUE(real == 0.0 && std::signbit(real));

  int integer = kUntouched;
  real = kUntouched;
  const VEKUnicodeString text("12");
  for (const char* format : {"%x", "%le", "%i", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(text.ConvertToNum(&integer, format), 0);
  }
  for (const char* format : {"%f", "%d", "%e", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(text.ConvertToNum(&real, format), 0);
  }
  EXPECT_EQ(integer, kUntouched);
  EXPECT_EQ(real, kUntouched);
}

// The host may switch the C locale to one whose decimal separator is a comma; conversions must
// not follow it.
TEST(ConvertToNum, IgnoresCommaDecimalLocale) {
  const char* const candidates[] = {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8",
                                    "de_DE",       "fr_FR",      "nl_NL.UTF-8", "ru_RU.UTF-8"};
  const char* chosen = nullptr;
  for (const char* candidate : candidates) {
    if (std::setlocale(LC_ALL, candidate) && *std::localeconv()->decimal_point == ',') {
      chosen = candidate;
      break;
    }
  }
  if (!chosen) {
    std::setlocale(LC_ALL, "C");
    GTEST_SKIP() << "no comma-decimal locale is installed (see `locale -a`)";
  }
  ExpectRows(kIntRows, {"%d"});
  ExpectRows(kDoubleRows, kDoubleFormats);
  std::setlocale(LC_ALL, "C");
}

TEST(BuildFromNum, WritesDecimalForm) {
  struct Row {
    int value;
    const char* text;
  };
  const Row rows[] = {
      {0, "0"}, {-1, "-1"}, {42, "42"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
  for (const Row& row : rows) {
    VEKUnicodeString text("previous");
    EXPECT_EQ(text.BuildFromNum(row.value, "%d"), static_cast<int>(std::strlen(row.text)));
    EXPECT_STREQ(text.ConvertToChar(), row.text);
  }
  VEKUnicodeString text("kept");
  EXPECT_EQ(text.BuildFromNum(5, "%x"), -1);
  EXPECT_EQ(text.BuildFromNum(5, nullptr), -1);
  EXPECT_TRUE(text == "kept");
}

}  // namespace
