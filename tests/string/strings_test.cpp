// The owning string buffers: length rules per source, the pair quirks, copies, patching and
// allocation failure.
#include <vorx/string.h>

#include <clocale>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"

using namespace VORX::String;

namespace {

auto const * U8(char const * text) {
  return reinterpret_cast<unsigned char const *>(text);
}

std::u16string Wide(qefWChar const * p, std::uint64_t n) {
  return p ? std::u16string(p, static_cast<std::size_t>(n)) : u"<null>";
}
std::u16string Units(std::uint16_t const * p, std::uint64_t n) {
  std::u16string s;
  for (std::uint64_t i = 0; p && i < n; ++i) {
    s += static_cast<char16_t>(p[i]);
  }
  return s;
}

// Runs the test body in the "C" locale and restores the host's afterwards.
class StringClasses : public ::testing::Test {
protected:
  void SetUp() override {
    m_saved = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "C");
  }
  void TearDown() override { std::setlocale(LC_ALL, m_saved.c_str()); }
  std::string m_saved;
};

TEST_F(StringClasses, RecordLengthsByTheirSource) {
  std::uint32_t const abc32[] = {'a', 'b', 'c', 0};
  std::uint16_t const abc16[] = {'a', 'b', 'c', 0};
  struct Row {
    std::uint64_t length;
    std::uint64_t expected;
    char const * label;
  };
  Row const rows[] = {
      {CQEFWChar(u"abc").len(), 4, "wide into wide counts the terminator"},
      {CQEFWChar(U8("abc")).len(), 3, "UTF-8 into wide: units written"},
      {CQEFWChar("abc").len(), 4, "ANSI into wide: characters plus one"},
      {CQEFWChar(abc16).len(), 3, "16-bit units into wide: units copied"},
      {CQEFWChar(abc32).len(), 3, "code points into wide: units written"},
      {CUTF8Char(u"abc").len(), 3, "wide into UTF-8: bytes written"},
      {CUTF8Char(U8("abc")).len(), 3, "UTF-8 copy: byte count"},
      {CUTF8Char(abc16).len(), 3, "16-bit units into UTF-8"},
      {CUTF8Char("abc").len(), 3, "ANSI into UTF-8"},
      {CUTF16Char(u"abc").len(), 3, "wide into 16-bit units"},
      {CUTF16Char(U8("abc")).len(), 3, "UTF-8 into 16-bit units"},
      {CUTF16Char(abc16).len(), 3, "16-bit copy"},
      {CUTF16Char("abc").len(), 3, "ANSI into 16-bit units"},
      {CANSIChar(u"abc").len(), 3, "wide into ANSI: bytes without the terminator"},
      {CANSIChar("abc").len(), 3, "ANSI copy: byte count"},
      {CQEFWChar(u"").len(), 1, "empty wide text still counts its terminator"},
      {CQEFWChar("").len(), 1, "empty ANSI text into wide"},
      {CUTF8Char(U8("")).len(), 0, "empty UTF-8 copy"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(row.length, row.expected) << row.label;
  }
}

TEST_F(StringClasses, NullSourcesLeaveThemEmpty) {
  qefWChar const * wide = nullptr;
  unsigned char const * utf8 = nullptr;
  std::uint16_t const * utf16 = nullptr;
  char const * ansi = nullptr;
  std::uint32_t const * utf32 = nullptr;
  for (CQEFWChar const & s : {CQEFWChar(wide), CQEFWChar(utf8), CQEFWChar(utf16), CQEFWChar(ansi),
                              CQEFWChar(utf32), CQEFWChar()}) {
    EXPECT_FALSE(s);
    EXPECT_EQ(*s, nullptr);
    EXPECT_EQ(s.len(), 0u);
  }
  for (CUTF8Char const & s : {CUTF8Char(wide), CUTF8Char(utf16), CUTF8Char(ansi), CUTF8Char()}) {
    EXPECT_FALSE(s);
    EXPECT_EQ(s.len(), 0u);
  }
  // A null UTF-8 source records the byte count of nothing less one.
  CUTF8Char const fromNull(utf8);
  EXPECT_FALSE(fromNull);
  EXPECT_EQ(fromNull.len(), qefAllOnes);
  for (CUTF16Char const & s :
       {CUTF16Char(wide), CUTF16Char(utf8), CUTF16Char(utf16), CUTF16Char(ansi)}) {
    EXPECT_FALSE(s);
    EXPECT_EQ(s.len(), 0u);
  }
  for (CANSIChar const & s : {CANSIChar(wide), CANSIChar(ansi)}) {
    EXPECT_FALSE(s);
    EXPECT_EQ(s.len(), 0u);
  }
}

TEST_F(StringClasses, KeepThePairQuirksAndTruncateBadInput) {
  qefWChar const smilePair[] = {0xD83D, 0xDE00, u'b', 0};
  CUTF8Char const collapsed(smilePair);
  ASSERT_TRUE(collapsed);
  EXPECT_EQ(collapsed.len(), 2u);
  EXPECT_EQ(std::string(reinterpret_cast<char const *>(*collapsed)), "\x01"
                                                                     "b");

  CUTF16Char const unit(smilePair);
  EXPECT_EQ(Units(*unit, unit.len() + 1), std::u16string(u"\x0001"
                                                         u"b\0",
                                                         3));

  qefWChar const zeroPair[] = {0xD800, 0xDC00, u'z', 0};
  CUTF8Char const zero(zeroPair);
  EXPECT_EQ(zero.len(), 2u);
  EXPECT_EQ((*zero)[0], 0);
  EXPECT_EQ((*zero)[1], 'z');

  // A lone low surrogate first: an empty text, but a buffer.
  qefWChar const lone[] = {0xDC00, u'a', 0};
  CUTF8Char const empty(lone);
  EXPECT_TRUE(empty);
  EXPECT_EQ(empty.len(), 0u);
  EXPECT_EQ((*empty)[0], 0);
  CUTF16Char const emptyUnits(lone);
  EXPECT_TRUE(emptyUnits);
  EXPECT_EQ(emptyUnits.len(), 0u);

  qefWChar const late[] = {u'a', u'b', 0xD800, u'c', 0};
  CUTF8Char const cut(late);
  EXPECT_EQ(cut.len(), 2u);
  EXPECT_STREQ(reinterpret_cast<char const *>(*cut), "ab");

  // U+1F600 GRINNING FACE from UTF-8 is stored without subtracting 0x10000.
  CQEFWChar const smile(U8("a\xF0\x9F\x98\x80"));
  EXPECT_EQ(Wide(*smile, smile.len() + 1),
            (std::u16string{u'a', char16_t(0xD87D), char16_t(0xDE00), 0}));
  CUTF16Char const smileUnits(U8("\xF0\x9F\x98\x80"));
  EXPECT_EQ(Units(*smileUnits, smileUnits.len()),
            (std::u16string{char16_t(0xD87D), char16_t(0xDE00)}));

  struct Row {
    char const * utf8;
    std::u16string wide;
    char const * label;
  };
  Row const rows[] = {
      {"a\xF4\x90\x80\x80"
       "b",
       u"a", "stops quietly above U+10FFFF"},
      {"a\x80"
       "b",
       u"a", "stops quietly at a stray continuation byte"},
      {"ab\xE2\x82", u"ab", "stops quietly at a cut sequence"},
      {"\xC0\x80"
       "b",
       std::u16string(u"\0b", 2), "C0 80 gives a U+0000 unit"},
  };
  for (Row const & row : rows) {
    CQEFWChar const s(U8(row.utf8));
    EXPECT_EQ(Wide(*s, s.len()), row.wide) << row.label;
    EXPECT_EQ((*s)[s.len()], 0) << row.label;
  }

  std::uint32_t const utf32[] = {'a', 0x1F600, 0x110000, 'b', 0};
  CQEFWChar const fromCodePoints(utf32);
  EXPECT_EQ(Wide(*fromCodePoints, fromCodePoints.len() + 1),
            (std::u16string{u'a', char16_t(0xD87D), char16_t(0xDE00), 0}));
}

TEST_F(StringClasses, ConvertBetweenEachOther) {
  CQEFWChar const wide(u"\xE9t\xE9");
  CUTF8Char const utf8(wide);
  EXPECT_STREQ(reinterpret_cast<char const *>(*utf8), "\xC3\xA9t\xC3\xA9");
  CQEFWChar const back(utf8);
  EXPECT_EQ(Wide(*back, back.len()), u"\xE9t\xE9");
  EXPECT_EQ(back.len(), 3u);
  CUTF16Char const units(utf8);
  EXPECT_EQ(Units(*units, units.len()), u"\xE9t\xE9");
  CQEFWChar const fromUnits(units);
  EXPECT_EQ(fromUnits.len(), 3u);
  CANSIChar const ansi(wide);
  EXPECT_STREQ(*ansi, "\xE9t\xE9"); // Windows-1252 in the "C" locale
  CQEFWChar const fromAnsi(ansi);
  EXPECT_EQ(fromAnsi.len(), 4u);
  EXPECT_EQ(Wide(*fromAnsi, 3), u"\xE9t\xE9");
  CUTF8Char const utf8FromAnsi(ansi);
  EXPECT_STREQ(reinterpret_cast<char const *>(*utf8FromAnsi), "\xC3\xA9t\xC3\xA9");
  CUTF16Char const unitsFromAnsi(ansi);
  EXPECT_EQ(Units(*unitsFromAnsi, unitsFromAnsi.len()), u"\xE9t\xE9");
  CUTF8Char const utf8FromUnits(units);
  EXPECT_EQ(utf8FromUnits.len(), 5u);
}

TEST_F(StringClasses, CopiesAreDeepAndSelfAssignmentIsHarmless) {
  CQEFWChar const original(U8("abc")); // records 3
  CQEFWChar copy(original);
  EXPECT_NE(*copy, *original);
  EXPECT_EQ(Wide(*copy, 4), std::u16string(u"abc\0", 4));
  EXPECT_EQ(copy.len(), 4u); // a copy counts the terminator, whatever the source recorded

  CQEFWChar & alias = copy;
  copy = alias;
  EXPECT_EQ(Wide(*copy, 3), u"abc");
  copy = *copy; // from its own buffer: built before the old one goes
  EXPECT_EQ(Wide(*copy, 3), u"abc");
  copy = u"xy";
  EXPECT_EQ(copy.len(), 3u);

  CUTF8Char bytes(U8("hello"));
  CUTF8Char bytesCopy(bytes);
  EXPECT_NE(*bytesCopy, *bytes);
  EXPECT_EQ(bytesCopy.len(), 5u);
  CUTF8Char & bytesAlias = bytes;
  bytes = bytesAlias;
  EXPECT_STREQ(reinterpret_cast<char const *>(*bytes), "hello");

  CUTF16Char units(u"ab");
  CUTF16Char unitsCopy(units);
  EXPECT_NE(*unitsCopy, *units);
  EXPECT_EQ(unitsCopy.len(), 2u);

  CANSIChar ansi("xyz");
  CANSIChar ansiCopy;
  ansiCopy = ansi;
  EXPECT_NE(*ansiCopy, *ansi);
  EXPECT_STREQ(*ansiCopy, "xyz");
  EXPECT_EQ(ansiCopy.len(), 3u);
}

TEST_F(StringClasses, PatchPercentSReplacesAndOverstatesTheLength) {
  struct Row {
    char const * text; // UTF-8, so the length starts at the character count
    char16_t const * replacement;
    std::u16string expected;
    std::uint64_t length;
    char const * label;
  };
  Row const rows[] = {
      {"a%sb", u"XY", u"aXYb", 6, "one %s: the length grows by the replacement only"},
      {"%s%s", u"-", u"--", 6, "two in a row"},
      {"%%s", u"X", u"%X", 4, "the second % starts the match"},
      {"50%", u"X", u"50%", 3, "a % at the end is no match"},
      {"abc", u"X", u"abc", 3, "no %s: unchanged"},
      {"a%sb", u"", u"ab", 4, "empty replacement"},
      {"", u"X", u"", 0, "empty text: unchanged"},
  };
  for (Row const & row : rows) {
    SCOPED_TRACE(row.label);
    CQEFWChar s(U8(row.text));
    s.patch_percent_s_with(row.replacement);
    EXPECT_EQ(std::u16string(*s), row.expected);
    EXPECT_EQ(s.len(), row.length);
  }
  CQEFWChar wide(u"a%sb");
  wide.patch_percent_s_with(u"XY");
  EXPECT_EQ(std::u16string(*wide), u"aXYb");
  EXPECT_EQ(wide.len(), 7u); // 5 with the terminator counted, plus 2
  CQEFWChar s(u"a%s");
  s.patch_percent_s_with(nullptr);
  EXPECT_EQ(std::u16string(*s), u"a%s");
  CQEFWChar none;
  none.patch_percent_s_with(u"X");
  EXPECT_FALSE(none);
}

TEST_F(StringClasses, FailedAllocationsLeaveNullBuffersWithoutLeaks) {
  std::uint32_t const utf32[] = {'a', 0};
  std::uint16_t const utf16[] = {'a', 0};
  {
    vorx::test::AllocationFailure const refuse;
    CQEFWChar const wide(u"abc");
    EXPECT_FALSE(wide);
    EXPECT_EQ(wide.len(), 4u); // the length is recorded as computed
    EXPECT_FALSE(CQEFWChar(U8("abc")));
    EXPECT_FALSE(CQEFWChar(utf16));
    EXPECT_FALSE(CQEFWChar("abc"));
    EXPECT_FALSE(CQEFWChar(utf32));
    EXPECT_FALSE(CUTF8Char(u"abc"));
    CUTF8Char const copied(U8("abc"));
    EXPECT_FALSE(copied);
    EXPECT_EQ(copied.len(), 3u);
    EXPECT_FALSE(CUTF8Char("abc"));
    EXPECT_FALSE(CUTF16Char(u"abc"));
    EXPECT_FALSE(CUTF16Char(U8("abc")));
    EXPECT_FALSE(CANSIChar(u"abc"));
    CANSIChar const ansi("abc");
    EXPECT_FALSE(ansi);
    EXPECT_EQ(ansi.len(), 3u);
  }
  {
    // The temporary wide text succeeds, the final buffer does not: the temporary is freed.
    vorx::test::AllocationFailure const refuseSecond(1);
    EXPECT_FALSE(CUTF8Char("abc"));
  }
  {
    CQEFWChar s(u"a%sb");
    qefWChar const * const before = *s;
    vorx::test::AllocationFailure const refuse;
    s.patch_percent_s_with(u"XY");
    EXPECT_EQ(*s, before);
    EXPECT_EQ(std::u16string(*s), u"a%sb");
    EXPECT_EQ(s.len(), 5u);
  }
  {
    CQEFWChar s(u"keep");
    vorx::test::AllocationFailure const refuse;
    s = u"other";
    EXPECT_FALSE(s); // the old buffer is released, the new one could not be made
  }
}

} // namespace
