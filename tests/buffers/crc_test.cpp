// `CMachineCRC` against published check values and the bitwise definition (continuing from an
// earlier result is passing it as the initial value, which every sweep varies). Width 64 folds 8
// bytes per step on the table path and 64 or 256 by carry-less multiplication where the
// processor offers it; `_useVectorCode(false)` forces the table path, which must agree.
#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <random>
#include <vector>

using VORX::Buffers::CMachineCRC;

// Published check values (CRC of "123456789") of catalogue entries without reflection and
// without a final exclusive-or, computed whole and continued from every split point. Widths
// outside 9..64 compute nothing: 8 because its byte shift is 0, the others because the table
// stays empty.
TEST(MachineCRC, MatchesCatalogueCheckValuesAndContinuesFromAnEarlierResult) {
  struct Row {
    unsigned width;
    std::uint64_t poly, init, check;
  };
  constexpr Row rows[] = {
      {10, 0x233, 0, 0x199},                            // CRC-10/ATM
      {16, 0x1021, 0xFFFF, 0x29B1},                     // CRC-16/IBM-3740
      {32, 0x04C11DB7, 0xFFFFFFFF, 0x0376E6E7},         // CRC-32/MPEG-2
      {64, 0x42F0E1EBA9EA3693, 0, 0x6C40DF5F0B497347},  // CRC-64/ECMA-182
      {8, 0x07, 0xA5, 0xA5},                            // computes nothing
      {65, 0x07, ~std::uint64_t{0}, ~std::uint64_t{0}}, // computes nothing
  };
  char const check[] = "123456789";
  for (Row const & row : rows) {
    CMachineCRC const crc(row.width, row.poly);
    for (std::size_t split = 0; split <= 9; ++split) {
      EXPECT_EQ(crc.Eval(check + split, 9 - split, crc.Eval(check, split, row.init)), row.check)
          << row.width << " split at " << split;
    }
  }
}

// Every short length (each at another alignment), and lengths around the 16-, 64- and 256-byte
// steps (one long enough for many 256s), on both paths, against the definition one bit at a time.
TEST(MachineCRC, Width64AgreesWithTheBitwiseDefinitionForAnyLengthAlignmentAndStart) {
  std::mt19937_64 rng(7);
  std::vector<unsigned char> buffer(70000);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
  // ECMA-182, an even polynomial, none at all, all ones.
  for (std::uint64_t poly : {0x42F0E1EBA9EA3693ull, 0xAD93D23594C935A8ull, 0x0ull, ~0x0ull}) {
    CMachineCRC const crc(64, poly);
    for (std::size_t length = 0; length < 69999; length += length < 330 ? 1 : 997 + length) {
      std::uint64_t const initial = length % 5 == 0 ? 0 : rng();
      unsigned char const * data = buffer.data() + length % 8;
      std::uint64_t expected = initial;
      for (std::size_t i = 0; i < length; ++i) {
        expected ^= std::uint64_t{data[i]} << 56;
        for (int bit = 0; bit < 8; ++bit) {
          expected = (expected >> 63) ? (expected << 1) ^ poly : expected << 1;
        }
      }
      ASSERT_EQ(crc.Eval(data, length, initial), expected)
          << std::hex << "poly " << poly << std::dec << " length " << length;
      VORX::_useVectorCode(false);
      std::uint64_t const table = crc.Eval(data, length, initial);
      VORX::_useVectorCode(true);
      ASSERT_EQ(table, expected) << "table path";
    }
  }
}
