// Whole-buffer UTF-8 <-> wide conversion and the string classes built on it, against ICU and
// iconv, on pure ASCII, accented European text and mixed CJK text (all in the Basic Multilingual
// Plane, where the three agree). Reports bytes of UTF-8 processed per second. The converters
// and ICU run on 64 KiB and 1 MiB, with a destination of exactly the size the null-destination
// query reports or with room for the worst case (a unit per UTF-8 byte, three bytes per unit),
// on zero-terminated text (`srcMax` all ones, ICU length -1) and counted text.
#include <vorx/string.h>

#include <iconv.h>
#include <string>
#include <unicode/ustring.h>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using VORX::String::qefAllOnes;

enum Sample { kAscii, kAccented, kCjk };

// About `size` bytes of UTF-8 text of each kind, repeating a short passage.
std::string MakeSample(Sample which, std::size_t size) {
  static char const * const passages[3] = {
      "The quick brown fox jumps over the lazy dog; <element name=\"value\"/> 0123456789\n",
      "Fran\xC3\xA7ois a r\xC3\xA9sum\xC3\xA9 l'\xC3\xA9t\xC3\xA9 \xC3\xA0 M\xC3\xBCnchen: "
      "\xC3\xBC"
      "ber die Stra\xC3\x9F"
      "e, ni\xC3\xB1o y se\xC3\xB1or, "
      "Bj\xC3\xB6rk \xC3\xA5r h\xC3\xA4r.\n",
      "\xE4\xB8\xAD\xE6\x96\x87 text \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E "
      "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4 <tag id=\"42\"> \xE3\x81\x8B\xE3\x81\xAA "
      "\xE6\xBC\xA2\xE5\xAD\x97 mixed with ASCII.\n",
  };
  std::string s;
  while (s.size() < size) {
    s += passages[which];
  }
  return s;
}

constexpr std::size_t kSmall = 65536;
constexpr std::size_t kLarge = 1 << 20;

std::string const & Utf8Sample(Sample which, std::size_t size = kSmall) {
  static std::string const small[3] = {MakeSample(kAscii, kSmall), MakeSample(kAccented, kSmall),
                                       MakeSample(kCjk, kSmall)};
  static std::string const large[3] = {MakeSample(kAscii, kLarge), MakeSample(kAccented, kLarge),
                                       MakeSample(kCjk, kLarge)};
  return size == kSmall ? small[which] : large[which];
}

unsigned char const * Bytes(std::string const & s) {
  return reinterpret_cast<unsigned char const *>(s.c_str());
}

std::u16string const & WideSample(Sample which, std::size_t size = kSmall) {
  static std::u16string samples[2][3];
  std::u16string & wide = samples[size == kSmall ? 0 : 1][which];
  if (wide.empty()) {
    std::string const & utf8 = Utf8Sample(which, size);
    std::vector<qefWChar> buffer(utf8.size() + 1);
    std::uint64_t const n =
        VORX::String::UTF8_To_qefWChar(Bytes(utf8), qefAllOnes, buffer.data(), buffer.size());
    wide.assign(buffer.data(), n ? n - 1 : 0);
  }
  return wide;
}

void Finish(benchmark::State & state, Sample which) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(Utf8Sample(which).size()));
}

void Iconv_Utf8ToWide(benchmark::State & state, Sample which) {
  std::string const & src = Utf8Sample(which);
  std::vector<char16_t> dst(src.size() + 1);
  iconv_t const cd = iconv_open("UTF-16LE", "UTF-8");
  for (auto _ : state) {
    char * in = const_cast<char *>(src.c_str());
    std::size_t inLeft = src.size() + 1;
    char * out = reinterpret_cast<char *>(dst.data());
    std::size_t outLeft = dst.size() * sizeof(char16_t);
    benchmark::DoNotOptimize(iconv(cd, &in, &inLeft, &out, &outLeft));
    benchmark::ClobberMemory();
  }
  iconv_close(cd);
  Finish(state, which);
}

void Iconv_WideToUtf8(benchmark::State & state, Sample which) {
  std::u16string const & src = WideSample(which);
  std::vector<char> dst(3 * src.size() + 1);
  iconv_t const cd = iconv_open("UTF-8", "UTF-16LE");
  for (auto _ : state) {
    char * in = reinterpret_cast<char *>(const_cast<char16_t *>(src.c_str()));
    std::size_t inLeft = (src.size() + 1) * sizeof(char16_t);
    char * out = dst.data();
    std::size_t outLeft = dst.size();
    benchmark::DoNotOptimize(iconv(cd, &in, &inLeft, &out, &outLeft));
    benchmark::ClobberMemory();
  }
  iconv_close(cd);
  Finish(state, which);
}

// One cell of the converter table: text, size, destination and source form.
struct Cell {
  Sample which;
  std::size_t size;
  bool exact;   // destination of exactly the queried size, else room for the worst case
  bool counted; // `srcMax` is the text's length (ICU: its length), else all ones (ICU: -1)
};

