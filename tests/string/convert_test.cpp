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
std::u16string W(std::initializer_list<char16_t> units) {
  return std::u16string(units);
}

TEST(Utf8Decode, IsPermissiveAndStopsOnBadBytes) {
  struct Row {
    char const * bytes;
    bool ok;
    std::uint32_t cp;
    std::ptrdiff_t advance;
  } const rows[] = {
      {"A", true, 0x41, 1},                    // U+0041 LATIN CAPITAL LETTER A
      {"", true, 0, 1},                        // the zero byte decodes to 0
      {"\xC3\xA9", true, 0xE9, 2},             // U+00E9 LATIN SMALL LETTER E WITH ACUTE
      {"\xE2\x82\xAC", true, 0x20AC, 3},       // U+20AC EURO SIGN
      {"\xF0\x9F\x98\x80", true, 0x1F600, 4},  // U+1F600 GRINNING FACE
      {"\xC0\x80", true, 0, 2},                // overlong U+0000 decodes to its value
      {"\xE0\x80\x80", true, 0, 3},            // three-byte overlong U+0000
      {"\xF0\x80\x80\x9F", true, 0x1F, 4},     // four-byte overlong U+001F
      {"\xED\xA0\x80", true, 0xD800, 3},       // encoded high surrogate
      {"\xF4\x90\x80\x80", true, 0x110000, 4}, // beyond U+10FFFF still decodes
      {"\xF4\xBF\xBF\xBF", true, 0x13FFFF, 4}, // the largest an F4 lead reaches
      {"\x80", false, 0, 0},                   // continuation byte as lead
      {"\xF5\x80\x80\x80", false, 0, 0},       // F5 cannot lead
      {"\xFF", false, 0, 0},                   // FF cannot lead
      {"\xC3\x41", false, 0xC0, 1},            // partial value, left on the bad byte
      {"\xE2\x82", false, 0x2080, 2},          // cut short by the terminator
      {"\xF0\x9F\x98", false, 0x1F600, 3},     // four-byte form missing its last byte
  };
  for (Row const & row : rows) {
    auto const * p = reinterpret_cast<unsigned char const *>(row.bytes);
    unsigned char const * cursor = p;
    std::uint32_t cp = 0xFFFFFFFF;
    EXPECT_EQ(utf8_qefW32(&cp, cursor), row.ok) << &row - rows;
    EXPECT_EQ(cp, row.cp) << &row - rows;
    EXPECT_EQ(cursor - p, row.advance) << &row - rows;
  }
}

TEST(CodePointEncode, WritesUtf8AndUnpairedWideForms) {
  struct Row {
    std::uint32_t cp;
    char const * utf8; // null: refused
    std::u16string wide;
  } const rows[] = {
      {0x41, "A", u"A"},                                   // U+0041 LATIN CAPITAL LETTER A
      {0x80, "\xC2\x80", u"\x80"},                         // first two-byte form
      {0x7FF, "\xDF\xBF", u"\x7FF"},                       // last two-byte form
      {0x800, "\xE0\xA0\x80", u"\x800"},                   // first three-byte form
      {0xD800, "\xED\xA0\x80", W({0xD800})},               // a surrogate value is encoded
      {0xFFFF, "\xEF\xBF\xBF", u"\xFFFF"},                 // U+FFFF
      {0x10000, "\xF0\x90\x80\x80", W({0xD840, 0xDC00})},  // pair without subtracting 0x10000
      {0x1F600, "\xF0\x9F\x98\x80", W({0xD87D, 0xDE00})},  // U+1F600 GRINNING FACE
      {0x10FFFF, "\xF4\x8F\xBF\xBF", W({0xDC3F, 0xDFFF})}, // U+10FFFF
      {0x110000, nullptr, u""},                            // above U+10FFFF: refused
      {0xFFFFFFFF, nullptr, u""},
  };
  for (Row const & row : rows) {
    unsigned char bytes[8] = {0};
    unsigned char * b = bytes;
    EXPECT_EQ(qefW32_utf8(b, row.cp), row.utf8 != nullptr) << std::hex << row.cp;
    EXPECT_EQ(Bytes(bytes, static_cast<std::size_t>(b - bytes)), B(row.utf8 ? row.utf8 : ""));
    qefWChar units[4] = {0};
    qefWChar * w = units;
    EXPECT_EQ(qefW32_qefW(w, row.cp), row.utf8 != nullptr) << std::hex << row.cp;
    EXPECT_EQ(std::u16string(units, static_cast<std::size_t>(w - units)), row.wide);
  }
}

