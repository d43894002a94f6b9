// The converters and counters take AVX-512 kernels on long text where the processor has them;
// `_useVectorCode(false)` forces the portable code. Both must give the same results, and
// neither may read or write outside the text and the destination, on text built to put every
// awkward sequence at or across the kernels' block edges (64 bytes of UTF-8, 32 wide units).
#include <vorx/string.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using namespace VORX::String;

namespace {

using Bytes = std::basic_string<unsigned char>;

// Runs `f` on the portable path, then on whatever the processor offers.
template <class F> auto BothPaths(F f) {
  VORX::_useVectorCode(false);
  auto portable = f();
  VORX::_useVectorCode(true);
  return std::make_pair(portable, f());
}

// UTF-8 pieces, among them every malformed kind the decoder distinguishes.
constexpr char const * kUtf8Pieces[] = {
    "a",
    "plain ascii text ",
    "\xC3\xA9",         // U+00E9
    "\xE4\xB8\xAD",     // U+4E2D
    "\xF0\x9F\x98\x80", // U+1F600: a pair
    "\xF0\x80\x80\x80", // overlong four-byte form: one unit
    "\xF4\x90\x80\x80", // above U+10FFFF: counted, not converted
    "\xED\xA0\x80",     // an encoded surrogate, accepted
    "\xC0\x80",         // overlong zero
    "\x80",
    "\xC3",
    "\xE4\xB8",
    "\xF0\x9F\x98",
    "\xF5",
    "\xFF", // stray, cut short, never valid
};
static_assert(sizeof(kUtf8Pieces) / sizeof(kUtf8Pieces[0]) == 15);

// Text of about `size` bytes: mostly one kind of letter, with a piece from the table dropped
// at random, often just before a multiple of 64.
Bytes RandomUtf8(std::mt19937 & rng, std::size_t size, bool wellFormed) {
  constexpr char const * kRuns[] = {"x", "\xC3\xA9", "\xE6\x96\x87"};
  char const * const run = kRuns[rng() % 3];
  Bytes text;
  while (text.size() < size) {
    unsigned const roll = rng() % 40;
    if (roll == 0) {
      std::size_t const piece = rng() % (wellFormed ? 8 : 15);
      if (rng() % 2 == 0) {
        while (text.size() % 64 < 60) {
          text += reinterpret_cast<unsigned char const *>(run);
        }
      }
      text += reinterpret_cast<unsigned char const *>(kUtf8Pieces[piece]);
    } else {
      text += reinterpret_cast<unsigned char const *>(roll < 30 ? run : "x");
    }
  }
  return text;
}

// Wide text of `size` units in the same manner: pairs (as the library writes them), lone
// halves, a high half before 0xDBFF, and runs of one width of UTF-8.
std::u16string RandomWide(std::mt19937 & rng, std::size_t size, bool wellFormed) {
  constexpr char16_t kRuns[] = {u'x', 0x00E9, 0x6587};
  char16_t const run = kRuns[rng() % 3];
  std::u16string text;
  while (text.size() < size) {
    if (rng() % 40 != 0) {
      // Now and then a unit at the edge of a UTF-8 length, or just outside the surrogates.
      constexpr char16_t kEdges[] = {0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFF};
      text += rng() % 8 == 0 ? kEdges[rng() % 7] : rng() % 4 == 0 ? u'y' : run;
      continue;
    }
    if (rng() % 2 == 0) {
      while (text.size() % 32 != 31) {
        text += run;
      }
    }
    switch (rng() % (wellFormed ? 3 : 6)) {
    case 0:
      text += {0xD87D, 0xDE00};
      break;
    case 1:
      text += {0xD800, 0xDC00};
      break; // collapses to U+0000
    case 2:
      text += {0xDBFF, 0xDBFF};
      break; // accepted as a pair
    case 3:
      text += char16_t{0xDC00};
      break; // a low half first
    case 4:
      text += char16_t{0xD800};
      break; // a high half alone
    default:
      text += {0xD800, u'z'};
      break;
    }
  }
  return text;
}

// A copy of `units` at an odd distance from an aligned address, ending its own allocation, so
// that the address sanitizer sees any read beyond it.
template <class T> struct Placed {
  std::unique_ptr<T[]> block;
  T * at;
  Placed(std::basic_string<T> const & units, std::size_t offset)
      : block(new T[offset + units.size()]), at(block.get() + offset) {
    std::memcpy(at, units.data(), units.size() * sizeof(T));
  }
};

struct Result {
  std::uint64_t returned;
  std::vector<std::uint64_t> out; // the destination, sentinels included
  bool operator==(Result const &) const = default;
};

// One converter call with a destination of `room` units (none when `room` is all ones) that
// is its own allocation; its contents start as sentinels.
template <class S, class D, class F>
Result Convert(F convert, S const * src, std::uint64_t srcMax, std::uint64_t room) {
  if (room == qefAllOnes) {
    return {convert(src, srcMax, static_cast<D *>(nullptr), 0), {}};
  }
  std::unique_ptr<D[]> dst(new D[room]);
  std::fill(dst.get(), dst.get() + room, static_cast<D>(0x5A));
  Result r{convert(src, srcMax, dst.get(), room), {}};
  r.out.assign(dst.get(), dst.get() + room);
  return r;
}

} // namespace

