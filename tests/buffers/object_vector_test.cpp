#include <gtest/gtest.h>

#include "buffers/test_blocks.h"
#include "support/memory_hooks.h"

using namespace VORX::Buffers;
using vorx::test::TestBlock;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// A vector of distinct blocks holding 0, 1, ... `count - 1`.
static CPOMVector Of(int count) {
  CPOMVector vector;
  for (int v = 0; v < count; ++v) {
    vector.Insert(TestBlock::Make(v), kNone);
  }
  return vector;
}

// The values held ("-" for an empty element), then "/" and the capacity: "0 1 -/16".
static std::string Show(CPOMVector & vector) {
  std::string text;
  for (std::size_t i = 0; i < vector.GetNItems(); ++i) {
    text += (i ? " " : "") + (vector[i] ? std::to_string(TestBlock(vector[i]).value()) : "-");
  }
  return text + "/" + std::to_string(TestBlock(vector).GetAllocSize() / sizeof(CPObjectMemory));
}

TEST(ObjectVector, InsertGrowsSixteenAtATimeAndReserveTestsAgainstTheCount) {
  EXPECT_FALSE(CPOMVector(TestBlock::Make(1))) << "an int block is no vector";
  CPOMVector vector = Of(3);
  ASSERT_TRUE(vector.Insert(TestBlock::Make(7), 1000) && vector.Insert(TestBlock::Make(8), 1));
  EXPECT_EQ(Show(vector), "0 8 1 2 7/16");
  CPOMVector three(3); // full at capacity 3
  ASSERT_TRUE(three.Insert(TestBlock::Make(7), 1));
  EXPECT_EQ(Show(three), "- 7 - -/19") << "growth is linear, not doubling";
  CPObjectMemory const first = vector[0];
  EXPECT_TRUE(vector.Reserve(5) && Show(vector) == "0 8 1 2 7/16");
  ASSERT_TRUE(vector.Reserve(6)) << "beyond the count it reallocates, though 16 would do";
  EXPECT_EQ(Show(vector), "0 8 1 2 7/6");
  EXPECT_EQ(first.lockcnt(), 2u) << "elements move over without extra references";
  // Regression: an element of the vector itself can be inserted while the block must grow.
  CPOMVector full = Of(16);
  ASSERT_TRUE(full.Insert(full[15], 0));
  EXPECT_EQ(Show(full), "15 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15/32");
  EXPECT_EQ(full[0].lockcnt(), 2u);
}

TEST(ObjectVector, ResizeDeleteAndFindKeepTheirRules) {
  TestBlock::calls = {};
  CPOMVector vector = Of(4);
  ASSERT_TRUE(vector.Resize(2) && vector.Resize(5));
  EXPECT_EQ(TestBlock::calls.finalizes, 2);
  EXPECT_EQ(Show(vector), "0 1 - - -/16");
  ASSERT_TRUE(!vector.Delete(5, true) && vector.Delete(1, true));
  EXPECT_EQ(Show(vector), "0 - - -/16");
  CPOMVector one = Of(1);
  ASSERT_TRUE(one.Delete(0, false));
  EXPECT_TRUE(one && one.isEmpty()) << "the empty block is kept";
  // Find searches above `after`, by identity.
  CPObjectMemory const first = vector[0];
  vector.Insert(first, kNone); // [0, -, -, -, 0]
  EXPECT_EQ(vector.Find(first, kNone), 0u);
  EXPECT_EQ(vector.Find(first, 0), 4u) << "element 0 is never seen from 0";
  EXPECT_EQ(vector.Find(TestBlock::Make(0), kNone), kNone) << "equal contents are not the block";
}

TEST(ObjectVector, SortOrdersTheHandlesAndClonesShareEachElement) {
  CPOMVector vector;
  for (int v = 0; v < 10; ++v) {
    vector.Insert(TestBlock::Make(v), 0);
  }
  vector.Sort([](void const * a, void const * b) {
    int const x = TestBlock(*static_cast<CPObjectMemory const *>(a)).value();
    int const y = TestBlock(*static_cast<CPObjectMemory const *>(b)).value();
    return (x > y) - (x < y);
  });
  EXPECT_EQ(Show(vector), "0 1 2 3 4 5 6 7 8 9/16");
  CPOMVector copy = vector;
  ASSERT_TRUE(copy.clone());
  EXPECT_TRUE(copy != vector && copy[0] == vector[0] && vector[0].lockcnt() == 2u);
}

TEST(ObjectVector, AllocationFailureKeepsTheVectorExceptForAlloc) {
  EXPECT_FALSE(CPOMVector().Resize(static_cast<std::size_t>(-1) / 4)) << "a size that overflows";
  CPOMVector full = Of(16);
  CPOMVector shared = full;
  TestBlock const extra = TestBlock::Make(99);
  vorx::test::AllocationFailure failing;
  EXPECT_FALSE(full.Insert(extra, 0) || full.Reserve(40) || full.Resize(40) || shared.clone());
  EXPECT_EQ(full, shared);
  EXPECT_EQ(Show(full), "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15/16");
  EXPECT_EQ(extra.lockcnt(), 1u) << "a failed insert keeps no reference";
  // Alloc releases first: a failed one leaves the handle empty and the old block to `shared`.
  EXPECT_FALSE(full.Alloc(4) || full);
  EXPECT_EQ(shared.lockcnt(), 1u);
}

TEST(TypedObjectVector, KeepsOnePrivateCopyPerClassInTypeOrder) {
  CPTypedObjectVector set;
  TestBlock number = TestBlock::Make(1);
  CPOMVector list = Of(1);
  ASSERT_TRUE(set.Set(list) && set.Set(number) && !set.Set(CPObjectMemory()));
  CPOMVector held = set.GetVector();
  ASSERT_EQ(held.GetNItems(), 2u);
  EXPECT_LT(held[0].GetTypeID(), held[1].GetTypeID());
  // Set replaces the element of the same class with a private copy; Get hands out another.
  number.set(2);
  ASSERT_TRUE(set.Set(number) && set.GetVector().GetNItems() == 2u);
  number.set(5);
  TestBlock(set.Get(number.GetTypeID())).set(3);
  EXPECT_EQ(TestBlock(set.Get(number.GetTypeID())).value(), 2);
  EXPECT_TRUE(set.Delete(number.GetTypeID()) && set.Delete(number.GetTypeID()))
      << "true whether or not one was found";
  EXPECT_TRUE(set.Delete(list.GetTypeID()));
  EXPECT_FALSE(set.GetVector()) << "the block goes with the last element";
}
