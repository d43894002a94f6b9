#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/lookup.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using VORX::Buffers::CPObjectMemory;
using VORX::Buffers::CPPlainMemory;
using namespace VORX::Lookup;
using Pair = std::pair<std::uint64_t, int>;
using Pairs = std::vector<Pair>;

namespace {

// The time limit of the interrupted dispose pass: far beyond what the entries before the slow one
// take, even on a loaded machine, so the pass stops exactly after the slow entry's slot.
constexpr std::uint32_t kPassLimit = 300;

// Items are plain blocks holding one int, ordered by value.
CPObjectMemory Item(int value) {
  CPPlainMemory block;
  block.Alloc(sizeof value);
  std::memcpy(static_cast<void *>(block), &value, sizeof value);
  return block;
}
int ValueOf(CPObjectMemory const & item) {
  int value = 0;
  std::memcpy(&value, static_cast<void const *>(CPPlainMemory(item)), sizeof value);
  return value;
}

// Shows each entry to `f(hash, value)`, which answers the callback's result.
template <class F> struct Visit final : IBaseHashTableEnum {
  explicit Visit(F function) : f(function) {}
  bool OnEntry(std::uint64_t hash, CPObjectMemory const & item) override {
    return f(hash, ValueOf(item));
  }
  F f;
};

// Negative values are disposable; finalized values are recorded.
class IntTable : public CBaseHashTable {
public:
  explicit IntTable(std::uint32_t k) : CBaseHashTable(k) {}
  using CBaseHashTable::AddItem, CBaseHashTable::DeleteIndex, CBaseHashTable::DeleteItem,
      CBaseHashTable::DisposeTable, CBaseHashTable::EnumTableBy, CBaseHashTable::FindItem,
      CBaseHashTable::PurgeTable, CBaseHashTable::m_disposeCursor, CBaseHashTable::m_mask,
      CBaseHashTable::m_slotCount;

  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    return ValueOf(a) < ValueOf(b) ? -1 : (ValueOf(a) > ValueOf(b) ? 1 : 0);
  }
  bool isDisposable(CPObjectMemory const & item) override {
    visited.push_back(ValueOf(item));
    if (visited.back() == slowValue) { // takes longer than the pass's time limit
      for (auto start = VORX::Core::OS::GetTimeNow();
           VORX::Core::OS::GetTimeNow() - start <= kPassLimit;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
    return visited.back() < 0;
  }
  void tblfinalize(CPObjectMemory const & item) override { finalized.push_back(ValueOf(item)); }

  CPObjectMemory Add(std::uint64_t hash, int value) {
    return AddItem(hash, Item(value), eHashKeepEqual);
  }
  // The entries met by a walk (of one hash when `byHash`) that stops after `limit` of them.
  Pairs Walk(std::uint64_t hash = 0, bool byHash = false, std::size_t limit = ~std::size_t{0}) {
    Pairs seen;
    Visit walker(
        [&](std::uint64_t h, int v) { return seen.emplace_back(h, v), seen.size() < limit; });
    walked = EnumTableBy(&walker, hash, byHash);
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
  bool walked = false;
};

} // namespace

TEST(HashTable, DirectIndexLengthGivesSlotsAndMaskAndReportsOutOfRange) {
  struct Row {
    std::uint32_t k;
    std::uint64_t slots, mask;
    bool reported;
  };
  static constexpr Row rows[] = {
      {4, 16, 15, false}, {8, 256, 255, false},
      {64, 1, 0, false}, // the shift is taken modulo 64: a single slot
      {3, 8, 7, true},    {65, 2, 1, true},
      {0, 1, 0, true},
  };
  static_assert(std::size(rows) == 6);
  for (Row const & row : rows) {
    SCOPED_TRACE(row.k);
    vorx::test::BoxCapture boxes;
    IntTable table(row.k);
    EXPECT_EQ(table.m_slotCount, row.slots);
    EXPECT_EQ(table.m_mask, row.mask);
    ASSERT_EQ(boxes.Boxes().size(), row.reported ? 1u : 0u);
    if (row.reported) {
      EXPECT_EQ(boxes.Boxes()[0].caption, "Runtime assumption failed");
      EXPECT_EQ(boxes.Boxes()[0].text,
                "(uDirectIndexLength >= 4) && (uDirectIndexLength <= sizeof(size_t)*8)");
    }
  }
}

TEST(HashTable, CollisionModesKeepReplaceOrInsert) {
  // The table holds 10 under hash 5; an item arrives under hash 5 that compares equal (another
  // block holding 10) or lower (7, so that it meets the stored entry first).
  enum Returned { kExisting, kNew, kNull };
  struct Row {
    int mode;
    bool equal;
    Returned returned;
    std::vector<int> stored; // values under hash 5 afterwards, in order
  };
  std::vector<Row> const rows = {
      {0, true, kExisting, {10}}, {0, false, kNew, {7, 10}},
      {1, true, kNew, {10}},      {1, false, kNew, {7, 10}},
      {2, true, kExisting, {10}}, {2, false, kExisting, {10}}, // kept although different
      {3, true, kNew, {10}},      {3, false, kNew, {7}},       // replaced although different
      {7, true, kNull, {10}},     {7, false, kNew, {7, 10}},   // outside 0..3
  };
  for (Row const & row : rows) {
    SCOPED_TRACE(testing::Message() << "mode " << row.mode << (row.equal ? " equal" : " lower"));
    IntTable table(4);
    CPObjectMemory const existing = table.Add(5, 10);
    CPObjectMemory const arriving = Item(row.equal ? 10 : 7);
    CPObjectMemory got = table.AddItem(5, arriving, static_cast<eHashCollision>(row.mode));
    EXPECT_TRUE(row.returned == kExisting ? got == existing
                : row.returned == kNew    ? got == arriving
                                          : !got);
    got.free();
    std::vector<int> values;
    for (Pair const & p : table.Walk()) {
      values.push_back(p.second);
    }
    EXPECT_EQ(values, row.stored);
    bool const replaced = row.mode == 3 || (row.mode == 1 && row.equal);
    EXPECT_EQ(existing.lockcnt(), replaced ? 1u : 2u) << "a replaced item is released";
  }
}

TEST(HashTable, EntriesStaySortedByHashThenItemForWalksLookUpsAndRemovals) {
  IntTable table(4);
  Visit dropEven([](std::uint64_t, int value) { return value % 2 != 0; });
  EXPECT_TRUE(table.Walk().empty() && !table.walked) << "no slots yet";
  EXPECT_FALSE(table.PurgeTable(&dropEven)) << "no slots yet";
  EXPECT_TRUE(table.DeleteItem(1, CPObjectMemory())) << "true while the table has no slots";
  // 0x03, 0x13 and 0x23 share slot 3.
  for (Pair p : {Pair{0x23, 5}, {0x03, 9}, {0x13, 4}, {0x03, 1}, {0x13, 8}, {0x03, 5}, {0x14, 0}})
    table.Add(p.first, p.second);
  EXPECT_EQ(table.Walk(),
            (Pairs{{3, 1}, {3, 5}, {3, 9}, {0x13, 4}, {0x13, 8}, {0x23, 5}, {0x14, 0}}));
  EXPECT_TRUE(table.walked);
  EXPECT_EQ(table.Walk(0x13, true), (Pairs{{0x13, 4}, {0x13, 8}}));
  EXPECT_TRUE(table.walked);
  EXPECT_EQ(table.Walk(0, false, 3).size(), 3u);
  EXPECT_FALSE(table.walked) << "the callback stopped it";
  EXPECT_FALSE(table.EnumTableBy(nullptr, 0, false));
  // A null probe finds the first entry of its hash; a probe finds its equal.
  EXPECT_EQ(ValueOf(table.FindItem(0x03, CPObjectMemory())), 1);
  EXPECT_EQ(ValueOf(table.FindItem(0x03, Item(9))), 9);
  EXPECT_FALSE(table.FindItem(0x03, Item(4)));
  EXPECT_FALSE(table.FindItem(0x33, CPObjectMemory()));

  EXPECT_TRUE(table.PurgeTable(&dropEven));
  EXPECT_EQ(table.Walk(), (Pairs{{3, 1}, {3, 5}, {3, 9}, {0x23, 5}}));
  EXPECT_FALSE(table.AddsWithoutMemory(4)) << "slot 4 held only even values: released";
  EXPECT_TRUE(table.finalized.empty()) << "a purge finalizes nothing";
  EXPECT_FALSE(table.DeleteItem(3, Item(99)));
  EXPECT_TRUE(table.DeleteItem(3, Item(5)));
  EXPECT_EQ(table.finalized, std::vector<int>{5});
  CPObjectMemory const kept = table.Add(0x15, 7);
  EXPECT_TRUE(table.DeleteIndex(0x33)) << "the whole slot goes, other hashes with it";
  EXPECT_EQ(table.finalized, (std::vector<int>{5, 1, 9, 5}));
  EXPECT_EQ(table.Walk(), (Pairs{{0x15, 7}}));
  table.ClearTable();
  EXPECT_EQ(table.GetNItems(), 0u);
  EXPECT_EQ(kept.lockcnt(), 1u);
  EXPECT_EQ(table.finalized.size(), 4u) << "a clear finalizes nothing";
}

TEST(HashTable, SlotGrowsSixteenEntriesAtATimeAndAFailedAllocationAddsNothing) {
  IntTable table(4);
  CPObjectMemory const item = Item(1);
  for (int n = 0; n <= 32; ++n) { // n entries in slot 1 so far
    bool added = false;
    {
      vorx::test::AllocationFailure failure;
      added = static_cast<bool>(table.AddItem(1 + 16 * n, item, eHashKeepEqual));
    }
    EXPECT_EQ(added, n % 16 != 0) << n << ": only a full slot (or none) needs memory";
    if (!added) {
      table.AddItem(1 + 16 * n, item, eHashKeepEqual);
    }
  }
  EXPECT_FALSE(table.AddsWithoutMemory(2)) << "a new slot needs memory";
  EXPECT_EQ(table.GetNItems(), 33u);
  EXPECT_EQ(item.lockcnt(), 34u) << "a failed add holds nothing";
}

TEST(HashTable, EnumerationSurvivesACallbackThatChangesTheTable) {
  IntTable table(4);
  for (int i = 0; i < 5; ++i) {
    table.Add(3 + 16 * i, i);
  }
  table.Add(4, 100);
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
    return true;
  });
  EXPECT_TRUE(table.EnumTableBy(&mutator, 0, false));
  EXPECT_EQ(seen, (Pairs{{3, 0}, {19, 1}, {35, 2}, {51, 3}, {67, 4}, {4, 100}}));
  EXPECT_EQ(table.GetNItems(), 4u + 20u + 1u);
  EXPECT_EQ(ValueOf(table.FindItem(4, CPObjectMemory())), 200);
}

