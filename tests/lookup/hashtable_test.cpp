#include <algorithm>
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
using VORX::Lookup::CBaseHashTable;
using VORX::Lookup::eHashCollision;
using VORX::Lookup::IBaseHashTableEnum;

namespace {

// An item: a plain block holding one int, compared by value.
CPObjectMemory Item(int value) {
  CPPlainMemory block;
  if (block.Alloc(sizeof(int))) {
    std::memcpy(static_cast<void *>(block), &value, sizeof(int));
  }
  return block;
}

int ValueOf(CPObjectMemory const & item) {
  int value = 0;
  std::memcpy(&value, static_cast<void const *>(CPPlainMemory(item)), sizeof(int));
  return value;
}

// Reads block fields the memory layer keeps protected.
struct Peek : CPObjectMemory {
  static VORX::Buffers::tagCPOMEMHEADER * Header(CPObjectMemory const & h) {
    return h.*(&Peek::m_pMH);
  }
  // Capacity in entries of the slot vector `slot` of `table`'s slot array.
  static std::size_t SlotCapacity(CPObjectMemory const & slots, std::size_t slot) {
    auto const * handles = reinterpret_cast<CPObjectMemory const *>(Header(slots) + 1);
    auto * header = Header(handles[slot]);
    return header ? header->sAllocSize / sizeof(VORX::Lookup::HASHENTRY) : 0;
  }
};

// A table of int items that records what the base class asks of it.
class IntTable : public CBaseHashTable {
public:
  explicit IntTable(std::uint32_t k) : CBaseHashTable(k) {}

  using CBaseHashTable::AddItem;
  using CBaseHashTable::DeleteIndex;
  using CBaseHashTable::DeleteItem;
  using CBaseHashTable::DisposeTable;
  using CBaseHashTable::EnumTableBy;
  using CBaseHashTable::FindItem;
  using CBaseHashTable::m_disposeCursor;
  using CBaseHashTable::m_mask;
  using CBaseHashTable::m_slotCount;
  using CBaseHashTable::m_slots;
  using CBaseHashTable::PurgeTable;

  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    ++compares;
    int const x = ValueOf(a);
    int const y = ValueOf(b);
    return x < y ? -1 : (x > y ? 1 : 0);
  }
  bool isDisposable(CPObjectMemory const & item) override {
    int const value = ValueOf(item);
    visited.push_back(value);
    if (onDisposable) {
      onDisposable(value);
    }
    return value < 0;
  }
  void tblfinalize(CPObjectMemory const & item) override { finalized.push_back(ValueOf(item)); }

  CPObjectMemory Add(std::uint64_t hash, int value,
                     eHashCollision mode = VORX::Lookup::eHashKeepEqual) {
    return AddItem(hash, Item(value), mode);
  }

  int compares = 0;
  std::vector<int> visited;
  std::vector<int> finalized;
  void (*onDisposable)(int) = nullptr;
};

using Pair = std::pair<std::uint64_t, int>;

// Collects every entry it is shown; answers `answer` (or false from the `stopAfter`th on).
class Collect final : public IBaseHashTableEnum {
public:
  bool OnEntry(std::uint64_t hash, CPObjectMemory const & item) override {
    seen.emplace_back(hash, ValueOf(item));
    return seen.size() < stopAfter;
  }
  std::vector<Pair> seen;
  std::size_t stopAfter = static_cast<std::size_t>(-1);
};

std::vector<Pair> All(IntTable & table) {
  Collect all;
  table.EnumTableBy(&all, 0, false);
  return all.seen;
}

} // namespace

TEST(HashTable, DirectIndexLengthGivesSlotsAndMaskAndReportsOutOfRange) {
  struct Row {
    std::uint32_t k;
    std::uint64_t slots;
    std::uint64_t mask;
    bool reported;
  };
  static constexpr Row rows[] = {
      {4, 16, 15, false}, {8, 256, 255, false}, {63, 1ull << 63, (1ull << 63) - 1, false},
      {64, 1, 0, false}, // the shift is taken modulo 64: a single slot
      {3, 8, 7, true},    {65, 2, 1, true},     {0, 1, 0, true},
  };
  static_assert(std::size(rows) == 7);
  for (Row const & row : rows) {
    vorx::test::BoxCapture boxes;
    IntTable table(row.k);
    EXPECT_EQ(table.m_slotCount, row.slots) << "k = " << row.k;
    EXPECT_EQ(table.m_mask, row.mask) << "k = " << row.k;
    EXPECT_EQ(table.m_disposeCursor, 0u);
    EXPECT_FALSE(table.m_slots) << "no slot array before the first insertion";
    auto const shown = boxes.Boxes();
    if (row.reported) {
      ASSERT_EQ(shown.size(), 1u) << "k = " << row.k;
      EXPECT_EQ(shown[0].caption, "Runtime assumption failed");
      EXPECT_EQ(shown[0].text,
                "(uDirectIndexLength >= 4) && (uDirectIndexLength <= sizeof(size_t)*8)");
    } else {
      EXPECT_TRUE(shown.empty()) << "k = " << row.k;
    }
  }
}