TEST(WideDecode, CollapsesPairsToZeroOrOne) {
  struct Row {
    std::u16string units;
    bool ok;
    std::uint32_t cp;
    std::ptrdiff_t advance;
  } const rows[] = {
      {u"A", true, 0x41, 1},             // U+0041 LATIN CAPITAL LETTER A
      {u"\xD7FF", true, 0xD7FF, 1},      // last unit below the surrogates
      {u"\xE000", true, 0xE000, 1},      // first unit above them
      {W({0xD83D, 0xDE00}), true, 1, 2}, // U+1F600 as a standard pair gives 1
      {W({0xD800, 0xDC00}), true, 0, 2}, // both halves' ten low bits clear give 0
      {W({0xD800, 0xDC01}), true, 1, 2}, // one low bit set gives 1
      {W({0xDBFF, 0xDBFF}), true, 1, 2}, // DBFF accepted as a second half
      {W({0xD800, 0xFFFF}), true, 1, 2}, // no upper bound on the second half
      {W({0xD800, u'A'}), false, 0, 0},  // high surrogate before a plain unit
      {W({0xD800}), false, 0, 0},        // high surrogate before the terminator
      {W({0xDC00}), false, 0, 0},        // low surrogate first
  };
  for (Row const & row : rows) {
    qefWChar const * p = row.units.c_str();
    std::uint32_t cp = 7;
    EXPECT_EQ(qefW_qefW32(&cp, p), row.ok) << &row - rows;
    EXPECT_EQ(cp, row.ok ? row.cp : 7) << &row - rows;
    EXPECT_EQ(p - row.units.c_str(), row.advance) << &row - rows;
  }
}

TEST(CharacterCodecs, ChainDecodeAndEncodeAndWriteNothingOnFailure) {
  unsigned char const smile[] = {0xF0, 0x9F, 0x98, 0x80, 0};
  unsigned char const * s = smile;
  qefWChar wide[3] = {0};
  qefWChar * w = wide;
  EXPECT_TRUE(utf8_qefW(w, s));
  EXPECT_EQ(std::u16string(wide, 2), W({0xD87D, 0xDE00}));
  qefWChar const * ws = wide;
  std::uint16_t unit[2] = {7, 7};
  std::uint16_t * u = unit;
  EXPECT_TRUE(qefW_utf16(u, ws)); // the pair becomes the one unit 1
  EXPECT_EQ(u - unit, 1);
  EXPECT_EQ(unit[0], 1);
  std::uint16_t const lone[] = {0xDC00, 0};
  std::uint16_t const * l = lone;
  w = wide;
  EXPECT_TRUE(utf16_qefW(w, l)); // copied as it is
  EXPECT_EQ(wide[0], 0xDC00);
  unsigned char const tooLarge[] = {0xF4, 0x90, 0x80, 0x80, 0};
  s = tooLarge;
  w = wide;
  EXPECT_FALSE(utf8_qefW(w, s));
  EXPECT_EQ(w, wide);
  ws = u"\xDC00";
  unsigned char bytes[4];
  unsigned char * b = bytes;
  EXPECT_FALSE(qefW_utf8(b, ws));
  EXPECT_EQ(b, bytes);
}

