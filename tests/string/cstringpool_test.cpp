// The string pool: interning from every source, the two orderings, ageing, integrity checks.
#include <vorx/string.h>

#include <string>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"

using namespace VORX::String;

namespace {

TEST(StringPool, InterningTheSameTextTwiceGivesOneRecord) {
  long const blocks = vorx::test::LiveBlocks();
  CPPoolString const a = CStringPool::GetStringRef(u"pool-once");
  long const afterFirst = vorx::test::LiveBlocks();
  EXPECT_GT(afterFirst, blocks);
  CPPoolString const b = CStringPool::GetStringRef(u"pool-once");
  CPPoolString const c =
      CStringPool::GetStringRef(reinterpret_cast<unsigned char const *>("pool-once"));
  EXPECT_EQ(vorx::test::LiveBlocks(), afterFirst);
  EXPECT_TRUE(a == b);
  EXPECT_TRUE(a == c);
  EXPECT_EQ(std::u16string(a), u"pool-once");
  EXPECT_EQ(a.len(), 9u);
  EXPECT_EQ(a.UTF8Size(), 9u);
}

} // namespace

namespace {

TEST(StringPool, CaseVariantsShareAGroupAndAgeOutAfterTwoPasses) {
  std::uint64_t const records = CStringPool::GetNItems();
  std::uint64_t const groups = CStringPool::GetNGroups();
  {
    CPPoolString const abc = CStringPool::GetStringRef(u"Abc-group");
    EXPECT_TRUE(CStringPool::GetStringRefi(u"aBC-GROUP") == abc);
    CPPoolString const other = CStringPool::GetStringRef(u"aBC-GROUP");
    EXPECT_FALSE(other == abc);
    EXPECT_TRUE(other.iequals(abc));
    EXPECT_EQ(CStringPool::GetNItems(), records + 2);
    EXPECT_EQ(CStringPool::GetNGroups(), groups + 1);
    EXPECT_TRUE(CStringPool::Verify());
  }
  EXPECT_TRUE(CStringPool::Collect(0xFFFFFFFFu));
  EXPECT_EQ(CStringPool::GetNItems(), records + 2);
  EXPECT_TRUE(CStringPool::Collect(0xFFFFFFFFu));
  EXPECT_EQ(CStringPool::GetNItems(), records);
  EXPECT_EQ(CStringPool::GetNGroups(), groups);
}

} // namespace
