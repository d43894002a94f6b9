// Arrays of pooled strings: sorted and unsorted order, Flatten, Inflate and the submitters.
#include <vorx/string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::String;

namespace {

// The elements as texts, "<null>" for a null element.
std::vector<std::u16string> Items(CPPoolStringArray const & array) {
  std::vector<std::u16string> items;
  for (std::uint64_t i = 0; i < array.GetNItems(); ++i) {
    items.push_back(array[i].isnull() ? u"<null>" : std::u16string(array[i]));
  }
  return items;
}

using Texts = std::vector<std::u16string>;

TEST(StringArray, SortedArraysKeepOneOfEachInOrder) {
  CPPoolStringArray sorted(true);
  CPPoolStringArray unsorted(false);
  for (char16_t const * text : {u"pear", u"apple", u"pear", u"fig"}) {
    EXPECT_TRUE(sorted.Add(CPPoolString(text)));
    EXPECT_TRUE(unsorted.Add(CPPoolString(text)));
  }
  EXPECT_EQ(Items(sorted), (Texts{u"apple", u"fig", u"pear"}));
  EXPECT_EQ(Items(unsorted), (Texts{u"pear", u"apple", u"pear", u"fig"}));
  EXPECT_EQ(sorted.LocateEntry(CPPoolString(u"fig")), 1u);
  EXPECT_EQ(sorted.LocateEntry(CPPoolString(u"grape")), 2u);
  EXPECT_EQ(sorted.LocateEntry(CPPoolString(u"zz")), 3u);
  EXPECT_EQ(unsorted.LocateEntry(CPPoolString(u"fig")), ~std::uint64_t{0});
  EXPECT_EQ(CPPoolStringArray(true).LocateEntry(CPPoolString(u"fig")), ~std::uint64_t{0})
      << "no vector yet";

  EXPECT_FALSE(sorted.Insert(CPPoolString(u"kiwi"), 0));
  EXPECT_FALSE(unsorted.Delete(CPPoolString(u"pear")));
  EXPECT_EQ(Items(sorted), (Texts{u"apple", u"fig", u"pear"}));
  EXPECT_EQ(unsorted.GetNItems(), 4u);
  EXPECT_TRUE(unsorted.Insert(CPPoolString(u"kiwi"), 1));
  EXPECT_TRUE(unsorted.Insert(CPPoolString(u"last"), 99));
  EXPECT_EQ(Items(unsorted), (Texts{u"pear", u"kiwi", u"apple", u"pear", u"fig", u"last"}));
  EXPECT_TRUE(sorted.Delete(CPPoolString(u"fig")));
  EXPECT_TRUE(sorted.Delete(CPPoolString(u"absent")));
  EXPECT_EQ(Items(sorted), (Texts{u"apple", u"pear"}));
  // Equal text but another record: "true" of the static record and of the pool.
  EXPECT_TRUE(sorted.Add(CPPoolString(true)));
  EXPECT_TRUE(sorted.Add(CPPoolString(u"true")));
  EXPECT_EQ(sorted.GetNItems(), 4u);
  unsorted.Sort();
  EXPECT_EQ(Items(unsorted), (Texts{u"apple", u"fig", u"kiwi", u"last", u"pear", u"pear"}));
  EXPECT_TRUE(unsorted[99].isnull());
}

TEST(StringArray, CopiesShareTheVectorAndAdoptOnlyVectorsOfPooledStrings) {
  CPPoolStringArray a(false);
  a.Add(CPPoolString(u"b"));
  a.Add(CPPoolString(u"a"));
  CPPoolStringArray b = a;
  EXPECT_TRUE(b.GetVector() == a.GetVector());
  CPPoolStringArray sorted(true);
  sorted = VORX::Buffers::CPObjectMemory(a.GetVector());
  EXPECT_EQ(Items(sorted), (Texts{u"a", u"b"}));
  sorted = VORX::Buffers::CPOMVector(4);
  EXPECT_EQ(sorted.GetNItems(), 0u);
  EXPECT_FALSE(static_cast<bool>(sorted.GetVector()));
}

TEST(StringArray, FlattensWithASeparator) {
  CPPoolStringArray array(false);
  EXPECT_TRUE(array.Flatten(u';').isnull());
  for (char16_t const * text : {u"a", u"b", u"c"}) {
    array.Add(CPPoolString(text));
  }
  CPPoolString const joined = array.Flatten(u';');
  EXPECT_EQ(std::u16string(joined), u"a;b;c");
  EXPECT_TRUE(joined == CStringPool::QueryStringRef(u"a;b;c"));
  array.Insert(CPPoolString(), 1);
  EXPECT_EQ(std::u16string(array.Flatten(u',')), u"a,,b,c");
  CPPoolStringArray nulls(false);
  nulls.Add(CPPoolString());
  EXPECT_TRUE(nulls.Flatten(u',').isempty());
  nulls.Add(CPPoolString());
  EXPECT_EQ(std::u16string(nulls.Flatten(u',')), u",");
  // A pair counts as one character: the joined text keeps one unit less per pair.
  CPPoolStringArray pairs(false);
  pairs.Add(CPPoolString(u"x\U0001F600y")); // stored as x and the pair
  pairs.Add(CPPoolString(u"z"));
  EXPECT_EQ(std::u16string(pairs.Flatten(u';')), u"x\U0001F600;");
}

TEST(StringArray, InflatesPiecesWithNullsForEmptyOnesButNoneAtTheEnd) {
  struct Row {
    char16_t const * text; // null: the null string
    bool sorted;
    Texts expected;
  } const rows[] = {
      {u",a,,b,", false, {u"<null>", u"a", u"<null>", u"b"}},
      {u"whole", false, {u"whole"}},
      {u"b,a,b", true, {u"a", u"b"}},
      {u",,", true, {u"<null>"}},
      {u"", false, {}},
      {nullptr, false, {}},
  };
  for (Row const & row : rows) {
    CPPoolStringArray array(row.sorted);
    array.Add(CPPoolString(u"old")); // replaced
    EXPECT_TRUE(array.Inflate(CPPoolString(row.text), u','));
    EXPECT_EQ(Items(array), row.expected) << vorx::test::Narrow(row.text ? row.text : u"<null>");
  }
}

TEST(StringArray, AFailedAllocationAnswersFalseAndLeaksNothing) {
  CPPoolString const text(u"p,q,r");
  CPPoolString const item(u"item");
  for (long successes = 0; successes < 12; ++successes) {
    long const blocks = vorx::test::LiveBlocks();
    {
      CPPoolStringArray array(false);
      bool inflated = false;
      bool added = false;
      CPPoolString flat;
      {
        vorx::test::AllocationFailure failure(successes);
        added = array.Add(item);
        inflated = array.Inflate(text, u',');
        flat = array.Flatten(u'+');
      }
      if (!added) {
        EXPECT_EQ(array.GetNItems(), 0u);
      }
      if (inflated) {
        EXPECT_EQ(Items(array), (Texts{u"p", u"q", u"r"}));
      }
      EXPECT_TRUE(flat.isnull() || std::u16string(flat) == Items(array)[0] + u"+q+r" || !inflated);
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
  CStringArraySubmitter none(items, 0, u'|');
  EXPECT_EQ(none.GetStringLen(), 0u);
  EXPECT_TRUE(none.GetString(out));
  EXPECT_EQ(out[0], 0);
  CSubStringSubmitter piece(u"abcdef", 3);
  EXPECT_EQ(piece.GetStringLen(), 3u);
  qefWChar part[4] = {u'#', u'#', u'#', u'#'};
  EXPECT_TRUE(piece.GetString(part));
  EXPECT_EQ(std::u16string(part, 4), u"abc#") << "the pool terminates the piece";
  EXPECT_TRUE(CStringPool::GetStringRef(&piece) == CPPoolString(u"abc"));
}

} // namespace