TEST(CharacterSizes, FollowTheirTables) {
  struct Row {
    std::uint32_t cp;
    std::uint64_t utf8, utf16, wide;
  } const rows[] = {
      {0, 1, 1, 1},        {0x7F, 1, 1, 1},       {0x80, 2, 1, 1},
      {0x7FF, 2, 1, 1},    {0x800, 3, 1, 1},      {0xFFFF, 3, 1, 1},
      {0x10000, 4, 2, 2},  {0x10FFFF, 4, 2, 2},   {0x110000, 0, 2, 2}, // 0x110000: two units
      {0x110001, 0, 0, 2}, {0xFFFFFFFF, 0, 0, 2},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(UTF8Size(row.cp), row.utf8) << std::hex << row.cp;
    EXPECT_EQ(UTF16Size(row.cp), row.utf16) << std::hex << row.cp;
    EXPECT_EQ(qefWSize(row.cp), row.wide) << std::hex << row.cp;
  }
  std::pair<unsigned char, std::uint64_t> const leads[] = {
      {0x00, 1}, {0x7F, 1}, {0x80, 0}, {0xBF, 0}, {0xC0, 2}, {0xDF, 2},
      {0xE0, 3}, {0xEF, 3}, {0xF0, 4}, {0xF4, 4}, {0xF5, 0}, {0xFF, 0}};
  for (auto const & [lead, length] : leads) {
    EXPECT_EQ(UTF8Len(lead), length) << int(lead);
  }
  std::pair<std::uint16_t, std::uint64_t> const units[] = {
      {0x41, 1}, {0xD7FF, 1}, {0xD800, 2}, {0xDBFF, 2}, {0xDC00, 0}, {0xDFFF, 0}, {0xE000, 1}};
  for (auto const & [unit, length] : units) {
    EXPECT_EQ(UTF16Len(unit), length) << unit;
  }
  EXPECT_EQ(qefWLen(0xDC00), 1u);
}

TEST(Sync, Utf8SkipsTwoByteLeadsAndUtf16SkipsLowSurrogates) {
  unsigned char const e[] = {0xC3, 0xA9, 0};
  unsigned char const * p = e;
  UTF8Sync(p);
  EXPECT_EQ(p, e + 1); // stops on the continuation byte A9 ...
  UTF8Sync(p);
  EXPECT_EQ(p, e + 1); // ... and does not move from it
  unsigned char const leads[] = {0xC3, 0xDF, 0xE2, 0};
  p = leads;
  UTF8Sync(p);
  EXPECT_EQ(p, leads + 2);
  std::uint16_t const units[] = {0xDC00, 0xDFFF, 0xD800, 0};
  std::uint16_t const * u = units;
  UTF16Sync(u);
  EXPECT_EQ(u, units + 2);
}

TEST(Utf8ToWide, ReturnsUnitsWithTerminatorOrZero) {
  std::uint64_t const all = qefAllOnes;
  struct Row {
    Bytes utf8;
    std::uint64_t max, result;
    std::u16string wide; // before the terminator
  } const rows[] = {
      {B(""), all, 1, u""},
      {B("\xC3\xA9t\xC3\xA9"), all, 4, u"\xE9t\xE9"}, // U+00E9 LATIN SMALL LETTER E WITH ACUTE
      {B("\xF0\x9F\x98\x80"), all, 3, W({0xD87D, 0xDE00})}, // U+1F600 GRINNING FACE
      {B("\xC0\x80x"), all, 3, W({0, u'x'})},               // C0 80 gives a U+0000 unit
      {B("ab\x80"
         "cd"),
       all, 0, u""},                            // stray continuation byte
      {B("ab\xE2\x82"), all, 0, u""},           // cut short by the terminator
      {B("a\xF4\x90\x80\x80"), all, 0, u""},    // above U+10FFFF
      {B("\xC3\xA9t\xC3\xA9"), 4, 3, u"\xE9t"}, // a bound inside a character leaves it out
      {B("abc"), 0, 1, u""},                    // bound 0
  };
  for (Row const & row : rows) {
    qefWChar out[16];
    std::uint64_t const result = UTF8_To_qefWChar(row.utf8.c_str(), row.max, out, 16);
    ASSERT_EQ(result, row.result) << &row - rows;
    if (result != 0) {
      EXPECT_EQ(std::u16string(out, result), row.wide + u'\0') << &row - rows;
    }
  }
  qefWChar four[4] = {0x5555};
  EXPECT_EQ(UTF8_To_qefWChar(B("abcd").c_str(), all, four, 4), 0u); // too small ...
  EXPECT_EQ(four[0], 0x5555);                                       // ... nothing written
  EXPECT_EQ(UTF8_To_qefWChar(B("abcd").c_str(), all, nullptr, 0), 5u);
  EXPECT_EQ(UTF8_To_qefWChar(nullptr, all, four, 4), 0u);
  EXPECT_EQ(UTF8_To_qefWChar(nullptr, all, nullptr, 0), 0u);
}

