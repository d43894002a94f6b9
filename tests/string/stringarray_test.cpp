// Arrays of pooled strings: sorted and unsorted order, Flatten, Inflate and the submitters.
#include <vorx/string.h>

#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::String;

namespace {

using Texts = std::vector<std::u16string>;

// The elements as texts, "<null>" for a null element.
Texts Items(CPPoolStringArray const & array) {
  Texts items;
  for (std::uint64_t i = 0; i < array.GetNItems(); ++i) {
    items.push_back(array[i].isnull() ? u"<null>" : std::u16string(array[i]));
  }
  return items;
}

// An array of the given texts, added in order.
CPPoolStringArray Of(bool sorted, Texts const & texts) {
  CPPoolStringArray array(sorted);
  for (std::u16string const & text : texts) {
    array.Add(CPPoolString(text.c_str()));
  }
  return array;
}

TEST(StringArray, SortedArraysKeepOneOfEachInOrder) {
  CPPoolStringArray sorted = Of(true, {u"pear", u"apple", u"pear", u"fig"});
  CPPoolStringArray unsorted = Of(false, {u"pear", u"apple", u"pear", u"fig"});
  EXPECT_EQ(Items(sorted), (Texts{u"apple", u"fig", u"pear"}));
  EXPECT_EQ(sorted.LocateEntry(CPPoolString(u"grape")), 2u) << "where it would go";
  EXPECT_EQ(unsorted.LocateEntry(CPPoolString(u"fig")), ~std::uint64_t{0});

  EXPECT_FALSE(sorted.Insert(CPPoolString(u"kiwi"), 0) || unsorted.Delete(CPPoolString(u"pear")));
  EXPECT_TRUE(unsorted.Insert(CPPoolString(u"kiwi"), 1));
  EXPECT_TRUE(unsorted.Insert(CPPoolString(u"last"), 99));
  EXPECT_TRUE(sorted.Delete(CPPoolString(u"fig")) && sorted.Delete(CPPoolString(u"absent")));
  EXPECT_EQ(Items(sorted), (Texts{u"apple", u"pear"}));
  // Equal text but another record: "true" of the static record and of the pool.
  EXPECT_TRUE(sorted.Add(CPPoolString(true)) && sorted.Add(CPPoolString(u"true")));
  EXPECT_EQ(sorted.GetNItems(), 4u);
  unsorted.Sort();
  EXPECT_EQ(Items(unsorted), (Texts{u"apple", u"fig", u"kiwi", u"last", u"pear", u"pear"}));
  EXPECT_TRUE(unsorted[99].isnull());
}

TEST(StringArray, CopiesShareTheVectorAndAdoptOnlyVectorsOfPooledStrings) {
  CPPoolStringArray const a = Of(false, {u"b", u"a"});
  CPPoolStringArray const b = a;
  EXPECT_TRUE(b.GetVector() == a.GetVector());
  CPPoolStringArray sorted(true);
  sorted = VORX::Buffers::CPObjectMemory(a.GetVector());
  EXPECT_EQ(Items(sorted), (Texts{u"a", u"b"}));
  sorted = VORX::Buffers::CPOMVector(4);
  EXPECT_FALSE(sorted.GetNItems() != 0 || sorted.GetVector());
}

TEST(StringArray, FlattensWithASeparatorAndInflatesWithNullsForEmptyPiecesButNoneAtTheEnd) {
  EXPECT_TRUE(CPPoolStringArray(false).Flatten(u';').isnull());
  CPPoolStringArray array = Of(false, {u"a", u"b", u"c"});
  CPPoolString const joined = array.Flatten(u';');
  EXPECT_TRUE(joined == CStringPool::QueryStringRef(u"a;b;c") && !joined.isnull());
  array.Insert(CPPoolString(), 1);
  EXPECT_EQ(std::u16string(array.Flatten(u',')), u"a,,b,c");
  // A pair counts as one character: the joined text keeps one unit less per pair.
  EXPECT_EQ(std::u16string(Of(false, {u"x\U0001F600y", u"z"}).Flatten(u';')), u"x\U0001F600;");

  std::tuple<char16_t const *, bool, Texts> const rows[] = {
      // text (null: the null string)
      {u",a,,b,", false, {u"<null>", u"a", u"<null>", u"b"}},
      {u"b,a,b", true, {u"a", u"b"}},
      {u",,", true, {u"<null>"}},
      {nullptr, false, {}},
  };
  for (auto const & [text, sorted, expected] : rows) {
    CPPoolStringArray inflated = Of(sorted, {u"old"}); // replaced
    EXPECT_TRUE(inflated.Inflate(CPPoolString(text), u','));
    EXPECT_EQ(Items(inflated), expected) << vorx::test::Narrow(text ? text : u"<null>");
  }
}

TEST(StringArray, AFailedAllocationAnswersFalseAndLeaksNothing) {
  CPPoolString const text(u"p,q,r");
  CPPoolString const item(u"item");
  for (long successes = 0; successes < 12; ++successes) {
    long const blocks = vorx::test::LiveBlocks();
    {
      CPPoolStringArray array(false);
      vorx::test::AllocationFailure failure(successes);
      bool const added = array.Add(item);
      bool const inflated = array.Inflate(text, u',');
      CPPoolString const flat = array.Flatten(u'+');
      EXPECT_TRUE(added || array.GetNItems() == 0) << successes;
      EXPECT_TRUE(!inflated || Items(array) == (Texts{u"p", u"q", u"r"})) << successes;
      EXPECT_TRUE(flat.isnull() || !inflated || std::u16string(flat) == u"p+q+r") << successes;
      EXPECT_TRUE(CStringPool::Verify());
    }
    CStringPool::Collect(0xFFFFFFFFu);
    CStringPool::Collect(0xFFFFFFFFu);
    EXPECT_EQ(vorx::test::LiveBlocks(), blocks) << successes;
  }
}

TEST(StringArray, SubmittersWriteWhatTheyMeasure) {
  CPPoolString const items[] = {CPPoolString(u"ab"), CPPoolString(), CPPoolString(u"c")};
  CStringArraySubmitter joined(items, 3, u'|');
  ASSERT_EQ(joined.GetStringLen(), 5u);
  qefWChar out[8] = {u'#', u'#', u'#', u'#', u'#', u'#', u'#', u'#'};
  EXPECT_TRUE(joined.GetString(out));
  EXPECT_EQ(std::u16string(out), u"ab||c");
  CSubStringSubmitter piece(u"abcdef", 3);
  EXPECT_EQ(piece.GetStringLen(), 3u);
  qefWChar part[4] = {u'#', u'#', u'#', u'#'};
  EXPECT_TRUE(piece.GetString(part));
  EXPECT_EQ(std::u16string(part, 4), u"abc#") << "the pool terminates the piece";
}

} // namespace
