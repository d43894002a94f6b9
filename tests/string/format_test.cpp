// The 16-bit formatter and scanner, checked against glibc wherever the two conventions agree.
#include <vorx/string.h>

#include "support/memory_hooks.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using VORX::String::_snwprintf;
using VORX::String::swscanf;

std::u16string Widen(char const * ascii) {
  return std::u16string(ascii, ascii + std::strlen(ascii));
}

// Formats into a roomy buffer and checks that the result is the length of the text.
template <typename... A> std::u16string Format(char16_t const * format, A... arguments) {
  std::vector<char16_t> buffer(8192, u'#');
  int const length = _snwprintf(buffer.data(), buffer.size(), format, arguments...);
  std::u16string text(buffer.data());
  EXPECT_EQ(length, static_cast<int>(text.size())) << "format result";
  return text;
}

// Checks the 16-bit formatter, given `ours` (the Windows spelling of `glibc`), against glibc's
// snprintf: the same text (and so, as `Format` checks, the same result).
template <typename... A>
void ExpectLikeGlibcAs(std::string const & glibc, std::string const & ours, A... arguments) {
  char narrow[8192];
  int const length = std::snprintf(narrow, sizeof narrow, glibc.c_str(), arguments...);
  ASSERT_TRUE(length >= 0 && length < static_cast<int>(sizeof narrow)) << glibc;
  EXPECT_EQ(Format(Widen(ours.c_str()).c_str(), arguments...), Widen(narrow)) << ours;
}

// Every form of flags, width and precision with every conversion, size prefix (as glibc spells it,
// then as the 16-bit formatter may) and value; "|" shows the padding of left-justified fields.
template <std::size_t S, std::size_t Z, typename V, std::size_t N>
void ExpectAllLikeGlibc(char const * const (&forms)[S], std::string const & conversions,
                        char const * const (&sizes)[Z][2], V const (&values)[N]) {
  for (std::string const form : forms) {
    for (char const conversion : conversions) {
      for (auto const & [glibc, ours] : sizes) {
        for (V const value : values) {
          ExpectLikeGlibcAs("%" + form + glibc + conversion + "|",
                            "%" + form + ours + conversion + "|", value);
        }
      }
    }
  }
}

TEST(Format, NumbersMatchGlibcForEveryFlagSizeAndConversion) {
  constexpr char const * integerForms[] = {"",    "-5",   "05", "+",    " 05", "#05",
                                           "#.0", "#8.3", ".0", "08.3", "0-6", "-+6"};
  constexpr char const * intSizes[][2] = {{"", ""}, {"hh", "hh"}, {"h", "h"}, {"", "I32"}};
  constexpr char const * wideSizes[][2] = {{"ll", "ll"}, {"l", "l"},    {"j", "j"}, {"z", "z"},
                                           {"t", "t"},   {"ll", "I64"}, {"z", "I"}};
  constexpr int ints[] = {0, -1, 255, -129, 70000, INT_MIN};
  constexpr long long wides[] = {0, INT64_MIN, INT64_MAX, UINT32_MAX, -1000000000000ll};
  ExpectAllLikeGlibc(integerForms, "diouxX", intSizes, ints);
  ExpectAllLikeGlibc(integerForms, "diouxX", wideSizes, wides);
  constexpr char const * floatForms[] = {"", ".0", "#.0", "-10.3", "012.3", " ", "#", "+010.2"};
  constexpr char const * doubleSizes[][2] = {{"", ""}, {"l", "l"}};
  constexpr char const * longDoubleSizes[][2] = {{"L", "L"}};
  constexpr double doubles[] = {0.0,          -0.0, -1.5, 3.14159265358979, 1e-5, 1e15,
                                1e300,        0.1,  2.5,  -INFINITY,        NAN,  DBL_MAX,
                                -DBL_TRUE_MIN};
  constexpr long double longDoubles[] = {-0.1L, 1e4000L, LDBL_MIN};
  ExpectAllLikeGlibc(floatForms, "fFeEgGaA", doubleSizes, doubles);
  ExpectAllLikeGlibc(floatForms, "fFeEgGaA", longDoubleSizes, longDoubles);
  // glibc's %c goes through the locale above 127. A negative width from the arguments
  // left-justifies.
  ExpectLikeGlibcAs("%3c|%-3c|", "%3c|%-3c|", 'A', 'z');
  for (int width : {-8, 0, 8}) {
    for (int precision : {-1, 0, 2}) {
      ExpectLikeGlibcAs("%*.*d|%0*.*f|", "%*.*d|%0*.*f|", width, precision, -12345, width,
                        precision, -3.25);
    }
  }
}

