#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/lookup.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using VORX::Buffers::CPObjectMemory;
using VORX::Buffers::CPPlainMemory;
using namespace VORX::Lookup;
using Pairs = std::vector<std::pair<std::uint64_t, int>>;

namespace {

// The time limit of the interrupted dispose pass: far beyond what the entries before the slow one
// take, even on a loaded machine, so the pass stops exactly after the slow entry's slot.
constexpr std::uint32_t kPassLimit = 300;

// Items are plain blocks holding one int, ordered by value.
CPObjectMemory Item(int value) {
  CPPlainMemory block;
  block.Alloc(sizeof value);
  *static_cast<int *>(static_cast<void *>(block)) = value;
  return block;
}
int ValueOf(CPObjectMemory const & item) {
  return *static_cast<int const *>(static_cast<void const *>(CPPlainMemory(item)));
}

// Shows each entry to `f(hash, value)`, which answers the callback's result.
template <class F> struct Visit final : IBaseHashTableEnum {
  explicit Visit(F function) : f(function) {}
  bool OnEntry(std::uint64_t h, CPObjectMemory const & i) override { return f(h, ValueOf(i)); }
  F f;
};

// Negative values are disposable; finalized values are recorded.
class IntTable : public CBaseHashTable {
public:
  explicit IntTable(Pairs const & entries = {}, std::uint32_t k = 4) : CBaseHashTable(k) {
    for (auto const & [hash, value] : entries) {
      Add(hash, value);
    }
  }
  using CBaseHashTable::AddItem, CBaseHashTable::DeleteIndex, CBaseHashTable::DeleteItem,
      CBaseHashTable::DisposeTable, CBaseHashTable::EnumTableBy, CBaseHashTable::FindItem,
      CBaseHashTable::PurgeTable, CBaseHashTable::m_mask, CBaseHashTable::m_slotCount;

  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    return ValueOf(a) < ValueOf(b) ? -1 : (ValueOf(a) > ValueOf(b) ? 1 : 0);
  }
  bool isDisposable(CPObjectMemory const & item) override {
    visited.push_back(ValueOf(item));
    using VORX::Core::OS::GetTimeNow; // the slow value takes longer than the pass's time limit
    for (auto t0 = GetTimeNow(); visited.back() == slowValue && GetTimeNow() - t0 <= kPassLimit;) {
      std::this_thread::yield();
    }
    return visited.back() < 0;
  }
  void tblfinalize(CPObjectMemory const & item) override { finalized.push_back(ValueOf(item)); }

  CPObjectMemory Add(std::uint64_t h, int v) { return AddItem(h, Item(v), eHashKeepEqual); }
  // The entries met by a walk (of one hash when `byHash`).
  Pairs Walk(std::uint64_t hash = 0, bool byHash = false) {
    Pairs seen;
    Visit walker([&](std::uint64_t h, int v) { return seen.emplace_back(h, v), true; });
    EnumTableBy(&walker, hash, byHash);
    return seen;
  }
  // Whether an add under a new `hash` succeeds while allocation fails: only when its slot has a
  // block with room.
  bool AddsWithoutMemory(std::uint64_t hash) {
    CPObjectMemory const item = Item(0);
    vorx::test::AllocationFailure failure;
    return static_cast<bool>(AddItem(hash, item, eHashKeepEqual));
  }

  std::vector<int> visited, finalized;
  int slowValue = 0x7FFFFFFF;
};

} // namespace

TEST(HashTable, CollisionModesKeepReplaceOrInsert) {
  // The table holds 10 under hash 5; an item arrives under hash 5 that compares equal (another
  // block holding 10) or lower (7, so that it meets the stored entry first). Mode 7 is outside
  // 0..3. The add answers the existing item (0), the arriving one (1) or null (2). A replaced
  // item that is not released shows as a leak. Mode 2 keeps and mode 3 replaces an item that
  // differs.
  Pairs const a{{5, 10}}, b{{5, 7}, {5, 10}}, c{{5, 7}}; // what hash 5 holds afterwards
  std::tuple<int, bool, int, Pairs> const rows[] = {
      {0, true, 0, a},  {0, false, 1, b}, {1, true, 1, a},  {1, false, 1, b}, {2, true, 0, a},
      {2, false, 0, a}, {3, true, 1, a},  {3, false, 1, c}, {7, true, 2, a},  {7, false, 1, b},
  };
  for (auto const & [mode, equal, returned, stored] : rows) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << (equal ? " equal" : " lower"));
    IntTable table;
    CPObjectMemory const answers[] = {table.Add(5, 10), Item(equal ? 10 : 7), {}};
    EXPECT_TRUE(table.AddItem(5, answers[1], eHashCollision(mode)) == answers[returned]);
    EXPECT_EQ(table.Walk(), stored);
  }
}

