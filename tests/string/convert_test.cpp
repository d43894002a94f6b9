// Per-character codecs, whole-buffer converters, counters and character classes.
#include <vorx/string.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace VORX::String;

namespace {

using Bytes = std::basic_string<unsigned char>;

Bytes B(char const * text, std::size_t n) {
  return Bytes(reinterpret_cast<unsigned char const *>(text), n);
}
Bytes B(char const * text) {
  return B(text, std::strlen(text));
}

struct DecodeRow {
  char const * bytes;
  bool ok;
  std::uint32_t cp;
  std::ptrdiff_t advance;
  char const * label;
};

TEST(Utf8Decode, IsPermissiveAndStopsOnBadBytes) {
  DecodeRow const rows[] = {
      {"A", true, 0x41, 1, "U+0041 LATIN CAPITAL LETTER A"},
      {"\xC3\xA9", true, 0xE9, 2, "U+00E9 LATIN SMALL LETTER E WITH ACUTE"},
      {"\xE2\x82\xAC", true, 0x20AC, 3, "U+20AC EURO SIGN"},
      {"\xF0\x9F\x98\x80", true, 0x1F600, 4, "U+1F600 GRINNING FACE"},
      {"\xF4\x8F\xBF\xBF", true, 0x10FFFF, 4, "U+10FFFF, the last code point"},
      {"\xC0\x80", true, 0, 2, "overlong U+0000 decodes to its value"},
      {"\xC1\xBF", true, 0x7F, 2, "overlong U+007F"},
      {"\xE0\x80\x80", true, 0, 3, "three-byte overlong U+0000"},
      {"\xF0\x80\x80\x80", true, 0, 4, "four-byte overlong U+0000"},
      {"\xED\xA0\x80", true, 0xD800, 3, "encoded high surrogate"},
      {"\xED\xBF\xBF", true, 0xDFFF, 3, "encoded low surrogate"},
      {"\xF4\x90\x80\x80", true, 0x110000, 4, "beyond U+10FFFF still decodes"},
      {"\xF4\xBF\xBF\xBF", true, 0x13FFFF, 4, "largest value a 0xF4 lead reaches"},
      {"\x80", false, 0, 0, "continuation byte as lead"},
      {"\xBF", false, 0, 0, "continuation byte as lead"},
      {"\xF5\x80\x80\x80", false, 0, 0, "0xF5 cannot lead"},
      {"\xFF", false, 0, 0, "0xFF cannot lead"},
      {"\xC3\x41", false, 0xC0, 1, "second byte not a continuation: partial value, on that byte"},
      {"\xE2\x82", false, 0x2080, 2, "cut short by the terminator"},
      {"\xF0\x9F\x98", false, 0x1F600 & ~0x3Fu, 3, "four-byte form missing its last byte"},
  };
  for (DecodeRow const & row : rows) {
    SCOPED_TRACE(row.label);
    auto const * p = reinterpret_cast<unsigned char const *>(row.bytes);
    unsigned char const * cursor = p;
    std::uint32_t cp = 0xFFFFFFFF;
    EXPECT_EQ(utf8_qefW32(&cp, cursor), row.ok);
    EXPECT_EQ(cp, row.cp);
    EXPECT_EQ(cursor - p, row.advance);
  }
}

TEST(Utf8Decode, ZeroByteDecodesToZero) {
  unsigned char const zero[1] = {0};
  unsigned char const * p = zero;
  std::uint32_t cp = 7;
  EXPECT_TRUE(utf8_qefW32(&cp, p));
  EXPECT_EQ(cp, 0u);
  EXPECT_EQ(p, zero + 1);
}

struct EncodeRow {
  std::uint32_t cp;
  char const * utf8; // null: refused
  std::u16string wide;
  char const * label;
};

TEST(CodePointEncode, WritesUtf8AndUnpairedWideForms) {
  EncodeRow const rows[] = {
      {0x41, "A", u"A", "U+0041 LATIN CAPITAL LETTER A"},
      {0x7F, "\x7F", u"\x7F", "U+007F DELETE, last one-byte form"},
      {0x80, "\xC2\x80", u"\x80", "U+0080, first two-byte form"},
      {0xE9, "\xC3\xA9", u"\xE9", "U+00E9 LATIN SMALL LETTER E WITH ACUTE"},
      {0x7FF, "\xDF\xBF", u"\x7FF", "U+07FF, last two-byte form"},
      {0x800, "\xE0\xA0\x80", u"\x800", "U+0800, first three-byte form"},
      {0xD800, "\xED\xA0\x80", std::u16string(1, char16_t(0xD800)), "surrogate value encoded"},
      {0xFFFF, "\xEF\xBF\xBF", u"\xFFFF", "U+FFFF"},
      {0x10000,
       "\xF0\x90\x80\x80",
       {char16_t(0xD840), char16_t(0xDC00)},
       "U+10000: pair without subtracting 0x10000"},
      {0x1F600, "\xF0\x9F\x98\x80", {char16_t(0xD87D), char16_t(0xDE00)}, "U+1F600 GRINNING FACE"},
      {0x10FFFF, "\xF4\x8F\xBF\xBF", {char16_t(0xDC3F), char16_t(0xDFFF)}, "U+10FFFF"},
      {0x110000, nullptr, u"", "above U+10FFFF is refused"},
      {0xFFFFFFFF, nullptr, u"", "all ones is refused"},
  };
  for (EncodeRow const & row : rows) {
    SCOPED_TRACE(row.label);
    unsigned char bytes[8] = {0};
    unsigned char * b = bytes;
    EXPECT_EQ(qefW32_utf8(b, row.cp), row.utf8 != nullptr);
    EXPECT_EQ(B(reinterpret_cast<char const *>(bytes), static_cast<std::size_t>(b - bytes)),
              row.utf8 ? B(row.utf8) : Bytes());
    qefWChar units[4] = {0};
    qefWChar * w = units;
    EXPECT_EQ(qefW32_qefW(w, row.cp), row.utf8 != nullptr);
    EXPECT_EQ(std::u16string(units, static_cast<std::size_t>(w - units)), row.wide);
  }
}

struct WideDecodeRow {
  std::u16string units;
  bool ok;
  std::uint32_t cp;
  std::ptrdiff_t advance;
  char const * label;
};

TEST(WideDecode, CollapsesPairsToZeroOrOne) {
  WideDecodeRow const rows[] = {
      {u"A", true, 0x41, 1, "U+0041 LATIN CAPITAL LETTER A"},
      {u"\xD7FF", true, 0xD7FF, 1, "last unit below the surrogates"},
      {u"\xE000", true, 0xE000, 1, "first unit above the surrogates"},
      {{char16_t(0xD83D), char16_t(0xDE00)}, true, 1, 2, "U+1F600 as a standard pair gives 1"},
      {{char16_t(0xD800), char16_t(0xDC00)}, true, 0, 2, "both halves' low bits clear give 0"},
      {{char16_t(0xD800), char16_t(0xDC01)}, true, 1, 2, "one low bit set gives 1"},
      {{char16_t(0xDBFF), char16_t(0xDBFF)}, true, 1, 2, "0xDBFF accepted as a second half"},
      {{char16_t(0xD800), char16_t(0xFFFF)}, true, 1, 2, "no upper bound on the second half"},
      {{char16_t(0xD800), u'A'}, false, 0, 0, "high surrogate before a plain unit"},
      {std::u16string(1, char16_t(0xD800)), false, 0, 0, "high surrogate before the terminator"},
      {std::u16string(1, char16_t(0xDC00)), false, 0, 0, "low surrogate first"},
  };
  for (WideDecodeRow const & row : rows) {
    SCOPED_TRACE(row.label);
    std::u16string const text = row.units; // keeps the terminator after the units
    qefWChar const * p = text.c_str();
    std::uint32_t cp = 0;
    EXPECT_EQ(qefW_qefW32(&cp, p), row.ok);
    if (row.ok) {
      EXPECT_EQ(cp, row.cp);
    }
    EXPECT_EQ(p - text.c_str(), row.advance);
  }
}

TEST(CharacterCodecs, ChainDecodeAndEncode) {
  // U+1F600 in UTF-8 becomes the unpaired wide form; the pair back to UTF-8 collapses to 0x01.
  unsigned char const smile[] = {0xF0, 0x9F, 0x98, 0x80, 0};
  unsigned char const * s = smile;
  qefWChar wide[3] = {0};
  qefWChar * w = wide;
  EXPECT_TRUE(utf8_qefW(w, s));
  EXPECT_EQ(w - wide, 2);
  EXPECT_EQ(wide[0], 0xD87D);
  EXPECT_EQ(wide[1], 0xDE00);

  qefWChar const * ws = wide;
  unsigned char bytes[4] = {0};
  unsigned char * b = bytes;
  EXPECT_TRUE(qefW_utf8(b, ws));
  EXPECT_EQ(b - bytes, 1);
  EXPECT_EQ(bytes[0], 0x01);

  ws = wide;
  std::uint16_t unit[2] = {7, 7};
  std::uint16_t * u = unit;
  EXPECT_TRUE(qefW_utf16(u, ws));
  EXPECT_EQ(u - unit, 1);
  EXPECT_EQ(unit[0], 1);

  std::uint16_t const raw[] = {0xDC00, 0};
  std::uint16_t const * r = raw;
  w = wide;
  EXPECT_TRUE(utf16_qefW(w, r)); // copied as it is
  EXPECT_EQ(wide[0], 0xDC00);

  unsigned char const tooLarge[] = {0xF4, 0x90, 0x80, 0x80, 0};
  s = tooLarge;
  w = wide;
  EXPECT_FALSE(utf8_qefW(w, s));
  EXPECT_EQ(w, wide);

  qefWChar const lone[] = {0xDC00, 0};
  ws = lone;
  b = bytes;
  EXPECT_FALSE(qefW_utf8(b, ws));
  EXPECT_EQ(b, bytes);
}

TEST(CharacterSizes, FollowTheirTables) {
  struct Row {
    std::uint32_t cp;
    std::uint64_t utf8, utf16, wide;
  };
  Row const rows[] = {
      {0, 1, 1, 1},        {0x7F, 1, 1, 1},       {0x80, 2, 1, 1},
      {0x7FF, 2, 1, 1},    {0x800, 3, 1, 1},      {0xFFFF, 3, 1, 1},
      {0x10000, 4, 2, 2},  {0x10FFFF, 4, 2, 2},   {0x110000, 0, 2, 2}, // 0x110000: UTF-16 2
      {0x110001, 0, 0, 2}, {0xFFFFFFFF, 0, 0, 2},
  };
  for (Row const & row : rows) {
    SCOPED_TRACE(row.cp);
    EXPECT_EQ(UTF8Size(row.cp), row.utf8);
    EXPECT_EQ(UTF16Size(row.cp), row.utf16);
    EXPECT_EQ(qefWSize(row.cp), row.wide);
  }
  struct LeadRow {
    unsigned char lead;
    std::uint64_t length;
  };
  LeadRow const leads[] = {{0x00, 1}, {0x7F, 1}, {0x80, 0}, {0xBF, 0}, {0xC0, 2}, {0xDF, 2},
                           {0xE0, 3}, {0xEF, 3}, {0xF0, 4}, {0xF4, 4}, {0xF5, 0}, {0xFF, 0}};
  for (LeadRow const & row : leads) {
    EXPECT_EQ(UTF8Len(row.lead), row.length) << int(row.lead);
  }
  EXPECT_EQ(UTF16Len(0x41), 1u);
  EXPECT_EQ(UTF16Len(0xD7FF), 1u);
  EXPECT_EQ(UTF16Len(0xD800), 2u);
  EXPECT_EQ(UTF16Len(0xDBFF), 2u);
  EXPECT_EQ(UTF16Len(0xDC00), 0u);
  EXPECT_EQ(UTF16Len(0xDFFF), 0u);
  EXPECT_EQ(UTF16Len(0xE000), 1u);
  EXPECT_EQ(qefWLen(0xDC00), 1u);
}

TEST(Sync, Utf8SkipsTwoByteLeadsAndUtf16SkipsLowSurrogates) {
  unsigned char const e[] = {0xC3, 0xA9, 0};
  unsigned char const * p = e;
  UTF8Sync(p);
  EXPECT_EQ(p, e + 1); // stops on the continuation byte A9
  UTF8Sync(p);
  EXPECT_EQ(p, e + 1); // and does not move from it
  unsigned char const leads[] = {0xC3, 0xDF, 0xE2, 0};
  p = leads;
  UTF8Sync(p);
  EXPECT_EQ(p, leads + 2);

  std::uint16_t const units[] = {0xDC00, 0xDFFF, 0xD800, 0};
  std::uint16_t const * u = units;
  UTF16Sync(u);
  EXPECT_EQ(u, units + 2);
  UTF16Sync(u);
  EXPECT_EQ(u, units + 2);
}

struct ToWideRow {
  Bytes utf8;
  std::uint64_t max;
  std::uint64_t result;
  std::u16string wide; // what precedes the terminator when the result is not 0
  char const * label;
};

TEST(Utf8ToWide, ReturnsUnitsWithTerminatorOrZero) {
  std::uint64_t const all = qefAllOnes;
  ToWideRow const rows[] = {
      {B(""), all, 1, u"", "empty text"},
      {B("abc"), all, 4, u"abc", "ASCII"},
      {B("\xC3\xA9t\xC3\xA9"), all, 4, u"\xE9t\xE9", "U+00E9 LATIN SMALL LETTER E WITH ACUTE"},
      {B("\xF0\x9F\x98\x80"),
       all,
       3,
       {char16_t(0xD87D), char16_t(0xDE00)},
       "U+1F600 GRINNING FACE, pair without subtraction"},
      {B("\xC0\x80x"), all, 3, std::u16string(u"\0x", 2), "C0 80 gives a U+0000 unit"},
      {B("ab\x80"
         "cd"),
       all, 0, u"", "stray continuation byte"},
      {B("ab\xE2\x82"), all, 0, u"", "sequence cut short by the terminator"},
      {B("a\xF4\x90\x80\x80"), all, 0, u"", "code point above U+10FFFF"},
      {B("\xC3\xA9t\xC3\xA9"), 3, 3, u"\xE9t", "bound after a whole character"},
      {B("\xC3\xA9t\xC3\xA9"), 4, 3, u"\xE9t", "bound inside a character leaves it out"},
      {B("abc"), 0, 1, u"", "bound 0"},
  };
  for (ToWideRow const & row : rows) {
    SCOPED_TRACE(row.label);
    EXPECT_EQ(UTF8_To_qefWChar(row.utf8.c_str(), row.max, nullptr, 0),
              UTF8u16strlen(row.utf8.c_str(), row.max) + 1);
    qefWChar out[16];
    std::fill(std::begin(out), std::end(out), qefWChar(0x5555));
    std::uint64_t const result = UTF8_To_qefWChar(row.utf8.c_str(), row.max, out, 16);
    EXPECT_EQ(result, row.result);
    if (result != 0) {
      EXPECT_EQ(std::u16string(out, result - 1), row.wide);
      EXPECT_EQ(out[result - 1], 0);
    }
  }
}

TEST(Utf8ToWide, RefusesNullSourceAndSmallBuffer) {
  qefWChar out[4] = {0x5555, 0x5555, 0x5555, 0x5555};
  EXPECT_EQ(UTF8_To_qefWChar(nullptr, qefAllOnes, out, 4), 0u);
  EXPECT_EQ(UTF8_To_qefWChar(nullptr, qefAllOnes, nullptr, 0), 0u);
  auto const * abcd = reinterpret_cast<unsigned char const *>("abcd");
  EXPECT_EQ(UTF8_To_qefWChar(abcd, qefAllOnes, out, 4), 0u);
  EXPECT_EQ(out[0], 0x5555); // nothing written
  EXPECT_EQ(UTF8_To_qefWChar(abcd, qefAllOnes, out, 5 - 1), 0u);
  qefWChar five[5];
  EXPECT_EQ(UTF8_To_qefWChar(abcd, qefAllOnes, five, 5), 5u);
}

struct ToUtf8Row {
  std::u16string wide;
  std::uint64_t max;
  std::uint64_t result;
  Bytes utf8;
  char const * label;
};

TEST(WideToUtf8, ReturnsBytesWithTerminatorOrZero) {
  std::uint64_t const all = qefAllOnes;
  ToUtf8Row const rows[] = {
      {u"", all, 1, B(""), "empty text"},
      {u"abc", all, 4, B("abc"), "ASCII"},
      {u"\xE9t\x20AC", all, 7, B("\xC3\xA9t\xE2\x82\xAC"), "U+00E9 and U+20AC EURO SIGN"},
      {u"\xFFFF", all, 4, B("\xEF\xBF\xBF"), "U+FFFF"},
      {{char16_t(0xD83D), char16_t(0xDE00)}, all, 2, B("\x01"), "U+1F600 pair collapses to 01"},
      {{char16_t(0xD800), char16_t(0xDC00), u'a'}, all, 3, B("\0a", 2), "pair collapses to 00"},
      {{char16_t(0xDBFF), char16_t(0xDBFF)}, all, 2, B("\x01"), "DBFF DBFF is a pair"},
      {std::u16string(1, char16_t(0xDC00)), all, 0, B(""), "lone low surrogate first"},
      {{u'a', char16_t(0xD800)}, all, 0, B(""), "high surrogate at the end"},
      {{u'a', char16_t(0xD800), u'b'}, all, 0, B(""), "high surrogate before a plain unit"},
      {{u'a', char16_t(0xD83D), char16_t(0xDE00)}, 2, 2, B("a"), "bound inside a pair"},
      {u"abc", 2, 3, B("ab"), "bound"},
  };
  for (ToUtf8Row const & row : rows) {
    SCOPED_TRACE(row.label);
    EXPECT_EQ(qefWChar_To_UTF8(row.wide.c_str(), row.max, nullptr, 0),
              UTF16u8strlen(row.wide.c_str(), row.max) + 1);
    unsigned char out[16];
    std::fill(std::begin(out), std::end(out), 0x55);
    std::uint64_t const result = qefWChar_To_UTF8(row.wide.c_str(), row.max, out, 16);
    EXPECT_EQ(result, row.result);
    if (result != 0) {
      EXPECT_EQ(Bytes(out, result - 1), row.utf8);
      EXPECT_EQ(out[result - 1], 0);
    }
  }
  unsigned char small[3] = {0x55, 0x55, 0x55};
  EXPECT_EQ(qefWChar_To_UTF8(u"abc", qefAllOnes, small, 3), 0u);
  EXPECT_EQ(small[0], 0x55);
  EXPECT_EQ(qefWChar_To_UTF8(nullptr, qefAllOnes, small, 3), 0u);
}

// The whole-buffer converters take several units at a time while the text is ASCII; they must
// give exactly what converting one character at a time gives, at every alignment and length.
TEST(WholeBufferConverters, MatchCharacterByCharacterConversion) {
  std::vector<std::string> const pieces = {
      "a", "bcdefgh", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "0123456789abcdef", " "};
  std::uint32_t seed = 12345;
  for (int round = 0; round < 400; ++round) {
    std::string text;
    int const parts = 1 + round % 23;
    for (int k = 0; k < parts; ++k) {
      seed = seed * 1103515245 + 12345;
      text += pieces[(seed >> 16) % pieces.size()];
    }
    auto const * utf8 = reinterpret_cast<unsigned char const *>(text.c_str());
    // Character by character.
    std::u16string expected;
    for (unsigned char const * p = utf8; *p;) {
      qefWChar units[2];
      qefWChar * w = units;
      ASSERT_TRUE(utf8_qefW(w, p));
      expected.append(units, static_cast<std::size_t>(w - units));
    }
    std::vector<qefWChar> wide(expected.size() + 1);
    ASSERT_EQ(UTF8_To_qefWChar(utf8, qefAllOnes, wide.data(), wide.size()), wide.size());
    EXPECT_EQ(std::u16string(wide.data(), expected.size()), expected) << text;

    Bytes back;
    for (qefWChar const * w = wide.data(); *w;) {
      unsigned char bytes[4];
      unsigned char * b = bytes;
      ASSERT_TRUE(qefW_utf8(b, w));
      back.append(bytes, static_cast<std::size_t>(b - bytes));
    }
    std::vector<unsigned char> out(back.size() + 1);
    ASSERT_EQ(qefWChar_To_UTF8(wide.data(), qefAllOnes, out.data(), out.size()), out.size());
    EXPECT_EQ(Bytes(out.data(), back.size()), back) << text;
  }
}

struct CountRow {
  Bytes utf8;
  std::uint64_t max;
  std::uint64_t units, codePoints;
  char const * label;
};

TEST(Utf8Counters, CountUnitsAndCodePoints) {
  std::uint64_t const all = qefAllOnes;
  CountRow const rows[] = {
      {B(""), all, 0, 0, "empty"},
      {B("abc"), all, 3, 3, "ASCII"},
      {B("\xC3\xA9t\xC3\xA9"), all, 3, 3, "U+00E9 LATIN SMALL LETTER E WITH ACUTE"},
      {B("\xF0\x9F\x98\x80"), all, 2, 1, "U+1F600 GRINNING FACE"},
      {B("\xF4\x90\x80\x80"), all, 2, 1, "above U+10FFFF still counts 2"},
      {B("ab\x80"
         "cd"),
       all, 2, 2, "stops at a stray continuation byte"},
      {B("ab\xC3"), all, 2, 2, "stops at a cut sequence"},
      {B("abc"), 2, 2, 2, "bound"},
      {B("\xC3\xA9"), 1, 0, 0, "bound inside a character"},
      {B("\xC3\xA9"), 2, 1, 1, "character ending exactly at the bound"},
      {B("abc"), 0, 0, 0, "bound 0"},
      // Regression: overlong four-byte forms once counted two units when read eight at a time.
      {B("\xF0\x80\x80\x9F\xF0\x80\x80\x80"
         "abcdefgh"),
       all, 10, 10, "overlong four-byte forms count one unit each"},
      {B("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"
         "abcdefgh"),
       all, 12, 10, "four-byte forms above U+FFFF count two units each"},
  };
  for (CountRow const & row : rows) {
    SCOPED_TRACE(row.label);
    EXPECT_EQ(UTF8u16strlen(row.utf8.c_str(), row.max), row.units);
    EXPECT_EQ(UTF8wstrlen(row.utf8.c_str(), row.max), row.units);
    EXPECT_EQ(UTF8w32strlen(row.utf8.c_str(), row.max), row.codePoints);
  }
  EXPECT_EQ(UTF8u16strlen(nullptr, all), 0u);
  EXPECT_EQ(UTF8w32strlen(nullptr, all), 0u);
}

TEST(WideCounters, CountBytesCharactersAndUnits) {
  struct Row {
    std::u16string wide;
    std::uint64_t max;
    std::uint64_t bytes, characters;
    char const * label;
  };
  std::uint64_t const all = qefAllOnes;
  Row const rows[] = {
      {u"a\xE9\x20AC", all, 6, 3, "1, 2 and 3 bytes"},
      {{u'a', char16_t(0xD83D), char16_t(0xDE00), u'b'}, all, 3, 3, "a pair counts one byte"},
      {{char16_t(0xDC00), u'a'}, all, 0, 0, "stops at a low surrogate first"},
      {{u'a', char16_t(0xDC00), u'b'}, all, 1, 1, "stops at a lone surrogate"},
      {u"abc", 2, 2, 2, "bound"},
  };
  for (Row const & row : rows) {
    SCOPED_TRACE(row.label);
    EXPECT_EQ(UTF16u8strlen(row.wide.c_str(), row.max), row.bytes);
    EXPECT_EQ(qefWu8strlen(row.wide.c_str(), row.max), row.bytes);
    EXPECT_EQ(UTF16w32strlen(row.wide.c_str(), row.max), row.characters);
    EXPECT_EQ(qefWw32strlen(row.wide.c_str(), row.max), row.characters);
  }
  std::uint16_t const units[] = {0x41, 0xDC00, 0xD800, 0x42, 0};
  EXPECT_EQ(UTF16wstrlen(units, all), 4u);
  EXPECT_EQ(UTF16wstrlen(units, 3), 3u);
  EXPECT_EQ(UTF16wstrlen(nullptr, all), 0u);
}

TEST(Utf32Counters, StopAboveTheirLimits) {
  std::uint32_t const mixed[] = {0x41, 0xE9, 0x20AC, 0x1F600, 0};
  EXPECT_EQ(UTF32u16strlen(mixed, qefAllOnes), 5u);
  EXPECT_EQ(UTF32wstrlen(mixed, qefAllOnes), 5u);
  EXPECT_EQ(UTF32u8strlen(mixed, qefAllOnes), 10u);
  EXPECT_EQ(UTF32u16strlen(mixed, 2), 2u);
  std::uint32_t const limit[] = {0x41, 0x110000, 0x42, 0};
  EXPECT_EQ(UTF32u16strlen(limit, qefAllOnes), 4u); // 0x110000 counts 2
  EXPECT_EQ(UTF32u8strlen(limit, qefAllOnes), 1u);
  std::uint32_t const beyond[] = {0x41, 0x110001, 0x42, 0};
  EXPECT_EQ(UTF32u16strlen(beyond, qefAllOnes), 1u);
  EXPECT_EQ(UTF32u16strlen(nullptr, qefAllOnes), 0u);
}

TEST(CharacterClasses, AcceptOnlyTheirCharacters) {
  struct Row {
    qefWChar c;
    bool slash, blank, white, crlf;
  };
  Row const rows[] = {
      {u'/', true, false, false, false},  {u'\\', true, false, false, false},
      {u' ', false, true, true, false},   {9, false, false, true, false},
      {10, false, false, true, true},     {13, false, false, true, true},
      {11, false, false, false, false},   {12, false, false, false, false},
      {0xA0, false, false, false, false}, {u'a', false, false, false, false},
  };
  for (Row const & row : rows) {
    SCOPED_TRACE(int(row.c));
    EXPECT_EQ(_isSlash(row.c), row.slash);
    EXPECT_EQ(_isblank(row.c), row.blank);
    EXPECT_EQ(_iswhitespace(row.c), row.white);
    EXPECT_EQ(_isCRLF(row.c), row.crlf);
  }
  EXPECT_TRUE(_isUNCW(u"\\\\?\\C:\\x"));
  EXPECT_FALSE(_isUNCW(u"\\\\.\\pipe")); // the device prefix is not this one
  EXPECT_FALSE(_isUNCW(u"\\\\?"));
  EXPECT_FALSE(_isUNCW(u"//?/C:"));
  EXPECT_FALSE(_isUNCW(nullptr));
}

// An independent, deliberately plain reading of the counting and conversion rules, to check
// the word-at-a-time code paths against on malformed and bounded input.
struct Reference {
  std::uint64_t units = 0;      // wide units (UTF-8 input) or UTF-8 bytes (wide input)
  std::uint64_t characters = 0; // code points or wide characters
  bool error = false;           // stopped at a malformed character inside the bound
  bool tooLarge = false;        // a counted code point is above U+10FFFF
  std::u16string wide;          // UTF-8 input: the units of the counted characters
  Bytes utf8;                   // wide input: the bytes of the counted characters
};

Reference ReadUtf8(Bytes const & text, std::uint64_t max) {
  Reference r;
  unsigned char const * p = text.c_str();
  for (std::uint64_t i = 0; max != 0 && p[i] != 0;) {
    unsigned const b = p[i];
    unsigned const length = b < 0x80   ? 1
                            : b < 0xC0 ? 0
                            : b < 0xE0 ? 2
                            : b < 0xF0 ? 3
                            : b < 0xF5 ? 4
                                       : 0;
    if (length == 0) {
      r.error = i < max;
      break;
    }
    std::uint32_t cp = b & (length == 1 ? 0x7F : length == 2 ? 0x1F : length == 3 ? 0x0F : 0x07);
    std::uint64_t bad = 0;
    for (unsigned k = 1; k < length && bad == 0; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) {
        bad = i + k;
      } else {
        cp = (cp << 6) | (p[i + k] & 0x3Fu);
      }
    }
    if (bad != 0) {
      r.error = bad < max;
      break;
    }
    if (i + length > max) {
      break;
    }
    r.units += cp >= 0x10000 ? 2 : 1;
    r.characters += 1;
    if (cp > 0x10FFFF) {
      r.tooLarge = true;
    } else if (cp >= 0x10000) {
      r.wide += char16_t(0xD800 | (cp >> 10));
      r.wide += char16_t(0xDC00 | (cp & 0x3FF));
    } else {
      r.wide += char16_t(cp);
    }
    i += length;
  }
  return r;
}

