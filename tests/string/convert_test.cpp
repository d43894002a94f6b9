// Per-character codecs, whole-buffer converters, counters and character classes.
#include <vorx/string.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "byte_text.h"

using namespace VORX::String;

namespace {

using vorx::test::B;
using vorx::test::Bytes;
using vorx::test::LeadLength;

std::u16string W(std::initializer_list<char16_t> units) {
  return std::u16string(units);
}

// Each labelled text is read one character at a time and converted as a whole.
TEST(Utf8Text, DecodesPermissivelyPerCharacterAndConvertsStrictly) {
  // Bytes; the first character: decoded, value, advance; the whole text's units (none: refused).
  std::tuple<char const *, bool, std::uint32_t, std::ptrdiff_t, std::u16string> const rows[] = {
      {"\xC3\xA9t", true, 0xE9, 2, u"\xE9t"},                      // U+00E9, two bytes
      {"\xF0\x9F\x98\x80", true, 0x1F600, 4, W({0xD87D, 0xDE00})}, // U+1F600, four bytes
      {"\xC0\x80x", true, 0, 2, W({0, u'x'})},                     // overlong U+0000
      {"\xED\xA0\x80", true, 0xD800, 3, W({0xD800})},              // encoded high surrogate
      {"\xF4\xBF\xBF\xBF", true, 0x13FFFF, 4, u""},                // above U+10FFFF
      {"\x80", false, 0, 0, u""},                                  // continuation byte as lead
      {"\xF5\x80\x80\x80", false, 0, 0, u""},                      // F5 cannot lead
      {"\xC3\x41", false, 0xC0, 1, u""},   // partial value, left on the bad byte
      {"\xE2\x82", false, 0x2080, 2, u""}, // cut short by the terminator
  };
  for (auto const & [bytes, ok, cp, advance, wide] : rows) {
    auto const * p = reinterpret_cast<unsigned char const *>(bytes);
    unsigned char const * cursor = p;
    std::uint32_t decoded = 0xFFFFFFFF;
    SCOPED_TRACE(testing::PrintToString(bytes));
    EXPECT_EQ(utf8_qefW32(&decoded, cursor), ok);
    EXPECT_EQ(decoded, cp);
    EXPECT_EQ(cursor - p, advance);
    qefWChar out[8];
    std::uint64_t const n = UTF8_To_qefWChar(p, qefAllOnes, out, 8); // the terminator counted
    EXPECT_EQ(std::u16string(out, n), wide.empty() ? u"" : wide + u'\0');
  }
  // Bounds inside a character are swept in convert_paths_test.cpp; a destination too small is not.
  qefWChar out[4] = {0x5555};
  EXPECT_EQ(UTF8_To_qefWChar(B("abcd").c_str(), qefAllOnes, out, 4), 0u); // too small ...
  EXPECT_EQ(out[0], 0x5555);                                              // ... nothing written
  EXPECT_EQ(UTF8_To_qefWChar(nullptr, qefAllOnes, nullptr, 0), 0u);
}

TEST(WideText, CollapsesPairsToZeroOrOneAndStopsOnLoneSurrogates) {
  // Units; the first character: decoded, value, advance; the whole text as UTF-8 (none: refused).
  std::tuple<std::u16string, bool, std::uint32_t, std::ptrdiff_t, Bytes> const rows[] = {
      {u"\xE9t\x20AC", true, 0xE9, 1, B("\xC3\xA9t\xE2\x82\xAC")}, // U+00E9, U+20AC
      {W({0xD83D, 0xDE00}), true, 1, 2, B("\x01")},         // U+1F600 as a standard pair gives 1
      {W({0xD800, 0xDC00, u'a'}), true, 0, 2, B("\0a", 2)}, // ten low bits clear: 0
      {W({0xDBFF, 0xDBFF}), true, 1, 2, B("\x01")},         // DBFF accepted as a second half
      {W({0xD800, 0xFFFF}), true, 1, 2, B("\x01")},         // no upper bound on the second half
      {W({0xD800, u'A'}), false, 7, 0, B("")},              // high surrogate before a plain unit
      {W({0xD800}), false, 7, 0, B("")},                    // high surrogate at the end
      {W({0xDC00}), false, 7, 0, B("")},                    // low surrogate first
  };
  for (auto const & [units, ok, cp, advance, utf8] : rows) {
    qefWChar const * p = units.c_str();
    std::uint32_t decoded = 7;
    SCOPED_TRACE(testing::PrintToString(units));
    EXPECT_EQ(qefW_qefW32(&decoded, p), ok);
    EXPECT_EQ(decoded, cp);
    EXPECT_EQ(p - units.c_str(), advance);
    unsigned char out[16];
    std::uint64_t const n = qefWChar_To_UTF8(units.c_str(), qefAllOnes, out, 16);
    EXPECT_EQ(Bytes(out, n), utf8.empty() ? Bytes() : utf8 + static_cast<unsigned char>(0));
  }
  unsigned char out[4] = {0x55};
  // Three bytes for U+20AC leave no room for the terminator: nothing written.
  EXPECT_EQ(qefWChar_To_UTF8(u"\x20AC", qefAllOnes, out, 3), 0u);
  EXPECT_EQ(out[0], 0x55);
}

// Sizes must agree with what the encoders write, apart from the quirks noted.
TEST(CodePointEncode, WritesUtf8AndUnpairedWideFormsOfTheSizesAnnounced) {
  // Code point, UTF-8 (null: refused), wide units.
  std::tuple<std::uint32_t, char const *, std::u16string> const rows[] = {
      {0x7F, "\x7F", u"\x7F"},                             // last one-byte form
      {0x80, "\xC2\x80", u"\x80"},                         // first two-byte form
      {0x800, "\xE0\xA0\x80", u"\x800"},                   // first three-byte form
      {0xD800, "\xED\xA0\x80", W({0xD800})},               // a surrogate value is encoded
      {0x10000, "\xF0\x90\x80\x80", W({0xD840, 0xDC00})},  // pair without subtracting 0x10000
      {0x10FFFF, "\xF4\x8F\xBF\xBF", W({0xDC3F, 0xDFFF})}, // U+10FFFF
      {0x110000, nullptr, u""},                            // above U+10FFFF: refused
  };
  for (auto const & [cp, utf8, wide] : rows) {
    SCOPED_TRACE(cp);
    unsigned char bytes[8] = {0};
    unsigned char * b = bytes;
    EXPECT_EQ(qefW32_utf8(b, cp), utf8 != nullptr);
    EXPECT_EQ(Bytes(bytes, b), B(utf8 ? utf8 : ""));
    EXPECT_EQ(UTF8Size(cp), static_cast<std::uint64_t>(b - bytes));
    qefWChar units[4] = {0};
    qefWChar * w = units;
    EXPECT_EQ(qefW32_qefW(w, cp), utf8 != nullptr);
    EXPECT_EQ(std::u16string(units, w), wide);
    // 0x110000 is refused, yet its size is given as two units.
    EXPECT_EQ(UTF16Size(cp), cp == 0x110000 ? 2 : wide.size());
  }
}

TEST(CharacterCodecs, ChainDecodeAndEncodeAndWriteNothingOnFailure) {
  unsigned char const smile[] = "\xF0\x9F\x98\x80"; // U+1F600 GRINNING FACE
  unsigned char const * s = smile;
  qefWChar wide[3] = {0};
  qefWChar * w = wide;
  EXPECT_TRUE(utf8_qefW(w, s));
  EXPECT_EQ(std::u16string(wide, w), W({0xD87D, 0xDE00}));
  qefWChar const * ws = wide;
  std::uint16_t unit[2] = {7, 7};
  std::uint16_t * u = unit;
  EXPECT_TRUE(qefW_utf16(u, ws)); // the pair becomes the one unit 1
  EXPECT_EQ(std::vector<std::uint16_t>(unit, u), std::vector<std::uint16_t>{1});
  std::uint16_t const lone[] = {0xDC00, 0};
  std::uint16_t const * l = lone;
  EXPECT_TRUE(utf16_qefW(w = wide, l)); // copied as it is
  EXPECT_EQ(wide[0], 0xDC00);
  unsigned char const tooLarge[] = "\xF4\x90\x80\x80";
  EXPECT_FALSE(utf8_qefW(w = wide, s = tooLarge));
  EXPECT_EQ(w, wide);
  unsigned char bytes[4];
  unsigned char * b = bytes;
  EXPECT_FALSE(qefW_utf8(b, ws = u"\xDC00"));
  EXPECT_EQ(b, bytes);
}

TEST(CharacterSizes, FollowLeadBytesAndUnits) {
  EXPECT_EQ(UTF16Size(0x110001), 0u);
  EXPECT_EQ(qefWSize(0xFFFF), 1u);
  EXPECT_EQ(qefWSize(0xFFFFFFFF), 2u); // no upper limit
  for (unsigned lead = 0; lead < 256; ++lead) {
    EXPECT_EQ(UTF8Len(static_cast<unsigned char>(lead)), LeadLength(lead)) << lead;
  }
  std::pair<std::uint16_t, std::uint64_t> const units[] = {{0xD7FF, 1}, {0xD800, 2}, {0xDBFF, 2},
                                                           {0xDC00, 0}, {0xDFFF, 0}, {0xE000, 1}};
  for (auto const & [unit, length] : units) {
    EXPECT_EQ(UTF16Len(unit), length) << unit;
  }
  EXPECT_EQ(qefWLen(0xDC00), 1u);
}

TEST(Sync, Utf8SkipsTwoByteLeadsAndUtf16SkipsLowSurrogates) {
  unsigned char const leads[] = {0xC3, 0xDF, 0xA9, 0};
  unsigned char const * p = leads;
  UTF8Sync(p);
  EXPECT_EQ(p, leads + 2); // stops on the continuation byte A9 ...
  UTF8Sync(p);
  EXPECT_EQ(p, leads + 2); // ... and does not move from it
  std::uint16_t const units[] = {0xDC00, 0xDFFF, 0xD800, 0};
  std::uint16_t const * u = units;
  UTF16Sync(u);
  EXPECT_EQ(u, units + 2);
}

TEST(Counters, CountUnitsOfUtf32AndRaw16BitText) {
  std::uint32_t const mixed[] = {0x41, 0xE9, 0x20AC, 0x1F600, 0};
  EXPECT_EQ(UTF32u16strlen(mixed, qefAllOnes), 5u);
  EXPECT_EQ(UTF32u8strlen(mixed, qefAllOnes), 10u);
  EXPECT_EQ(UTF32u16strlen(mixed, 2), 2u);
  std::uint32_t const limit[] = {0x41, 0x110000, 0x42, 0x110001, 0x43, 0};
  EXPECT_EQ(UTF32u16strlen(limit, qefAllOnes), 4u); // 0x110000 counts two units, 0x110001 stops
  EXPECT_EQ(UTF32u8strlen(limit, qefAllOnes), 1u);
  std::uint16_t const units[] = {0x41, 0xDC00, 0xD800, 0x42, 0};
  EXPECT_EQ(UTF16wstrlen(units, qefAllOnes), 4u);
  EXPECT_EQ(UTF16wstrlen(units, 3), 3u);
  EXPECT_EQ(UTF16wstrlen(nullptr, qefAllOnes), 0u);
}

// The units, of all 65536, that `accepts` takes.
std::u16string Accepted(bool (*accepts)(qefWChar)) {
  std::u16string units;
  for (unsigned c = 0; c < 0x10000; ++c) {
    if (accepts(static_cast<qefWChar>(c))) {
      units += static_cast<char16_t>(c);
    }
  }
  return units;
}

TEST(CharacterClasses, AcceptOnlyTheirCharacters) {
  EXPECT_EQ(Accepted(_isSlash), u"/\\");
  EXPECT_EQ(Accepted(_isblank), u" ");
  EXPECT_EQ(Accepted(_iswhitespace), u"\t\n\r "); // not vertical tab or form feed
  EXPECT_EQ(Accepted(_isCRLF), u"\n\r");
  EXPECT_TRUE(_isUNCW(u"\\\\?\\C:\\x"));
  EXPECT_FALSE(_isUNCW(u"\\\\.\\pipe")); // the device prefix is another one
  EXPECT_FALSE(_isUNCW(nullptr));
}

} // namespace
