// Random sweeps of the converters, counters and string classes. Each round is checked against a
// deliberately plain reading of the text, and on both the portable code (`_useVectorCode(false)`)
// and the AVX-512 kernels the processor may offer: the two must give the same results, and
// neither may read or write outside the text and the destination. Short random byte soups meet
// every malformed form; longer texts put every awkward sequence at or across the kernels' block
// edges (64 bytes of UTF-8, 32 wide units).
#include <vorx/string.h>

#include <gtest/gtest.h>

#include "byte_text.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

using namespace VORX::String;

namespace {

using vorx::test::B;
using vorx::test::Bytes;
using vorx::test::LeadLength;

// A plain reading of one character, independent of the library's word-at-a-time paths: its
// value and length in units, or length 0 and the offset of the first bad unit.
struct Char {
  std::uint32_t cp = 0;
  unsigned n = 0, bad = 0;
};
Char Next(unsigned char const * p) {
  unsigned const n = LeadLength(p[0]);
  Char c{p[0] & (n == 1 ? 0x7Fu : n == 2 ? 0x1Fu : n == 3 ? 0x0Fu : 0x07u), n, 0};
  for (unsigned k = 1; k < n; ++k) {
    if ((p[k] & 0xC0) != 0x80) {
      return {0, 0, k};
    }
    c.cp = c.cp << 6 | (p[k] & 0x3Fu);
  }
  return n == 0 ? Char{} : c;
}
// A pair does not combine: 0 when both halves have their ten low bits clear, else 1.
Char Next(char16_t const * p) {
  if (p[0] >= 0xDC00 && p[0] <= 0xDFFF) {
    return {};
  }
  if (p[0] < 0xD800 || p[0] > 0xDBFF) {
    return {p[0], 1, 0};
  }
  return p[1] < 0xDBFF ? Char{0, 0, 1} : Char{(p[0] & 0x3FF) || (p[1] & 0x3FF) ? 1u : 0u, 2, 0};
}

// What a plain reading of `text` within `max` units expects: the converter's output (without
// its terminator) or a failure, what the string classes stop quietly at, and the counters.
template <class D> struct Expected {
  bool fails = false;
  std::basic_string<D> quiet;
  std::vector<std::uint64_t> counts;  // the size query, then the counters
  std::vector<std::uint16_t> units16; // the 16-bit class: the wide units, or one per character
};
template <class S> auto Expect(std::basic_string<S> const & text, std::uint64_t max) {
  using D = std::conditional_t<sizeof(S) == 1, char16_t, unsigned char>;
  Expected<D> e;
  std::vector<std::uint32_t> cps;
  bool tooLarge = false;
  for (std::uint64_t i = 0; i < max && text[i] != 0;) {
    Char const c = Next(text.c_str() + i);
    if (c.n == 0 || i + c.n > max) {
      e.fails = c.n == 0 && i + c.bad < max;
      break;
    }
    cps.push_back(c.cp);
    if constexpr (sizeof(S) == 2) {
      e.units16.push_back(static_cast<std::uint16_t>(c.cp));
    }
    i += c.n;
  }
  std::uint64_t units = 0;
  for (std::uint32_t cp : cps) {
    if constexpr (sizeof(S) == 1) { // a pair without subtracting 0x10000
      units += cp >= 0x10000 ? 2 : 1;
      tooLarge = tooLarge || cp > 0x10FFFF;
      if (!tooLarge) {
        e.quiet += cp < 0x10000 ? std::u16string(1, char16_t(cp))
                                : std::u16string{char16_t(0xD800 | (cp >> 10)),
                                                 char16_t(0xDC00 | (cp & 0x3FF))};
      }
    } else { // a pair reads as 0 or 1, so no character needs four bytes
      unsigned const n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : 3;
      e.quiet +=
          static_cast<unsigned char>(n == 1 ? cp : (n == 2 ? 0xC0 : 0xE0) | cp >> (6 * n - 6));
      for (unsigned k = n - 1; k-- > 0;) {
        e.quiet += static_cast<unsigned char>(0x80 | (cp >> (6 * k) & 0x3F));
      }
    }
  }
  e.fails = e.fails || tooLarge;
  if constexpr (sizeof(S) == 1) {
    e.counts = {units + 1, units, units, cps.size()}; // the size query, then the counters
    e.units16.assign(e.quiet.begin(), e.quiet.end());
  } else {
    e.counts = {e.quiet.size() + 1, e.quiet.size(), e.quiet.size(), cps.size(), cps.size()};
  }
  return e;
}

// Runs `f` on the portable path, then on whatever the processor offers.
template <class F> auto BothPaths(F f) {
  VORX::_useVectorCode(false);
  auto portable = f();
  VORX::_useVectorCode(true);
  return std::make_pair(portable, f());
}

// UTF-8 pieces, among them every malformed kind the decoder distinguishes: U+00E9, U+4E2D,
// U+1F600 (a pair), an overlong four-byte form (one unit), a value above U+10FFFF (counted, not
// converted), an encoded surrogate (accepted), the overlong zero; then stray, cut short and
// never-valid bytes. The first eight are well formed.
constexpr char const * kUtf8Pieces[] = {
    // well formed
    "a", "plain ascii text ", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80", "\xF0\x80\x80\x80",
    "\xF4\x90\x80\x80", "\xED\xA0\x80",
    // malformed
    "\xC0\x80", "\x80", "\xC3", "\xE4\xB8", "\xF0\x9F\x98", "\xF5", "\xFF"};

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
    // A pair, one that collapses to U+0000, DBFF DBFF (accepted as a pair); then a low half
    // first, a high half alone and a high half before a plain unit.
    constexpr std::u16string_view kPieces[] = {u"\xD87D\xDE00", u"\xD800\xDC00", u"\xDBFF\xDBFF",
                                               u"\xDC00",       u"\xD800",       u"\xD800z"};
    text += kPieces[rng() % (wellFormed ? 3 : 6)];
  }
  return text;
}

} // namespace

