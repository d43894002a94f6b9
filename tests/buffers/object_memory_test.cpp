// Every test here also fails if it leaves a library block behind (support/memory_hooks.h), which
// is how "nothing leaked" is checked after failures and exceptions.
#include <sys/mman.h>

#include <latch>
#include <thread>

#include <gtest/gtest.h>

#include "buffers/test_blocks.h"
#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::Buffers;
using vorx::test::TestBlock;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

TEST(ObjectMemory, CopiesShareOneCountedBlockAndTheLastReleaseFinalizes) {
  TestBlock::Calls() = {};
  {
    TestBlock a = TestBlock::Make(42);
    CPObjectMemory b(a);
    CPObjectMemory c;
    c = b;
    c = c; // itself, then another handle of the same block: no count changes
    c = a;
    EXPECT_TRUE(a == b && b == c);
    EXPECT_EQ(a.lockcnt(), 3u);
    b.free();
    c = CPObjectMemory();
    EXPECT_FALSE(b || c);
    EXPECT_EQ(a.lockcnt(), 1u);
    EXPECT_EQ(TestBlock::Calls().creates + TestBlock::Calls().finalizes, 0);
  }
  EXPECT_EQ(TestBlock::Calls().finalizes, 1);
}

TEST(ObjectMemory, HashIsNeverZeroForALiveBlock) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "ThreadSanitizer owns the address range this needs";
#endif
  // A header at an address whose halves cancel hashes to 1, never 0.
  void * const fixed = reinterpret_cast<void *>(0x200000002000ull);
  void * const page = mmap(fixed, 4096, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (page != fixed) {
    if (page != MAP_FAILED) {
      munmap(page, 4096);
    }
    GTEST_SKIP() << "cannot map the test page here";
  }
  auto * header = static_cast<tagCPOMEMHEADER *>(page);
  *header = {0, 0, 0, &TestBlock::Table}; // permanent, so the handle never frees it
  TestBlock cancelling;
  cancelling.adopt(header);
  EXPECT_EQ(cancelling.hash(), 1u);
  cancelling.forget();
  munmap(page, 4096);
}

TEST(ObjectMemory, QueriesAnswerFromTheHeaderOrZeroWhenEmpty) {
  TestBlock block = TestBlock::Make(1);
  TestBlock empty;
  auto const address = reinterpret_cast<std::uint64_t>(block.header());
  auto const folded = static_cast<std::uint32_t>((address >> 32) ^ address);
  EXPECT_EQ(block.hash(), folded ? folded : 1u);
  EXPECT_EQ(block.key(), address >> 3);
  EXPECT_EQ(empty.hash() + empty.key() + empty.lockcnt(), 0u);
  EXPECT_EQ(empty.get_ptr(), nullptr);
  EXPECT_TRUE(empty.clone());
  auto const table = reinterpret_cast<std::size_t>(&TestBlock::Table);
  std::size_t ids[3] = {reinterpret_cast<std::size_t>(&TestBlock::NoCloneTable), table, table};
  EXPECT_EQ(block.GetTypeID(), table);
  EXPECT_EQ(empty.GetTypeID(), 0u);
  EXPECT_TRUE(block.IsType(&TestBlock::Table));
  EXPECT_FALSE(block.IsType(&TestBlock::NoCloneTable));
  EXPECT_FALSE(empty.IsType(nullptr));
  EXPECT_EQ(block.GetType(ids, 3), 1u);
  EXPECT_EQ(block.GetType(ids, 1), 0xFFFFFFFFu);
  EXPECT_EQ(block.GetType(ids, 0), 0xFFFFFFFFu) << "a count of 0 finds nothing, even here";
  EXPECT_EQ(empty.GetType(ids, 3), 0xFFFFFFFFu);
  EXPECT_EQ(block.queryinterface(block, _qefUID{7, 0, 0, {}}), 2u);
  EXPECT_EQ(block.queryinterface(block, _qefUID{8, 0, 0, {}}), kNone);
  EXPECT_EQ(empty.queryinterface(empty, _qefUID{7, 0, 0, {}}), kNone);

  struct Row {
    std::size_t bytes;
    VORX::Buffers::tagCPOVTABL const * table;
    bool assignable, nAssignable; // for the 4-byte block
    bool emptyAnswer;             // for an empty handle
  } const rows[] = {
      {0, &TestBlock::Table, false, false, false}, // zero bytes: never
      {4, nullptr, false, false, false},           // no table: never
      {4, &TestBlock::Table, true, true, true},
      {2, &TestBlock::Table, true, true, true},   // 4 is at least 2 and a multiple of 2
      {3, &TestBlock::Table, true, false, true},  // at least 3, not a multiple
      {8, &TestBlock::Table, false, false, true}, // too small, not a multiple
      {4, &TestBlock::NoCloneTable, false, false, true},
  };
  for (Row const & row : rows) {
    SCOPED_TRACE(row.bytes);
    EXPECT_EQ(block.IsAssignable(row.bytes, row.table), row.assignable);
    EXPECT_EQ(block.IsNAssignable(row.bytes, row.table), row.nAssignable);
    EXPECT_EQ(empty.IsAssignable(row.bytes, row.table), row.emptyAnswer);
    EXPECT_EQ(empty.IsNAssignable(row.bytes, row.table), row.emptyAnswer);
  }
}

