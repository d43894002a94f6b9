// Case mapping, case-insensitive comparison, containment and counting of wide text.
#include <vorx/string.h>

#include <clocale>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

using namespace VORX::String;

namespace {

TEST(WideCase, MapsTheBasicPlaneWhateverTheHostLocale) {
  std::string const saved = std::setlocale(LC_ALL, nullptr);
  std::setlocale(LC_ALL, "C"); // the C library's own towlower leaves accents alone here
  qefWChar const rows[][3] = {
      // unit, lower case, upper case
      {u'A', u'a', u'A'},       // U+0041 LATIN CAPITAL LETTER A
      {0x00C9, 0x00E9, 0x00C9}, // U+00C9 LATIN CAPITAL LETTER E WITH ACUTE
      {0x00DF, 0x00DF, 0x00DF}, // U+00DF LATIN SMALL LETTER SHARP S: no single capital
      {0x00FF, 0x00FF, 0x0178}, // U+00FF LATIN SMALL LETTER Y WITH DIAERESIS
      {0x03A3, 0x03C3, 0x03A3}, // U+03A3 GREEK CAPITAL LETTER SIGMA
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
  wcslower(nullptr);
  wcsupper(nullptr);
  std::setlocale(LC_ALL, saved.c_str());
}

TEST(WideCompare, DiffersByLowerCasedUnitsWithinASigned32BitBound) {
  EXPECT_EQ(wccmpi(u'A', u'a'), 0);
  EXPECT_EQ(wccmpi(u'a', u'B'), -1);
  qefWChar const * const same = u"x";
  std::tuple<qefWChar const *, qefWChar const *, int> const rows[] = {
      {u"ABC", u"abd", u'c' - u'd'},   // first difference after lowering
      {u"\xC9T\xC9", u"\xE9t\xE9", 0}, // accented capitals
      {u"abc", u"ab", u'c'},           // longer first text
      {u"ab", u"abc", -u'c'},          // shorter first text
      {nullptr, u"", 1},
      {u"", nullptr, -1},
      {same, same, 0},
  };
  for (auto const & [a, b, expected] : rows) {
    EXPECT_EQ(wcscmpi(a, b), expected) << testing::PrintToString(a) << testing::PrintToString(b);
  }
  std::pair<std::uint64_t, int> const bounds[] = {
      {0, 0},                      // nothing compared
      {2, 0},                      // equal within two characters
      {100, u'x' - u'y'},          // beyond the texts
      {~std::uint64_t{0}, 0},      // all ones reads as -1: nothing compared
      {0x80000000u, 0},            // 2^31 reads as negative
      {0x100000002u, 0},           // only the low 32 bits count: two characters
      {0x100000003u, u'x' - u'y'}, // ... three characters
  };
  for (auto const & [n, expected] : bounds) {
    EXPECT_EQ(wcsncmpi(u"ABx", u"aby", n), expected) << std::hex << n;
  }
  EXPECT_EQ(wcsncmpi(nullptr, u"a", 1), 1);
  EXPECT_EQ(wcsncmpi(u"a", nullptr, 1), -1);
}

TEST(WideContains, FindsNonEmptyNeedlesWithinTheBound) {
  std::uint64_t const all = ~std::uint64_t{0};
  qefWChar const * const empty = u"";
  struct Row {
    qefWChar const * s;
    qefWChar const * sub;
    std::uint64_t n;
    bool sensitive, insensitive;
  } const rows[] = {
      {u"aab", u"ab", all, true, true},   // after a false start
      {u"abc", u"cd", all, false, false}, // runs past the end
      {u"abc", u"", all, false, false},   // an empty needle is never found
      {u"", u"a", all, false, false},
      {empty, empty, all, true, true}, // the same pointer, even empty
      {u"Hello World", u"WORLD", all, false, true},
      {u"\xC9T\xC9", u"\xE9t", all, false, true},
      {u"abcdef", u"cd", 3, false, false}, // crosses the bound
      {u"ABCDEF", u"cd", 4, false, true},  // ends at the bound
      {nullptr, u"a", all, false, false},
      {u"a", nullptr, all, false, false},
  };
  for (Row const & row : rows) {
    if (row.n == all) {
      EXPECT_EQ(wcscnt(row.s, row.sub), row.sensitive) << &row - rows;
      EXPECT_EQ(wcscnti(row.s, row.sub), row.insensitive) << &row - rows;
    }
    EXPECT_EQ(wcsncnt(row.s, row.sub, row.n), row.sensitive) << &row - rows;
    EXPECT_EQ(wcsncnti(row.s, row.sub, row.n), row.insensitive) << &row - rows;
  }
  EXPECT_TRUE(wcsncnt(u"abcdef", u"cd", 4));
  EXPECT_EQ(wcscount(u"banana", u'a'), 3u);
  EXPECT_EQ(wcscount(nullptr, u'a'), 0u);
  EXPECT_EQ(wcscount(u"abc", 0), 0u);
}

} // namespace