Reference ReadWide(std::u16string const & text, std::uint64_t max) {
  Reference r;
  char16_t const * p = text.c_str();
  for (std::uint64_t i = 0; max != 0 && p[i] != 0;) {
    unsigned const u = p[i];
    unsigned cp = u;
    std::uint64_t length = 1;
    if (u >= 0xDC00 && u <= 0xDFFF) {
      r.error = i < max;
      break;
    }
    if (u >= 0xD800 && u <= 0xDBFF) {
      if (p[i + 1] < 0xDBFF) {
        r.error = i + 1 < max;
        break;
      }
      cp = ((u & 0x3FF) == 0 && (p[i + 1] & 0x3FF) == 0) ? 0 : 1;
      length = 2;
    }
    if (i + length > max) {
      break;
    }
    if (cp < 0x80) {
      r.utf8 += static_cast<unsigned char>(cp);
    } else if (cp < 0x800) {
      r.utf8 += static_cast<unsigned char>(0xC0 | (cp >> 6));
      r.utf8 += static_cast<unsigned char>(0x80 | (cp & 0x3F));
    } else {
      r.utf8 += static_cast<unsigned char>(0xE0 | (cp >> 12));
      r.utf8 += static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
      r.utf8 += static_cast<unsigned char>(0x80 | (cp & 0x3F));
    }
    r.characters += 1;
    r.wide += char16_t(cp); // as one 16-bit unit
    i += length;
  }
  r.units = r.utf8.size();
  return r;
}

