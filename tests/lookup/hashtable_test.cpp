#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/lookup.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using VORX::Buffers::CPObjectMemory;
using VORX::Buffers::CPPlainMemory;
using namespace VORX::Lookup;

namespace {

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

using Pair = std::pair<std::uint64_t, int>;

// Records what it is shown; answers false from the `stopAt`th entry on, or for even values.
struct Collect final : IBaseHashTableEnum {
  bool OnEntry(std::uint64_t hash, CPObjectMemory const & item) override {
    seen.emplace_back(hash, ValueOf(item));
    return dropEven ? ValueOf(item) % 2 != 0 : seen.size() < stopAt;
  }
  std::vector<Pair> seen;
  std::size_t stopAt = ~std::size_t{0};
  bool dropEven = false;
};

// Negative values are disposable; finalized values are recorded.
class IntTable : public CBaseHashTable {
public:
  explicit IntTable(std::uint32_t k) : CBaseHashTable(k) {}
  using CBaseHashTable::AddItem, CBaseHashTable::DeleteIndex, CBaseHashTable::DeleteItem,
      CBaseHashTable::DisposeTable, CBaseHashTable::EnumTableBy, CBaseHashTable::FindItem,
      CBaseHashTable::PurgeTable, CBaseHashTable::m_disposeCursor, CBaseHashTable::m_mask,
      CBaseHashTable::m_slotCount, CBaseHashTable::m_slots;

  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    return ValueOf(a) < ValueOf(b) ? -1 : (ValueOf(a) > ValueOf(b) ? 1 : 0);
  }
  bool isDisposable(CPObjectMemory const & item) override {
    visited.push_back(ValueOf(item));
    if (visited.back() == slowValue) { // takes until the millisecond clock has moved on
      for (auto start = VORX::Core::OS::GetTimeNow(); VORX::Core::OS::GetTimeNow() - start < 2;) {
      }
    }
    return visited.back() < 0;
  }
  void tblfinalize(CPObjectMemory const & item) override { finalized.push_back(ValueOf(item)); }

  CPObjectMemory Add(std::uint64_t hash, int value) {
    return AddItem(hash, Item(value), eHashKeepEqual);
  }
  std::vector<Pair> All() {
    Collect all;
    EnumTableBy(&all, 0, false);
    return all.seen;
  }
  // Capacity in entries of slot `s` (0 for an empty slot).
  std::size_t SlotCapacity(std::size_t s) {
    struct Peek : CPObjectMemory {
      static auto * Header(CPObjectMemory const & h) { return h.*(&Peek::m_pMH); }
    };
    auto const * slots = reinterpret_cast<CPObjectMemory const *>(Peek::Header(m_slots) + 1);
    auto const * header = Peek::Header(slots[s]);
    return header ? header->sAllocSize / sizeof(HASHENTRY) : 0;
  }

  std::vector<int> visited;
  std::vector<int> finalized;
  int slowValue = 0x7FFFFFFF;
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
    vorx::test::BoxCapture boxes;
    IntTable table(row.k);
    EXPECT_EQ(table.m_slotCount, row.slots) << "k = " << row.k;
    EXPECT_EQ(table.m_mask, row.mask) << "k = " << row.k;
    ASSERT_EQ(boxes.Boxes().size(), row.reported ? 1u : 0u) << "k = " << row.k;
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
    IntTable table(4);
    CPObjectMemory const existing = table.Add(5, 10);
    CPObjectMemory const arriving = Item(row.equal ? 10 : 7);
    CPObjectMemory got = table.AddItem(5, arriving, static_cast<eHashCollision>(row.mode));
    std::string const label =
        "mode " + std::to_string(row.mode) + (row.equal ? " equal" : " lower");
    EXPECT_TRUE(row.returned == kExisting ? got == existing
                : row.returned == kNew    ? got == arriving
                                          : !got)
        << label;
    got.free();
    std::vector<int> values;
    for (Pair const & p : table.All()) {
      values.push_back(p.second);
    }
    EXPECT_EQ(values, row.stored) << label;
    bool const replaced = row.mode == 3 || (row.mode == 1 && row.equal);
    EXPECT_EQ(existing.lockcnt(), replaced ? 1u : 2u) << label << ": a replaced item is released";
  }
}

TEST(HashTable, SlotsKeepEntriesOrderedByHashThenItem) {
  IntTable table(4);
  Collect collect;
  EXPECT_FALSE(table.EnumTableBy(&collect, 0, false)) << "no slots yet";
  // 0x03, 0x13 and 0x23 share slot 3.
  for (Pair p : {Pair{0x23, 5}, {0x03, 9}, {0x13, 4}, {0x03, 1}, {0x13, 8}, {0x03, 5}, {0x14, 0}})
    table.Add(p.first, p.second);
  std::vector<Pair> const expected = {{0x03, 1}, {0x03, 5}, {0x03, 9}, {0x13, 4},
                                      {0x13, 8}, {0x23, 5}, {0x14, 0}};
  EXPECT_EQ(table.All(), expected);
  EXPECT_EQ(table.GetNItems(), 7u);
  EXPECT_TRUE(table.EnumTableBy(&collect, 0x13, true));
  EXPECT_EQ(collect.seen, (std::vector<Pair>{{0x13, 4}, {0x13, 8}}));

  Collect stopping;
  stopping.stopAt = 3;
  EXPECT_FALSE(table.EnumTableBy(&stopping, 0, false));
  EXPECT_EQ(stopping.seen.size(), 3u);
  EXPECT_FALSE(table.EnumTableBy(nullptr, 0, false));

  // A null probe finds the first entry of its hash; a probe finds its equal.
  EXPECT_EQ(ValueOf(table.FindItem(0x03, CPObjectMemory())), 1);
  EXPECT_EQ(ValueOf(table.FindItem(0x03, Item(9))), 9);
  EXPECT_FALSE(table.FindItem(0x03, Item(4)));
  EXPECT_FALSE(table.FindItem(0x33, CPObjectMemory()));
}

