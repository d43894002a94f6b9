// Three-F escaping of 1 MiB of random bytes, encoding (the core into a buffer, and the pooled
// encoder) and decoding (into a new plain block), against Base64 (Boost.Beast) over the same
// bytes. Reports bytes of binary data per second.
#include <vorx/string.h>

#include <boost/beast/core/detail/base64.hpp>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using namespace VORX::String;
namespace base64 = boost::beast::detail::base64;

// 1 MiB: neither a multiple of 3 nor of 7, so both decoders accept the texts.
std::vector<std::uint8_t> const & Data() {
  static std::vector<std::uint8_t> const data = [] {
    std::vector<std::uint8_t> d(1 << 20);
    std::mt19937 source(7);
    for (std::uint8_t & b : d) {
      b = static_cast<std::uint8_t>(source());
    }
    return d;
  }();
  return data;
}

void SetBytes(benchmark::State & state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Data().size()));
}

void ThreeF_Encode(benchmark::State & state) {
  std::vector<qefWChar> text(_3FTextLen(Data().size()) + 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(_3FEncode(text.data(), Data().data(), Data().size()));
    benchmark::ClobberMemory();
  }
  SetBytes(state);
}

// The encoder as a pool submitter: the text written into a new record, measured, hashed and
// looked up (the same text each time, so the record found replaces the new one).
void ThreeF_EncodePooled(benchmark::State & state) {
  for (auto _ : state) {
    CPPoolString const text = C3FEncoder(Data().data(), Data().size());
    benchmark::DoNotOptimize(text.len());
  }
  SetBytes(state);
}

void ThreeF_Decode(benchmark::State & state) {
  std::vector<qefWChar> text(_3FTextLen(Data().size()) + 1);
  _3FEncode(text.data(), Data().data(), Data().size());
  for (auto _ : state) {
    VORX::Buffers::CPPlainMemory const bytes = C3FDecoder(text.data());
    benchmark::DoNotOptimize(bytes.GetMemorySize());
  }
  SetBytes(state);
}

void ThreeFFF_Encode(benchmark::State & state) {
  std::vector<qefWChar> text(_3FFFTextLen(Data().size()) + 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(_3FFFEncode(text.data(), Data().data(), Data().size()));
    benchmark::ClobberMemory();
  }
  SetBytes(state);
}

void ThreeFFF_EncodePooled(benchmark::State & state) {
  for (auto _ : state) {
    CPPoolString const text = C3FFFEncoder(Data().data(), Data().size());
    benchmark::DoNotOptimize(text.len());
  }
  SetBytes(state);
}

void ThreeFFF_Decode(benchmark::State & state) {
  std::vector<qefWChar> text(_3FFFTextLen(Data().size()) + 1);
  _3FFFEncode(text.data(), Data().data(), Data().size());
  for (auto _ : state) {
    VORX::Buffers::CPPlainMemory const bytes = C3FFFDecoder(text.data());
    benchmark::DoNotOptimize(bytes.GetMemorySize());
  }
  SetBytes(state);
}

void Base64_Encode(benchmark::State & state) {
  std::string text(base64::encoded_size(Data().size()), '\0');
  for (auto _ : state) {
    benchmark::DoNotOptimize(base64::encode(text.data(), Data().data(), Data().size()));
    benchmark::ClobberMemory();
  }
  SetBytes(state);
}

void Base64_Decode(benchmark::State & state) {
  std::string text(base64::encoded_size(Data().size()), '\0');
  base64::encode(text.data(), Data().data(), Data().size());
  for (auto _ : state) {
    std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[base64::decoded_size(text.size())]);
    benchmark::DoNotOptimize(base64::decode(bytes.get(), text.data(), text.size()));
  }
  SetBytes(state);
}

} // namespace

BENCHMARK(ThreeF_Encode);
BENCHMARK(ThreeF_EncodePooled);
BENCHMARK(ThreeF_Decode);
BENCHMARK(ThreeFFF_Encode);
BENCHMARK(ThreeFFF_EncodePooled);
BENCHMARK(ThreeFFF_Decode);
BENCHMARK(Base64_Encode);
BENCHMARK(Base64_Decode);
