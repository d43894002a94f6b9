#include <vorx/string.h>

#include "support/memory_hooks.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using VORX::String::swscanf;

std::u16string Widen(char const * ascii) {
  return std::u16string(ascii, ascii + std::strlen(ascii));
}

// Scans ASCII input with glibc's sscanf (format `glibc`) and the 16-bit scanner (format `ours`),
// each followed by "%n", into storage filled alike beforehand: the results, the units consumed
// and every byte of the storage (so a store of the wrong size shows) must agree.
void ExpectLikeGlibc(std::string const & glibc, std::string const & ours, char const * input) {
  std::vector<unsigned char> expected(16, 0x5A);
  std::vector<unsigned char> actual = expected;
  int expectedUsed = -7;
  int actualUsed = -7;
  int const expectedResult = std::sscanf(input, (glibc + "%n").c_str(),
                                         static_cast<void *>(expected.data()), &expectedUsed);
  int const actualResult = swscanf(Widen(input).c_str(), Widen((ours + "%n").c_str()).c_str(),
                                   static_cast<void *>(actual.data()), &actualUsed);
  EXPECT_EQ(std::tie(actualResult, actualUsed, actual),
            std::tie(expectedResult, expectedUsed, expected))
      << ours << " on \"" << input << "\"";
}

TEST(Scan, NumbersMatchGlibcForEveryWidthSizeAndConversion) {
  // clang-format off
  constexpr char const * integers[] = {
      "-42", " \t\n 12abc", "0X1f", "017", "-0x10", "089", "ff", "-", "", "0xg", "+-3",
      "4294967296", "18446744073709551616", "-9223372036854775809"};
  // clang-format on
  // Size prefixes as glibc spells them, then as the 16-bit scanner may.
  constexpr char const * sizes[][2] = {{"", ""},    {"hh", "hh"},  {"h", "h"}, {"ll", "ll"},
                                       {"l", "l"},  {"j", "j"},    {"z", "z"}, {"t", "t"},
                                       {"", "I32"}, {"ll", "I64"}, {"z", "I"}};
  for (char const * input : integers) {
    for (char const * width : {"", "1", "3"}) {
      for (char const conversion : std::string("diuoxX")) {
        for (auto const & [glibc, ours] : sizes) {
          ExpectLikeGlibc(std::string("%") + width + glibc + conversion,
                          std::string("%") + width + ours + conversion, input);
        }
      }
    }
    ExpectLikeGlibc(" %d", " %d", input);
    ExpectLikeGlibc("x%d", "x%d", input);
  }
  // clang-format off
  constexpr char const * floats[] = {
      "-0.25e3", " 3.14xyz", ".5", "5.", "-INF", "nan", "infinity", "0x1.8p1", "1e-40", "1e39",
      "+.e", "-0", "1e-400", "123456789.123456789"};
  // clang-format on
  for (char const * input : floats) {
    for (char const conversion : std::string("feEgaA")) {
      for (std::string const size : {"", "l", "L"}) {
        ExpectLikeGlibc("%" + size + conversion, "%" + size + conversion, input);
      }
    }
  }
}

