#include <vorx/string.h>

#include "support/memory_hooks.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

using VORX::String::swscanf;

std::u16string Widen(char const * ascii) {
  return std::u16string(ascii, ascii + std::strlen(ascii));
}

// Scans the same ASCII input with glibc's sscanf and with the 16-bit scanner, each followed by
// "%n", and compares the result, the value stored and the units consumed.
template <typename T> void ExpectLikeGlibc(char const * format, char const * input) {
  std::string const withCount = std::string(format) + "%n";
  T expected{};
  T actual{};
  int expectedUsed = -7;
  int actualUsed = -7;
  int const expectedResult = std::sscanf(input, withCount.c_str(), &expected, &expectedUsed);
  int const actualResult =
      swscanf(Widen(input).c_str(), Widen(withCount.c_str()).c_str(), &actual, &actualUsed);
  SCOPED_TRACE(std::string(format) + " on \"" + input + "\"");
  EXPECT_EQ(actualResult, expectedResult);
  EXPECT_EQ(actualUsed, expectedUsed);
  if (expectedResult == 1) {
    if constexpr (std::is_floating_point_v<T>) {
      if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(actual));
        return;
      }
    }
    EXPECT_EQ(actual, expected);
  }
}

TEST(Scan, IntegersMatchGlibc) {
  // clang-format off
  constexpr char const * inputs[] = {
      "0", "42", "-42", "+7", " \t\n 12abc", "0x1F", "0X1f", "017", "-0x10", "089", "ff", "-", "",
      "   ", "0x", "0xg", "abc", "2147483648", "4294967296", "99999999999", "-1",
      "18446744073709551615", "18446744073709551616", "9223372036854775807",
      "9223372036854775808", "-9223372036854775809", "12345678", "+-3"};
  // clang-format on
  constexpr char const * intFormats[] = {"%d",  "%i",  "%u",  "%o",  "%x",  "%X",
                                         "%3d", "%2i", "%1x", "%3x", " %d", "x%d"};
  constexpr char const * longFormats[] = {"%lld", "%lli", "%llu", "%llx", "%ld",
                                          "%lu",  "%jd",  "%zu",  "%td",  "%20lld"};
  constexpr char const * shortFormats[] = {"%hd", "%hu", "%hx", "%hi"};
  constexpr char const * byteFormats[] = {"%hhd", "%hhu", "%hhx"};
  for (char const * input : inputs) {
    for (char const * format : intFormats) {
      ExpectLikeGlibc<int>(format, input);
    }
    for (char const * format : longFormats) {
      ExpectLikeGlibc<long long>(format, input);
    }
    for (char const * format : shortFormats) {
      ExpectLikeGlibc<short>(format, input);
    }
    for (char const * format : byteFormats) {
      ExpectLikeGlibc<signed char>(format, input);
    }
  }
}

TEST(Scan, FloatsMatchGlibc) {
  // clang-format off
  constexpr char const * inputs[] = {
      "1.5", "-0.25e3", "1e10", " 3.14xyz", ".5", "5.", "inf", "-INF", "nan", "infinity",
      "0x1.8p1", "1e-40", "1e39", "abc", "+.e", "1,5", "-0", "1e-400", "123456789.123456789",
      "  -7E-2!"};
  // clang-format on
  for (char const * input : inputs) {
    for (char const * format : {"%f", "%e", "%g", "%a", "%E"}) {
      ExpectLikeGlibc<float>(format, input);
    }
    for (char const * format : {"%lf", "%le", "%lg"}) {
      ExpectLikeGlibc<double>(format, input);
    }
    ExpectLikeGlibc<long double>("%Lf", input);
  }
}

