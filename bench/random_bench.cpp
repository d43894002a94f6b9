// Random numbers: the lock-free process-wide generator from one and two threads against
// `std::mt19937` behind a `std::mutex`; the `CMTRandom` value against an unlocked `std::mt19937`;
// `bitcount64` against `std::popcount`.
#include <vorx/develop.h>

#include <bit>
#include <mutex>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using VORX::Develop::CMTRandom;

std::mutex g_lock;
std::mt19937 g_locked(5489);

void SharedRandom_Draw(benchmark::State & state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(VORX::Develop::_random());
  }
}

void LockedMT19937_Draw(benchmark::State & state) {
  for (auto _ : state) {
    std::uint32_t value;
    {
      std::lock_guard<std::mutex> hold(g_lock);
      value = static_cast<std::uint32_t>(g_locked());
    }
    benchmark::DoNotOptimize(value);
  }
}

void MTRandom_Draw(benchmark::State & state) {
  CMTRandom generator;
  generator.seed(5489);
  for (auto _ : state) {
    benchmark::DoNotOptimize(generator.rnd());
  }
}

void MT19937_Draw(benchmark::State & state) {
  std::mt19937 generator(5489);
  for (auto _ : state) {
    benchmark::DoNotOptimize(generator());
  }
}

std::vector<std::uint64_t> const & Words() {
  static std::vector<std::uint64_t> const words = [] {
    std::vector<std::uint64_t> w(4096);
    std::mt19937_64 source(1);
    for (std::uint64_t & x : w) {
      x = source();
    }
    return w;
  }();
  return words;
}

void BitCount64_4096Words(benchmark::State & state) {
  std::vector<std::uint64_t> const & words = Words();
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (std::uint64_t w : words) {
      sum += VORX::Develop::bitcount64(w);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * words.size()));
}

void Popcount_4096Words(benchmark::State & state) {
  std::vector<std::uint64_t> const & words = Words();
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (std::uint64_t w : words) {
      sum += static_cast<std::uint64_t>(std::popcount(w));
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * words.size()));
}

} // namespace

BENCHMARK(SharedRandom_Draw)->Threads(1)->Threads(2);
BENCHMARK(LockedMT19937_Draw)->Threads(1)->Threads(2);
BENCHMARK(MTRandom_Draw);
BENCHMARK(MT19937_Draw);
BENCHMARK(BitCount64_4096Words);
BENCHMARK(Popcount_4096Words);
