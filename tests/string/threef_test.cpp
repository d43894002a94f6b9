#include <gtest/gtest.h>
#include <vorx/string.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::String;
using VORX::Buffers::CPPlainMemory;

namespace {

using Bytes = std::vector<std::uint8_t>;

// The text the core writes, checked for its announced length and terminator.
std::u16string Encode(bool fff, Bytes const & data) {
  std::uint64_t const expected = fff ? _3FFFTextLen(data.size()) : _3FTextLen(data.size());
  std::vector<qefWChar> text(expected + 1, u'\xFFFF');
  std::uint64_t const length = fff ? _3FFFEncode(text.data(), data.data(), data.size())
                                   : _3FEncode(text.data(), data.data(), data.size());
  EXPECT_EQ(length, expected);
  EXPECT_EQ(text.back(), 0);
  return std::u16string(text.data(), length);
}

Bytes Contents(CPPlainMemory const & block) {
  auto const * p = static_cast<std::uint8_t const *>(static_cast<void const *>(block));
  return Bytes(p, p + block.GetMemorySize());
}

Bytes Decode(bool fff, qefWChar const * text) {
  return Contents(fff ? CPPlainMemory(C3FFFDecoder(text)) : CPPlainMemory(C3FDecoder(text)));
}

} // namespace

TEST(ThreeF, EncodesTheDocumentedTextsInTheRoomReserved) {
  // Written out by hand from the group layouts.
  // 3FFF, bytes, text
  std::tuple<bool, Bytes, std::u16string> const rows[] = {
      {false, {0xFF, 0xFF}, u"\x0101`\x0014\x0030!"},            // c1 wraps below "!"
      {false, {0x00, 0x0E, 0x00, 0x00}, u"\x0102!\x0001!!!!!!"}, // c1 is U+0001
      {false, {0x12, 0x34, 0x56, 0x78}, u"\x0102\x0033\x0061\x0044\x0036Y\"!!"},
      {true, Bytes(7, 0xFF), u"\x0307\x7FFF\x7FFF\x7FFF\x7FFF"},
      {true, {1, 2, 3, 4, 5, 6, 7, 8}, u"\x0306\x4201\x500C\x6050\x41C1\x4008\x4000\x4000\x4000"},
  };
  for (auto const & [fff, data, text] : rows) {
    EXPECT_EQ(Encode(fff, data), text) << data.size();
  }
  // The pool gives a submitter one unit beyond the length it asks for; the texts fit in that.
  // bytes, then the 3F text length and reserve, then those of 3FFF
  std::vector<std::uint64_t> const sizes[] = {{0, 1, 5, 1, 5},   {3, 5, 9, 5, 5},
                                              {4, 9, 9, 5, 5},   {7, 13, 13, 5, 9},
                                              {8, 13, 13, 9, 9}, {1000, 1337, 1337, 573, 573}};
  for (auto const & row : sizes) {
    std::uint64_t const n = row[0];
    EXPECT_EQ(row, (std::vector<std::uint64_t>{n, _3FTextLen(n), _3FReserve(n), _3FFFTextLen(n),
                                               _3FFFReserve(n)}));
  }
}

// Both schemes give back every size that is not a whole number of groups, and reject the rest
// with exactly one log line.
TEST(ThreeF, RoundTripsEverySizeOrRejectsWholeGroups) {
  std::mt19937 source(3);
  for (std::size_t size = 0; size <= 3000; ++size) {
    Bytes data(size);
    std::generate(data.begin(), data.end(), [&] { return static_cast<std::uint8_t>(source()); });
    for (bool const fff : {false, true}) {
      vorx::test::LogCapture log;
      Bytes const back = Decode(fff, Encode(fff, data).c_str());
      bool const whole = size % (fff ? 7 : 3) == 0;
      ASSERT_EQ(back, whole ? Bytes() : data) << (fff ? "3FFF, " : "3F, ") << size;
      ASSERT_EQ(log.Lines().size(), whole ? 1u : 0u) << (fff ? "3FFF, " : "3F, ") << size;
    }
  }
}