void Utf8ToWideCell(benchmark::State & state, Cell cell, bool icu) {
  std::string const & src = Utf8Sample(cell.which, cell.size);
  std::uint64_t const srcMax = cell.counted ? src.size() : qefAllOnes;
  std::uint64_t const needed = VORX::String::UTF8_To_qefWChar(Bytes(src), srcMax, nullptr, 0);
  std::vector<qefWChar> dst(cell.exact ? needed : src.size() + 1);
  for (auto _ : state) {
    if (icu) {
      UErrorCode error = U_ZERO_ERROR;
      int32_t length = 0;
      benchmark::DoNotOptimize(
          u_strFromUTF8(dst.data(), static_cast<int32_t>(dst.size()), &length, src.c_str(),
                        cell.counted ? static_cast<int32_t>(src.size()) : -1, &error));
    } else {
      benchmark::DoNotOptimize(
          VORX::String::UTF8_To_qefWChar(Bytes(src), srcMax, dst.data(), dst.size()));
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(src.size()));
}

void WideToUtf8Cell(benchmark::State & state, Cell cell, bool icu) {
  std::u16string const & src = WideSample(cell.which, cell.size);
  std::uint64_t const srcMax = cell.counted ? src.size() : qefAllOnes;
  std::uint64_t const needed = VORX::String::qefWChar_To_UTF8(src.c_str(), srcMax, nullptr, 0);
  std::vector<unsigned char> dst(cell.exact ? needed : 3 * src.size() + 1);
  for (auto _ : state) {
    if (icu) {
      UErrorCode error = U_ZERO_ERROR;
      int32_t length = 0;
      benchmark::DoNotOptimize(u_strToUTF8(
          reinterpret_cast<char *>(dst.data()), static_cast<int32_t>(dst.size()), &length,
          src.c_str(), cell.counted ? static_cast<int32_t>(src.size()) : -1, &error));
    } else {
      benchmark::DoNotOptimize(
          VORX::String::qefWChar_To_UTF8(src.c_str(), srcMax, dst.data(), dst.size()));
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(Utf8Sample(cell.which, cell.size).size()));
}

// Names: Convert/<direction>/<text>/<size>/<destination>/<form>/<VORX|ICU>.
[[maybe_unused]] bool const registered = [] {
  char const * const texts[3] = {"ascii", "accented", "cjk"};
  for (int direction = 0; direction < 2; ++direction) {
    for (int which = 0; which < 3; ++which) {
      for (std::size_t size : {kSmall, kLarge}) {
        for (bool exact : {true, false}) {
          for (bool counted : {false, true}) {
            for (bool icu : {false, true}) {
              Cell const cell{static_cast<Sample>(which), size, exact, counted};
              std::string const name =
                  std::string("Convert/") + (direction == 0 ? "Utf8ToWide/" : "WideToUtf8/") +
                  texts[which] + (size == kSmall ? "/64KiB" : "/1MiB") +
                  (exact ? "/exact" : "/worst") + (counted ? "/counted" : "/terminated") +
                  (icu ? "/ICU" : "/VORX");
              benchmark::RegisterBenchmark(
                  name.c_str(), direction == 0 ? Utf8ToWideCell : WideToUtf8Cell, cell, icu);
            }
          }
        }
      }
    }
  }
  return true;
}();

// The counters alone: the first of the two passes of each converter.
void Vorx_Utf8Count(benchmark::State & state, Sample which) {
  std::string const & src = Utf8Sample(which);
  for (auto _ : state) {
    benchmark::DoNotOptimize(VORX::String::UTF8u16strlen(Bytes(src), qefAllOnes));
  }
  Finish(state, which);
}

void Vorx_WideCount(benchmark::State & state, Sample which) {
  std::u16string const & src = WideSample(which);
  for (auto _ : state) {
    benchmark::DoNotOptimize(VORX::String::UTF16u8strlen(src.c_str(), qefAllOnes));
  }
  Finish(state, which);
}

// The classes: the same conversions plus one heap block per object.
void Vorx_CQEFWCharFromUtf8(benchmark::State & state, Sample which) {
  std::string const & src = Utf8Sample(which);
  for (auto _ : state) {
    VORX::String::CQEFWChar const wide(Bytes(src));
    benchmark::DoNotOptimize(*wide);
  }
  Finish(state, which);
}

void Vorx_CUTF8CharFromWide(benchmark::State & state, Sample which) {
  std::u16string const & src = WideSample(which);
  for (auto _ : state) {
    VORX::String::CUTF8Char const utf8(src.c_str());
    benchmark::DoNotOptimize(*utf8);
  }
  Finish(state, which);
}

#define VORX_ENCODING_BENCH(function)                                                              \
  BENCHMARK_CAPTURE(function, ascii, kAscii);                                                      \
  BENCHMARK_CAPTURE(function, accented, kAccented);                                                \
  BENCHMARK_CAPTURE(function, cjk, kCjk)

VORX_ENCODING_BENCH(Iconv_Utf8ToWide);
VORX_ENCODING_BENCH(Iconv_WideToUtf8);
VORX_ENCODING_BENCH(Vorx_Utf8Count);
VORX_ENCODING_BENCH(Vorx_WideCount);
VORX_ENCODING_BENCH(Vorx_CQEFWCharFromUtf8);
VORX_ENCODING_BENCH(Vorx_CUTF8CharFromWide);

} // namespace
