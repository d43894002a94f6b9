// Width 64 folds 64 or 256 bytes per step by carry-less multiplication where the processor
// offers it; `_useVectorCode(false)` forces the table path, which must give the same results.
#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <random>
#include <vector>

using VORX::Buffers::CMachineCRC;

namespace {

// Restores the vector code when a test ends, whatever happened in it.
struct PortableOnly {
  PortableOnly() { VORX::_useVectorCode(false); }
  ~PortableOnly() { VORX::_useVectorCode(true); }
};

std::uint64_t TablePath(CMachineCRC const & crc, unsigned char const * p, std::size_t length,
                        std::uint64_t initial) {
  PortableOnly const portable;
  return crc.Eval(p, length, initial);
}

// The definition, one bit at a time, most significant first.
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

// Width-64 polynomials: ECMA-182, the ISO one, an even one, none at all, all ones.
constexpr std::uint64_t kPolys[] = {0x42F0E1EBA9EA3693, 0x000000000000001B, 0xAD93D23594C935A8, 0,
                                    ~std::uint64_t{0}};
static_assert(sizeof(kPolys) / sizeof(kPolys[0]) == 5);

} // namespace

TEST(MachineCRCFold, AgreesWithTablePathOnRandomLengthsStartsAndInitialValues) {
  std::mt19937_64 rng(64);
  std::vector<unsigned char> buffer(4096 + 64);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
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

TEST(MachineCRCFold, AgreesWithBitwiseDefinitionAcrossEveryBlockSize) {
  std::mt19937_64 rng(7);
  std::vector<unsigned char> buffer(70000);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
  // Lengths around the 16-, 64- and 256-byte steps, and one long enough for many 256s.
  constexpr std::size_t kLengths[] = {63,  64,  65,  79,  80,  255,  256,  257,
                                      271, 319, 320, 511, 512, 1000, 69999};
  for (std::uint64_t poly : kPolys) {
    CMachineCRC const crc(64, poly);
    for (std::size_t length : kLengths) {
      std::uint64_t const initial = rng();
      EXPECT_EQ(crc.Eval(buffer.data() + 1, length, initial),
                Bitwise(poly, buffer.data() + 1, length, initial))
          << std::hex << "poly " << poly << std::dec << " length " << length;
    }
  }
}

// A checksum built piece by piece from reads of any size is the checksum of the whole.
TEST(MachineCRCFold, ContinuesAcrossPiecesOfAnySize) {
  std::mt19937_64 rng(3);
  std::vector<unsigned char> buffer(20000);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
  CMachineCRC const crc(64, 0x42F0E1EBA9EA3693);
  std::uint64_t const whole = TablePath(crc, buffer.data(), buffer.size(), 0);
  std::uint64_t pieces = 0;
  for (std::size_t at = 0; at < buffer.size();) {
    std::size_t const piece = std::min<std::size_t>(rng() % 3000, buffer.size() - at);
    pieces = crc.Eval(buffer.data() + at, piece, pieces);
    at += piece;
  }
  EXPECT_EQ(pieces, whole);
}

// Short data (a pooled text's few dozen bytes) folds one 16-byte block at a time from 32 bytes
// and ends in one step for its last one to seven bytes: every length, start and continuation.
TEST(MachineCRCFold, ShortDataOfEveryLengthAgreesWithTableAndDefinition) {
  std::mt19937_64 rng(16);
  std::vector<unsigned char> buffer(256);
  for (auto & b : buffer) {
    b = static_cast<unsigned char>(rng());
  }
  for (std::uint64_t poly : kPolys) {
    CMachineCRC const crc(64, poly);
    for (std::size_t length = 0; length <= 160; ++length) {
      for (std::size_t start : {0, 1, 3, 8}) {
        std::uint64_t const initial = length % 2 == 0 ? 0 : rng();
        unsigned char const * p = buffer.data() + start;
        std::uint64_t const expected = Bitwise(poly, p, length, initial);
        ASSERT_EQ(crc.Eval(p, length, initial), expected)
            << std::hex << "poly " << poly << std::dec << " length " << length << " at " << start;
        ASSERT_EQ(TablePath(crc, p, length, initial), expected)
            << std::hex << "poly " << poly << std::dec << " length " << length << " at " << start;
      }
    }
  }
}
