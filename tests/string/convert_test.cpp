// Per-character codecs, whole-buffer converters, counters and character classes.
#include <vorx/string.h>

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

// The decoders read one character at a time, permissively. (The whole-text converters are
// strict; their results are swept against a plain reading in convert_paths_test.cpp.)
TEST(CharacterDecoders, ReadUtf8AndWideTextPermissively) {
  // Bytes; decoded, value, advance.
  std::tuple<char const *, bool, std::uint32_t, std::ptrdiff_t> const utf8[] = {
      {"\xF0\x9F\x98\x80", true, 0x1F600, 4},  // U+1F600, four bytes
      {"\xC0\x80", true, 0, 2},                // overlong U+0000
      {"\xED\xA0\x80", true, 0xD800, 3},       // encoded high surrogate
      {"\xF4\xBF\xBF\xBF", true, 0x13FFFF, 4}, // above U+10FFFF
      {"\x80", false, 0, 0},                   // continuation byte as lead
      {"\xF5\x80\x80\x80", false, 0, 0},       // F5 cannot lead
      {"\xC3\x41", false, 0xC0, 1},            // partial value, left on the bad byte
      {"\xE2\x82", false, 0x2080, 2},          // cut short by the terminator
  };
  for (auto const & [bytes, ok, cp, advance] : utf8) {
    auto const * p = reinterpret_cast<unsigned char const *>(bytes);
    unsigned char const * cursor = p;
    std::uint32_t decoded = 0xFFFFFFFF;
    bool const result = utf8_qefW32(&decoded, cursor);
    EXPECT_EQ(std::make_tuple(result, decoded, cursor - p), std::make_tuple(ok, cp, advance))
        << testing::PrintToString(bytes);
  }
  // A pair does not combine: 0 when both halves have their ten low bits clear, else 1.
  std::tuple<std::u16string, bool, std::uint32_t, std::ptrdiff_t> const wide[] = {
      {W({0xD83D, 0xDE00}), true, 1, 2}, // U+1F600
      {W({0xD800, 0xDC00}), true, 0, 2},
      {W({0xDBFF, 0xDBFF}), true, 1, 2}, // DBFF accepted as a second half
      {W({0xD800, 0xFFFF}), true, 1, 2}, // no upper bound on the second half
      {W({0xD800, u'A'}), false, 7, 0},
      {W({0xDC00}), false, 7, 0}, // low surrogate first
  };
  for (auto const & [units, ok, cp, advance] : wide) {
    qefWChar const * p = units.c_str();
    std::uint32_t decoded = 7;
    bool const result = qefW_qefW32(&decoded, p);
    EXPECT_EQ(std::make_tuple(result, decoded, p - units.c_str()), std::make_tuple(ok, cp, advance))
        << testing::PrintToString(units);
  }
}

TEST(Converters, WriteNothingIntoADestinationTooSmall) {
  qefWChar wide[4] = {0x5555};
  EXPECT_EQ(UTF8_To_qefWChar(B("abcd").c_str(), qefAllOnes, wide, 4), 0u);
  EXPECT_EQ(wide[0], 0x5555);
  unsigned char bytes[4] = {0x55};
  // Three bytes for U+20AC leave no room for the terminator.
  EXPECT_EQ(qefWChar_To_UTF8(u"\x20AC", qefAllOnes, bytes, 3), 0u);
  EXPECT_EQ(bytes[0], 0x55);
  EXPECT_EQ(UTF8_To_qefWChar(nullptr, qefAllOnes, nullptr, 0), 0u);
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
  EXPECT_TRUE(u == unit + 1 && unit[0] == 1);
  unsigned char const tooLarge[] = "\xF4\x90\x80\x80";
  EXPECT_FALSE(utf8_qefW(w = wide, s = tooLarge));
  EXPECT_EQ(w, wide);
  unsigned char bytes[4];
  unsigned char * b = bytes;
  EXPECT_FALSE(qefW_utf8(b, ws = u"\xDC00"));
  EXPECT_EQ(b, bytes);
}

TEST(CharacterSizes, FollowLeadBytesAndUnitsAndSyncSkipsWhatCannotStart) {
  EXPECT_EQ(UTF16Size(0x110001), 0u);
  EXPECT_EQ(qefWSize(0xFFFF), 1u);
  EXPECT_EQ(qefWSize(0xFFFFFFFF), 2u); // no upper limit
  for (unsigned lead = 0; lead < 256; ++lead) {
    EXPECT_EQ(UTF8Len(static_cast<unsigned char>(lead)), LeadLength(lead)) << lead;
  }
  std::pair<std::uint16_t, std::uint64_t> const lengths[] = {{0xD7FF, 1}, {0xD800, 2}, {0xDBFF, 2},
                                                             {0xDC00, 0}, {0xDFFF, 0}, {0xE000, 1}};
  for (auto const & [unit, length] : lengths) {
    EXPECT_EQ(UTF16Len(unit), length) << unit;
  }
  EXPECT_EQ(qefWLen(0xDC00), 1u);
  // Sync skips two-byte leads in UTF-8, low halves in 16-bit text.
  unsigned char const leads[] = {0xC3, 0xDF, 0xA9, 0};
  unsigned char const * p = leads;
  UTF8Sync(p);
  UTF8Sync(p); // stops on the continuation byte A9 and does not move from it
  EXPECT_EQ(p, leads + 2);
  std::uint16_t const units[] = {0xDC00, 0xDFFF, 0xD800, 0};
  std::uint16_t const * u = units;
  UTF16Sync(u);
  EXPECT_EQ(u, units + 2);
}

TEST(Counters, CountUnitsOfUtf32AndRaw16BitText) {
  std::uint32_t const mixed[] = {0x41, 0xE9, 0x20AC, 0x1F600, 0};
  EXPECT_EQ(UTF32u16strlen(mixed, qefAllOnes), 5u);
  EXPECT_EQ(UTF32u8strlen(mixed, qefAllOnes), 10u);
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