TEST(HashTable, CollisionModesKeepReplaceOrInsert) {
  // The table holds 10 under hash 5; a second item arrives under hash 5 that compares equal
  // (another block holding 10) or lower (7, so that it meets the stored entry first).
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
    CPObjectMemory const got = table.AddItem(5, arriving, static_cast<eHashCollision>(row.mode));
    std::string const label =
        "mode " + std::to_string(row.mode) + (row.equal ? " equal" : " lower");
    switch (row.returned) {
    case kExisting:
      EXPECT_TRUE(got == existing) << label;
      break;
    case kNew:
      EXPECT_TRUE(got == arriving) << label;
      break;
    case kNull:
      EXPECT_FALSE(got) << label;
      break;
    }
    std::vector<int> values;
    for (Pair const & p : All(table)) {
      values.push_back(p.second);
    }
    EXPECT_EQ(values, row.stored) << label;
    // A replaced item is the new block, not a copy of it.
    if (row.mode == 3 || (row.mode == 1 && row.equal)) {
      EXPECT_TRUE(table.FindItem(5, CPObjectMemory()) == arriving) << label;
      EXPECT_EQ(existing.lockcnt(), 1u) << label << ": the replaced item is released";
    }
  }
}

TEST(HashTable, EntriesOfASlotAreOrderedByHashThenItem) {
  IntTable table(4);
  // Hashes 0x13, 0x03 and 0x23 share slot 3; equal hashes are ordered by value.
  Pair const inserted[] = {{0x23, 5}, {0x03, 9}, {0x13, 4}, {0x03, 1},
                           {0x13, 8}, {0x03, 5}, {0x23, 2}, {0x14, 0}};
  for (Pair const & p : inserted) {
    table.Add(p.first, p.second);
  }
  std::vector<Pair> const expected = {{0x03, 1}, {0x03, 5}, {0x03, 9}, {0x13, 4},
                                      {0x13, 8}, {0x23, 2}, {0x23, 5}, {0x14, 0}};
  EXPECT_EQ(All(table), expected);
  EXPECT_EQ(table.GetNItems(), 8u);

  // By hash: only the entries of that hash, from the first.
  Collect byHash;
  EXPECT_TRUE(table.EnumTableBy(&byHash, 0x13, true));
  EXPECT_EQ(byHash.seen, (std::vector<Pair>{{0x13, 4}, {0x13, 8}}));

  // A null probe finds the first entry of the hash; a probe finds its equal.
  EXPECT_EQ(ValueOf(table.FindItem(0x03, CPObjectMemory())), 1);
  EXPECT_EQ(ValueOf(table.FindItem(0x03, Item(9))), 9);
  EXPECT_FALSE(table.FindItem(0x03, Item(4)));
  EXPECT_FALSE(table.FindItem(0x33, CPObjectMemory()));
}

TEST(HashTable, SingleSlotTableOfLength64HoldsEveryHashInOrder) {
  IntTable table(64);
  std::uint64_t const hashes[] = {~0ull, 0, 1ull << 63, 42};
  for (std::uint64_t hash : hashes) {
    table.Add(hash, 1);
  }
  std::vector<Pair> const expected = {{0, 1}, {42, 1}, {1ull << 63, 1}, {~0ull, 1}};
  EXPECT_EQ(All(table), expected);
}

TEST(HashTable, SlotVectorGrowsSixteenEntriesAtATime) {
  IntTable table(4);
  table.Add(7, 0);
  EXPECT_EQ(Peek::SlotCapacity(table.m_slots, 7), 16u);
  for (int i = 1; i < 16; ++i) {
    table.Add(7 + 16 * i, i);
  }
  EXPECT_EQ(Peek::SlotCapacity(table.m_slots, 7), 16u);
  table.Add(7 + 16 * 16, 16); // the 17th entry
  EXPECT_EQ(Peek::SlotCapacity(table.m_slots, 7), 32u);
  EXPECT_EQ(table.GetNItems(), 17u);
  EXPECT_EQ(Peek::SlotCapacity(table.m_slots, 8), 0u);
}