std::uint32_t NextRandom(std::uint32_t & seed) {
  seed = seed * 1103515245 + 12345;
  return seed >> 16;
}

// Random texts from pieces of well-formed and malformed UTF-8, long enough to cross the
// word-at-a-time paths, with and without a bound.
TEST(Utf8Conversion, AgreesWithAPlainReadingOnMalformedAndBoundedText) {
  unsigned char const alphabet[] = {'a',  'b',  'c',  'd',  'e',  'f',  'g',  'h',
                                    0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98,
                                    0x80, 0xF4, 0x90, 0xF5, 0xFF, 0xC0, 0xBF, 0xED};
  std::uint32_t seed = 2024;
  for (int round = 0; round < 4000; ++round) {
    Bytes text;
    std::size_t const length = NextRandom(seed) % 48;
    bool const mostlyAscii = round % 3 == 0;
    for (std::size_t k = 0; k < length; ++k) {
      std::size_t const pick = NextRandom(seed) % (mostlyAscii && k % 7 ? 8 : sizeof alphabet);
      text += alphabet[pick];
    }
    std::uint64_t const max = round % 2 ? qefAllOnes : NextRandom(seed) % (length + 3);
    Reference const r = ReadUtf8(text, max);
    SCOPED_TRACE(::testing::Message() << "round " << round << " max " << max);
    ASSERT_EQ(UTF8u16strlen(text.c_str(), max), r.units);
    ASSERT_EQ(UTF8w32strlen(text.c_str(), max), r.characters);
    bool const fails = r.error || r.tooLarge;
    // Room for anything (one pass) and exactly the size needed (two passes).
    for (std::uint64_t room : {std::uint64_t{64}, r.units + 1}) {
      std::vector<qefWChar> out(room, 0x5555);
      std::uint64_t const result = UTF8_To_qefWChar(text.c_str(), max, out.data(), room);
      ASSERT_EQ(result, fails ? 0 : r.units + 1) << "room " << room;
      if (!fails) {
        ASSERT_EQ(std::u16string(out.data(), r.units), r.wide);
        ASSERT_EQ(out[r.units], 0);
      }
    }
    if (max == qefAllOnes) {
      // The class stops quietly where the converter fails.
      CQEFWChar const wide(text.c_str());
      Reference const quiet = ReadUtf8(text, qefAllOnes);
      std::u16string expected = quiet.wide;
      if (quiet.tooLarge) {
        // Stops at the code point that is too large: keep only what precedes it.
        Reference prefix;
        for (std::size_t cut = 0; cut <= text.size(); ++cut) {
          Reference const part = ReadUtf8(text.substr(0, cut), qefAllOnes);
          if (part.tooLarge) {
            break;
          }
          prefix = part;
        }
        expected = prefix.wide;
      }
      ASSERT_EQ(std::u16string(*wide, wide.len()), expected);
      ASSERT_EQ((*wide)[wide.len()], 0);
    }
  }
}

