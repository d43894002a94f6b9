#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <random>

using VORX::Buffers::CMachineCRC;

constexpr std::uint64_t kEcma = 0x42F0E1EBA9EA3693;

// Published check values (CRC of "123456789") of catalogue entries without reflection and
// without a final exclusive-or, computed whole and continued from every split point.
TEST(MachineCRC, MatchesCatalogueCheckValuesAndContinuesFromAnEarlierResult) {
  struct Row {
    char const * name;
    unsigned width;
    std::uint64_t poly, init, check;
  };
  constexpr Row rows[] = {
      {"CRC-10/ATM", 10, 0x233, 0, 0x199},
      {"CRC-11/FLEXRAY", 11, 0x385, 0x01A, 0x5A3},
      {"CRC-16/XMODEM", 16, 0x1021, 0, 0x31C3},
      {"CRC-16/IBM-3740", 16, 0x1021, 0xFFFF, 0x29B1},
      {"CRC-24/OPENPGP", 24, 0x864CFB, 0xB704CE, 0x21CF02},
      {"CRC-32/MPEG-2", 32, 0x04C11DB7, 0xFFFFFFFF, 0x0376E6E7},
      {"CRC-64/ECMA-182", 64, kEcma, 0, 0x6C40DF5F0B497347},
  };
  static_assert(sizeof(rows) / sizeof(rows[0]) == 7);
  char const check[] = "123456789";
  for (Row const & row : rows) {
    CMachineCRC const crc(row.width, row.poly);
    for (std::size_t split = 0; split <= 9; ++split) {
      EXPECT_EQ(crc.Eval(check + split, 9 - split, crc.Eval(check, split, row.init)), row.check)
          << row.name << " split at " << split;
    }
  }
}

// CRC-64/ECMA-182 one bit at a time, most significant first: the definition of the checksum,
// with none of the tables under test.
static std::uint64_t BitwiseCRC64(unsigned char const * data, std::size_t length,
                                  std::uint64_t crc) {
  for (std::size_t i = 0; i < length; ++i) {
    crc ^= std::uint64_t{data[i]} << 56;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 63) ? (crc << 1) ^ kEcma : crc << 1;
    }
  }
  return crc;
}

// Width 64 folds eight bytes per step; every length, alignment and start must agree.
TEST(MachineCRC, Width64AgreesWithBitwiseDefinitionForAnyLengthAlignmentAndStart) {
  std::mt19937_64 rng(2026);
  std::vector<unsigned char> buffer(128);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
  CMachineCRC const crc(64, kEcma);
  for (std::size_t length = 0; length <= 100; ++length) {
    for (std::size_t offset = 0; offset < 8; ++offset) {
      std::uint64_t const initial = (length % 5 == 0) ? 0 : rng();
      unsigned char const * data = buffer.data() + offset;
      ASSERT_EQ(crc.Eval(data, length, initial), BitwiseCRC64(data, length, initial))
          << "length " << length << " offset " << offset << " initial " << initial;
    }
  }
}

// Widths outside 9..64 compute nothing: 8 because its byte shift is 0, the others because the
// table stays empty.
TEST(MachineCRC, ReturnsTheInitialValueForWidthsThatComputeNothing) {
  for (unsigned width : {0u, 4u, 7u, 8u, 65u}) {
    for (std::uint64_t initial : {std::uint64_t{0}, std::uint64_t{0xA5}, ~std::uint64_t{0}}) {
      EXPECT_EQ(CMachineCRC(width, 0x07).Eval("123456789", 9, initial), initial)
          << "width " << width;
    }
  }
}
