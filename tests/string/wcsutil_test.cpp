// Case mapping, case-insensitive comparison, containment and counting of wide text.
#include <vorx/string.h>

#include <string>
#include <tuple>

#include <gtest/gtest.h>

using namespace VORX::String;

namespace {

// Test programs run in the "C" locale, where the C library's own towlower leaves accents alone.
TEST(WideCase, MapsTheBasicPlaneWhateverTheHostLocale) {
  qefWChar const rows[][3] = {
      // unit, lower case, upper case
      {0x00C9, 0x00E9, 0x00C9}, // U+00C9 LATIN CAPITAL LETTER E WITH ACUTE
      {0x00DF, 0x00DF, 0x00DF}, // U+00DF LATIN SMALL LETTER SHARP S: no single capital
      {0x00FF, 0x00FF, 0x0178}, // U+00FF LATIN SMALL LETTER Y WITH DIAERESIS
      {0xFF21, 0xFF41, 0xFF21}, // U+FF21 FULLWIDTH LATIN CAPITAL LETTER A
      {0xD800, 0xD800, 0xD800}, // a surrogate unit maps to itself
  };
  for (auto const & [c, lower, upper] : rows) {
    EXPECT_EQ(wctolower(c), lower) << std::hex << int(c);
    EXPECT_EQ(wctoupper(c), upper) << std::hex << int(c);
  }
  char16_t text[] = u"\xC9t\xE9 Abc1";
  wcslower(text);
  EXPECT_EQ(std::u16string(text), u"\xE9t\xE9 abc1");
  wcsupper(text);
  EXPECT_EQ(std::u16string(text), u"\xC9T\xC9 ABC1");
}

TEST(WideCompare, DiffersByLowerCasedUnitsWithinASigned32BitBound) {
  std::tuple<qefWChar const *, qefWChar const *, int> const rows[] = {
      {u"ABC", u"abd", u'c' - u'd'},   // first difference after lowering
      {u"\xC9T\xC9", u"\xE9t\xE9", 0}, // accented capitals
      {u"ab", u"abc", -u'c'},          // shorter first text
      {nullptr, u"", 1},
  };
  for (auto const & [a, b, expected] : rows) {
    EXPECT_EQ(wcscmpi(a, b), expected) << testing::PrintToString(a) << testing::PrintToString(b);
  }
  std::pair<std::uint64_t, int> const bounds[] = {
      {2, 0},                      // equal within two characters
      {0x80000000u, 0},            // 2^31 reads as negative: nothing compared
      {0x100000003u, u'x' - u'y'}, // only the low 32 bits count: three characters
  };
  for (auto const & [n, expected] : bounds) {
    EXPECT_EQ(wcsncmpi(u"ABx", u"aby", n), expected) << std::hex << n;
  }
  EXPECT_EQ(wcsncmpi(u"a", nullptr, 1), -1);
}

TEST(WideContains, FindsNonEmptyNeedlesWithinTheBound) {
  std::uint64_t const all = ~std::uint64_t{0};
  qefWChar const * const empty = u"";
  std::tuple<qefWChar const *, qefWChar const *, std::uint64_t, bool, bool> const rows[] = {
      // text, needle, bound, found, found ignoring case
      {u"aab", u"ab", all, true, true}, // after a false start
      {u"abc", u"", all, false, false}, // an empty needle is never found
      {empty, empty, all, true, true},  // the same pointer, even empty
      {u"\xC9T\xC9", u"\xE9t", all, false, true},
      {u"abcdef", u"cd", 3, false, false}, // crosses the bound
      {u"ABCDEF", u"cd", 4, false, true},  // ends at the bound
      {nullptr, u"a", all, false, false},
  };
  for (auto const & [s, sub, n, sensitive, insensitive] : rows) {
    if (n == all) {
      EXPECT_EQ(wcscnt(s, sub), sensitive) << testing::PrintToString(s);
      EXPECT_EQ(wcscnti(s, sub), insensitive) << testing::PrintToString(s);
    }
    EXPECT_EQ(wcsncnt(s, sub, n), sensitive) << testing::PrintToString(s);
    EXPECT_EQ(wcsncnti(s, sub, n), insensitive) << testing::PrintToString(s);
  }
  EXPECT_EQ(wcscount(u"banana", u'a'), 3u);
  EXPECT_EQ(wcscount(u"abc", 0), 0u);
}

} // namespace