TEST(WideConversion, AgreesWithAPlainReadingOnLoneSurrogatesAndBounds) {
  char16_t const alphabet[] = {u'a',   u'b',   u'c',   u'd',   0x00E9, 0x20AC, 0xFFFF,
                               0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xD83D, 0xDE00, 0x07FF};
  std::uint32_t seed = 77;
  for (int round = 0; round < 4000; ++round) {
    std::u16string text;
    std::size_t const length = NextRandom(seed) % 40;
    bool const mostlyAscii = round % 3 == 0;
    for (std::size_t k = 0; k < length; ++k) {
      text += alphabet[NextRandom(seed) % (mostlyAscii && k % 7 ? 4 : std::size(alphabet))];
    }
    std::uint64_t const max = round % 2 ? qefAllOnes : NextRandom(seed) % (length + 3);
    Reference const r = ReadWide(text, max);
    SCOPED_TRACE(::testing::Message() << "round " << round << " max " << max);
    ASSERT_EQ(UTF16u8strlen(text.c_str(), max), r.units);
    ASSERT_EQ(UTF16w32strlen(text.c_str(), max), r.characters);
    for (std::uint64_t room : {std::uint64_t{3 * 40 + 1}, r.units + 1}) {
      std::vector<unsigned char> out(room, 0x55);
      std::uint64_t const result = qefWChar_To_UTF8(text.c_str(), max, out.data(), room);
      ASSERT_EQ(result, r.error ? 0 : r.units + 1) << "room " << room;
      if (!r.error) {
        ASSERT_EQ(Bytes(out.data(), r.units), r.utf8);
        ASSERT_EQ(out[r.units], 0);
      }
    }
    if (max == qefAllOnes) {
      CUTF8Char const utf8(text.c_str());
      ASSERT_EQ(utf8.len(), r.units);
      ASSERT_EQ(Bytes(*utf8, utf8.len()), r.utf8);
      CUTF16Char const units(text.c_str());
      ASSERT_EQ(units.len(), r.characters);
      ASSERT_EQ(std::u16string(reinterpret_cast<char16_t const *>(*units), units.len()), r.wide);
    }
  }
}

} // namespace
