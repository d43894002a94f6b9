#include <gtest/gtest.h>

#include "buffers/test_blocks.h"
#include "support/memory_hooks.h"

using namespace VORX::Buffers;
using vorx::test::TestBlock;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// A vector of distinct blocks holding `values`.
static CPOMVector Of(std::initializer_list<int> values) {
  CPOMVector vector;
  for (int v : values) {
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

TEST(ObjectVector, SharesOnlyVectorsOfItsElementType) {
  CPOMVector numbers = Of({0, 1});
  EXPECT_EQ(CPOMVector(static_cast<CPObjectMemory const &>(numbers)), numbers);
  EXPECT_FALSE(CPOMVector(TestBlock::Make(1))) << "an int block is no vector";
  EXPECT_FALSE(CPOMVector(std::size_t{0}));
  CPOMVector sized(3);
  EXPECT_EQ(Show(sized), "- - -/3");
  EXPECT_FALSE(sized.isEmpty()) << "empty elements still count";
  std::size_t n = 99;
  EXPECT_EQ(CPOMVector().GetArray(n), nullptr);
  EXPECT_EQ(n, 0u);
}

TEST(ObjectVector, InsertGrowsSixteenAtATimeAndAppendsPastTheEnd) {
  CPOMVector vector = Of({0, 1, 2});
  EXPECT_EQ(Show(vector), "0 1 2/16");
  ASSERT_TRUE(vector.Insert(TestBlock::Make(7), 1000));
  ASSERT_TRUE(vector.Insert(TestBlock::Make(8), 0));
  ASSERT_TRUE(vector.Insert(TestBlock::Make(9), 2));
  EXPECT_EQ(Show(vector), "8 0 9 1 2 7/16");
  CPOMVector three(3); // full at capacity 3
  ASSERT_TRUE(three.Insert(TestBlock::Make(7), 1));
  EXPECT_EQ(Show(three), "- 7 - -/19") << "growth is linear, not doubling";

  // Regression: an element of the vector itself can be inserted while the block must grow.
  CPOMVector full = Of({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
  EXPECT_EQ(Show(full), "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15/16");
  ASSERT_TRUE(full.Insert(full[15], 0));
  EXPECT_EQ(Show(full), "15 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15/32");
  EXPECT_EQ(full[0], full[16]);
  EXPECT_EQ(full[0].lockcnt(), 2u);
}

TEST(ObjectVector, ReserveTestsAgainstTheCountNotTheCapacity) {
  CPOMVector vector = Of({0, 1});
  ASSERT_TRUE(vector.Reserve(10));
  CPObjectMemory const first = vector[0];
  EXPECT_TRUE(vector.Reserve(2));
  EXPECT_EQ(Show(vector), "0 1/10");
  ASSERT_TRUE(vector.Reserve(3)) << "beyond the count it reallocates, though 10 would do";
  EXPECT_EQ(Show(vector), "0 1/3");
  EXPECT_EQ(vector[0], first);
  EXPECT_EQ(first.lockcnt(), 2u) << "elements move over without extra references";
  CPOMVector empty;
  ASSERT_TRUE(empty.Reserve(5));
  EXPECT_EQ(Show(empty), "/5");
}

TEST(ObjectVector, ResizeReleasesOrAddsEmptyElements) {
  TestBlock::Calls() = {};
  CPOMVector vector = Of({0, 1, 2, 3});
  ASSERT_TRUE(vector.Resize(2));
  EXPECT_EQ(TestBlock::Calls().finalizes, 2);
  ASSERT_TRUE(vector.Resize(5));
  EXPECT_EQ(Show(vector), "0 1 - - -/16");
  ASSERT_TRUE(vector.Resize(20));
  EXPECT_EQ(Show(vector), "0 1 - - - - - - - - - - - - - - - - - -/20");
}

TEST(ObjectVector, DeleteShiftsDownAndCanFreeTheBlock) {
  CPOMVector vector = Of({0, 1, 2});
  EXPECT_FALSE(vector.Delete(3, true));
  ASSERT_TRUE(vector.Delete(1, true));
  EXPECT_EQ(Show(vector), "0 2/16");
  CPOMVector one = Of({0});
  ASSERT_TRUE(one.Delete(0, false));
  EXPECT_TRUE(one && one.isEmpty()) << "the empty block is kept";
  one = Of({0});
  ASSERT_TRUE(one.Delete(0, true));
  EXPECT_FALSE(one);
}

TEST(ObjectVector, FindSearchesAboveAfterByIdentity) {
  CPOMVector vector = Of({0, 1, 2});
  CPObjectMemory const first = vector[0];
  vector.Insert(first, kNone); // [0, 1, 2, 0]
  EXPECT_EQ(vector.Find(first, kNone), 0u);
  EXPECT_EQ(vector.Find(first, 0), 3u) << "element 0 is never seen from 0";
  EXPECT_EQ(vector.Find(first, 3), kNone);
  EXPECT_EQ(vector.Find(TestBlock::Make(0), kNone), kNone) << "equal contents are not the block";
  EXPECT_EQ(CPOMVector().Find(first, kNone), kNone);
}

TEST(ObjectVector, SortOrdersTheHandlesAndClonesShareEachElement) {
  CPOMVector vector = Of({5, 3, 9, 1, 7, 2, 8, 6, 4, 0});
  vector.Sort([](void const * a, void const * b) {
    int const x = TestBlock(*static_cast<CPObjectMemory const *>(a)).value();
    int const y = TestBlock(*static_cast<CPObjectMemory const *>(b)).value();
    return (x > y) - (x < y);
  });
  EXPECT_EQ(Show(vector), "0 1 2 3 4 5 6 7 8 9/16");
  CPOMVector().Sort(nullptr); // nothing to do, nothing called

  CPOMVector copy = vector;
  ASSERT_TRUE(copy.clone());
  EXPECT_NE(copy, vector);
  EXPECT_EQ(copy[0], vector[0]);
  EXPECT_EQ(vector[0].lockcnt(), 2u);
  copy.Delete(0, true);
  EXPECT_EQ(vector.GetNItems(), 10u);
}

TEST(ObjectVector, AllocationFailureKeepsTheVectorExceptForAlloc) {
  EXPECT_FALSE(CPOMVector().Resize(static_cast<std::size_t>(-1) / 4)) << "a size that overflows";
  CPOMVector full = Of({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
  CPOMVector shared = full;
  TestBlock const extra = TestBlock::Make(99);
  vorx::test::AllocationFailure failing;
  EXPECT_FALSE(full.Insert(extra, 0));
  EXPECT_FALSE(full.Reserve(40));
  EXPECT_FALSE(full.Resize(40));
  EXPECT_FALSE(shared.clone());
  EXPECT_FALSE(CPOMVector().Insert(extra, 0));
  EXPECT_EQ(full, shared);
  EXPECT_EQ(Show(full), "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15/16");
  EXPECT_EQ(extra.lockcnt(), 1u) << "a failed insert keeps no reference";
  // Alloc releases first: a failed one leaves the handle empty and the old block to `shared`.
  EXPECT_FALSE(full.Alloc(4));
  EXPECT_FALSE(full);
  EXPECT_EQ(shared.lockcnt(), 1u);
}

TEST(TypedObjectVector, KeepsOnePrivateCopyPerClassInTypeOrder) {
  CPTypedObjectVector set;
  EXPECT_FALSE(set.Set(CPObjectMemory()));
  TestBlock number = TestBlock::Make(1);
  CPPlainMemory bytes;
  ASSERT_TRUE(bytes.Alloc(3));
  CPOMVector list = Of({0});
  ASSERT_TRUE(set.Set(list) && set.Set(number) && set.Set(bytes));
  CPOMVector held = set.GetVector();
  ASSERT_EQ(held.GetNItems(), 3u);
  EXPECT_LT(held[0].GetTypeID(), held[1].GetTypeID());
  EXPECT_LT(held[1].GetTypeID(), held[2].GetTypeID());

  // Set replaces the element of the same class with a private copy; Get hands out another.
  number.set(2);
  ASSERT_TRUE(set.Set(number));
  number.set(5);
  EXPECT_EQ(set.GetVector().GetNItems(), 3u);
  TestBlock got = set.Get(number.GetTypeID());
  EXPECT_EQ(got.value(), 2);
  got.set(3);
  EXPECT_EQ(TestBlock(set.Get(number.GetTypeID())).value(), 2);

  EXPECT_TRUE(set.Delete(number.GetTypeID()));
  EXPECT_TRUE(set.Delete(number.GetTypeID())) << "true whether or not one was found";
  EXPECT_FALSE(set.Get(number.GetTypeID()));
  EXPECT_TRUE(set.Delete(bytes.GetTypeID()) && set.Delete(list.GetTypeID()));
  EXPECT_FALSE(set.GetVector()) << "the block goes with the last element";
}