TEST(HashTable, EntriesStaySortedByHashThenItemForWalksLookUpsAndRemovals) {
  Visit dropEven([](std::uint64_t, int value) { return value % 2 != 0; });
  EXPECT_TRUE(!IntTable().EnumTableBy(&dropEven, 0, false) && !IntTable().PurgeTable(&dropEven) &&
              IntTable().DeleteItem(1, CPObjectMemory()) && IntTable().DisposeTable(0))
      << "no slots yet: walks and purges fail, deletes and dispose passes succeed";
  // 0x03, 0x13 and 0x23 share slot 3.
  IntTable table({{0x23, 5}, {0x03, 9}, {0x13, 4}, {0x03, 1}, {0x13, 8}, {0x03, 5}, {0x14, 0}});
  EXPECT_EQ(table.Walk(),
            (Pairs{{3, 1}, {3, 5}, {3, 9}, {0x13, 4}, {0x13, 8}, {0x23, 5}, {0x14, 0}}));
  EXPECT_EQ(table.Walk(0x13, true), (Pairs{{0x13, 4}, {0x13, 8}}));
  // A null probe finds the first entry of its hash; a probe finds its equal.
  EXPECT_EQ(ValueOf(table.FindItem(0x03, CPObjectMemory())), 1);
  EXPECT_FALSE(table.FindItem(0x03, Item(4)) || table.FindItem(0x33, CPObjectMemory()));

  EXPECT_TRUE(table.PurgeTable(&dropEven));
  EXPECT_EQ(table.Walk(), (Pairs{{3, 1}, {3, 5}, {3, 9}, {0x23, 5}}));
  EXPECT_TRUE(table.DeleteItem(3, Item(5)));
  table.Add(0x15, 7);
  EXPECT_TRUE(table.DeleteIndex(0x33)) << "the whole slot goes, other hashes with it";
  EXPECT_EQ(table.finalized, (std::vector<int>{5, 1, 9, 5})) << "a purge finalizes nothing";
  EXPECT_EQ(table.Walk(), (Pairs{{0x15, 7}}));
  table.ClearTable();
  EXPECT_TRUE(table.GetNItems() == 0 && table.finalized.size() == 4) << "nothing finalized";
}

TEST(HashTable, SlotsFollowTheDirectIndexLengthAndGrowSixteenEntriesAtATime) {
  // k, slots, mask, reported; a shift of 64 is taken modulo 64: a single slot
  constexpr std::tuple<std::uint32_t, std::uint64_t, std::uint64_t, bool> rows[] = {
      {4, 16, 15, false}, {64, 1, 0, false}, {3, 8, 7, true}, {65, 2, 1, true}};
  for (auto const & [k, slots, mask, reported] : rows) {
    vorx::test::BoxCapture boxes;
    IntTable table({}, k);
    EXPECT_EQ(std::make_pair(table.m_slotCount, table.m_mask), std::make_pair(slots, mask)) << k;
    EXPECT_EQ(boxes.Boxes().size(), reported ? 1u : 0u) << k;
  }
  IntTable table;
  for (int n = 0; n <= 32; ++n) { // n entries in slot 1 so far
    bool const added = table.AddsWithoutMemory(1 + 16 * n);
    EXPECT_EQ(added, n % 16 != 0) << n << ": only a full slot (or none) needs memory";
    if (!added) {
      table.Add(1 + 16 * n, 0);
    }
  }
  EXPECT_EQ(table.GetNItems(), 33u) << "a failed add adds nothing";
  // Each growth moved the entries to a larger block: every item is still held once by the table.
  Pairs const walked = table.Walk();
  ASSERT_EQ(walked.size(), 33u);
  for (auto const & [hash, value] : walked) {
    EXPECT_EQ(table.FindItem(hash, CPObjectMemory()).lockcnt(), 2u) << hash; // the table's and ours
  }
}

TEST(HashTable, EnumerationSurvivesACallbackThatChangesTheTable) {
  IntTable table({{3, 0}, {19, 1}, {35, 2}, {51, 3}, {67, 4}, {4, 100}});
  Pairs seen;
  Visit mutator([&](std::uint64_t hash, int value) {
    seen.emplace_back(hash, value);
    if (seen.size() == 1) { // delete what is to come, add to this slot and the next
      table.DeleteItem(3 + 16 * 3, CPObjectMemory());
      table.DeleteIndex(4);
      for (int i = 0; i < 20; ++i) {
        table.Add(3 + 16 * 10 + i, 50 + i);
      }
      table.Add(4, 200);
    }
    return seen.size() < 6;
  });
  EXPECT_FALSE(table.EnumTableBy(&mutator, 0, false)) << "the callback stopped it at the end";
  EXPECT_EQ(seen, (Pairs{{3, 0}, {19, 1}, {35, 2}, {51, 3}, {67, 4}, {4, 100}}));
  EXPECT_EQ(table.GetNItems(), 4u + 20u + 1u);
}

TEST(HashTable, DisposePassesResumeAtTheSlotAfterTheTimeLimit) {
  IntTable table({{1, 1}, {1, -2}, {1, -3}, {2, 20}, {5, -4}, {9, 90}});
  table.slowValue = 20;
  EXPECT_FALSE(table.DisposeTable(kPassLimit)) << "over the limit after slot 2";
  EXPECT_EQ(table.visited, (std::vector<int>{1, -2, -3, 20})) << "each slot from its last entry";
  EXPECT_TRUE(table.DisposeTable(60000));
  EXPECT_EQ(table.visited, (std::vector<int>{1, -2, -3, 20, -4, 90, 1, 20})); // 3..15, 0..2
  EXPECT_EQ(table.finalized, (std::vector<int>{-2, -3, -4}));
  EXPECT_EQ(table.Walk(), (Pairs{{1, 1}, {2, 20}, {9, 90}}));
  EXPECT_FALSE(table.AddsWithoutMemory(5)) << "an emptied slot is released";
}