TEST(WideToUtf8, ReturnsBytesWithTerminatorOrZero) {
  std::uint64_t const all = qefAllOnes;
  struct Row {
    std::u16string wide;
    std::uint64_t max, result;
    Bytes utf8; // before the terminator
  } const rows[] = {
      {u"", all, 1, B("")},
      {u"\xE9t\x20AC", all, 7, B("\xC3\xA9t\xE2\x82\xAC")}, // U+00E9, U+20AC EURO SIGN
      {W({0xD83D, 0xDE00}), all, 2, B("\x01")},             // U+1F600 as a pair collapses to 01
      {W({0xD800, 0xDC00, u'a'}), all, 3, B("\0a", 2)},     // collapses to 00, which ends the text
      {W({0xDBFF, 0xDBFF}), all, 2, B("\x01")},             // DBFF DBFF is a pair
      {W({0xDC00}), all, 0, B("")},                         // lone low surrogate first
      {W({u'a', 0xD800}), all, 0, B("")},                   // high surrogate at the end
      {W({u'a', 0xD83D, 0xDE00}), 2, 2, B("a")},            // a bound inside a pair leaves it out
  };
  for (Row const & row : rows) {
    unsigned char out[16];
    std::uint64_t const result = qefWChar_To_UTF8(row.wide.c_str(), row.max, out, 16);
    ASSERT_EQ(result, row.result) << &row - rows;
    if (result != 0) {
      EXPECT_EQ(Bytes(out, result), row.utf8 + static_cast<unsigned char>(0)) << &row - rows;
    }
  }
  unsigned char small[3] = {0x55};
  EXPECT_EQ(qefWChar_To_UTF8(u"abc", all, small, 3), 0u);
  EXPECT_EQ(small[0], 0x55);
  EXPECT_EQ(qefWChar_To_UTF8(nullptr, all, small, 3), 0u);
}

TEST(Counters, CountUnitsOfUtf32AndRaw16BitText) {
  std::uint32_t const mixed[] = {0x41, 0xE9, 0x20AC, 0x1F600, 0};
  EXPECT_EQ(UTF32u16strlen(mixed, qefAllOnes), 5u);
  EXPECT_EQ(UTF32wstrlen(mixed, qefAllOnes), 5u);
  EXPECT_EQ(UTF32u8strlen(mixed, qefAllOnes), 10u);
  EXPECT_EQ(UTF32u16strlen(mixed, 2), 2u);
  std::uint32_t const limit[] = {0x41, 0x110000, 0x42, 0};
  EXPECT_EQ(UTF32u16strlen(limit, qefAllOnes), 4u); // 0x110000 counts two units
  EXPECT_EQ(UTF32u8strlen(limit, qefAllOnes), 1u);
  std::uint32_t const beyond[] = {0x41, 0x110001, 0x42, 0};
  EXPECT_EQ(UTF32u16strlen(beyond, qefAllOnes), 1u);
  std::uint16_t const units[] = {0x41, 0xDC00, 0xD800, 0x42, 0};
  EXPECT_EQ(UTF16wstrlen(units, qefAllOnes), 4u);
  EXPECT_EQ(UTF16wstrlen(units, 3), 3u);
  EXPECT_EQ(UTF16wstrlen(nullptr, qefAllOnes), 0u);
  EXPECT_EQ(UTF8u16strlen(nullptr, qefAllOnes), 0u);
  EXPECT_EQ(UTF16u8strlen(nullptr, qefAllOnes), 0u);
}

