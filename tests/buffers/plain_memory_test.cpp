#include <cstring>

#include <gtest/gtest.h>

#include "buffers/test_blocks.h"
#include "support/memory_hooks.h"

using namespace VORX::Buffers;
using vorx::test::TestBlock;

// The size in use and the capacity, which the public interface does not show: "4/64".
static std::string Sizes(CPPlainMemory const & memory) {
  return std::to_string(memory.GetMemorySize()) + "/" +
         std::to_string(TestBlock(memory).GetAllocSize());
}

TEST(PlainMemory, SharesOnlyNonEmptyPlainBlocksAndIsMemoryCountsTheHeaderButNotItsFirstByte) {
  CPPlainMemory memory;
  ASSERT_TRUE(memory.Alloc(32));
  EXPECT_EQ(CPPlainMemory(static_cast<CPObjectMemory const &>(memory)), memory);
  CPPlainMemory target = memory;
  target = static_cast<CPObjectMemory const &>(TestBlock::Make(2));
  EXPECT_TRUE(!target && memory.lockcnt() == 1u) << "another class: released and emptied";
  CPPlainMemory none;
  ASSERT_TRUE(none._Reserve(16, &CPPlainMemory::_vtbl));
  EXPECT_FALSE(CPPlainMemory(static_cast<CPObjectMemory const &>(none))) << "a zero-length block";

  auto const * payload = static_cast<unsigned char const *>(static_cast<void const *>(memory));
  auto const * header = reinterpret_cast<unsigned char const *>(TestBlock(memory).header());
  EXPECT_TRUE(!memory.isMemory(header) && memory.isMemory(header + 1));
  EXPECT_TRUE(memory.isMemory(payload + 31) && !memory.isMemory(payload + 32));
  EXPECT_FALSE(CPPlainMemory().isMemory(payload));
}

TEST(PlainMemory, AllocReserveAndResizeKeepTheirSizeRules) {
  CPPlainMemory memory;
  EXPECT_TRUE(memory.Alloc(0) && !memory);
  ASSERT_TRUE(memory.Alloc(4));
  std::memcpy(memory, "abcd", 4);
  // Reserve keeps the bytes and the size; it is a no-op up to the size in use.
  EXPECT_TRUE(memory._Reserve(3, nullptr));
  ASSERT_TRUE(memory._Reserve(64, &CPPlainMemory::_vtbl));
  EXPECT_EQ(Sizes(memory), "4/64");
  // Growing within the capacity and shrinking change the size in place.
  void const * const place = memory;
  EXPECT_TRUE(memory.Resize(40) && memory.Resize(2));
  EXPECT_EQ(static_cast<void const *>(memory), place);
  EXPECT_EQ(Sizes(memory), "2/64");
  // Beyond the capacity: a block of exactly the new size with the bytes in use moved over.
  EXPECT_TRUE(memory.Resize(100));
  EXPECT_EQ(Sizes(memory), "100/100");
  EXPECT_EQ(std::memcmp(memory, "ab", 2), 0);
}

TEST(PlainMemory, FailedReserveAndResizeKeepTheHandleAFailedAllocEmptiesIt) {
  CPPlainMemory memory;
  ASSERT_TRUE(memory.Alloc(4));
  CPPlainMemory shared = memory;
  void const * const place = memory;
  vorx::test::AllocationFailure failing;
  EXPECT_FALSE(memory._Reserve(8, &CPPlainMemory::_vtbl) || memory.Resize(8));
  EXPECT_EQ(static_cast<void const *>(memory), place);
  EXPECT_EQ(Sizes(memory), "4/4");
  // Alloc releases first: the old reference is gone even though the new block is not there.
  EXPECT_FALSE(memory.Alloc(8) || memory);
  EXPECT_EQ(shared.lockcnt(), 1u);
}