TEST(Scan, ReadsTextWithTheWindowsWideConventions) {
  char16_t wide[16] = {};
  char16_t wide2[16] = {};
  char narrow[16] = {};
  char narrow2[16] = {};

  EXPECT_EQ(swscanf(u"  alpha beta", u"%s%ls", wide, wide2), 2);
  EXPECT_EQ(std::u16string(wide), u"alpha");
  EXPECT_EQ(std::u16string(wide2), u"beta");

  // Narrow fields are stored as UTF-8.
  EXPECT_EQ(swscanf(u"caf\u00E9 \U0001F3AC", u"%hs%S", narrow, narrow2), 2);
  EXPECT_STREQ(narrow, "caf\xC3\xA9");
  EXPECT_STREQ(narrow2, "\xF0\x9F\x8E\xAC");
  EXPECT_EQ(swscanf(u"\u4E2D\u6587", u"%lS", wide), 1);
  EXPECT_EQ(std::u16string(wide), u"\u4E2D\u6587");

  char16_t const loneSurrogate[] = {u'a', 0xD800, u'b', 0};
  EXPECT_EQ(swscanf(loneSurrogate, u"%hs", narrow), 1);
  EXPECT_STREQ(narrow, "a\xEF\xBF\xBD"
                       "b");

  // A narrow width counts the bytes stored; a character that does not fit ends the field.
  EXPECT_EQ(swscanf(u"\u00E9\u00E9x", u"%3hs%ls", narrow, wide), 2);
  EXPECT_STREQ(narrow, "\xC3\xA9");
  EXPECT_EQ(std::u16string(wide), u"\u00E9x");
  EXPECT_EQ(swscanf(u"abcdef", u"%4s%s", wide, wide2), 2);
  EXPECT_EQ(std::u16string(wide), u"abcd");
  EXPECT_EQ(std::u16string(wide2), u"ef");

  // Characters: no skipping, no terminator; %hc keeps units up to U+00FF, else '?'.
  char16_t units[4] = {u'#', u'#', u'#', u'#'};
  char bytes[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(
      swscanf(u" x\u00E9\u4E2Dyz", u"%c%c%hc%C%2lc", units, units + 1, bytes, bytes + 1, units + 2),
      5);
  EXPECT_EQ(std::u16string(units, 4), u" xyz");
  EXPECT_EQ(static_cast<unsigned char>(bytes[0]), 0xE9);
  EXPECT_EQ(bytes[1], '?');
  EXPECT_EQ(bytes[2], '#');

  // Scan sets, wide and narrow.
  EXPECT_EQ(swscanf(u"key=va]l-ue;rest", u"%[a-z]=%[]a-z-]%*[;]%h[^\n]", wide, wide2, narrow), 3);
  EXPECT_EQ(std::u16string(wide), u"key");
  EXPECT_EQ(std::u16string(wide2), u"va]l-ue");
  EXPECT_STREQ(narrow, "rest");
  int blanks = -1;
  EXPECT_EQ(swscanf(u"  x", u"%[ ]%n", wide, &blanks), 1);
  EXPECT_EQ(blanks, 2);

  // Microsoft sizes, %p and %n.
  std::int64_t big = 0;
  std::uint64_t huge = 0;
  std::ptrdiff_t signedSize = 0;
  std::uint32_t word = 0;
  void * pointer = nullptr;
  int consumed = -1;
  short consumedShort = -1;
  EXPECT_EQ(swscanf(u"-9223372036854775808 18446744073709551615 -5 DEADbeef 00000000ABCDEF12 !",
                    u"%I64d %I64u %Id %I32x %p%n %%%hn", &big, &huge, &signedSize, &word, &pointer,
                    &consumed, &consumedShort),
            5);
  EXPECT_EQ(big, INT64_MIN);
  EXPECT_EQ(huge, UINT64_MAX);
  EXPECT_EQ(signedSize, -5);
  EXPECT_EQ(word, 0xDEADBEEFu);
  EXPECT_EQ(pointer, reinterpret_cast<void *>(0xABCDEF12));
  EXPECT_EQ(consumed, 70);
  EXPECT_EQ(consumedShort, -1) << "the literal '%' did not match '!'";
}

TEST(Scan, ReadsTheLibrarysOwnTextForms) {
  unsigned data1 = 0;
  unsigned short data2 = 0;
  unsigned short data3 = 0;
  unsigned char data4[8] = {};
  EXPECT_EQ(swscanf(u"1234ABCD-0A0B-f00d-01FF-001122334455",
                    u"%8X-%4hX-%4hX-%2hhX%2hhX-%2hhX%2hhX%2hhX%2hhX%2hhX%2hhX", &data1, &data2,
                    &data3, data4, data4 + 1, data4 + 2, data4 + 3, data4 + 4, data4 + 5, data4 + 6,
                    data4 + 7),
            11);
  EXPECT_EQ(data1, 0x1234ABCDu);
  EXPECT_EQ(data2, 0x0A0B);
  EXPECT_EQ(data3, 0xF00D);
  constexpr unsigned char expected[8] = {0x01, 0xFF, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  EXPECT_EQ(std::memcmp(data4, expected, 8), 0);

  unsigned numerator = 0;
  unsigned denominator = 0;
  EXPECT_EQ(swscanf(u"30000/1001", u"%u/%u", &numerator, &denominator), 2);
  EXPECT_EQ(numerator, 30000u);
  EXPECT_EQ(denominator, 1001u);
}

TEST(Scan, CountsStoredFieldsAndEndsEarlyOnBadInput) {
  struct tagROW {
    char const * label;
    char16_t const * input;
    char16_t const * format;
    int expected;
  };
  constexpr tagROW rows[] = {{"null input", nullptr, u"%d", -1},
                             {"null format", u"1", nullptr, -1},
                             {"empty input", u"", u"%d", -1},
                             {"blanks only", u" \t ", u"%d", -1},
                             {"ends at a literal before any field", u"ab", u"abc%d", -1},
                             {"ends after a field", u"12", u"%d,%d", 1},
                             // glibc answers -1 here, though the suppressed field was converted.
                             {"a suppressed field counts as a conversion", u"5", u"%*d%d", 0},
                             {"mismatched literal", u"1;2", u"%d,%d", 1},
                             {"no digits", u"x", u"%d", 0},
                             {"unknown conversion", u"1 2", u"%d %y %d", 1},
                             {"format ends inside a conversion", u"1 2", u"%d %5", 1},
                             {"scan set without its bracket", u"abc", u"%[abc", 0},
                             {"empty scan set match", u"xyz", u"%[abc]", 0},
                             {"only %n on empty input", u"", u"%n", 0},
                             {"%% against the end", u"", u"%%", -1},
                             {"whitespace directive matches none", u"1,2", u"%d , %d", 2}};
  for (tagROW const & row : rows) {
    int a = 0;
    int b = 0;
    int c = 0;
    EXPECT_EQ(swscanf(row.input, row.format, &a, &b, &c), row.expected) << row.label;
  }
}

TEST(Scan, FloatsTakeOnlyTheCharactersOfTheNumber) {
  // Unlike glibc, which reads ahead one character at a time and keeps what it read, the text
  // after the longest number stays in the input.
  struct tagROW {
    char16_t const * input;
    char16_t const * format;
    double value;
    int consumed;
  };
  constexpr tagROW rows[] = {{u"1e+x", u"%lf%n", 1.0, 1},          {u"2.5e", u"%lf%n", 2.5, 3},
                             {u"0x1p", u"%lf%n", 1.0, 3},          {u"0x", u"%lf%n", 0.0, 1},
                             {u"7-3", u"%lf%n", 7.0, 1},           {u"-.5.", u"%lf%n", -0.5, 3},
                             {u"1e5", u"%2lf%n", 1.0, 1},          {u"1e-40", u"%3lf%n", 1.0, 1},
                             {u"infinity", u"%4lf%n", INFINITY, 3}};
  for (tagROW const & row : rows) {
    double value = 0;
    int consumed = -1;
    EXPECT_EQ(swscanf(row.input, row.format, &value, &consumed), 1);
    EXPECT_EQ(value, row.value);
    EXPECT_EQ(consumed, row.consumed);
  }
}

TEST(Scan, VeryLongNumbersUseTheHeapAndFailCleanlyWithout) {
  std::u16string input = u"1";
  input.append(600, u'0');
  input += u"e-598";
  double value = 0;
  EXPECT_EQ(swscanf(input.c_str(), u"%lf", &value), 1);
  EXPECT_EQ(value, 100.0);

  vorx::test::AllocationFailure noHeap;
  int first = 0;
  input = u"7 " + input;
  EXPECT_EQ(swscanf(input.c_str(), u"%d %lf", &first, &value), 1);
  EXPECT_EQ(first, 7);
  EXPECT_EQ(noHeap.Refused(), 1);
}

} // namespace
