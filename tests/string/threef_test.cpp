#include <gtest/gtest.h>
#include <vorx/string.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::String;
using VORX::Buffers::CPPlainMemory;

namespace {

using Bytes = std::vector<std::uint8_t>;

std::u16string Encode3F(Bytes const & data) {
  std::vector<qefWChar> text(_3FTextLen(data.size()) + 1, u'\xFFFF');
  std::uint64_t const length = _3FEncode(text.data(), data.data(), data.size());
  EXPECT_EQ(length, _3FTextLen(data.size()));
  EXPECT_EQ(text.back(), 0);
  return std::u16string(text.data(), length);
}

std::u16string Encode3FFF(Bytes const & data) {
  std::vector<qefWChar> text(_3FFFTextLen(data.size()) + 1, u'\xFFFF');
  std::uint64_t const length = _3FFFEncode(text.data(), data.data(), data.size());
  EXPECT_EQ(length, _3FFFTextLen(data.size()));
  EXPECT_EQ(text.back(), 0);
  return std::u16string(text.data(), length);
}

Bytes Contents(CPPlainMemory const & block) {
  auto const * p = static_cast<std::uint8_t const *>(static_cast<void const *>(block));
  return Bytes(p, p + block.GetMemorySize());
}

Bytes RandomBytes(std::size_t size, std::mt19937 & source) {
  Bytes data(size);
  for (std::uint8_t & b : data) {
    b = static_cast<std::uint8_t>(source());
  }
  return data;
}

} // namespace