// One round over `text` (terminated, perhaps with more after the zero, or counted by
// `srcMax`) placed `offset` units into its own allocation. The size query, the converter on the
// exact, one too small and worst-case (`growth` units a source unit) destinations, the counters
// and, for terminated text, the string classes agree on both paths and with the plain reading.
template <class S, class D, class Counters, class Classes>
void ExpectRound(std::basic_string<S> const & text, std::uint64_t srcMax, std::size_t offset,
                 std::uint64_t (*convert)(S const *, std::uint64_t, D *, std::uint64_t),
                 std::uint64_t growth, Counters counters, Classes classes) {
  Expected<D> const e = Expect(text, srcMax);
  std::uint64_t const full = e.quiet.size() + 1;
  // The text at an odd distance from an aligned address, ending its own allocation (as does the
  // destination), so that the address sanitizer sees any access beyond it.
  std::unique_ptr<S[]> const block(new S[offset + text.size()]); // not null, even when empty
  S * const at = block.get() + offset;
  std::copy(text.begin(), text.end(), at);
  auto const needed = BothPaths([&] { return convert(at, srcMax, nullptr, 0); });
  ASSERT_EQ(needed.first, needed.second);
  std::uint64_t const worst = growth * std::min<std::uint64_t>(srcMax, text.size()) + 1;
  for (std::uint64_t room : {needed.first, needed.first - 1, worst}) {
    if (room == 0) {
      continue;
    }
    auto const r = BothPaths([&] {
      std::vector<D> dst(room, D(0x5A)); // sentinels
      return std::make_pair(convert(at, srcMax, dst.data(), room), dst);
    });
    ASSERT_EQ(r.first, r.second) << "room " << room;
    if (room >= full) {
      ASSERT_EQ(r.first.first, e.fails ? 0 : full) << "room " << room;
      if (!e.fails) {
        ASSERT_EQ(std::basic_string<D>(r.first.second.begin(), r.first.second.begin() + full),
                  e.quiet + D(0));
      }
    }
  }
  auto counts = BothPaths([&] { return counters(at, srcMax); });
  ASSERT_EQ(counts.first, counts.second);
  counts.first.insert(counts.first.begin(), needed.first);
  ASSERT_EQ(counts.first, e.counts);
  if (srcMax == qefAllOnes) {
    auto const whole = BothPaths([&] { return classes(at); });
    ASSERT_EQ(whole.first, whole.second);
    ASSERT_EQ(whole.first, std::make_pair(e.quiet, e.units16));
  }
}

// Short texts of random units, mostly ASCII every third round (alphabets start with eight
// ASCII units).
template <class T, std::size_t N>
std::basic_string<T> Soup(std::mt19937 & rng, T const (&alphabet)[N], int round) {
  std::basic_string<T> text;
  for (std::size_t k = 0, length = rng() % 48; k < length; ++k) {
    text += alphabet[rng() % (round % 3 == 0 && k % 7 ? 8 : N)];
  }
  return text;
}

// Counted every third round; else terminated (with `more` after the zero half the time) and
// bounded by all ones or by a count beyond the zero.
template <class S>
std::pair<std::basic_string<S>, std::uint64_t> Bound(std::mt19937 & rng, std::basic_string<S> text,
                                                     int round, std::basic_string<S> const & more) {
  if (round % 3 == 0) {
    return {text, rng() % (text.size() + 1)};
  }
  text += rng() % 2 == 0 ? std::basic_string<S>(1, 0) : more;
  return {text, rng() % 2 == 0 ? qefAllOnes : text.size()};
}

