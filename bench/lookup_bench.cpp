// The hash table against std::unordered_map: finding and inserting items held as handles.
#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <vorx/lookup.h>

namespace {

using VORX::Buffers::CPObjectMemory;
using VORX::Buffers::CPPlainMemory;

// A small derived table: items are int blocks, one item per hash.
class IntTable : public VORX::Lookup::CBaseHashTable {
public:
  IntTable() : CBaseHashTable(10) {}
  using CBaseHashTable::AddItem;
  using CBaseHashTable::FindItem;

protected:
  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    int x = 0;
    int y = 0;
    std::memcpy(&x, static_cast<void const *>(CPPlainMemory(a)), sizeof x);
    std::memcpy(&y, static_cast<void const *>(CPPlainMemory(b)), sizeof y);
    return x < y ? -1 : (x > y ? 1 : 0);
  }
};

struct Items {
  explicit Items(int n) {
    for (int i = 0; i < n; ++i) {
      CPPlainMemory block;
      block.Alloc(sizeof i);
      std::memcpy(static_cast<void *>(block), &i, sizeof i);
      items.push_back(block);
      // A multiplicative hash spreads the keys over all slots.
      hashes.push_back(static_cast<std::uint64_t>(i + 1) * 0x9E3779B97F4A7C15ull);
    }
  }
  std::vector<CPObjectMemory> items;
  std::vector<std::uint64_t> hashes;
};

void HashTable_Find(benchmark::State & state) {
  Items const data(static_cast<int>(state.range(0)));
  IntTable table;
  for (std::size_t i = 0; i < data.items.size(); ++i) {
    table.AddItem(data.hashes[i], data.items[i], VORX::Lookup::eHashKeepEqual);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.FindItem(data.hashes[i], data.items[i]));
    i = i + 1 == data.items.size() ? 0 : i + 1;
  }
}

void UnorderedMap_Find(benchmark::State & state) {
  Items const data(static_cast<int>(state.range(0)));
  std::unordered_map<std::uint64_t, CPObjectMemory> map;
  for (std::size_t i = 0; i < data.items.size(); ++i) {
    map.emplace(data.hashes[i], data.items[i]);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(CPObjectMemory(map.find(data.hashes[i])->second));
    i = i + 1 == data.items.size() ? 0 : i + 1;
  }
}

void HashTable_Insert(benchmark::State & state) {
  Items const data(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    IntTable table;
    for (std::size_t i = 0; i < data.items.size(); ++i) {
      table.AddItem(data.hashes[i], data.items[i], VORX::Lookup::eHashKeepEqual);
    }
    benchmark::DoNotOptimize(table.GetNItems());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void UnorderedMap_Insert(benchmark::State & state) {
  Items const data(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::unordered_map<std::uint64_t, CPObjectMemory> map;
    for (std::size_t i = 0; i < data.items.size(); ++i) {
      map.emplace(data.hashes[i], data.items[i]);
    }
    benchmark::DoNotOptimize(map.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

} // namespace

BENCHMARK(HashTable_Find)->Arg(1000)->Arg(20000);
BENCHMARK(UnorderedMap_Find)->Arg(1000)->Arg(20000);
BENCHMARK(HashTable_Insert)->Arg(1000)->Arg(20000);
BENCHMARK(UnorderedMap_Insert)->Arg(1000)->Arg(20000);