TEST(ObjectMemory, PermanentBlocksAreSharedWithoutCounting) {
  alignas(8) static unsigned char storage[sizeof(tagCPOMEMHEADER) + sizeof(int)];
  auto * header = reinterpret_cast<tagCPOMEMHEADER *>(storage);
  *header = {0, sizeof(int), sizeof(int), &TestBlock::Table};
  TestBlock::Calls() = {};
  TestBlock permanent;
  permanent.adopt(header);
  {
    std::vector<CPObjectMemory> copies(100, permanent);
    EXPECT_TRUE(copies[99] == permanent);
  }
  EXPECT_EQ(header->lRefCnt, 0u);
  permanent.free(); // releasing never frees (the storage is static)
  EXPECT_EQ(TestBlock::Calls().finalizes, 0);
}

TEST(ObjectMemory, CloneCopiesOnlyASharedBlock) {
  TestBlock::Calls() = {};
  TestBlock a = TestBlock::Make(5);
  tagCPOMEMHEADER * const original = a.header();
  EXPECT_TRUE(a.clone());
  EXPECT_EQ(a.header(), original) << "an unshared block is not copied";
  EXPECT_EQ(TestBlock::Calls().clones, 0);

  ASSERT_TRUE(a.Reserve(64, &TestBlock::Table));
  ASSERT_TRUE(a.SetSize(sizeof(int)));
  a.set(9);
  TestBlock b(a);
  EXPECT_TRUE(b.clone());
  EXPECT_EQ(TestBlock::Calls().clones, 1);
  EXPECT_EQ(a.lockcnt() + b.lockcnt(), 2u);
  EXPECT_EQ(b.GetAllocSize(), sizeof(int)) << "spare capacity is not carried over";
  b.set(10);
  EXPECT_EQ(a.value(), 9);
}

TEST(ObjectMemory, CloneFailuresKeepTheSharedBlockAndShowABox) {
  vorx::test::BoxCapture boxes;
  {
    TestBlock alone;
    TestBlock throwing;
    ASSERT_TRUE(alone.Alloc(8, &TestBlock::NoCloneTable));
    ASSERT_TRUE(throwing.Alloc(8, &TestBlock::ThrowingTable));
    EXPECT_FALSE(alone.clone()) << "refused even when unshared";
    TestBlock shared(alone);
    TestBlock sharedThrowing(throwing);
    EXPECT_FALSE(shared.clone());
    EXPECT_FALSE(sharedThrowing.clone());
    EXPECT_TRUE(shared == alone && sharedThrowing == throwing);
  } // the throwing finalize still frees its block (the leak check would fail otherwise)
  std::string shown;
  for (auto const & box : boxes.Boxes()) {
    shown += box.caption + ":" + box.text + "\n";
  }
  EXPECT_EQ(shown,
            "Illegal code point reached:CPObjectMemory::clone: Class does not allow cloning\n"
            "Illegal code point reached:CPObjectMemory::clone: Class does not allow cloning\n"
            "Illegal code point reached:CPObjectMemory::Clone exception\n"
            "Illegal code point reached:CPObjectMemory::Free exception\n");
}

TEST(ObjectMemory, IncallocGrowsOnlyAnUnsharedBlockAndSetSizeStaysWithinIt) {
  TestBlock a = TestBlock::Make(3);
  TestBlock b(a);
  EXPECT_FALSE(a.Incalloc(100));
  EXPECT_EQ(a.GetAllocSize(), sizeof(int));
  EXPECT_EQ(a, b);
  b.free();
  EXPECT_FALSE(a.Incalloc(0));
  EXPECT_FALSE(TestBlock().Incalloc(8));
  ASSERT_TRUE(a.Incalloc(100));
  EXPECT_EQ(a.GetAllocSize(), sizeof(int) + 100);
  EXPECT_EQ(a.GetSize(), sizeof(int));
  EXPECT_EQ(a.value(), 3);

  EXPECT_FALSE(a.SetSize(sizeof(int) + 101));
  EXPECT_TRUE(a.SetSize(sizeof(int) + 100));
  EXPECT_FALSE(TestBlock().SetSize(0));
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
    EXPECT_EQ(b.GetAllocSize(), sizeof(int));
    EXPECT_EQ(b.value(), 1);
    EXPECT_FALSE(c.Alloc(16, &TestBlock::Table));
    EXPECT_FALSE(c.Reserve(16, &TestBlock::Table));
    EXPECT_FALSE(c);
    EXPECT_EQ(failing.Refused(), 4);
  }
  EXPECT_FALSE(c.Alloc(static_cast<std::size_t>(-8), &TestBlock::Table)) << "a size that wraps";
  EXPECT_FALSE(c.Alloc(8, nullptr));
  EXPECT_FALSE(c.Reserve(8, nullptr));
}

// Two threads copy and release handles to one block at once; no count is lost or doubled.
TEST(ObjectMemory, ConcurrentCopiesAndReleasesKeepTheCountExact) {
  TestBlock::Calls() = {};
  TestBlock shared = TestBlock::Make(1);
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
  shared.free();
  EXPECT_EQ(TestBlock::Calls().finalizes, 1);
}