TEST(ConvertPaths, Utf8ToWideAgreesWithAPlainReadingOnEveryPathDestinationAndBound) {
  unsigned char const alphabet[] = {'a',  'b',  'c',  'd',  'e',  'f',  'g',  'h',
                                    0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98,
                                    0x80, 0xF4, 0x90, 0xF5, 0xFF, 0xC0, 0xBF, 0xED};
  // Regression: overlong four-byte forms counted two units when read eight at a time.
  std::vector<Bytes> texts = {
      B("\xF0\x80\x80\x9F\xF0\x80\x80\x80"
        "abcdefgh"),
      B("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"
        "abcdefgh\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9"),
      B("\xC3\xA9\xF4\x90\x80\x80")}; // above U+10FFFF after a counted character
  std::mt19937 rng(16);
  for (int round = 0; round < 4400; ++round) {
    texts.push_back(round < 400 ? RandomUtf8(rng, rng() % 700, round % 2 == 0)
                                : Soup(rng, alphabet, round));
  }
  for (std::size_t t = 0; t < texts.size(); ++t) {
    SCOPED_TRACE(::testing::Message() << "text " << t);
    auto const [text, srcMax] = Bound(rng, texts[t], static_cast<int>(t), B("\0more", 5));
    ExpectRound(
        text, srcMax, rng() % 64, &UTF8_To_qefWChar, 1,
        [](unsigned char const * p, std::uint64_t max) {
          return std::vector<std::uint64_t>{UTF8u16strlen(p, max), UTF8wstrlen(p, max),
                                            UTF8w32strlen(p, max)};
        },
        [](unsigned char const * p) {
          CQEFWChar const w(p); // stops quietly where the converter fails
          CUTF16Char const u(p);
          return std::make_pair(std::u16string(*w, w.len()),
                                std::vector<std::uint16_t>(*u, *u + u.len()));
        });
  }
}

TEST(ConvertPaths, WideToUtf8AgreesWithAPlainReadingOnEveryPathDestinationAndBound) {
  char16_t const alphabet[] = {u'a',   u'b',   u'c',   u'd',   u'e',   u'f',   u'g',
                               u'h',   0x00E9, 0x20AC, 0xFFFF, 0xD800, 0xDBFF, 0xDC00,
                               0xDFFF, 0xD83D, 0xDE00, 0x07FF, 0x0800};
  std::mt19937 rng(61);
  for (int round = 0; round < 4400; ++round) {
    SCOPED_TRACE(::testing::Message() << "round " << round);
    std::u16string const soup =
        round < 400 ? RandomWide(rng, rng() % 400, round % 2 == 0) : Soup(rng, alphabet, round);
    auto const [text, srcMax] = Bound(rng, soup, round, std::u16string{0, u'm', 0xD800});
    ExpectRound(
        text, srcMax, rng() % 32, &qefWChar_To_UTF8, 3,
        [](qefWChar const * p, std::uint64_t max) {
          return std::vector<std::uint64_t>{UTF16u8strlen(p, max), qefWu8strlen(p, max),
                                            UTF16w32strlen(p, max), qefWw32strlen(p, max)};
        },
        [](qefWChar const * p) {
          CUTF8Char const bytes(p);
          CUTF16Char const units(p);
          return std::make_pair(Bytes(*bytes, bytes ? bytes.len() : 0),
                                std::vector<std::uint16_t>(*units, *units + units.len()));
        });
  }
}

// Hand-checked results at the block edges, on both paths.
TEST(ConvertPaths, KeepsTheDocumentedResultsAtBlockEdges) {
  // Where the sequence starts in 128 bytes of 'a', the sequence, then what UTF8_To_qefWChar
  // answers without and with a destination of room for the worst case.
  constexpr std::tuple<std::size_t, char const *, std::uint64_t, std::uint64_t> rows[] = {
      {62, "\xF0\x9F\x98\x80", 127, 127}, // a pair split across the first block edge
      {63, "\xC3\xA9", 128, 128},         // a two-byte form as the last byte of a block
      {64, "\x80", 65, 0},                // a stray continuation byte opening the second block
      {63, "\xE4\xB8", 64, 0},            // a lead byte cut short by the next block's ASCII
      {61, "\xF4\x90\x80\x80", 127, 0},   // a value above U+10FFFF across the edge
  };
  for (auto const & [at, seq, needed, converted] : rows) {
    Bytes text(128, 'a');
    text.replace(at, std::strlen(seq), B(seq));
    text.push_back(0);
    for (bool vectors : {false, true}) {
      VORX::_useVectorCode(vectors);
      std::vector<qefWChar> dst(text.size());
      EXPECT_EQ(UTF8_To_qefWChar(text.data(), qefAllOnes, nullptr, 0), needed) << at << vectors;
      EXPECT_EQ(UTF8_To_qefWChar(text.data(), qefAllOnes, dst.data(), dst.size()), converted)
          << at << (vectors ? " (vector path)" : " (portable path)");
    }
  }
  VORX::_useVectorCode(true);
}