TEST(CharacterClasses, AcceptOnlyTheirCharacters) {
  struct Row {
    qefWChar c;
    bool slash, blank, white, crlf;
  } const rows[] = {
      {u'/', true, false, false, false},  {u'\\', true, false, false, false},
      {u' ', false, true, true, false},   {9, false, false, true, false},
      {10, false, false, true, true},     {13, false, false, true, true},
      {11, false, false, false, false},   {12, false, false, false, false}, // VT, FF
      {0xA0, false, false, false, false}, {u'a', false, false, false, false},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(_isSlash(row.c), row.slash) << int(row.c);
    EXPECT_EQ(_isblank(row.c), row.blank) << int(row.c);
    EXPECT_EQ(_iswhitespace(row.c), row.white) << int(row.c);
    EXPECT_EQ(_isCRLF(row.c), row.crlf) << int(row.c);
  }
  EXPECT_TRUE(_isUNCW(u"\\\\?\\C:\\x"));
  EXPECT_FALSE(_isUNCW(u"\\\\.\\pipe")); // the device prefix is another one
  EXPECT_FALSE(_isUNCW(u"\\\\?"));
  EXPECT_FALSE(_isUNCW(nullptr));
}

// A deliberately plain reading of the counting and conversion rules, independent of the
// library's word-at-a-time paths, to check them on malformed and bounded input.
struct Reference {
  std::uint64_t units = 0;      // wide units (UTF-8 input) or UTF-8 bytes (wide input)
  std::uint64_t characters = 0; // code points or wide characters
  bool error = false;           // stopped at a malformed character inside the bound
  bool tooLarge = false;        // a counted code point is above U+10FFFF
  std::u16string wide; // UTF-8: units up to a code point too large; wide: one per character
  Bytes utf8;          // wide input: the bytes of the counted characters
};

Reference ReadUtf8(Bytes const & text, std::uint64_t max) {
  Reference r;
  unsigned char const * p = text.c_str();
  for (std::uint64_t i = 0; max != 0 && p[i] != 0;) {
    unsigned const b = p[i];
    unsigned const n = b < 0x80 ? 1 : b < 0xC0 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
    if (n == 0) {
      r.error = i < max;
      break;
    }
    std::uint32_t cp = b & (n == 1 ? 0x7F : n == 2 ? 0x1F : n == 3 ? 0x0F : 0x07);
    std::uint64_t bad = 0;
    for (unsigned k = 1; k < n && bad == 0; ++k) {
      bad = (p[i + k] & 0xC0) != 0x80 ? i + k : 0;
      cp = (cp << 6) | (p[i + k] & 0x3Fu);
    }
    if (bad != 0 || i + n > max) {
      r.error = bad != 0 && bad < max;
      break;
    }
    r.units += cp >= 0x10000 ? 2 : 1;
    r.characters += 1;
    r.tooLarge = r.tooLarge || cp > 0x10FFFF;
    if (!r.tooLarge && cp >= 0x10000) {
      r.wide += W({char16_t(0xD800 | (cp >> 10)), char16_t(0xDC00 | (cp & 0x3FF))});
    } else if (!r.tooLarge) {
      r.wide += char16_t(cp);
    }
    i += n;
  }
  return r;
}

Reference ReadWide(std::u16string const & text, std::uint64_t max) {
  Reference r;
  char16_t const * p = text.c_str();
  for (std::uint64_t i = 0; max != 0 && p[i] != 0;) {
    unsigned const u = p[i];
    bool const high = u >= 0xD800 && u <= 0xDBFF;
    if ((u >= 0xDC00 && u <= 0xDFFF) || (high && p[i + 1] < 0xDBFF)) {
      r.error = i + high < max;
      break;
    }
    unsigned const cp = !high ? u : ((u & 0x3FF) == 0 && (p[i + 1] & 0x3FF) == 0) ? 0 : 1;
    if (i + 1 + high > max) {
      break;
    }
    if (cp < 0x80) {
      r.utf8 += static_cast<unsigned char>(cp);
    } else if (cp < 0x800) {
      r.utf8 += B(std::string{char(0xC0 | (cp >> 6)), char(0x80 | (cp & 0x3F))}.c_str());
    } else {
      r.utf8 += B(std::string{char(0xE0 | (cp >> 12)), char(0x80 | ((cp >> 6) & 0x3F)),
                              char(0x80 | (cp & 0x3F))}
                      .c_str());
    }
    r.characters += 1;
    r.wide += char16_t(cp);
    i += 1 + high;
  }
  r.units = r.utf8.size();
  return r;
}

std::uint32_t NextRandom(std::uint32_t & seed) {
  seed = seed * 1103515245 + 12345;
  return seed >> 16;
}

