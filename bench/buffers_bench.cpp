// Object memory: CRC throughput, sorting, and the cost of sharing a block handle, each beside
// the standard or Boost counterpart.
#include <vorx/buffers.h>

#include <benchmark/benchmark.h>
#include <boost/crc.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kCrcBytes = 1 << 20;
constexpr std::size_t kSortKeys = 1 << 20;

std::vector<unsigned char> const & CrcInput() {
  static std::vector<unsigned char> const data = [] {
    std::vector<unsigned char> bytes(kCrcBytes);
    std::mt19937_64 rng(1);
    for (auto & b : bytes) {
      b = static_cast<unsigned char>(rng());
    }
    return bytes;
  }();
  return data;
}

void BM_CRC64_VORX(benchmark::State & state) {
  auto const & data = CrcInput();
  VORX::Buffers::CMachineCRC const crc(64, 0x42F0E1EBA9EA3693);
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc.Eval(data.data(), data.size(), 0));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_CRC64_VORX);

// The portable path alone (slicing by 8), as on a processor without carry-less multiplication.
void BM_CRC64_VORX_Table(benchmark::State & state) {
  auto const & data = CrcInput();
  VORX::Buffers::CMachineCRC const crc(64, 0x42F0E1EBA9EA3693);
  VORX::_useVectorCode(false);
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc.Eval(data.data(), data.size(), 0));
  }
  VORX::_useVectorCode(true);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_CRC64_VORX_Table);

void BM_CRC64_Boost(benchmark::State & state) {
  auto const & data = CrcInput();
  for (auto _ : state) {
    boost::crc_optimal<64, 0x42F0E1EBA9EA3693, 0, 0, false, false> crc;
    crc.process_bytes(data.data(), data.size());
    benchmark::DoNotOptimize(crc.checksum());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_CRC64_Boost);

std::vector<std::uint64_t> const & SortInput() {
  static std::vector<std::uint64_t> const keys = [] {
    std::vector<std::uint64_t> v(kSortKeys);
    std::mt19937_64 rng(2);
    for (auto & k : v) {
      k = rng();
    }
    return v;
  }();
  return keys;
}

int CompareKeys(void const * a, void const * b) {
  std::uint64_t const x = *static_cast<std::uint64_t const *>(a);
  std::uint64_t const y = *static_cast<std::uint64_t const *>(b);
  return (x > y) - (x < y);
}

// Each iteration sorts a fresh copy of the same random keys; the copy is not timed.
template <class Sorter> void SortBench(benchmark::State & state, Sorter sorter) {
  std::vector<std::uint64_t> keys;
  for (auto _ : state) {
    state.PauseTiming();
    keys = SortInput();
    state.ResumeTiming();
    sorter(keys);
    benchmark::DoNotOptimize(keys.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kSortKeys));
}

void BM_Sort_vfqsort(benchmark::State & state) {
  SortBench(state, [](std::vector<std::uint64_t> & k) {
    VORX::Buffers::Sort::vfqsort(k.data(), k.size(), sizeof(std::uint64_t), &CompareKeys);
  });
}
BENCHMARK(BM_Sort_vfqsort)->Unit(benchmark::kMillisecond);

void BM_Sort_qsort(benchmark::State & state) {
  SortBench(state, [](std::vector<std::uint64_t> & k) {
    std::qsort(k.data(), k.size(), sizeof(std::uint64_t), &CompareKeys);
  });
}
BENCHMARK(BM_Sort_qsort)->Unit(benchmark::kMillisecond);

void BM_Sort_std_sort(benchmark::State & state) {
  SortBench(state, [](std::vector<std::uint64_t> & k) { std::sort(k.begin(), k.end()); });
}
BENCHMARK(BM_Sort_std_sort)->Unit(benchmark::kMillisecond);

// A copy of a handle to a live block and its destruction: one atomic increment and decrement.
void BM_HandleCopyRelease_CPObjectMemory(benchmark::State & state) {
  VORX::Buffers::CPPlainMemory block;
  if (!block.Alloc(64)) {
    state.SkipWithError("allocation failed");
    return;
  }
  VORX::Buffers::CPObjectMemory const & handle = block;
  for (auto _ : state) {
    VORX::Buffers::CPObjectMemory copy(handle);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_HandleCopyRelease_CPObjectMemory);

// Note: libstdc++ counts with plain arithmetic while the process has never started a thread;
// a library that serves threaded hosts must be compared with its atomic counting, so one
// thread is started (and joined) first.
void BM_HandleCopyRelease_shared_ptr(benchmark::State & state) {
  std::thread([] {}).join();
  auto const block = std::make_shared<std::array<unsigned char, 64>>();
  for (auto _ : state) {
    std::shared_ptr<std::array<unsigned char, 64>> copy(block);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_HandleCopyRelease_shared_ptr);

} // namespace
