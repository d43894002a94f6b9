#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

using VORX::Buffers::CMachineCRC;

char const kCheck[] = "123456789";

// Published check values (CRC of "123456789") of catalogue entries without reflection and
// without a final exclusive-or.
TEST(MachineCRC, MatchesCatalogueCheckValues) {
  struct Row {
    char const * name;
    unsigned width;
    std::uint64_t poly;
    std::uint64_t init;
    std::uint64_t check;
  };
  constexpr Row rows[] = {
      {"CRC-10/ATM", 10, 0x233, 0, 0x199},
      {"CRC-11/FLEXRAY", 11, 0x385, 0x01A, 0x5A3},
      {"CRC-16/XMODEM", 16, 0x1021, 0, 0x31C3},
      {"CRC-16/IBM-3740", 16, 0x1021, 0xFFFF, 0x29B1},
      {"CRC-16/UMTS", 16, 0x8005, 0, 0xFEE8},
      {"CRC-16/CDMA2000", 16, 0xC867, 0xFFFF, 0x4C06},
      {"CRC-16/DECT-X", 16, 0x0589, 0, 0x007F},
      {"CRC-24/OPENPGP", 24, 0x864CFB, 0xB704CE, 0x21CF02},
      {"CRC-32/MPEG-2", 32, 0x04C11DB7, 0xFFFFFFFF, 0x0376E6E7},
      {"CRC-32/XFER", 32, 0x000000AF, 0, 0xBD0BE338},
      {"CRC-64/ECMA-182", 64, 0x42F0E1EBA9EA3693, 0, 0x6C40DF5F0B497347},
  };
  static_assert(sizeof(rows) / sizeof(rows[0]) == 11);
  for (Row const & row : rows) {
    CMachineCRC const crc(row.width, row.poly);
    EXPECT_EQ(crc.Eval(kCheck, 9, row.init), row.check) << row.name;
  }
}

TEST(MachineCRC, ContinuesFromAnEarlierResult) {
  std::mt19937_64 rng(99);
  std::vector<unsigned char> data(300);
  for (auto & b : data) {
    b = static_cast<unsigned char>(rng());
  }
  struct Row {
    unsigned width;
    std::uint64_t poly;
  };
  constexpr Row rows[] = {{12, 0x80F}, {16, 0x1021}, {32, 0x04C11DB7}, {64, 0x42F0E1EBA9EA3693}};
  for (Row const & row : rows) {
    unsigned const width = row.width;
    CMachineCRC const crc(width, row.poly);
    std::uint64_t const whole = crc.Eval(data.data(), data.size(), 0x1234);
    for (std::size_t split : {0, 1, 7, 8, 9, 17, 150, 299, 300}) {
      std::uint64_t const first = crc.Eval(data.data(), split, 0x1234);
      EXPECT_EQ(crc.Eval(data.data() + split, data.size() - split, first), whole)
          << "width " << width << " split " << split;
    }
  }
}

// CRC-64/ECMA-182 one bit at a time, most significant first: the definition of the checksum,
// with none of the tables under test.
std::uint64_t BitwiseCRC64(unsigned char const * data, std::size_t length, std::uint64_t crc) {
  for (std::size_t i = 0; i < length; ++i) {
    crc ^= std::uint64_t{data[i]} << 56;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 63) ? (crc << 1) ^ 0x42F0E1EBA9EA3693 : crc << 1;
    }
  }
  return crc;
}

TEST(MachineCRC, Width64AgreesWithBitwiseDefinitionForAnyLengthAlignmentAndStart) {
  std::mt19937_64 rng(2026);
  std::vector<unsigned char> buffer(128);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
  CMachineCRC const crc(64, 0x42F0E1EBA9EA3693);
  for (std::size_t length = 0; length <= 100; ++length) {
    for (std::size_t offset = 0; offset < 8; ++offset) {
      std::uint64_t const initial = (length % 5 == 0) ? 0 : rng();
      unsigned char const * data = buffer.data() + offset;
      ASSERT_EQ(crc.Eval(data, length, initial), BitwiseCRC64(data, length, initial))
          << "length " << length << " offset " << offset << " initial " << initial;
    }
  }
  std::uint64_t const ones = ~std::uint64_t{0};
  EXPECT_EQ(crc.Eval(buffer.data(), 64, ones), BitwiseCRC64(buffer.data(), 64, ones));
}

// Widths outside 9..64 compute nothing: 8 because its byte shift is 0, 4 and 65 because the
// table stays empty.
TEST(MachineCRC, ReturnsTheInitialValueForWidthsThatComputeNothing) {
  std::uint64_t const initials[] = {0, 1, 0xA5, 0xFFFFFFFFFFFFFFFF, 0x0123456789ABCDEF};
  for (unsigned width : {0u, 4u, 7u, 8u, 65u, 128u}) {
    CMachineCRC const crc(width, 0x07);
    for (std::uint64_t initial : initials) {
      EXPECT_EQ(crc.Eval(kCheck, 9, initial), initial) << "width " << width;
    }
  }
}

} // namespace