// One round of a sweep over `text` placed `offset` units into its allocation: terminated
// (sometimes with `more` after the zero) or counted without a zero. The converter on the exact,
// one too small and worst-case (`growth` units a source unit) destinations, the two counters
// and, for terminated text, the string classes' result `whole` agree on both paths.
template <class S, class D, class Counters, class Whole>
void ExpectBothPathsAgree(std::mt19937 & rng, std::basic_string<S> text, std::size_t offset,
                          int round, std::basic_string<S> const & more,
                          std::uint64_t (*convert)(S const *, std::uint64_t, D *, std::uint64_t),
                          std::uint64_t growth, Counters counters, Whole whole) {
  SCOPED_TRACE(::testing::Message() << "round " << round);
  bool const terminated = round % 3 != 0;
  std::uint64_t const srcMax = terminated ? qefAllOnes : rng() % (text.size() + 1);
  if (terminated) {
    text += rng() % 2 == 0 ? std::basic_string<S>(1, 0) : more;
  }
  Placed<S> const src(text, offset);
  auto const needed = BothPaths([&] { return convert(src.at, srcMax, nullptr, 0); });
  ASSERT_EQ(needed.first, needed.second);
  std::uint64_t const worst = growth * (srcMax == qefAllOnes ? text.size() : srcMax) + 1;
  for (std::uint64_t room : {needed.first, needed.first - 1, worst}) {
    if (room != 0) {
      auto const r = BothPaths([&] { return Convert<S, D>(convert, src.at, srcMax, room); });
      ASSERT_EQ(r.first, r.second) << "room " << room;
    }
  }
  auto const counts = BothPaths([&] { return counters(src.at, srcMax); });
  ASSERT_EQ(counts.first, counts.second);
  if (terminated) {
    auto const classes = BothPaths([&] { return whole(src.at); });
    ASSERT_EQ(classes.first, classes.second);
  }
}

TEST(ConvertPaths, Utf8ToWideAgreesOnEveryDestinationAndBoundForm) {
  std::mt19937 rng(16);
  for (int round = 0; round < 400; ++round) {
    Bytes const text = RandomUtf8(rng, rng() % 700, round % 2 == 0);
    ExpectBothPathsAgree(
        rng, text, rng() % 64, round, Bytes{0, 'm', 'o', 'r', 'e'}, &UTF8_To_qefWChar, 1,
        [](unsigned char const * p, std::uint64_t max) {
          return std::make_pair(UTF8u16strlen(p, max), UTF8w32strlen(p, max));
        },
        [](unsigned char const * p) {
          CQEFWChar const w(p);
          CUTF16Char const u(p);
          return std::make_tuple(std::u16string(*w, w.len()), w.len(), u.len(),
                                 std::memcmp(*w, *u, u.len() * 2) == 0);
        });
  }
}

TEST(ConvertPaths, WideToUtf8AgreesOnEveryDestinationAndBoundForm) {
  std::mt19937 rng(61);
  for (int round = 0; round < 400; ++round) {
    std::u16string const text = RandomWide(rng, rng() % 400, round % 2 == 0);
    ExpectBothPathsAgree(
        rng, text, rng() % 32, round, std::u16string{0, u'm', 0xD800}, &qefWChar_To_UTF8, 3,
        [](qefWChar const * p, std::uint64_t max) {
          return std::make_pair(UTF16u8strlen(p, max), UTF16w32strlen(p, max));
        },
        [](qefWChar const * p) {
          CUTF8Char const u(p);
          return Bytes(*u, u ? u.len() : 0);
        });
  }
}

// Hand-checked results at the block edges, on both paths.
TEST(ConvertPaths, KeepsTheDocumentedResultsAtBlockEdges) {
  struct Row {
    char const * label;
    std::size_t at; // where the sequence starts in 128 bytes of 'a'
    char const * seq;
    std::uint64_t needed, converted; // UTF8_To_qefWChar with room for the worst case
  };
  constexpr Row rows[] = {
      {"pair split across the first block edge", 62, "\xF0\x9F\x98\x80", 127, 127},
      {"three-byte form ending one byte into the next block", 62, "\xE4\xB8\xAD", 127, 127},
      {"two-byte form as the last byte of a block", 63, "\xC3\xA9", 128, 128},
      {"stray continuation byte opening the second block", 64, "\x80", 65, 0},
      {"lead byte cut short by the next block's ASCII", 63, "\xE4\xB8", 64, 0},
      {"never-valid byte at the end of a block", 63, "\xFF", 64, 0},
      {"value above U+10FFFF across the edge", 61, "\xF4\x90\x80\x80", 127, 0},
  };
  static_assert(sizeof(rows) / sizeof(rows[0]) == 7);
  for (Row const & row : rows) {
    Bytes text(128, 'a');
    Bytes const seq(reinterpret_cast<unsigned char const *>(row.seq));
    text.replace(row.at, seq.size(), seq);
    text.push_back(0);
    for (bool vectors : {false, true}) {
      VORX::_useVectorCode(vectors);
      std::vector<qefWChar> dst(text.size());
      EXPECT_EQ(UTF8_To_qefWChar(text.data(), qefAllOnes, nullptr, 0), row.needed) << row.label;
      EXPECT_EQ(UTF8_To_qefWChar(text.data(), qefAllOnes, dst.data(), dst.size()), row.converted)
          << row.label << (vectors ? " (vector path)" : " (portable path)");
    }
  }
  VORX::_useVectorCode(true);
}