TEST(HashTable, DisposePassesResumeAtTheSlotAfterTheTimeLimit) {
  IntTable table(4);
  EXPECT_TRUE(table.DisposeTable(0)) << "a table without slots is done at once";
  for (Pair p : {Pair{1, 1}, {1, -2}, {1, -3}, {2, 20}, {5, -4}, {9, 90}})
    table.Add(p.first, p.second);
  table.slowValue = 20;
  EXPECT_FALSE(table.DisposeTable(kPassLimit)) << "over the limit after slot 2";
  EXPECT_EQ(table.visited, (std::vector<int>{1, -2, -3, 20})) << "each slot from its last entry";
  EXPECT_EQ(table.m_disposeCursor, 3u);
  table.visited.clear();
  table.slowValue = 0x7FFFFFFF;
  EXPECT_TRUE(table.DisposeTable(60000));
  EXPECT_EQ(table.visited, (std::vector<int>{-4, 90, 1, 20})) << "slots 3..15, then 0..2";
  EXPECT_EQ(table.finalized, (std::vector<int>{-2, -3, -4}));
  EXPECT_EQ(table.Walk(), (Pairs{{1, 1}, {2, 20}, {9, 90}}));
  EXPECT_FALSE(table.AddsWithoutMemory(5)) << "an emptied slot is released";
}
