// The owning string buffers (length rules per source, the pair quirks, copies, patching,
// allocation failure), the ANSI code page (Windows-1252 in the "C" locale, UTF-8 in C.UTF-8), and
// case mapping, comparison and containment of wide text.
#include <vorx/string.h>

#include <clocale>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"

using namespace VORX::String;

namespace {

auto const * U8(char const * text) {
  return reinterpret_cast<unsigned char const *>(text);
}
std::string Str(unsigned char const * p) {
  return reinterpret_cast<char const *>(p);
}

// Test programs run in the "C" locale, where ANSI is Windows-1252.

TEST(StringClasses, RecordLengthsByTheirSourceAndStayEmptyForNull) {
  std::uint32_t const abc32[] = {'a', 'b', 'c', 0};
  std::uint16_t const abc16[] = {'a', 'b', 'c', 0};
  // Wide text counts its terminator (even when empty), UTF-8 the units written, ANSI the
  // characters plus one, 16-bit units the units copied, code points the units written; the other
  // classes count no terminator.
  EXPECT_EQ((std::vector<std::uint64_t>{
                CQEFWChar(u"abc").len(), CQEFWChar(u"").len(), CQEFWChar(U8("abc")).len(),
                CQEFWChar("abc").len(), CQEFWChar(abc16).len(), CQEFWChar(abc32).len(),
                CUTF8Char(u"abc").len(), CUTF16Char("abc").len(), CANSIChar(u"abc").len()}),
            (std::vector<std::uint64_t>{4, 1, 3, 4, 3, 3, 3, 3, 3}));
  auto const empty = [](auto const & s) { return !s && *s == nullptr && s.len() == 0; };
  EXPECT_TRUE(empty(CQEFWChar(static_cast<qefWChar const *>(nullptr))) &&
              empty(CUTF16Char(static_cast<unsigned char const *>(nullptr))) &&
              empty(CANSIChar(static_cast<char const *>(nullptr))));
  EXPECT_EQ(CUTF8Char(static_cast<unsigned char const *>(nullptr)).len(), qefAllOnes)
      << "the byte count of nothing, less one";
  CUTF8Char const emptyObject;
  EXPECT_EQ(CUTF8Char(emptyObject).len(), 0u); // a copy of an empty object is empty
}

TEST(StringClasses, KeepThePairQuirks) {
  qefWChar const lone[] = {0xDC00, u'a', 0}; // an empty text, but a buffer
  CUTF8Char const empty(lone);
  EXPECT_TRUE(empty && empty.len() == 0 && Str(*empty).empty());
  std::uint32_t const utf32[] = {'a', 0x1F600, 0x110000, 'b', 0};
  CQEFWChar const fromCodePoints(utf32); // stops quietly above U+10FFFF
  EXPECT_TRUE(std::u16string(*fromCodePoints) == (std::u16string{u'a', 0xD87D, 0xDE00}) &&
              fromCodePoints.len() == 3);
}

TEST(StringClasses, ConvertBetweenEachOtherAndCopyDeeply) {
  CQEFWChar const wide(u"\xE9t\xE9");
  CUTF8Char const utf8(wide);
  EXPECT_EQ(Str(*utf8), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(std::u16string(*CQEFWChar(utf8)), u"\xE9t\xE9");
  CANSIChar const ansi(wide);
  EXPECT_STREQ(*ansi, "\xE9t\xE9"); // Windows-1252
  EXPECT_EQ(Str(*CUTF8Char(ansi)), "\xC3\xA9t\xC3\xA9");

  CQEFWChar const source(U8("abc")); // records 3 ...
  CQEFWChar copy(source);            // ... a copy counts the terminator
  EXPECT_EQ(copy.len(), 4u);
  CQEFWChar assigned;
  assigned = copy;
  EXPECT_NE(*assigned, *copy);
  copy = *copy; // from its own buffer: built before the old one goes
  EXPECT_EQ(std::u16string(*copy), u"abc");
}

TEST(StringClasses, PatchPercentSReplacesAndOverstatesTheLength) {
  // UTF-8 text (so the length starts at the character count), replacement, result, length. The
  // length grows by the replacement, "%s" is not subtracted; the second % starts a match.
  std::tuple<char const *, char16_t const *, std::u16string, std::uint64_t> const rows[] = {
      {"a%sb", u"XY", u"aXYb", 6},
      {"%s%s", u"-", u"--", 6},
      {"%%s", u"X", u"%X", 4},
      {"50%", u"X", u"50%", 3}};
  for (auto const & [text, replacement, expected, length] : rows) {
    CQEFWChar s(U8(text));
    s.patch_percent_s_with(replacement);
    EXPECT_EQ(std::make_pair(std::u16string(*s), s.len()), std::make_pair(expected, length));
  }
  CQEFWChar wide(u"a%sb");
  wide.patch_percent_s_with(u"XY");
  EXPECT_EQ(wide.len(), 7u); // 5 with the terminator counted, plus 2
}

TEST(StringClasses, FailedAllocationsLeaveNullBuffersWithoutLeaks) {
  std::uint32_t const utf32[] = {'a', 0};
  std::uint16_t const utf16[] = {'a', 0};
  CQEFWChar s(u"a%sb");
  {
    vorx::test::AllocationFailure const refuse;
    CQEFWChar const wide(u"abc");
    EXPECT_TRUE(!wide && wide.len() == 4) << "the length is recorded as computed";
    EXPECT_FALSE(CQEFWChar(U8("abc")) || CQEFWChar(utf16) || CQEFWChar("abc") || CQEFWChar(utf32));
    EXPECT_FALSE(CUTF8Char(u"abc") || CUTF16Char(U8("abc")) || CANSIChar(u"abc"));
    s.patch_percent_s_with(u"XY");
    EXPECT_TRUE(std::u16string(*s) == u"a%sb" && s.len() == 5);
    s = u"other";
    EXPECT_FALSE(s) << "the old buffer is released, the new one could not be made";
  }
  // The temporary wide text is made, the final buffer is not: the temporary is freed.
  vorx::test::AllocationFailure const refuseSecond(1);
  EXPECT_FALSE(CUTF8Char("abc"));
}

// Sets a locale for one test and restores the host's afterwards.
class AnsiCodePage : public ::testing::Test {
protected:
  void SetUp() override { m_saved = std::setlocale(LC_ALL, nullptr); }
  void TearDown() override { std::setlocale(LC_ALL, m_saved.c_str()); }
  std::string m_saved;
};

// Converts up to the terminator, which the result must count; returns the text without it.
std::u16string ToWide(char const * ansi) {
  qefWChar out[32];
  std::uint64_t const n = OS::ANSI_To_qefWChar(ansi, qefAllOnes, out, 32);
  EXPECT_TRUE(n > 0 && out[n - 1] == 0) << n;
  return std::u16string(out, n > 0 ? n - 1 : 0);
}
std::string ToAnsi(qefWChar const * wide) {
  char out[32];
  std::uint64_t const n = OS::qefWChar_To_ANSI(wide, qefAllOnes, out, 32);
  EXPECT_TRUE(n > 0 && out[n - 1] == 0) << n;
  return std::string(out, n > 0 ? n - 1 : 0);
}

TEST_F(AnsiCodePage, IsWindows1252InTheCLocaleAndUtf8InCUtf8) {
  ASSERT_TRUE(std::setlocale(LC_ALL, "C"));
  EXPECT_EQ(ToWide("caf\xE9\x80\x9F"), u"caf\xE9\x20AC\x0178"); // U+20AC EURO SIGN at 0x80
  EXPECT_EQ(ToWide("\x81"), u"\x0081");                         // undefined 0x81 keeps its value
  qefWChar const lone[] = {0x4E2D, 0xDC00, 0xE9, 0x20AC, 0};    // not in the code page; lone half
  EXPECT_EQ(ToAnsi(lone), "??\xE9\x80");
  ASSERT_TRUE(std::setlocale(LC_ALL, "C.UTF-8"));
  EXPECT_EQ(ToWide("caf\xC3\xA9\xFF"), u"caf\xE9\xFFFD"); // an invalid byte
  EXPECT_EQ(ToAnsi(u"\xE9\x4E2D"), "\xC3\xA9\xE4\xB8\xAD");
  EXPECT_EQ(CANSIChar(u"\xE9").len(), 2u);
}

TEST_F(AnsiCodePage, KeepsItsResultConventionsInEveryLocale) {
  for (char const * locale : {"C", "C.UTF-8"}) {
    ASSERT_TRUE(std::setlocale(LC_ALL, locale));
    SCOPED_TRACE(locale);
    // The size query; an explicit length counts no terminator.
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", qefAllOnes, nullptr, 0), 4u);
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", qefAllOnes, nullptr, 0), 4u);
    qefWChar small[3] = {0x5555, 0x5555, 0x5555};
    char tiny[3];
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", 2, small, 3), 2u);
    EXPECT_EQ(std::u16string(small, 2), u"ab");
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", 2, tiny, 3), 2u);
    // Too small a destination, no text.
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", qefAllOnes, small, 3), 0u);
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", qefAllOnes, tiny, 3), 0u);
  }
}

// Test programs run in the "C" locale, where the C library's own towlower leaves accents alone.
TEST(WideCase, MapsTheBasicPlaneWhateverTheHostLocale) {
  // U+00DF LATIN SMALL LETTER SHARP S has no single capital; U+00FF LATIN SMALL LETTER Y WITH
  // DIAERESIS has its capital outside Latin-1; U+FF21 FULLWIDTH LATIN CAPITAL A; a surrogate unit
  // maps to itself.
  char16_t text[] = u"\xC9t\xE9 Abc1\xDF\xFF\xFF21\xD800";
  wcslower(text);
  EXPECT_EQ(std::u16string(text), u"\xE9t\xE9 abc1\xDF\xFF\xFF41\xD800");
  wcsupper(text);
  EXPECT_EQ(std::u16string(text), u"\xC9T\xC9 ABC1\xDF\x178\xFF21\xD800");
  EXPECT_TRUE(wctolower(0xC9) == 0xE9 && wctoupper(0xFF) == 0x178);
}

TEST(WideCompare, DiffersByLowerCasedUnitsWithinASigned32BitBound) {
  // The first difference after lowering; accented capitals; a shorter first text; null first.
  std::tuple<qefWChar const *, qefWChar const *, int> const rows[] = {
      {u"ABC", u"abd", u'c' - u'd'},
      {u"\xC9T\xC9", u"\xE9t\xE9", 0},
      {u"ab", u"abc", -u'c'},
      {nullptr, u"", 1}};
  for (auto const & [a, b, expected] : rows) {
    EXPECT_EQ(wcscmpi(a, b), expected) << testing::PrintToString(a) << testing::PrintToString(b);
  }
  // Equal within two characters; 2^31 reads as negative: nothing compared; only the low 32 bits
  // count: three characters.
  std::pair<std::uint64_t, int> const bounds[] = {
      {2, 0}, {0x80000000u, 0}, {0x100000003u, u'x' - u'y'}};
  for (auto const & [n, expected] : bounds) {
    EXPECT_EQ(wcsncmpi(u"ABx", u"aby", n), expected) << std::hex << n;
  }
  EXPECT_EQ(wcsncmpi(u"a", nullptr, 1), -1);
}

TEST(WideContains, FindsNonEmptyNeedlesWithinTheBound) {
  std::uint64_t const all = ~std::uint64_t{0};
  qefWChar const * const empty = u"";
  // Text, needle, bound, found, found ignoring case: after a false start; an empty needle is
  // never found; the same pointer is, even empty; a needle that crosses or ends at the bound.
  std::tuple<qefWChar const *, qefWChar const *, std::uint64_t, bool, bool> const rows[] = {
      {u"aab", u"ab", all, true, true},    {u"abc", u"", all, false, false},
      {empty, empty, all, true, true},     {u"\xC9T\xC9", u"\xE9t", all, false, true},
      {u"abcdef", u"cd", 3, false, false}, {u"ABCDEF", u"cd", 4, false, true},
      {nullptr, u"a", all, false, false}};
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