TEST(Scan, ReadsTextWithTheWindowsWideConventions) {
  char16_t wide[16] = {};
  char16_t wide2[16] = {};
  char narrow[16] = {};
  char narrow2[16] = {};
  // %s wide; narrow fields (%hs, %S) are stored as UTF-8, a lone surrogate as U+FFFD.
  char16_t const text[] = {u' ', u'a', u' ', 0xD800, u'b', u' ', 0xD83C, 0xDFAC, 0};
  EXPECT_EQ(swscanf(text, u"%s%hs%S", wide, narrow, narrow2), 3);
  EXPECT_EQ(std::u16string(wide), u"a");
  EXPECT_STREQ(narrow, "\xEF\xBF\xBD"
                       "b");
  EXPECT_STREQ(narrow2, "\xF0\x9F\x8E\xAC");

  // A narrow width counts the bytes stored; a character that does not fit ends the field.
  EXPECT_EQ(swscanf(u"\u00E9\u00E9x", u"%3hs%ls", narrow, wide), 2);
  EXPECT_STREQ(narrow, "\xC3\xA9");
  EXPECT_EQ(std::u16string(wide), u"\u00E9x");

  // Characters: no skipping, no terminator; %hc keeps units up to U+00FF, else '?'.
  char16_t units[4] = {u'#', u'#', u'#', u'#'};
  char bytes[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(
      swscanf(u" x\u00FF\u4E2Dyz", u"%c%c%hc%C%2lc", units, units + 1, bytes, bytes + 1, units + 2),
      5);
  EXPECT_EQ(std::u16string(units, 4), u" xyz");
  EXPECT_EQ(std::string(bytes, 3), "\xFF?#");

  // Scan sets, wide and narrow.
  EXPECT_EQ(swscanf(u"key=va]l-ue;rest", u"%[a-z]=%[]a-z-]%*[;]%h[^\n]", wide, wide2, narrow), 3);
  EXPECT_EQ(std::u16string(wide) + u"|" + wide2 + u"|" + std::u16string(narrow, narrow + 4),
            u"key|va]l-ue|rest");

  // %p and %n, and a %n the input never reaches.
  void * pointer = nullptr;
  int consumed = -1;
  short consumedShort = -1;
  EXPECT_EQ(swscanf(u"00000000ABCDEF12 !", u"%p%n %%%hn", &pointer, &consumed, &consumedShort), 1);
  EXPECT_EQ(pointer, reinterpret_cast<void *>(0xABCDEF12));
  EXPECT_TRUE(consumed == 16 && consumedShort == -1) << "the literal '%' did not match '!'";
}

TEST(Scan, CountsStoredFieldsAndEndsEarlyOnBadInput) {
  // input, format, result
  constexpr std::tuple<char16_t const *, char16_t const *, int> rows[] = {
      {nullptr, u"%d", -1},     {u"1", nullptr, -1},
      {u" \t ", u"%d", -1},     {u"ab", u"abc%d", -1}, // ends before any field
      {u"12", u"%d,%d", 1},                            // ends after a field
      {u"5", u"%*d%d", 0},      // glibc answers -1, though the suppressed field was converted
      {u"1 2", u"%d %y %d", 1}, // an unknown conversion
      {u"1 2", u"%d %5", 1},    // the format ends inside a conversion
      {u"abc", u"%[abc", 0},    // a scan set without its bracket
      {u"", u"%n", 0},          {u"", u"%%", -1},
      {u"1,2", u"%d , %d", 2}, // a whitespace directive matches none
  };
  for (auto const & [input, format, expected] : rows) {
    int a = 0;
    int b = 0;
    EXPECT_EQ(swscanf(input, format, &a, &b), expected) << testing::PrintToString(format);
  }
}

TEST(Scan, FloatsTakeOnlyTheCharactersOfTheNumber) {
  // Unlike glibc, which reads ahead one character at a time and keeps what it read, the text
  // after the longest number stays in the input.
  constexpr std::tuple<char16_t const *, char16_t const *, double, int> rows[] = {
      {u"1e+x", u"%lf%n", 1.0, 1},   {u"0x1p", u"%lf%n", 1.0, 3},
      {u"0x", u"%lf%n", 0.0, 1},     {u"-.5.", u"%lf%n", -0.5, 3},
      {u"1e-40", u"%3lf%n", 1.0, 1}, {u"infinity", u"%4lf%n", INFINITY, 3}};
  for (auto const & [input, format, expected, expectedUsed] : rows) {
    double value = 0;
    int consumed = -1;
    EXPECT_EQ(swscanf(input, format, &value, &consumed), 1);
    EXPECT_EQ(value, expected);
    EXPECT_EQ(consumed, expectedUsed);
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