// Random texts from pieces of well-formed and malformed UTF-8, long enough for the
// word-at-a-time paths, with and without a bound; some fixed ones first.
TEST(Utf8Conversion, AgreesWithAPlainReadingOnMalformedAndBoundedText) {
  unsigned char const alphabet[] = {'a',  'b',  'c',  'd',  'e',  'f',  'g',  'h',
                                    0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98,
                                    0x80, 0xF4, 0x90, 0xF5, 0xFF, 0xC0, 0xBF, 0xED};
  std::vector<Bytes> texts = {
      // Regression: overlong four-byte forms counted two units when read eight at a time.
      B("\xF0\x80\x80\x9F\xF0\x80\x80\x80"
        "abcdefgh"),
      B("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"
        "abcdefgh\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9"),
  };
  std::uint32_t seed = 2024;
  for (int round = 0; round < 4000; ++round) {
    Bytes text;
    std::size_t const length = NextRandom(seed) % 48;
    for (std::size_t k = 0; k < length; ++k) {
      text += alphabet[NextRandom(seed) % (round % 3 == 0 && k % 7 ? 8 : sizeof alphabet)];
    }
    texts.push_back(text);
  }
  for (std::size_t t = 0; t < texts.size(); ++t) {
    Bytes const & text = texts[t];
    std::uint64_t const max = t % 2 ? NextRandom(seed) % (text.size() + 3) : qefAllOnes;
    Reference const r = ReadUtf8(text, max);
    SCOPED_TRACE(::testing::Message() << "text " << t << " max " << max);
    ASSERT_EQ(UTF8u16strlen(text.c_str(), max), r.units);
    ASSERT_EQ(UTF8w32strlen(text.c_str(), max), r.characters);
    ASSERT_EQ(UTF8_To_qefWChar(text.c_str(), max, nullptr, 0), r.units + 1);
    bool const fails = r.error || r.tooLarge;
    // Room for anything (one pass) and exactly the room needed (count, then convert).
    for (std::uint64_t room : {std::uint64_t{64}, r.units + 1}) {
      std::vector<qefWChar> out(room, 0x5555);
      ASSERT_EQ(UTF8_To_qefWChar(text.c_str(), max, out.data(), room), fails ? 0 : r.units + 1);
      if (!fails) {
        ASSERT_EQ(std::u16string(out.data(), r.units + 1), r.wide + u'\0');
      }
    }
    if (max == qefAllOnes) {
      CQEFWChar const wide(text.c_str()); // stops quietly where the converter fails
      ASSERT_EQ(std::u16string(*wide, wide.len() + 1), r.wide + u'\0');
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
    for (std::size_t k = 0; k < length; ++k) {
      text += alphabet[NextRandom(seed) % (round % 3 == 0 && k % 7 ? 4 : std::size(alphabet))];
    }
    std::uint64_t const max = round % 2 ? NextRandom(seed) % (length + 3) : qefAllOnes;
    Reference const r = ReadWide(text, max);
    SCOPED_TRACE(::testing::Message() << "round " << round << " max " << max);
    ASSERT_EQ(UTF16u8strlen(text.c_str(), max), r.units);
    ASSERT_EQ(UTF16w32strlen(text.c_str(), max), r.characters);
    for (std::uint64_t room : {std::uint64_t{3 * 40 + 1}, r.units + 1}) {
      std::vector<unsigned char> out(room, 0x55);
      ASSERT_EQ(qefWChar_To_UTF8(text.c_str(), max, out.data(), room), r.error ? 0 : r.units + 1);
      if (!r.error) {
        ASSERT_EQ(Bytes(out.data(), r.units + 1), r.utf8 + static_cast<unsigned char>(0));
      }
    }
    if (max == qefAllOnes) {
      CUTF8Char const utf8(text.c_str());
      ASSERT_EQ(Bytes(*utf8, utf8.len() + 1), r.utf8 + static_cast<unsigned char>(0));
      CUTF16Char const units(text.c_str());
      ASSERT_EQ(units.len(), r.characters);
      for (std::size_t k = 0; k < r.wide.size(); ++k) {
        ASSERT_EQ((*units)[k], r.wide[k]);
      }
    }
  }
}

} // namespace