TEST(Format, FollowsTheWindowsWideConventions) {
  // Strings: %s %ls %ws wide, %hs %S narrow; characters likewise.
  EXPECT_EQ(Format(u"[%s|%ws|%hs|%S]", u"ab", u"cd", "ef", "gh"), u"[ab|cd|ef|gh]");
  EXPECT_EQ(Format(u"[%c|%wc|%hc|%C|%lC]", u'\u00E9', u'x', 'A', 'B', u'\u0416'),
            u"[\u00E9|x|A|B|\u0416]");

  // Width and precision count 16-bit units, for narrow text after decoding.
  EXPECT_EQ(Format(u"[%-5ls|%6.3ws|%5hs|%.2hs]", u"cd", u"ijklm", "h\xC3\xA9",
                   "\xC3\xA9\xC3\xA9\xC3\xA9"),
            u"[cd   |   ijk|   h\u00E9|\u00E9\u00E9]");

  // %ld reads the host's 64-bit long; %I32 a 32-bit value.
  EXPECT_EQ(Format(u"%ld %lu %I32d %I32x", -5000000000l, 5000000000ul, -7, -1),
            u"-5000000000 5000000000 -7 ffffffff");

  // Pointers: 16 upper-case digits, no prefix; width applies.
  EXPECT_EQ(Format(u"[%18p|%p]", reinterpret_cast<void *>(0xABCDEF12), nullptr),
            u"[  00000000ABCDEF12|0000000000000000]");

  // Null strings, narrow and wide, with precision and width.
  char16_t const * const noWide = nullptr;
  char const * const noNarrow = nullptr;
  EXPECT_EQ(Format(u"[%.3s|%8S|%-7ls]", noWide, noNarrow, noWide), u"[(nu|  (null)|(null) ]");

  // %% and %n.
  signed char written = -1;
  EXPECT_EQ(Format(u"50%% abc%hhnd", &written), u"50% abcd");
  EXPECT_EQ(written, 7);
}

TEST(Format, DecodesNarrowTextAsUtf8ElseByteForByte) {
  // U+20AC, U+1F3AC (a pair); then, byte for byte: Latin-1, an overlong slash, an encoded
  // surrogate, a value above U+10FFFF, a four-byte form cut short by ASCII.
  EXPECT_EQ(Format(u"%hs|%hs|%hs|%hs|%hs|%hs|%hs", "\xE2\x82\xAC", "\xF0\x9F\x8E\xAC", "\xE9t",
                   "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF0\x9F\x8Ez"),
            u"\u20AC|\U0001F3AC|\u00E9t|\u00C0\u00AF|\u00ED\u00A0\u0080|\u00F4\u0090\u0080\u0080|"
            u"\u00F0\u009F\u008Ez");
  // A precision that leaves room for one unit does not split a surrogate pair.
  EXPECT_EQ(
      Format(u"[%.1hs|%.2hs|%.3hs]", "\xF0\x9F\x8E\xAC", "\xF0\x9F\x8E\xAC", "a\xF0\x9F\x8E\xAC"),
      u"[|\U0001F3AC|a\U0001F3AC]");
}

TEST(Format, CutsToTheBufferAndReturnsTheFullLength) {
  // "ab" + "  -12" + "\u00E9" + "xyz" + "1.50": 15 units, cut in each piece.
  std::u16string const full = u"ab  -12\u00E9xyz1.50";
  for (std::size_t count : {1, 5, 9, 11, 15, 16}) {
    char16_t buffer[48];
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(_snwprintf(buffer, count, u"ab%5d%hs%ls%.2f", -12, "\xC3\xA9", u"xyz", 1.5), 15);
    EXPECT_EQ(std::u16string(buffer), full.substr(0, count - 1)) << count;
    EXPECT_EQ(buffer[count], u'#') << "wrote past count " << count;
  }
  EXPECT_EQ(_snwprintf(nullptr, 0, u"%ls!", u"measure"), 8);

  char16_t buffer[8] = {u'#'};
  EXPECT_EQ(_snwprintf(buffer, 8, nullptr), -1);
  EXPECT_EQ(buffer[0], 0);
}

