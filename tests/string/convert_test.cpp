// Per-character codecs, counters and character classes; then random sweeps of the converters,
// counters and string classes. Each round is checked against a deliberately plain reading of the
// text, and on both the portable code (`_useVectorCode(false)`) and the AVX-512 kernels the
// processor may offer: the two must give the same results, and neither may read or write outside
// the text and the destination. Short random byte soups meet every malformed form; longer texts put
// every awkward sequence at or across the kernels' block edges (64 bytes of UTF-8, 32 wide units).
#include <vorx/string.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

using namespace VORX::String;

namespace {

// UTF-8 text as a string of bytes (embedded zeros included): the first `n` bytes of `text`.
using Bytes = std::basic_string<unsigned char>;
Bytes B(char const * text, std::size_t n) {
  return Bytes(reinterpret_cast<unsigned char const *>(text), n);
}
Bytes B(char const * text) {
  return B(text, std::strlen(text));
}

// Bytes a UTF-8 character takes from its lead byte, 0 for a byte that cannot lead.
unsigned LeadLength(unsigned b) {
  return b < 0x80 ? 1 : b < 0xC0 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
}

// The decoders read one character at a time, permissively. (The whole-text converters are
// strict; their results are swept against a plain reading below.)
TEST(CharacterDecoders, ReadUtf8AndWideTextPermissively) {
  // Bytes; decoded, value, advance. U+1F600, the overlong U+0000, an encoded high surrogate and
  // a value above U+10FFFF decode; a continuation byte or F5 cannot lead; a bad byte leaves the
  // partial value and the cursor on it; the terminator cuts a character short.
  std::tuple<char const *, bool, std::uint32_t, std::ptrdiff_t> const utf8[] = {
      {"\xF0\x9F\x98\x80", true, 0x1F600, 4},
      {"\xC0\x80", true, 0, 2},
      {"\xED\xA0\x80", true, 0xD800, 3},
      {"\xF4\xBF\xBF\xBF", true, 0x13FFFF, 4},
      {"\x80", false, 0, 0},
      {"\xF5\x80\x80\x80", false, 0, 0},
      {"\xC3\x41", false, 0xC0, 1},
      {"\xE2\x82", false, 0x2080, 2}};
  for (auto const & [bytes, ok, cp, advance] : utf8) {
    auto const * p = reinterpret_cast<unsigned char const *>(bytes);
    unsigned char const * cursor = p;
    std::uint32_t decoded = 0xFFFFFFFF;
    bool const result = utf8_qefW32(&decoded, cursor);
    EXPECT_EQ(std::make_tuple(result, decoded, cursor - p), std::make_tuple(ok, cp, advance))
        << testing::PrintToString(bytes);
  }
  // A pair does not combine: 0 when both halves have their ten low bits clear, else 1. DBFF is
  // accepted as a second half, with no upper bound; a high half before a plain unit or a low half
  // first is refused.
  std::tuple<std::u16string, bool, std::uint32_t, std::ptrdiff_t> const wide[] = {
      {std::u16string{0xD83D, 0xDE00}, true, 1, 2}, {std::u16string{0xD800, 0xDC00}, true, 0, 2},
      {std::u16string{0xDBFF, 0xDBFF}, true, 1, 2}, {std::u16string{0xD800, 0xFFFF}, true, 1, 2},
      {std::u16string{0xD800, u'A'}, false, 7, 0},  {std::u16string{0xDC00}, false, 7, 0}};
  for (auto const & [units, ok, cp, advance] : wide) {
    qefWChar const * p = units.c_str();
    std::uint32_t decoded = 7;
    bool const result = qefW_qefW32(&decoded, p);
    EXPECT_EQ(std::make_tuple(result, decoded, p - units.c_str()), std::make_tuple(ok, cp, advance))
        << testing::PrintToString(units);
  }
}

// Sizes must agree with what the encoders write, apart from the quirks noted.
TEST(CodePointEncode, WritesUtf8AndUnpairedWideFormsOfTheSizesAnnounced) {
  // Code point, UTF-8 (null: refused), wide units.
  std::tuple<std::uint32_t, char const *, std::u16string> const rows[] = {
      {0x80, "\xC2\x80", u"\x80"},                      // first two-byte form
      {0x800, "\xE0\xA0\x80", u"\x800"},                // first three-byte form
      {0xD800, "\xED\xA0\x80", std::u16string{0xD800}}, // a surrogate value is encoded
      {0x10000, "\xF0\x90\x80\x80",
       std::u16string{0xD840, 0xDC00}}, // pair without subtracting 0x10000
      {0x10FFFF, "\xF4\x8F\xBF\xBF", std::u16string{0xDC3F, 0xDFFF}}, // U+10FFFF
      {0x110000, nullptr, u""},                                       // above U+10FFFF: refused
  };
  for (auto const & [cp, utf8, wide] : rows) {
    unsigned char bytes[8] = {0};
    unsigned char * b = bytes;
    qefWChar units[4] = {0};
    qefWChar * w = units;
    EXPECT_TRUE(qefW32_utf8(b, cp) == (utf8 != nullptr) && qefW32_qefW(w, cp) == (utf8 != nullptr));
    EXPECT_EQ(Bytes(bytes, b), B(utf8 ? utf8 : "")) << cp;
    EXPECT_EQ(std::u16string(units, w), wide) << cp;
    // 0x110000 is refused, yet its size is given as two units.
    EXPECT_EQ(std::make_pair(UTF8Size(cp), UTF16Size(cp)),
              std::make_pair(std::uint64_t(b - bytes), cp == 0x110000 ? 2 : wide.size()));
  }
}

TEST(CharacterCodecs, ChainDecodeAndEncodeAndWriteNothingOnFailure) {
  unsigned char const smile[] = "\xF0\x9F\x98\x80"; // U+1F600 GRINNING FACE
  unsigned char const * s = smile;
  qefWChar wide[3] = {0};
  qefWChar * w = wide;
  EXPECT_TRUE(utf8_qefW(w, s));
  EXPECT_EQ(std::u16string(wide, w), (std::u16string{0xD87D, 0xDE00}));
  qefWChar const * ws = wide;
  std::uint16_t unit[2] = {7, 7};
  std::uint16_t * u = unit;
  EXPECT_TRUE(qefW_utf16(u, ws)); // the pair becomes the one unit 1
  EXPECT_TRUE(u == unit + 1 && unit[0] == 1);
  unsigned char const tooLarge[] = "\xF4\x90\x80\x80";
  EXPECT_FALSE(utf8_qefW(w = wide, s = tooLarge));
  EXPECT_EQ(w, wide);
}

TEST(CharacterSizes, FollowLeadBytesAndUnitsAndSyncSkipsWhatCannotStart) {
  EXPECT_EQ(UTF16Size(0x110001), 0u);
  EXPECT_EQ(qefWSize(0xFFFFFFFF), 2u); // no upper limit
  for (unsigned lead = 0; lead < 256; ++lead) {
    EXPECT_EQ(UTF8Len(static_cast<unsigned char>(lead)), LeadLength(lead)) << lead;
  }
  std::pair<std::uint16_t, std::uint64_t> const lengths[] = {{0xD7FF, 1}, {0xD800, 2}, {0xDBFF, 2},
                                                             {0xDC00, 0}, {0xDFFF, 0}, {0xE000, 1}};
  for (auto const & [unit, length] : lengths) {
    EXPECT_EQ(UTF16Len(unit), length) << unit;
  }
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
  std::uint32_t const mixed[] = {0xE9, 0x20AC, 0x1F600, 0x110000, 0x42, 0x110001, 0x43, 0};
  // 0x110000 counts two units, 0x110001 stops; in UTF-8 0x110000 stops.
  EXPECT_EQ(UTF32u16strlen(mixed, qefAllOnes), 7u);
  EXPECT_EQ(UTF32u8strlen(mixed, qefAllOnes), 9u);
  std::uint16_t const units[] = {0x41, 0xDC00, 0xD800, 0x42, 0};
  EXPECT_EQ(UTF16wstrlen(units, qefAllOnes), 4u);
  EXPECT_EQ(UTF16wstrlen(units, 3), 3u);
  EXPECT_EQ(UTF16wstrlen(nullptr, qefAllOnes), 0u);
  EXPECT_EQ(UTF8_To_qefWChar(nullptr, qefAllOnes, nullptr, 0), 0u);
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
  // The device prefix is another one.
  EXPECT_TRUE(_isUNCW(u"\\\\?\\C:\\x") && !_isUNCW(u"\\\\.\\pipe") && !_isUNCW(nullptr));
}

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

// Wide text as it stands (the UTF-8 form of `B` is above).
std::u16string B(char16_t const * text) {
  return text;
}

// Text of about `size` units: mostly a run of one kind of character, now and then a piece (only
// the first `clean` pieces when `wellFormed`), often placed just before a multiple of `block`
// units, so that it sits at or across a kernel's block edge.
template <class P, std::size_t R, std::size_t N>
auto Random(std::mt19937 & rng, std::size_t size, bool wellFormed, std::size_t block,
            P const (&runs)[R], P const (&pieces)[N], std::size_t clean) {
  auto const run = B(runs[rng() % R]);
  decltype(B(runs[0])) text;
  while (text.size() < size) {
    if (rng() % 40 != 0) {
      text += rng() % 4 == 0 ? B(runs[0]) : run;
      continue;
    }
    while (rng() % 2 == 0 && text.size() % block < block - run.size()) {
      text += run;
    }
    text += B(pieces[rng() % (wellFormed ? clean : N)]);
  }
  return text;
}

// UTF-8 pieces, among them every malformed kind the decoder distinguishes. Well formed: U+00E9,
// U+4E2D, U+1F600 (a pair), an overlong four-byte form (one unit), a value above U+10FFFF
// (counted, not converted), an encoded surrogate (accepted). Then the overlong zero, stray, cut
// short and never-valid bytes.
constexpr char const * kUtf8Runs[] = {"x", "\xC3\xA9", "\xE6\x96\x87"};
constexpr char const * kUtf8Pieces[] = {
    // well formed
    "a", "plain ascii text ", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80", "\xF0\x80\x80\x80",
    "\xF4\x90\x80\x80", "\xED\xA0\x80",
    // malformed
    "\xC0\x80", "\x80", "\xC3", "\xE4\xB8", "\xF0\x9F\x98", "\xF5", "\xFF"};
// Wide pieces. Well formed: a pair (as the library writes them), one that collapses to U+0000,
// DBFF DBFF (accepted as a pair), units at the edge of a UTF-8 length or just outside the
// surrogates. Then a low half first, a high half alone and a high half before a plain unit.
constexpr char16_t const * kWideRuns[] = {u"x", u"\u00E9", u"\u6587"};
constexpr char16_t const * kWidePieces[] = {
    // well formed, then malformed
    u"\xD87D\xDE00", u"\xD800\xDC00", u"\xDBFF\xDBFF", u"\x7F",   u"\x80",   u"\x7FF",  u"\x800",
    u"\xD7FF",       u"\xE000",       u"\xFFFF",       u"\xDC00", u"\xD800", u"\xD800z"};

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
    if (room < full) { // nothing written
      ASSERT_EQ(r.first, std::make_pair(std::uint64_t{0}, std::vector<D>(room, D(0x5A))));
    } else {
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
      B("\360\200\200\237\360\200\200\200abcdefgh"),
      B("\360\237\230\200\364\217\277\277abcdefgh\303\251\303\251\303\251\303\251"),
      B("\xC3\xA9\xF4\x90\x80\x80")}; // above U+10FFFF after a counted one
  std::mt19937 rng(16);
  for (int round = 0; round < 4400; ++round) {
    texts.push_back(round < 400
                        ? Random(rng, rng() % 700, round % 2 == 0, 64, kUtf8Runs, kUtf8Pieces, 8)
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
        round < 400 ? Random(rng, rng() % 400, round % 2 == 0, 32, kWideRuns, kWidePieces, 10)
                    : Soup(rng, alphabet, round);
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