// Every group b0 b1 b2 comes back (00 0E 00 among them, whose c1 is U+0001, so that c1 - 33 wraps
// below zero). Each pass encodes all 65536 groups of one b2, plus one byte so that the text is
// not rejected. Optimised builds without sanitizers take every b2; others every seventh and 255.
TEST(ThreeF, RoundTripsEveryGroup) {
#if defined(NDEBUG) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
  constexpr unsigned kStride = 1;
#else
  constexpr unsigned kStride = 7;
#endif
  Bytes data(65536 * 3 + 1);
  std::vector<qefWChar> text(_3FTextLen(data.size()) + 1);
  Bytes back(data.size());
  for (unsigned b2 = 0; b2 < 256 + kStride - 1; b2 += kStride) {
    b2 = std::min(b2, 255u);
    for (unsigned pair = 0; pair < 65536; ++pair) {
      data[pair * 3] = static_cast<std::uint8_t>(pair);
      data[pair * 3 + 1] = static_cast<std::uint8_t>(pair >> 8);
      data[pair * 3 + 2] = static_cast<std::uint8_t>(b2);
    }
    std::uint64_t const length = _3FEncode(text.data(), data.data(), data.size());
    ASSERT_EQ(_3FDecodedSize(text.data(), length), data.size());
    ASSERT_TRUE(_3FDecode(back.data(), text.data(), length)) << "b2 " << b2;
    ASSERT_TRUE(back == data) << "b2 " << b2;
  }
}

TEST(ThreeF, RejectsMalformedTextWithOneLogLine) {
  // 3F: nothing, a 3FFF header, a header of a whole number of groups, header high byte 0x11, a
  // group cut short, one character too many, c0 below "!", c1 above U+00FF; 3FFF: a
  // 3F header, a unit below U+4000, one from U+C000.
  std::vector<std::u16string> const malformed[] = {
      {u"", u"\x0301!!!!", u"\x0103!!!!", u"\x1101!!!!", u"\x0102!!!", u"\x0102!!!!!",
       u"\x0102 !!!", u"\x0102!\x0100!!"},
      {u"\x0101\x4000\x4000\x4000\x4000", u"\x0301\x3FFF\x4000\x4000\x4000",
       u"\x0301\x4000\x4000\x4000\xC000"}};
  for (bool const fff : {false, true}) {
    for (std::u16string const & text : malformed[fff]) {
      vorx::test::LogCapture log;
      EXPECT_TRUE(Decode(fff, text.c_str()).empty()) << testing::PrintToString(text);
      std::vector<vorx::test::LoggedLine> const lines = log.Lines();
      ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(text);
      EXPECT_TRUE(lines[0].level == qefDL_Warning && lines[0].category == u"VORX" &&
                  lines[0].file == "cstringpool" && lines[0].line == (fff ? 4500 : 4316));
      EXPECT_EQ(lines[0].message, fff ? u"C3FFFDecoder: Invalid string passed"
                                      : u"C3FDecoder: Invalid string passed");
    }
  }
  vorx::test::LogCapture log;
  EXPECT_TRUE(Decode(true, nullptr).empty());
  EXPECT_EQ(log.Lines().size(), 1u);
  // The header alone, without padding, is a valid empty text.
  log.Clear();
  EXPECT_TRUE(Decode(false, u"\x0100").empty() && log.Lines().empty());
}

TEST(ThreeFEncoder, InternsItsTextAtOnce) {
  std::uint8_t const bytes[] = {0x00, 2, 3, 4, 5, 6, 7, 8};
  CPPoolString const one = C3FEncoder(bytes, 1);
  EXPECT_EQ(std::u16string(one), u"\x0102!!!!");
  EXPECT_EQ(Contents(C3FDecoder(one)), Bytes{0x00});

  // Equal bytes from a pointer and from a block give one record.
  CPPlainMemory block;
  ASSERT_TRUE(block.Alloc(4));
  std::memcpy(static_cast<void *>(block), bytes, 4);
  EXPECT_TRUE(CPPoolString(C3FFFEncoder(bytes, 4)) == CPPoolString(C3FFFEncoder(block)));

  // No bytes, a null source and an empty block give the header alone, which the decoders reject.
  EXPECT_EQ(std::u16string(CPPoolString(C3FEncoder(nullptr, 5))), u"\x0103");
  EXPECT_EQ(std::u16string(CPPoolString(C3FFFEncoder(CPPlainMemory()))), u"\x0307");
  vorx::test::LogCapture log;
  EXPECT_TRUE(Contents(C3FDecoder(CPPoolString(C3FEncoder(bytes, 3)))).empty());
  EXPECT_TRUE(Contents(C3FDecoder(CPPoolString())).empty());
  EXPECT_EQ(log.Lines().size(), 2u);
}

TEST(ThreeF, FailedAllocationGivesEmptyResultsWithoutALogLine) {
  std::u16string const text = Encode(true, {1, 2, 3, 4});
  vorx::test::LogCapture log;
  vorx::test::AllocationFailure const refuse;
  EXPECT_TRUE(Decode(false, u"\x0102!!!!").empty() && Decode(true, text.c_str()).empty());
  EXPECT_TRUE(log.Lines().empty());
  std::uint8_t const bytes[] = {1, 2};
  EXPECT_TRUE(CPPoolString(C3FEncoder(bytes, 2)).isnull() &&
              CPPoolString(C3FFFEncoder(bytes, 2)).isnull());
}
