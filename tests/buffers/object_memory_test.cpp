// Every test here also fails if it leaves a library block behind (support/memory_hooks.h), which
// is how "nothing leaked" is checked after failures and exceptions.
#include <latch>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "buffers/test_blocks.h"
#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::Buffers;
using vorx::test::TestBlock;

TEST(ObjectMemory, TypeQueriesAnswerFromTheClassTableOrNothingWhenEmpty) {
  TestBlock block = TestBlock::Make(1);
  TestBlock empty;
  EXPECT_EQ(empty.hash() + empty.key() + empty.lockcnt() + empty.GetTypeID(), 0u);
  auto const table = reinterpret_cast<std::size_t>(&TestBlock::Table);
  std::size_t ids[3] = {reinterpret_cast<std::size_t>(&TestBlock::NoCloneTable), table, table};
  EXPECT_TRUE(block.GetTypeID() == table && block.IsType(&TestBlock::Table));
  EXPECT_TRUE(block.GetType(ids, 3) == 1u && block.GetType(ids, 0) == 0xFFFFFFFFu)
      << "the first match; a count of 0 finds nothing, even here";
  EXPECT_EQ(block.queryinterface(block, _qefUID{7, 0, 0, {}}), 2u);
  EXPECT_EQ(empty.queryinterface(empty, _qefUID{7, 0, 0, {}}), static_cast<std::size_t>(-1));

  // Bytes and class table, then the answers for the 4-byte block (assignable, n-assignable: the
  // size in use a whole multiple) and for an empty handle.
  using Row = std::tuple<std::size_t, tagCPOVTABL const *, bool, bool, bool>;
  for (auto [bytes, asked, assignable, nAssignable, emptyAnswer] :
       {Row{0, &TestBlock::Table, false, false, false}, // zero bytes: never
        Row{4, nullptr, false, false, false},           // no table: never
        Row{2, &TestBlock::Table, true, true, true},    // 4 is at least 2 and a multiple of 2
        Row{3, &TestBlock::Table, true, false, true},   // at least 3, not a multiple
        Row{4, &TestBlock::NoCloneTable, false, false, true}}) {
    EXPECT_EQ(block.IsAssignable(bytes, asked), assignable) << bytes;
    EXPECT_EQ(block.IsNAssignable(bytes, asked), nAssignable) << bytes;
    EXPECT_EQ(empty.IsAssignable(bytes, asked) && empty.IsNAssignable(bytes, asked), emptyAnswer);
  }
}

TEST(ObjectMemory, CloneCopiesOnlyASharedBlockAndIncallocGrowsOnlyAnUnsharedOne) {
  TestBlock::calls = {};
  TestBlock a;
  ASSERT_TRUE(a.Reserve(64, &TestBlock::Table) && a.SetSize(sizeof(int)));
  a.set(5);
  tagCPOMEMHEADER * const original = a.header();
  EXPECT_TRUE(a.clone() && a.header() == original) << "an unshared block is not copied";
  TestBlock b(a);
  EXPECT_FALSE(a.Incalloc(100)) << "shared";
  EXPECT_TRUE(b.clone() && TestBlock::calls.clones == 1 && a.lockcnt() + b.lockcnt() == 2u);
  EXPECT_EQ(b.GetAllocSize(), sizeof(int)) << "spare capacity is not carried over";
  b.set(10);
  EXPECT_EQ(a.value(), 5);
  EXPECT_FALSE(b.Incalloc(0) || TestBlock().Incalloc(8));
  ASSERT_TRUE(b.Incalloc(100));
  EXPECT_TRUE(b.GetAllocSize() == sizeof(int) + 100 && b.value() == 10);
  EXPECT_TRUE(!b.SetSize(sizeof(int) + 101) && b.SetSize(sizeof(int) + 100));
}

TEST(ObjectMemory, CloneFailuresKeepTheSharedBlockAndShowABox) {
  vorx::test::BoxCapture boxes;
  {
    TestBlock alone;
    TestBlock throwing;
    ASSERT_TRUE(alone.Alloc(8, &TestBlock::NoCloneTable));
    ASSERT_TRUE(throwing.Alloc(8, &TestBlock::ThrowingTable));
    EXPECT_FALSE(alone.clone()) << "refused even when unshared";
    TestBlock sharedThrowing(throwing);
    EXPECT_FALSE(sharedThrowing.clone());
    EXPECT_TRUE(sharedThrowing == throwing);
  } // the throwing finalize still frees its block (the leak check would fail otherwise)
  std::string shown;
  for (auto const & box : boxes.Boxes()) {
    shown += box.caption + ":" + box.text + "\n";
  }
  EXPECT_EQ(shown,
            "Illegal code point reached:CPObjectMemory::clone: Class does not allow cloning\n"
            "Illegal code point reached:CPObjectMemory::Clone exception\n"
            "Illegal code point reached:CPObjectMemory::Free exception\n");
}

TEST(ObjectMemory, AllocationFailureIsAFalseResultWithTheHandleUnchanged) {
  TestBlock a = TestBlock::Make(1);
  TestBlock b(a);
  TestBlock c;
  {
    vorx::test::AllocationFailure failing;
    EXPECT_FALSE(b.clone());
    EXPECT_EQ(b, a) << "the handle keeps the shared block";
    a.free();
    EXPECT_FALSE(b.Incalloc(8)) << "unshared now, but the heap refuses";
    EXPECT_TRUE(b.GetAllocSize() == sizeof(int) && b.value() == 1);
    EXPECT_FALSE(c.Alloc(16, &TestBlock::Table) || c.Reserve(16, &TestBlock::Table) || c);
    EXPECT_EQ(failing.Refused(), 4);
  }
  EXPECT_FALSE(c.Alloc(static_cast<std::size_t>(-8), &TestBlock::Table)) << "a size that wraps";
  EXPECT_FALSE(c.Alloc(8, nullptr) || c.Reserve(8, nullptr));
}

// Copies share one counted block and the last release finalizes; two threads copy and release
// handles to one block at once, and no count is lost or doubled.
TEST(ObjectMemory, CopiesShareOneCountedBlockAndKeepTheCountExactAcrossThreads) {
  TestBlock::calls = {};
  TestBlock shared = TestBlock::Make(1);
  CPObjectMemory b(shared);
  CPObjectMemory c;
  c = b;
  c = c; // itself, then another handle of the same block: no count changes
  c = shared;
  EXPECT_TRUE(shared == b && b == c && shared.lockcnt() == 3u);
  b.free();
  c = CPObjectMemory();
  EXPECT_TRUE(!b && !c && shared.lockcnt() == 1u);
  std::latch start(2);
  auto worker = [&] {
    start.arrive_and_wait();
    for (int i = 0; i < 20000; ++i) {
      CPObjectMemory copy(shared);
      CPObjectMemory another = copy;
    }
  };
  std::thread first(worker);
  std::thread second(worker);
  first.join();
  second.join();
  EXPECT_EQ(shared.lockcnt(), 1u);
  EXPECT_EQ(TestBlock::calls.creates + TestBlock::calls.finalizes, 0);
  shared.free();
  EXPECT_EQ(TestBlock::calls.finalizes, 1);
}