TEST(HashTable, EnumerationSurvivesACallbackThatChangesTheTable) {
  IntTable table(4);
  for (int i = 0; i < 5; ++i) {
    table.Add(3 + 16 * i, i); // five entries in slot 3
  }
  table.Add(4, 100);
  struct Mutator final : IBaseHashTableEnum {
    bool OnEntry(std::uint64_t hash, CPObjectMemory const & item) override {
      seen.emplace_back(hash, ValueOf(item));
      if (seen.size() == 1) {
        // Delete what is still to come, add to the slot being walked and to the next one.
        EXPECT_TRUE(table->DeleteItem(3 + 16 * 3, CPObjectMemory()));
        table->DeleteIndex(4);
        for (int i = 0; i < 20; ++i) {
          table->Add(3 + 16 * 10 + i, 50 + i);
        }
        table->Add(4, 200);
      }
      return true;
    }
    IntTable * table = nullptr;
    std::vector<Pair> seen;
  } mutator;
  mutator.table = &table;
  EXPECT_TRUE(table.EnumTableBy(&mutator, 0, false));
  std::vector<Pair> const walked = {{3, 0}, {19, 1}, {35, 2}, {51, 3}, {67, 4}, {4, 100}};
  EXPECT_EQ(mutator.seen, walked);
  // The table itself has all the changes.
  EXPECT_EQ(table.GetNItems(), 4u + 20u + 1u);
  EXPECT_FALSE(table.FindItem(51, CPObjectMemory()));
  EXPECT_EQ(ValueOf(table.FindItem(4, CPObjectMemory())), 200);
}

TEST(HashTable, EnumerationStopsOnFalseAndRefusesNullCallbackOrEmptyTable) {
  IntTable table(4);
  Collect collect;
  EXPECT_FALSE(table.EnumTableBy(&collect, 0, false)) << "no slots yet";
  EXPECT_FALSE(table.EnumTableBy(nullptr, 0, false));
  for (int i = 0; i < 6; ++i) {
    table.Add(i, i);
  }
  collect.stopAfter = 3;
  EXPECT_FALSE(table.EnumTableBy(&collect, 0, false));
  EXPECT_EQ(collect.seen.size(), 3u);
  Collect none;
  EXPECT_TRUE(table.EnumTableBy(&none, 12, true)) << "a hash without entries walks nothing";
  EXPECT_TRUE(none.seen.empty());
}

TEST(HashTable, PurgeDropsRejectedEntriesWithoutFinalizing) {
  IntTable table(4);
  Collect collect;
  EXPECT_FALSE(table.PurgeTable(&collect)) << "no slots yet";
  for (int i = 0; i < 40; ++i) {
    table.Add(static_cast<std::uint64_t>(i), i);
  }
  struct OddOnly final : IBaseHashTableEnum {
    bool OnEntry(std::uint64_t, CPObjectMemory const & item) override {
      return ValueOf(item) % 2 != 0;
    }
  } oddOnly;
  EXPECT_TRUE(table.PurgeTable(&oddOnly));
  EXPECT_EQ(table.GetNItems(), 20u);
  EXPECT_TRUE(table.finalized.empty());
  for (Pair const & p : All(table)) {
    EXPECT_EQ(p.second % 2, 1);
  }
  // Slots 0, 2, ... held only even values: they are released.
  EXPECT_EQ(Peek::SlotCapacity(table.m_slots, 0), 0u);
  EXPECT_NE(Peek::SlotCapacity(table.m_slots, 1), 0u);
  EXPECT_FALSE(table.PurgeTable(nullptr));
}

TEST(HashTable, DeleteItemAndDeleteIndexFinalizeWhatTheyRemove) {
  IntTable table(4);
  EXPECT_TRUE(table.DeleteItem(1, CPObjectMemory())) << "true while the table has no slots";
  EXPECT_TRUE(table.DeleteIndex(1));
  table.Add(1, 10);
  table.Add(1, 11);
  table.Add(17, 12); // same slot, other hash
  table.Add(2, 13);
  EXPECT_FALSE(table.DeleteItem(1, Item(99)));
  EXPECT_FALSE(table.DeleteItem(33, CPObjectMemory()));
  EXPECT_TRUE(table.DeleteItem(1, Item(11)));
  EXPECT_EQ(table.finalized, std::vector<int>{11});
  EXPECT_EQ(table.GetNItems(), 3u);

  table.finalized.clear();
  EXPECT_TRUE(table.DeleteIndex(17)) << "the whole slot of 17 goes, hash 1 with it";
  EXPECT_EQ(table.finalized, (std::vector<int>{10, 12}));
  EXPECT_EQ(All(table), (std::vector<Pair>{{2, 13}}));
}

