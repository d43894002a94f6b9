// Whole-buffer UTF-8 <-> wide conversion and the string classes built on it, against ICU and
// iconv, on pure ASCII, accented European text and mixed CJK text (all in the Basic Multilingual
// Plane, where the three agree). Reports bytes of UTF-8 processed per second. Every destination
// has room for the worst case (a unit per UTF-8 byte, three bytes per unit), as the string
// classes allocate it.
#include <vorx/string.h>

#include <iconv.h>
#include <string>
#include <unicode/ustring.h>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using VORX::String::qefAllOnes;

enum Sample { kAscii, kAccented, kCjk };

// About 64 KiB of UTF-8 text of each kind, repeating a short passage.
std::string const & Utf8Sample(Sample which) {
  static std::string const samples[3] = {
      [] {
        std::string s;
        while (s.size() < 65536) {
          s +=
              "The quick brown fox jumps over the lazy dog; <element name=\"value\"/> 0123456789\n";
        }
        return s;
      }(),
      [] {
        std::string s;
        while (s.size() < 65536) {
          s +=
              "Fran\xC3\xA7ois a r\xC3\xA9sum\xC3\xA9 l'\xC3\xA9t\xC3\xA9 \xC3\xA0 M\xC3\xBCnchen: "
              "\xC3\xBC"
              "ber die Stra\xC3\x9F"
              "e, ni\xC3\xB1o y se\xC3\xB1or, "
              "Bj\xC3\xB6rk \xC3\xA5r h\xC3\xA4r.\n";
        }
        return s;
      }(),
      [] {
        std::string s;
        while (s.size() < 65536) {
          s += "\xE4\xB8\xAD\xE6\x96\x87 text \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E "
               "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4 <tag id=\"42\"> \xE3\x81\x8B\xE3\x81\xAA "
               "\xE6\xBC\xA2\xE5\xAD\x97 mixed with ASCII.\n";
        }
        return s;
      }(),
  };
  return samples[which];
}

unsigned char const * Bytes(std::string const & s) {
  return reinterpret_cast<unsigned char const *>(s.c_str());
}

std::u16string const & WideSample(Sample which) {
  static std::u16string samples[3];
  std::u16string & wide = samples[which];
  if (wide.empty()) {
    std::string const & utf8 = Utf8Sample(which);
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

void Vorx_Utf8ToWide(benchmark::State & state, Sample which) {
  std::string const & src = Utf8Sample(which);
  std::vector<qefWChar> dst(src.size() + 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        VORX::String::UTF8_To_qefWChar(Bytes(src), qefAllOnes, dst.data(), dst.size()));
    benchmark::ClobberMemory();
  }
  Finish(state, which);
}

void ICU_Utf8ToWide(benchmark::State & state, Sample which) {
  std::string const & src = Utf8Sample(which);
  std::vector<UChar> dst(src.size() + 1);
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    benchmark::DoNotOptimize(u_strFromUTF8(dst.data(), static_cast<int32_t>(dst.size()), &length,
                                           src.c_str(), -1, &error));
    benchmark::ClobberMemory();
  }
  Finish(state, which);
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

void Vorx_WideToUtf8(benchmark::State & state, Sample which) {
  std::u16string const & src = WideSample(which);
  std::vector<unsigned char> dst(3 * src.size() + 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        VORX::String::qefWChar_To_UTF8(src.c_str(), qefAllOnes, dst.data(), dst.size()));
    benchmark::ClobberMemory();
  }
  Finish(state, which);
}

void ICU_WideToUtf8(benchmark::State & state, Sample which) {
  std::u16string const & src = WideSample(which);
  std::vector<char> dst(3 * src.size() + 1);
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    benchmark::DoNotOptimize(u_strToUTF8(dst.data(), static_cast<int32_t>(dst.size()), &length,
                                         src.c_str(), -1, &error));
    benchmark::ClobberMemory();
  }
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

VORX_ENCODING_BENCH(Vorx_Utf8ToWide);
VORX_ENCODING_BENCH(ICU_Utf8ToWide);
VORX_ENCODING_BENCH(Iconv_Utf8ToWide);
VORX_ENCODING_BENCH(Vorx_WideToUtf8);
VORX_ENCODING_BENCH(ICU_WideToUtf8);
VORX_ENCODING_BENCH(Iconv_WideToUtf8);
VORX_ENCODING_BENCH(Vorx_Utf8Count);
VORX_ENCODING_BENCH(Vorx_WideCount);
VORX_ENCODING_BENCH(Vorx_CQEFWCharFromUtf8);
VORX_ENCODING_BENCH(Vorx_CUTF8CharFromWide);

} // namespace
