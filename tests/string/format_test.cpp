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
#include <vector>

#include <gtest/gtest.h>

namespace {

using VORX::String::_snwprintf;

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
// snprintf: the same text and the same result.
template <typename... A>
void ExpectLikeGlibcAs(std::string const & glibc, std::string const & ours, A... arguments) {
  int const length = std::snprintf(nullptr, 0, glibc.c_str(), arguments...);
  ASSERT_GE(length, 0) << glibc;
  std::vector<char> narrow(static_cast<std::size_t>(length) + 1);
  std::snprintf(narrow.data(), narrow.size(), glibc.c_str(), arguments...);
  std::vector<char16_t> buffer(narrow.size() + 8, u'#');
  EXPECT_EQ(_snwprintf(buffer.data(), buffer.size(), Widen(ours.c_str()).c_str(), arguments...),
            length)
      << ours;
  EXPECT_EQ(std::u16string(buffer.data()), Widen(narrow.data())) << ours;
}
template <typename... A> void ExpectLikeGlibc(std::string const & format, A... arguments) {
  ExpectLikeGlibcAs(format, format, arguments...);
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
  constexpr char const * integerForms[] = {"",    "5",   "-5",  "05",   "+",   " ",
                                           "+05", " 05", "#",   "#05",  "#.0", "#8.3",
                                           ".0",  ".3",  "8.3", "08.3", "0-6", "-+6"};
  constexpr char const * intSizes[][2] = {{"", ""}, {"hh", "hh"}, {"h", "h"}, {"", "I32"}};
  constexpr char const * wideSizes[][2] = {{"ll", "ll"}, {"l", "l"},    {"j", "j"}, {"z", "z"},
                                           {"t", "t"},   {"ll", "I64"}, {"z", "I"}};
  constexpr int ints[] = {0, 1, -1, 42, 255, -129, 32768, 70000, INT_MAX, INT_MIN};
  constexpr long long wides[] = {0,       -1,         INT64_MIN,           INT64_MAX,
                                 INT_MIN, UINT32_MAX, 0x123456789ABCDEFll, -1000000000000ll};
  ExpectAllLikeGlibc(integerForms, "diouxX", intSizes, ints);
  ExpectAllLikeGlibc(integerForms, "diouxX", wideSizes, wides);
  constexpr char const * floatForms[] = {"",  ".0", "#.0", "10.3", "-10.3",  "012.3",
                                         "+", " ",  "#",   ".10",  "+010.2", "-14"};
  constexpr char const * doubleSizes[][2] = {{"", ""}, {"l", "l"}};
  constexpr char const * longDoubleSizes[][2] = {{"L", "L"}};
  constexpr double doubles[] = {
      0.0, -0.0,       1.0, -1.5,     3.14159265358979, 1e-5, 1e15,    1e300,   1e-300,
      0.1, 123456.789, 2.5, INFINITY, -INFINITY,        NAN,  DBL_MAX, DBL_MIN, -DBL_TRUE_MIN};
  constexpr long double longDoubles[] = {1.5L, -0.1L, 1e4000L, LDBL_MIN, 1.0L / 3};
  ExpectAllLikeGlibc(floatForms, "fFeEgGaA", doubleSizes, doubles);
  ExpectAllLikeGlibc(floatForms, "fFeEgGaA", longDoubleSizes, longDoubles);
  ExpectLikeGlibc("%3c|%-3c|", 'A', 'z'); // glibc's %c goes through the locale above 127
}

TEST(Format, StarWidthAndPrecisionMatchGlibc) {
  for (int width : {-8, -1, 0, 3, 8}) {
    for (int precision : {-5, -1, 0, 2, 6}) {
      ExpectLikeGlibc("%*.*d|", width, precision, -12345);
      ExpectLikeGlibc("%0*.*f|", width, precision, -3.25);
      ExpectLikeGlibc("%0*.*x|", width, precision, 42);
    }
  }
}

TEST(Format, FollowsTheWindowsWideConventions) {
  // Strings: %s %ls %ws wide, %hs %S narrow; characters likewise.
  EXPECT_EQ(Format(u"[%s|%ls|%ws]", u"ab", u"cd", u"ef"), u"[ab|cd|ef]");
  EXPECT_EQ(Format(u"[%hs|%S|%hhs]", "ab", "cd", "ef"), u"[ab|cd|ef]");
  EXPECT_EQ(Format(u"[%lS|%wS]", u"wide", u"too"), u"[wide|too]");
  EXPECT_EQ(Format(u"[%c|%lc|%wc|%hc|%C|%lC]", u'\u00E9', u'\u4E2D', u'x', 'A', 'B', u'\u0416'),
            u"[\u00E9|\u4E2D|x|A|B|\u0416]");
  EXPECT_EQ(Format(u"[%hc]", static_cast<char>(0xE9)), u"[\u00E9]"); // a byte keeps its value

  // Width and precision count 16-bit units, for narrow text after decoding.
  EXPECT_EQ(Format(u"[%5s|%-5ls|%.2s|%6.3ws]", u"ab", u"cd", u"efgh", u"ijklm"),
            u"[   ab|cd   |ef|   ijk]");
  EXPECT_EQ(Format(u"[%5hs|%-5hs|%.2hs|%.0hs]", "h\xC3\xA9", "ab", "\xC3\xA9\xC3\xA9\xC3\xA9", "x"),
            u"[   h\u00E9|ab   |\u00E9\u00E9|]");

  // %ld reads the host's 64-bit long; %I32 a 32-bit value.
  EXPECT_EQ(Format(u"%ld %lu %I32d %I32x", -5000000000l, 5000000000ul, -7, -1),
            u"-5000000000 5000000000 -7 ffffffff");

  // Pointers: 16 upper-case digits, no prefix; width applies.
  EXPECT_EQ(Format(u"%p", nullptr), u"0000000000000000");
  EXPECT_EQ(Format(u"[%18p|%-17p]", reinterpret_cast<void *>(0xABCDEF12),
                   reinterpret_cast<void *>(~0ull)),
            u"[  00000000ABCDEF12|FFFFFFFFFFFFFFFF ]");

  // Null strings, narrow and wide, with precision and width.
  char16_t const * const noWide = nullptr;
  char const * const noNarrow = nullptr;
  EXPECT_EQ(Format(u"[%s|%hs|%.3s|%8S|%-7ls]", noWide, noNarrow, noWide, noNarrow, noWide),
            u"[(null)|(null)|(nu|  (null)|(null) ]");

  // %% and %n.
  int written = -1;
  signed char small = -1;
  long long wide = -1;
  EXPECT_EQ(Format(u"50%% ab%ncd%hhnef%lln", &written, &small, &wide), u"50% abcdef");
  EXPECT_EQ(written, 6);
  EXPECT_EQ(small, 8);
  EXPECT_EQ(wide, 10);
}

TEST(Format, DecodesNarrowTextAsUtf8ElseByteForByte) {
  constexpr std::pair<char const *, char16_t const *> rows[] = {
      {"caf\xC3\xA9", u"caf\u00E9"},                     // U+00E9 two bytes
      {"\xE2\x82\xAC", u"\u20AC"},                       // U+20AC three bytes
      {"\xF0\x9F\x8E\xAC", u"\U0001F3AC"},               // U+1F3AC four bytes, a surrogate pair
      {"\xE9t\xE9", u"\u00E9t\u00E9"},                   // Latin-1 bytes
      {"a\x80z", u"a\u0080z"},                           // stray continuation
      {"\xC0\xAF", u"\u00C0\u00AF"},                     // overlong slash
      {"\xED\xA0\x80", u"\u00ED\u00A0\u0080"},           // encoded surrogate
      {"\xF4\x90\x80\x80", u"\u00F4\u0090\u0080\u0080"}, // above U+10FFFF
      {"x\xE2\x82", u"x\u00E2\u0082"},                   // cut short at the end
      {"\xF0\x9F\x8Ez", u"\u00F0\u009F\u008Ez"}};        // four-byte form cut short by ASCII
  for (auto const & [narrow, expected] : rows) {
    EXPECT_EQ(Format(u"%hs", narrow), expected) << narrow;
    EXPECT_EQ(Format(u"%S", narrow), expected) << narrow;
  }
  // A precision that leaves room for one unit does not split a surrogate pair.
  EXPECT_EQ(
      Format(u"[%.1hs|%.2hs|%.3hs]", "\xF0\x9F\x8E\xAC", "\xF0\x9F\x8E\xAC", "a\xF0\x9F\x8E\xAC"),
      u"[|\U0001F3AC|a\U0001F3AC]");
}

TEST(Format, CopiesUnknownConversionsAsTheyStand) {
  for (char16_t const * format : {u"a%yb", u"100%", u"tail %5l", u"%I6d", u"%\u00E9!"}) {
    EXPECT_EQ(Format(format), format);
  }
  EXPECT_EQ(Format(u"[%-5.2k] %d", 7), u"[%-5.2k] 7");
}

TEST(Format, CutsToTheBufferAndReturnsTheFullLength) {
  // "ab" + "  -12" + "\u00E9" + "xyz" + "1.50": 15 units, cut in each piece.
  constexpr std::pair<std::size_t, char16_t const *> rows[] = {{1, u""},
                                                               {3, u"ab"},
                                                               {5, u"ab  "},
                                                               {7, u"ab  -1"},
                                                               {9, u"ab  -12\u00E9"},
                                                               {11, u"ab  -12\u00E9xy"},
                                                               {15, u"ab  -12\u00E9xyz1.5"},
                                                               {16, u"ab  -12\u00E9xyz1.50"}};
  for (auto const & [count, expected] : rows) {
    char16_t buffer[48];
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(_snwprintf(buffer, count, u"ab%5d%hs%ls%.2f", -12, "\xC3\xA9", u"xyz", 1.5), 15);
    EXPECT_EQ(std::u16string(buffer), expected) << count;
    EXPECT_EQ(buffer[count], u'#') << "wrote past count " << count;
  }
  char16_t untouched[4] = {u'#', u'#', u'#', u'#'};
  EXPECT_EQ(_snwprintf(untouched, 0, u"%d", 12345), 5);
  EXPECT_EQ(untouched[0], u'#');
  EXPECT_EQ(_snwprintf(nullptr, 0, u"%ls!", u"measure"), 8);

  char16_t buffer[8] = {u'#'};
  EXPECT_EQ(_snwprintf(buffer, 8, nullptr), -1);
  EXPECT_EQ(buffer[0], 0);
}

// The log prefix is formatted where the heap may be unusable.
TEST(Format, LogPrefixAndOrdinaryFloatsNeedNoHeap) {
  char expected[512];
  std::snprintf(expected, sizeof(expected), "%8.3f [%s] [%s] [] {[file:%s] [line:%d]} %e %g", 1.5,
                "ERROR  ", "VORX", "f.cpp", 1, DBL_MAX, -DBL_MIN);
  vorx::test::AllocationFailure noHeap;
  char16_t buffer[512];
  int const length = _snwprintf(buffer, 512, u"%8.3f [%ls] [%ls] [] {[file:%hs] [line:%d]} %e %g",
                                1.5, u"ERROR  ", u"VORX", "f.cpp", 1, DBL_MAX, -DBL_MIN);
  EXPECT_EQ(noHeap.Refused(), 0);
  EXPECT_EQ(length, static_cast<int>(std::strlen(expected)));
  EXPECT_EQ(std::u16string(buffer), Widen(expected));
}

TEST(Format, HugeFloatTextUsesTheHeapAndFailsCleanlyWithout) {
  char expected[1024];
  int const length = std::snprintf(expected, sizeof(expected), "<%.400f>", 1e300);
  ASSERT_GT(length, 700);
  EXPECT_EQ(Format(u"<%.400f>", 1e300), Widen(expected));

  // Without heap the conversion fails: -1, with the text before it kept and terminated.
  vorx::test::AllocationFailure noHeap;
  char16_t buffer[16];
  EXPECT_EQ(_snwprintf(buffer, 16, u"ab%.400f", 1e300), -1);
  EXPECT_EQ(std::u16string(buffer), u"ab");
  EXPECT_EQ(noHeap.Refused(), 1);
}

} // namespace