// The log prefix is formatted where the heap may be unusable.
TEST(Format, LogPrefixAndOrdinaryFloatsNeedNoHeap) {
  vorx::test::AllocationFailure noHeap;
  ExpectLikeGlibcAs("%8.3f [%s] [%s] [] {[file:%s] [line:%d]} %e %g",
                    "%8.3f [%hs] [%S] [] {[file:%hs] [line:%d]} %e %g", 1.5, "ERROR  ", "VORX",
                    "f.cpp", 1, DBL_MAX, -DBL_MIN);
  EXPECT_EQ(noHeap.Refused(), 0);
}

TEST(Format, HugeFloatTextUsesTheHeapAndFailsCleanlyWithout) {
  ExpectLikeGlibcAs("<%.400f>", "<%.400f>", 1e300); // over 700 characters

  // Without heap the conversion fails: -1, with the text before it kept and terminated.
  vorx::test::AllocationFailure noHeap;
  char16_t buffer[16];
  EXPECT_EQ(_snwprintf(buffer, 16, u"ab%.400f", 1e300), -1);
  EXPECT_EQ(std::u16string(buffer), u"ab");
  EXPECT_EQ(noHeap.Refused(), 1);
}

// Scans ASCII input with glibc's sscanf (format `glibc`) and the 16-bit scanner (format `ours`),
// each followed by "%n", into storage filled alike beforehand: the results, the units consumed
// and every byte of the storage (so a store of the wrong size shows) must agree.
void ExpectScanLikeGlibc(std::string const & glibc, std::string const & ours, char const * input) {
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
          ExpectScanLikeGlibc(std::string("%") + width + glibc + conversion,
                              std::string("%") + width + ours + conversion, input);
        }
      }
    }
    ExpectScanLikeGlibc(" %d", " %d", input);
    ExpectScanLikeGlibc("x%d", "x%d", input);
  }
  // clang-format off
  constexpr char const * floats[] = {
      "-0.25e3", " 3.14xyz", ".5", "5.", "-INF", "nan", "infinity", "0x1.8p1", "1e-40", "1e39",
      "+.e", "-0", "1e-400", "123456789.123456789"};
  // clang-format on
  for (char const * input : floats) {
    for (char const conversion : std::string("feEgaA")) {
      for (std::string const size : {"", "l", "L"}) {
        ExpectScanLikeGlibc("%" + size + conversion, "%" + size + conversion, input);
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
  EXPECT_EQ(std::string(narrow) + "|" + narrow2, "\357\277\275b|\360\237\216\254");

  // A narrow width counts the bytes stored; a character that does not fit ends the field.
  EXPECT_EQ(swscanf(u"\u00E9\u00E9x", u"%3hs%ls", narrow, wide), 2);
  EXPECT_TRUE(std::string(narrow) == "\xC3\xA9" && std::u16string(wide) == u"\u00E9x");

  // Characters: no skipping, no terminator; %hc keeps units up to U+00FF, else '?'.
  char bytes[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(swscanf(u" x\u00FF\u4E2Dyz", u"%c%c%hc%C%2lc", wide, wide + 1, bytes, bytes + 1, wide2),
            5);
  EXPECT_EQ(std::u16string(wide, 2) + u"|" + std::u16string(wide2, 2), u" x|yz");
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
  EXPECT_TRUE(pointer == reinterpret_cast<void *>(0xABCDEF12) && consumed == 16 &&
              consumedShort == -1)
      << "the literal '%' did not match '!'";
}

TEST(Scan, CountsStoredFieldsAndEndsEarlyOnBadInput) {
  // Input, format, result. On "%*d%d" glibc answers -1, though the suppressed field was
  // converted. An unknown conversion, the format's end inside a conversion or a scan set without
  // its bracket ends the scan; a whitespace directive may match no whitespace.
  constexpr std::tuple<char16_t const *, char16_t const *, int> rows[] = {
      {nullptr, u"%d", -1}, {u"1", nullptr, -1},      {u"ab", u"abc%d", -1},  {u"12", u"%d,%d", 1},
      {u"5", u"%*d%d", 0},  {u"1 2", u"%d %y %d", 1}, {u"1 2", u"%d %5", 1},  {u"abc", u"%[abc", 0},
      {u"", u"%n", 0},      {u"", u"%%", -1},         {u"1,2", u"%d , %d", 2}};
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
