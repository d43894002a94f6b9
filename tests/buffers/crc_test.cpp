// `CMachineCRC` against published check values and the bitwise definition (continuing from an
// earlier result is passing it as the initial value, which every sweep varies). Width 64 folds 8
// bytes per step on the table path and 64 or 256 by carry-less multiplication where the
// processor offers it; `_useVectorCode(false)` forces the table path, which must agree.
#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <random>
#include <vector>

using VORX::Buffers::CMachineCRC;

namespace {

constexpr std::uint64_t kEcma = 0x42F0E1EBA9EA3693;

// Width-64 polynomials: ECMA-182, the ISO one, an even one, none at all, all ones.
constexpr std::uint64_t kPolys[] = {kEcma, 0x000000000000001B, 0xAD93D23594C935A8, 0,
                                    ~std::uint64_t{0}};
static_assert(sizeof(kPolys) / sizeof(kPolys[0]) == 5);

// The definition, one bit at a time, most significant first, with none of the tables under test.
std::uint64_t Bitwise(std::uint64_t poly, unsigned char const * p, std::size_t length,
                      std::uint64_t crc) {
  for (std::size_t i = 0; i < length; ++i) {
    crc ^= std::uint64_t{p[i]} << 56;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 63) ? (crc << 1) ^ poly : crc << 1;
    }
  }
  return crc;
}

std::uint64_t TablePath(CMachineCRC const & crc, unsigned char const * p, std::size_t length,
                        std::uint64_t initial) {
  VORX::_useVectorCode(false);
  std::uint64_t const result = crc.Eval(p, length, initial);
  VORX::_useVectorCode(true);
  return result;
}

std::vector<unsigned char> RandomBytes(std::mt19937_64 & rng, std::size_t size) {
  std::vector<unsigned char> buffer(size);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
  return buffer;
}

} // namespace

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

// Every short length at every alignment, and lengths around the 16-, 64- and 256-byte steps
// (one long enough for many 256s), on both paths.
TEST(MachineCRC, Width64AgreesWithTheBitwiseDefinitionForAnyLengthAlignmentAndStart) {
  std::mt19937_64 rng(7);
  std::vector<unsigned char> const buffer = RandomBytes(rng, 70000);
  std::vector<std::pair<std::size_t, std::size_t>> cases; // length, offset
  for (std::size_t length = 0; length <= 160; ++length) {
    for (std::size_t offset = 0; offset < 8; ++offset) {
      cases.emplace_back(length, offset);
    }
  }
  for (std::size_t length : {255, 256, 257, 271, 319, 320, 511, 512, 1000, 69999}) {
    cases.emplace_back(length, 1);
  }
  for (std::uint64_t poly : kPolys) {
    CMachineCRC const crc(64, poly);
    for (auto const & [length, offset] : cases) {
      std::uint64_t const initial = length % 5 == 0 ? 0 : rng();
      unsigned char const * data = buffer.data() + offset;
      std::uint64_t const expected = Bitwise(poly, data, length, initial);
      ASSERT_EQ(crc.Eval(data, length, initial), expected)
          << std::hex << "poly " << poly << std::dec << " length " << length << " at " << offset;
      ASSERT_EQ(TablePath(crc, data, length, initial), expected) << "table path";
    }
  }
}

TEST(MachineCRC, FoldAgreesWithTablePathOnRandomLengthsStartsAndInitialValues) {
  std::mt19937_64 rng(64);
  std::vector<unsigned char> const buffer = RandomBytes(rng, 4096 + 64);
  for (std::uint64_t poly : kPolys) {
    CMachineCRC const crc(64, poly);
    for (int round = 0; round < 300; ++round) {
      std::size_t const length = round < 20 ? 240 + round : rng() % 4097;
      std::size_t const start = rng() % 64;
      std::uint64_t const initial = round % 3 == 0 ? 0 : rng();
      unsigned char const * p = buffer.data() + start;
      ASSERT_EQ(crc.Eval(p, length, initial), TablePath(crc, p, length, initial))
          << std::hex << "poly " << poly << std::dec << " length " << length << " start " << start;
    }
  }
}