TEST(ThreeF, EncodesTheDocumentedTexts) {
  struct Row {
    char const * label;
    Bytes data;
    std::u16string text;
  } const rows[] = {
      {"one zero byte", {0x00}, u"\x0102!!!!"},
      {"nothing", {}, u"\x0103"},
      {"three bytes, a whole group", {0x00, 0x00, 0x00}, u"\x0103!!!!"},
      {"c1 wraps below \"!\"",
       {0xFF, 0xFF},
       u"\x0101`\x0014"
       u"0!"},
      {"c1 is U+0001", {0x00, 0x0E, 0x00, 0x00}, u"\x0102!\x0001!!!!!!"},
      {"two groups",
       {0x12, 0x34, 0x56, 0x78},
       u"\x0102"
       u"3aD6Y\"!!"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(Encode3F(row.data), row.text) << row.label;
  }
}

TEST(ThreeFFF, EncodesTheDocumentedTexts) {
  struct Row {
    char const * label;
    Bytes data;
    std::u16string text;
  } const rows[] = {
      {"nothing", {}, u"\x0307"},
      {"seven bytes, little-endian", {1, 2, 3, 4, 5, 6, 7}, u"\x0307\x4201\x500C\x6050\x41C1"},
      {"all ones", Bytes(7, 0xFF), u"\x0307\x7FFF\x7FFF\x7FFF\x7FFF"},
      {"one byte, zero padded", {0x80}, u"\x0306\x4080\x4000\x4000\x4000"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(Encode3FFF(row.data), row.text) << row.label;
  }
  // Eight bytes: header 0x0306 and two groups.
  std::u16string const eight = Encode3FFF({1, 2, 3, 4, 5, 6, 7, 8});
  ASSERT_EQ(eight.size(), 9u);
  EXPECT_EQ(eight[0], 0x0306);
  for (std::size_t i = 1; i < eight.size(); ++i) {
    EXPECT_GE(eight[i], 0x4000);
    EXPECT_LE(eight[i], 0x7FFF);
  }
  EXPECT_EQ(Contents(C3FFFDecoder(eight.c_str())), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

// The pool gives a submitter one unit beyond the length it asks for; the texts fit in that.
TEST(ThreeF, EncodersReserveRoomForTheTextAndItsTerminator) {
  struct Row {
    std::uint64_t bytes, text3F, reserve3F, text3FFF, reserve3FFF;
  } const rows[] = {{0, 1, 5, 1, 5},   {1, 5, 5, 5, 5},     {2, 5, 5, 5, 5},
                    {3, 5, 9, 5, 5},   {4, 9, 9, 5, 5},     {7, 13, 13, 5, 9},
                    {8, 13, 13, 9, 9}, {14, 21, 21, 9, 13}, {1000, 1337, 1337, 573, 573}};
  for (Row const & row : rows) {
    EXPECT_EQ(_3FTextLen(row.bytes), row.text3F) << row.bytes;
    EXPECT_EQ(_3FReserve(row.bytes), row.reserve3F) << row.bytes;
    EXPECT_EQ(_3FFFTextLen(row.bytes), row.text3FFF) << row.bytes;
    EXPECT_EQ(_3FFFReserve(row.bytes), row.reserve3FFF) << row.bytes;
  }
  for (std::uint64_t bytes = 0; bytes < 100; ++bytes) {
    EXPECT_LE(_3FTextLen(bytes), _3FReserve(bytes)) << bytes;
    EXPECT_LE(_3FFFTextLen(bytes), _3FFFReserve(bytes)) << bytes;
  }
}

// Both schemes give back every size that is not a whole number of groups, and reject the rest
// (with exactly one log line).
TEST(ThreeF, RoundTripsEverySizeOrRejectsWholeGroups) {
  std::mt19937 source(3);
  for (std::size_t size = 0; size <= 3000; ++size) {
    Bytes const data = RandomBytes(size, source);
    {
      vorx::test::LogCapture log;
      Bytes const back = Contents(C3FDecoder(Encode3F(data).c_str()));
      if (size % 3 != 0) {
        ASSERT_EQ(back, data) << "3F, " << size << " bytes";
        ASSERT_TRUE(log.Lines().empty());
      } else {
        ASSERT_TRUE(back.empty());
        ASSERT_EQ(log.Lines().size(), 1u) << "3F, " << size << " bytes";
      }
    }
    {
      vorx::test::LogCapture log;
      Bytes const back = Contents(C3FFFDecoder(Encode3FFF(data).c_str()));
      if (size % 7 != 0) {
        ASSERT_EQ(back, data) << "3FFF, " << size << " bytes";
        ASSERT_TRUE(log.Lines().empty());
      } else {
        ASSERT_TRUE(back.empty());
        ASSERT_EQ(log.Lines().size(), 1u) << "3FFF, " << size << " bytes";
      }
    }
  }
}

// Every group b0 b1 b2 comes back. Each pass encodes all 65536 groups of one b2, plus one byte
// so that the text is not rejected. Optimised builds without sanitizers take every b2; debug and
// sanitizer builds every seventh and the last.
TEST(ThreeF, RoundTripsEveryGroup) {
#if defined(NDEBUG) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
  constexpr unsigned kStride = 1;
#else
  constexpr unsigned kStride = 7;
#endif
  Bytes data(65536 * 3 + 1);
  std::vector<qefWChar> text(_3FTextLen(data.size()) + 1);
  Bytes back(data.size());
  std::vector<unsigned> thirdBytes;
  for (unsigned b2 = 0; b2 < 256; b2 += kStride) {
    thirdBytes.push_back(b2);
  }
  if (thirdBytes.back() != 255) {
    thirdBytes.push_back(255);
  }
  for (unsigned const b2 : thirdBytes) {
    for (unsigned pair = 0; pair < 65536; ++pair) {
      data[pair * 3] = static_cast<std::uint8_t>(pair);
      data[pair * 3 + 1] = static_cast<std::uint8_t>(pair >> 8);
      data[pair * 3 + 2] = static_cast<std::uint8_t>(b2);
    }
    data.back() = static_cast<std::uint8_t>(b2);
    std::uint64_t const length = _3FEncode(text.data(), data.data(), data.size());
    ASSERT_EQ(_3FDecodedSize(text.data(), length), data.size());
    ASSERT_TRUE(_3FDecode(back.data(), text.data(), length)) << "b2 " << b2;
    if (back != data) {
      for (std::size_t i = 0; i < data.size(); ++i) {
        ASSERT_EQ(back[i], data[i])
            << "byte " << i % 3 << " of group " << std::hex << int(data[i - i % 3]) << ' '
            << int(data[i - i % 3 + 1]) << ' ' << b2;
      }
    }
  }
}

TEST(ThreeF, RejectsMalformedTextWithOneLogLine) {
  struct Row {
    char const * label;
    std::u16string text;
  } const rows[] = {
      {"empty text", u""},
      {"3FFF header", u"\x0301!!!!"},
      {"header of a whole number of groups", u"\x0103!!!!"},
      {"header high byte 0x11", u"\x1101!!!!"},
      {"padding 5", u"\x0105!!!!"},
      {"header alone announcing padding", u"\x0102"},
      {"group cut short", u"\x0102!!!"},
      {"one character too many", u"\x0102!!!!!"},
      {"c0 below \"!\"", u"\x0102 !!!"},
      {"c0 above \"`\"", u"\x0102"
                         u"a!!!"},
      {"c1 above U+00FF", u"\x0102!\x0100!!"},
      {"c2 above \"`\"", u"\x0101!!\x007F!"},
      {"c3 above \"`\"", u"\x0101!!!a"},
      {"bad character in the second group", u"\x0102!!!!!!!\x4000"},
  };
  for (Row const & row : rows) {
    vorx::test::LogCapture log;
    EXPECT_TRUE(Contents(C3FDecoder(row.text.c_str())).empty()) << row.label;
    std::vector<vorx::test::LoggedLine> const lines = log.Lines();
    ASSERT_EQ(lines.size(), 1u) << row.label;
    EXPECT_EQ(lines[0].level, qefDL_Warning);
    EXPECT_EQ(lines[0].category, u"VORX");
    EXPECT_EQ(lines[0].file, "cstringpool");
    EXPECT_EQ(lines[0].line, 4316);
    EXPECT_EQ(lines[0].message, u"C3FDecoder: Invalid string passed");
  }
  vorx::test::LogCapture log;
  EXPECT_TRUE(Contents(C3FDecoder(static_cast<qefWChar const *>(nullptr))).empty());
  EXPECT_EQ(log.Lines().size(), 1u);
  // A zero unit inside the stated length is outside the alphabet too.
  qefWChar const withZero[] = {0x0102, u'!', 0, u'!', u'!'};
  EXPECT_EQ(_3FDecodedSize(withZero, 5), 1u);
  std::uint8_t byte = 0;
  EXPECT_FALSE(_3FDecode(&byte, withZero, 5));
  // The header alone, without padding, is a valid empty text.
  log.Clear();
  EXPECT_TRUE(Contents(C3FDecoder(u"\x0100")).empty());
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ThreeFFF, RejectsMalformedTextWithOneLogLine) {
  struct Row {
    char const * label;
    std::u16string text;
  } const rows[] = {
      {"empty text", u""},
      {"3F header", u"\x0101\x4000\x4000\x4000\x4000"},
      {"header of a whole number of groups", u"\x0307\x4000\x4000\x4000\x4000"},
      {"header alone announcing padding", u"\x0301"},
      {"group cut short", u"\x0301\x4000\x4000\x4000"},
      {"character below U+4000", u"\x0301\x3FFF\x4000\x4000\x4000"},
      {"character from U+8000", u"\x0301\x4000\x8000\x4000\x4000"},
      {"character from U+C000", u"\x0301\x4000\x4000\x4000\xC000"},
  };
  for (Row const & row : rows) {
    vorx::test::LogCapture log;
    EXPECT_TRUE(Contents(C3FFFDecoder(row.text.c_str())).empty()) << row.label;
    std::vector<vorx::test::LoggedLine> const lines = log.Lines();
    ASSERT_EQ(lines.size(), 1u) << row.label;
    EXPECT_EQ(lines[0].level, qefDL_Warning);
    EXPECT_EQ(lines[0].category, u"VORX");
    EXPECT_EQ(lines[0].file, "cstringpool");
    EXPECT_EQ(lines[0].line, 4500);
    EXPECT_EQ(lines[0].message, u"C3FFFDecoder: Invalid string passed");
  }
}

TEST(ThreeF, FailedAllocationGivesAnEmptyBlockWithoutALogLine) {
  std::u16string const text3F = Encode3F({1, 2, 3, 4});
  std::u16string const text3FFF = Encode3FFF({1, 2, 3, 4});
  vorx::test::LogCapture log;
  vorx::test::AllocationFailure const refuse;
  EXPECT_TRUE(Contents(C3FDecoder(text3F.c_str())).empty());
  EXPECT_TRUE(Contents(C3FFFDecoder(text3FFF.c_str())).empty());
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ThreeFEncoder, InternsTheDocumentedTexts) {
  std::uint8_t const zero = 0x00;
  CPPoolString const one = C3FEncoder(&zero, 1);
  EXPECT_EQ(std::u16string(one), u"\x0102!!!!");
  EXPECT_EQ(Contents(C3FDecoder(one)), Bytes{0x00});

  std::uint8_t const eight[] = {1, 2, 3, 4, 5, 6, 7, 8};
  CPPoolString const fff = C3FFFEncoder(eight, 8);
  EXPECT_EQ(std::u16string(fff), u"\x0306\x4201\x500C\x6050\x41C1\x4008\x4000\x4000\x4000");
  EXPECT_EQ(Contents(C3FFFDecoder(fff)), Bytes(eight, eight + 8));

  // No bytes, a null source and an empty block give the header alone, which the decoders reject.
  EXPECT_EQ(std::u16string(CPPoolString(C3FEncoder(eight, 0))), u"\x0103");
  EXPECT_EQ(std::u16string(CPPoolString(C3FEncoder(nullptr, 5))), u"\x0103");
  EXPECT_EQ(std::u16string(CPPoolString(C3FEncoder(CPPlainMemory()))), u"\x0103");
  EXPECT_EQ(std::u16string(CPPoolString(C3FFFEncoder(CPPlainMemory()))), u"\x0307");
  vorx::test::LogCapture log;
  EXPECT_TRUE(Contents(C3FDecoder(CPPoolString(C3FEncoder(eight, 3)))).empty());
  EXPECT_TRUE(Contents(C3FFFDecoder(CPPoolString(C3FFFEncoder(eight, 0)))).empty());
  EXPECT_TRUE(Contents(C3FDecoder(CPPoolString())).empty());
  std::vector<vorx::test::LoggedLine> const lines = log.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].message, u"C3FDecoder: Invalid string passed");
  EXPECT_EQ(lines[1].message, u"C3FFFDecoder: Invalid string passed");
  EXPECT_EQ(lines[2].line, 4316);
}

TEST(ThreeFEncoder, EqualBytesGiveOnePooledRecord) {
  std::uint8_t const bytes[] = {0xDE, 0xAD, 0xBE, 0xEF};
  CPPlainMemory block;
  ASSERT_TRUE(block.Alloc(sizeof bytes));
  std::memcpy(static_cast<void *>(block), bytes, sizeof bytes);
  CPPoolString const fromPointer = C3FEncoder(bytes, sizeof bytes);
  CPPoolString const fromBlock = C3FEncoder(block);
  EXPECT_TRUE(fromPointer == fromBlock);
  EXPECT_TRUE(CPPoolString(C3FFFEncoder(bytes, 4)) == CPPoolString(C3FFFEncoder(block)));
  EXPECT_FALSE(fromPointer == CPPoolString(C3FFFEncoder(block)));
  EXPECT_TRUE(fromPointer.Verify());
}

// The pooled texts round-trip like the cores' for sizes on both sides of the group boundaries,
// up to several thousand bytes.
TEST(ThreeFEncoder, PooledTextsRoundTrip) {
  std::mt19937 source(11);
  std::size_t const sizes[] = {1, 2, 4, 5, 6, 8, 13, 15, 20, 64, 100, 1000, 4097, 65536};
  for (std::size_t size : sizes) {
    Bytes const data = RandomBytes(size, source);
    CPPoolString const text3F = C3FEncoder(data.data(), size);
    EXPECT_EQ(text3F.len(), _3FTextLen(size));
    EXPECT_EQ(std::u16string(text3F), Encode3F(data));
    if (size % 3 != 0) {
      EXPECT_EQ(Contents(C3FDecoder(text3F)), data) << "3F, " << size << " bytes";
    }
    CPPoolString const text3FFF = C3FFFEncoder(data.data(), size);
    EXPECT_EQ(text3FFF.len(), _3FFFTextLen(size));
    if (size % 7 != 0) {
      EXPECT_EQ(Contents(C3FFFDecoder(text3FFF)), data) << "3FFF, " << size << " bytes";
    }
  }
}

TEST(ThreeFEncoder, FailedAllocationGivesTheNullString) {
  std::uint8_t const bytes[] = {1, 2};
  vorx::test::AllocationFailure const refuse;
  EXPECT_TRUE(CPPoolString(C3FEncoder(bytes, 2)).isnull());
  EXPECT_TRUE(CPPoolString(C3FFFEncoder(bytes, 2)).isnull());
}