TEST(HashTable, ClearReleasesEverythingWithoutFinalizing) {
  long const before = vorx::test::LiveBlocks();
  {
    IntTable table(6);
    CPObjectMemory const kept = table.Add(9, 1);
    for (int i = 0; i < 100; ++i) {
      table.Add(static_cast<std::uint64_t>(i) * 7, i);
    }
    EXPECT_EQ(kept.lockcnt(), 2u);
    table.ClearTable();
    EXPECT_EQ(table.GetNItems(), 0u);
    EXPECT_EQ(kept.lockcnt(), 1u);
    EXPECT_TRUE(table.finalized.empty());
    table.Add(9, 1); // usable again
    EXPECT_EQ(table.GetNItems(), 1u);
  }
  EXPECT_EQ(vorx::test::LiveBlocks(), before);
}

TEST(HashTable, DisposePassRemovesDisposableItemsFromTheLastEntryOfEachSlot) {
  IntTable table(4);
  EXPECT_TRUE(table.DisposeTable(0)) << "a table without slots is done at once";
  // Negative values are disposable. Slot 1: 1, -2, -3 (ordered by value: -3, -2, 1).
  table.Add(1, 1);
  table.Add(1, -2);
  table.Add(1, -3);
  table.Add(5, -4);
  table.Add(6, 6);
  EXPECT_TRUE(table.DisposeTable(60000));
  EXPECT_EQ(table.visited, (std::vector<int>{1, -2, -3, -4, 6}));
  EXPECT_EQ(table.finalized, (std::vector<int>{-2, -3, -4}));
  EXPECT_EQ(All(table), (std::vector<Pair>{{1, 1}, {6, 6}}));
  EXPECT_EQ(Peek::SlotCapacity(table.m_slots, 5), 0u) << "an emptied slot is released";
  EXPECT_EQ(table.m_disposeCursor, 0u) << "a whole cycle ends where it began";
}

TEST(HashTable, DisposePassOverItsTimeLimitResumesAtTheNextSlot) {
  IntTable table(4);
  table.Add(2, 20);
  table.Add(3, -30);
  table.Add(9, 90);
  // Looking at 20 takes until the millisecond clock has moved on.
  table.onDisposable = [](int value) {
    if (value == 20) {
      std::uint64_t const start = VORX::Core::OS::GetTimeNow();
      while (VORX::Core::OS::GetTimeNow() - start < 2) {
      }
    }
  };
  EXPECT_FALSE(table.DisposeTable(0));
  EXPECT_EQ(table.visited, std::vector<int>{20});
  EXPECT_EQ(table.m_disposeCursor, 3u);
  table.onDisposable = nullptr;
  table.visited.clear();
  EXPECT_TRUE(table.DisposeTable(60000));
  EXPECT_EQ(table.visited, (std::vector<int>{-30, 90, 20})) << "slots 3..15, then 0..2";
  EXPECT_EQ(table.finalized, std::vector<int>{-30});
  EXPECT_EQ(table.m_disposeCursor, 3u);
}

TEST(HashTable, FailedAllocationAddsNothing) {
  IntTable table(4);
  CPObjectMemory const item = Item(1);
  {
    vorx::test::AllocationFailure failure;
    EXPECT_FALSE(table.AddItem(1, item, VORX::Lookup::eHashKeepEqual));
  }
  EXPECT_EQ(table.GetNItems(), 0u);
  table.Add(1, 1);
  {
    vorx::test::AllocationFailure failure;
    for (int i = 1; i < 16; ++i) {
      EXPECT_TRUE(table.AddItem(1 + 16 * i, item, VORX::Lookup::eHashKeepEqual));
    }
    EXPECT_FALSE(table.AddItem(1 + 16 * 16, item, VORX::Lookup::eHashKeepEqual))
        << "the 17th entry needs a bigger slot";
  }
  EXPECT_EQ(table.GetNItems(), 16u);
  EXPECT_EQ(item.lockcnt(), 16u);
}