TEST(HashTable, SlotVectorGrowsSixteenEntriesAtATime) {
  IntTable table(4);
  for (int i = 0; i < 16; ++i) {
    table.Add(7 + 16 * i, i);
  }
  EXPECT_EQ(table.SlotCapacity(7), 16u);
  table.Add(7 + 16 * 16, 16);
  EXPECT_EQ(table.SlotCapacity(7), 32u);
  EXPECT_EQ(table.GetNItems(), 17u);
}

TEST(HashTable, EnumerationSurvivesACallbackThatChangesTheTable) {
  IntTable table(4);
  for (int i = 0; i < 5; ++i) {
    table.Add(3 + 16 * i, i);
  }
  table.Add(4, 100);
  struct Mutator final : IBaseHashTableEnum {
    bool OnEntry(std::uint64_t hash, CPObjectMemory const & item) override {
      seen.emplace_back(hash, ValueOf(item));
      if (seen.size() == 1) { // delete what is to come, add to this slot and the next
        table->DeleteItem(3 + 16 * 3, CPObjectMemory());
        table->DeleteIndex(4);
        for (int i = 0; i < 20; ++i) {
          table->Add(3 + 16 * 10 + i, 50 + i);
        }
        table->Add(4, 200);
      }
      return true;
    }
    IntTable * table;
    std::vector<Pair> seen;
  } mutator;
  mutator.table = &table;
  EXPECT_TRUE(table.EnumTableBy(&mutator, 0, false));
  EXPECT_EQ(mutator.seen,
            (std::vector<Pair>{{3, 0}, {19, 1}, {35, 2}, {51, 3}, {67, 4}, {4, 100}}));
  EXPECT_EQ(table.GetNItems(), 4u + 20u + 1u);
  EXPECT_EQ(ValueOf(table.FindItem(4, CPObjectMemory())), 200);
}

TEST(HashTable, PurgeDeleteAndClearRemoveEntriesFinalizingOnlyOnDelete) {
  IntTable table(4);
  EXPECT_TRUE(table.DeleteItem(1, CPObjectMemory())) << "true while the table has no slots";
  Collect purge;
  purge.dropEven = true;
  EXPECT_FALSE(table.PurgeTable(&purge)) << "no slots yet";
  for (int i = 0; i < 40; ++i) {
    table.Add(static_cast<std::uint64_t>(i), i);
  }
  EXPECT_TRUE(table.PurgeTable(&purge));
  EXPECT_EQ(table.GetNItems(), 20u);
  EXPECT_EQ(table.SlotCapacity(0), 0u) << "slot 0 held only even values";
  EXPECT_TRUE(table.finalized.empty());

  table.Add(17, 18); // slot 1 now: 1, 17, 33 and 18 under hash 17
  EXPECT_FALSE(table.DeleteItem(17, Item(99)));
  EXPECT_TRUE(table.DeleteItem(17, Item(18)));
  EXPECT_EQ(table.finalized, std::vector<int>{18});
  EXPECT_TRUE(table.DeleteIndex(33)) << "the whole slot goes, other hashes with it";
  EXPECT_EQ(table.finalized, (std::vector<int>{18, 1, 17, 33}));
  EXPECT_EQ(table.GetNItems(), 17u);

  CPObjectMemory const kept = table.FindItem(3, CPObjectMemory());
  table.ClearTable();
  EXPECT_EQ(table.GetNItems(), 0u);
  EXPECT_EQ(kept.lockcnt(), 1u);
  EXPECT_EQ(table.finalized.size(), 4u);
}

TEST(HashTable, DisposePassesResumeAtTheSlotAfterTheTimeLimit) {
  IntTable table(4);
  EXPECT_TRUE(table.DisposeTable(0)) << "a table without slots is done at once";
  for (Pair p : {Pair{1, 1}, {1, -2}, {1, -3}, {2, 20}, {5, -4}, {9, 90}})
    table.Add(p.first, p.second);
  table.slowValue = 20;
  EXPECT_FALSE(table.DisposeTable(0)) << "over the limit after slot 2";
  EXPECT_EQ(table.visited, (std::vector<int>{1, -2, -3, 20})) << "each slot from its last entry";
  EXPECT_EQ(table.m_disposeCursor, 3u);
  table.visited.clear();
  table.slowValue = 0x7FFFFFFF;
  EXPECT_TRUE(table.DisposeTable(60000));
  EXPECT_EQ(table.visited, (std::vector<int>{-4, 90, 1, 20})) << "slots 3..15, then 0..2";
  EXPECT_EQ(table.finalized, (std::vector<int>{-2, -3, -4}));
  EXPECT_EQ(table.All(), (std::vector<Pair>{{1, 1}, {2, 20}, {9, 90}}));
  EXPECT_EQ(table.SlotCapacity(5), 0u) << "an emptied slot is released";
}

TEST(HashTable, FailedAllocationAddsNothing) {
  IntTable table(4);
  CPObjectMemory const item = Item(1);
  for (int i = 0; i < 16; ++i) {
    table.AddItem(1 + 16 * i, item, eHashKeepEqual);
  }
  vorx::test::AllocationFailure failure;
  EXPECT_FALSE(table.AddItem(2, item, eHashKeepEqual)) << "a new slot";
  EXPECT_FALSE(table.AddItem(1 + 16 * 16, item, eHashKeepEqual)) << "a bigger slot";
  EXPECT_EQ(table.GetNItems(), 16u);
  EXPECT_EQ(item.lockcnt(), 17u);
}
