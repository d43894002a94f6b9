// The owning string buffers: length rules per source, the pair quirks, copies, patching and
// allocation failure.
#include <vorx/string.h>

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
  // U+1F600 GRINNING FACE from UTF-8 is stored without subtracting 0x10000.
  CUTF16Char const units(U8("\xF0\x9F\x98\x80"));
  EXPECT_EQ(std::u16string(*units, *units + units.len()), (std::u16string{0xD87D, 0xDE00}));
  std::uint32_t const utf32[] = {'a', 0x1F600, 0x110000, 'b', 0};
  CQEFWChar const fromCodePoints(utf32); // stops quietly above U+10FFFF
  EXPECT_EQ(std::u16string(*fromCodePoints), (std::u16string{u'a', 0xD87D, 0xDE00}));
  EXPECT_EQ(fromCodePoints.len(), 3u);
}

TEST(StringClasses, ConvertBetweenEachOtherAndCopyDeeply) {
  CQEFWChar const wide(u"\xE9t\xE9");
  CUTF8Char const utf8(wide);
  EXPECT_EQ(Str(*utf8), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(std::u16string(*CQEFWChar(utf8)), u"\xE9t\xE9");
  CANSIChar const ansi(wide);
  EXPECT_STREQ(*ansi, "\xE9t\xE9"); // Windows-1252
  EXPECT_EQ(Str(*CUTF8Char(ansi)), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(CQEFWChar(CUTF16Char(utf8)).len(), 3u);

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
  // UTF-8 text (so the length starts at the character count), replacement, result, length
  std::tuple<char const *, char16_t const *, std::u16string, std::uint64_t> const rows[] = {
      {"a%sb", u"XY", u"aXYb", 6}, // grows by the replacement; "%s" is not subtracted
      {"%s%s", u"-", u"--", 6},
      {"%%s", u"X", u"%X", 4}, // the second % starts the match
      {"50%", u"X", u"50%", 3},
  };
  for (auto const & [text, replacement, expected, length] : rows) {
    CQEFWChar s(U8(text));
    s.patch_percent_s_with(replacement);
    EXPECT_EQ(std::u16string(*s), expected) << text;
    EXPECT_EQ(s.len(), length) << text;
  }
  CQEFWChar wide(u"a%sb");
  wide.patch_percent_s_with(u"XY");
  EXPECT_EQ(wide.len(), 7u); // 5 with the terminator counted, plus 2
  wide.patch_percent_s_with(nullptr);
  EXPECT_EQ(std::u16string(*wide), u"aXYb");
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

} // namespace
