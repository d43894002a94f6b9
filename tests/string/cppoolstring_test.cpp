// The pooled-string handle (construction, the static records, comparisons, the UTF-8 view, the
// numbering of names) and arrays of pooled strings (sorted and unsorted order, Flatten, Inflate,
// the submitters).
#include <vorx/string.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::String;

namespace {

std::u16string Text(CPPoolString const & s) {
  return std::u16string(static_cast<qefWChar const *>(s));
}
std::string Utf8(CPPoolString const & s) {
  return reinterpret_cast<char const *>(static_cast<unsigned char const *>(s));
}

TEST(PooledString, ConstructsFromEverySource) {
  std::pair<CPPoolString, std::u16string> const rows[] = {
      {CPPoolString(-5), u"-5"},
      {CPPoolString(4294967295u), u"4294967295"},
      // The 64-bit forms keep the low 32 bits only.
      {CPPoolString(std::int64_t{0x1FFFFFFFF}), u"-1"},
      {CPPoolString(0x100000005ULL), u"5"},
      {CPPoolString("plain"), u"plain"}, // ANSI
      {CPPoolString(reinterpret_cast<unsigned char const *>("\xC3\xA9t")), u"\u00E9t"},
      {CPPoolString(true), u"true"},
  };
  for (auto const & [s, text] : rows) {
    EXPECT_EQ(Text(s), text);
  }
  EXPECT_TRUE(CPPoolString(static_cast<char const *>(nullptr)).isnull());
}

TEST(PooledString, StaticRecordsAreDistinctFromThePoolsAndNeverCounted) {
  CPPoolString const none;
  CPPoolString const empty(u"");
  EXPECT_TRUE(none.isnull() && none == CPPoolString::pnull && !none);
  EXPECT_TRUE(empty.isempty() && empty == CPPoolString::pempty && empty) << "the empty one is true";
  EXPECT_FALSE(empty.isdef() || none.isdef() || !CPPoolString(u"x").isdef());
  EXPECT_EQ(none.lockcnt() + empty.lockcnt(), 0u);
  // "true" and "false" are static records too: equal in text and hashes to the pool's.
  CPPoolString const interned(u"true");
  EXPECT_FALSE(CPPoolString(true) == interned);
  EXPECT_TRUE(CStringPool::GetStringRef(u"true") == interned &&
              CPPoolString(true).cmp(u"true") == 0);
  EXPECT_EQ(CPPoolString::pfalse.sHashi(), CPPoolString(u"FALSE").sHashi());
  EXPECT_EQ(Utf8(CPPoolString(false)), "false");
}

TEST(PooledString, CopiesCountAndTransferDoesNot) {
  CPPoolString a(u"counted");
  std::uint32_t const base = a.lockcnt();
  {
    CPPoolString const b = a;
    EXPECT_EQ(a.lockcnt(), base + 1);
  }
  CPPoolString target(u"replaced");
  target.TransferFrom(a);
  EXPECT_TRUE(a.isnull() && target.lockcnt() == base && Text(target) == u"counted");
  CPPoolString moved(std::move(target));
  EXPECT_TRUE(target.isnull() && moved.lockcnt() == base);
  moved.free();
  moved.free(); // a second free does nothing
}

int Sign(int value) {
  return (value > 0) - (value < 0);
}

TEST(PooledString, ComparesWithEitherArgumentForm) {
  CPPoolString const abc(u"abc");
  // `compare` is called with the text, then with its pooled string (whose results need only
  // agree in sign).
  auto check = [](auto compare, char16_t const * argument, int expected) {
    EXPECT_EQ(compare(argument), expected) << vorx::test::Narrow(argument);
    EXPECT_EQ(Sign(compare(CPPoolString(argument))), Sign(expected)) << "pooled";
  };
  check([&](auto a) { return abc.cmp(a); }, u"ab", 1);
  check([&](auto a) { return abc.cmpi(a); }, u"ABD", -1);
  check([&](auto a) { return abc.cmpp(a); }, u"abcd", -1);
  check([&](auto a) { return abc.cmp_p(a); }, u"zabc", -1);
  qefWChar const * const null = nullptr;
  EXPECT_EQ(abc.cmp(null), 1) << "a null text sorts first";
  EXPECT_TRUE(abc == u"abc" && !(abc == null) && CPPoolString() == u"");
  EXPECT_TRUE(abc.cnt(u"bc") && abc.cnt(CPPoolString(u"bc")) && abc.cnti(CPPoolString(u"BC")));
  EXPECT_FALSE(abc.cnt(u"abcd") || abc.cnt(u"")) << "an empty needle is not found";
  CPPoolString const other(u"zzz");
  EXPECT_TRUE(abc.pcmp(other) == -other.pcmp(abc) && abc.pcmp(other) != 0);
}

TEST(PooledString, EqualsIgnoringCaseAndNumbersTheNextNameOfASeries) {
  // U+00C9 LATIN CAPITAL LETTER E WITH ACUTE
  EXPECT_TRUE(CPPoolString(u"\u00C9t\u00C9").iequals(CPPoolString(u"\u00E9T\u00E9")));
  EXPECT_FALSE(CPPoolString(u"abcd").iequals(CPPoolString(u"abc")));
  EXPECT_FALSE(CPPoolString().iequals(CPPoolString(u""))) << "null and empty differ";

  std::pair<char16_t const *, char16_t const *> const rows[] = {
      {u"Take", u"Take (2)"}, {u"Take(9)", u"Take(10)"}, {u"(7)", u"(8)"},
      {u"a(x)", u"a(x) (2)"}, {u"()", u"() (2)"},        {u"", u" (2)"},
      {u"a)", u"a) (2)"},     {u"n(007)", u"n(8)"},      {u"(4294967295)", u"(0)"},
  };
  for (auto const & [text, next] : rows) {
    EXPECT_EQ(Text(CPPoolString(text).inc()), next);
  }
  EXPECT_TRUE(CPPoolString().inc().isnull());
}

TEST(PooledString, MakesItsUTF8FormOnceForAllHandles) {
  CPPoolString const s(u"\u00E9t\u00E9-utf8");
  long const before = vorx::test::LiveBlocks();
  EXPECT_EQ(Utf8(s), "\xC3\xA9t\xC3\xA9-utf8");
  CPPoolString const copy = s;
  EXPECT_EQ(static_cast<unsigned char const *>(copy), static_cast<unsigned char const *>(s));
  EXPECT_EQ(vorx::test::LiveBlocks(), before + 1);

  // Racing threads all end up with the one installed copy.
  CPPoolString const raced(u"raced-utf8");
  unsigned char const * seen[2] = {};
  std::thread other([&] { seen[1] = raced; });
  seen[0] = raced;
  other.join();
  EXPECT_EQ(seen[0], seen[1]);

  CPPoolString const starved(u"starved-utf8");
  {
    vorx::test::AllocationFailure failure;
    EXPECT_EQ(Utf8(starved), "");
  }
  EXPECT_EQ(Utf8(starved), "starved-utf8"); // and the leak check sees nothing left behind
}

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
  EXPECT_TRUE(unsorted.Insert(CPPoolString(u"kiwi"), 1) &&
              unsorted.Insert(CPPoolString(u"last"), 99));
  EXPECT_TRUE(sorted.Delete(CPPoolString(u"fig")) && sorted.Delete(CPPoolString(u"absent")));
  EXPECT_EQ(Items(sorted), (Texts{u"apple", u"pear"}));
  // Equal text but another record: "true" of the static record and of the pool.
  EXPECT_TRUE(sorted.Add(CPPoolString(true)) && sorted.Add(CPPoolString(u"true")) &&
              sorted.GetNItems() == 4);
  unsorted.Sort();
  EXPECT_EQ(Items(unsorted), (Texts{u"apple", u"fig", u"kiwi", u"last", u"pear", u"pear"}));
  EXPECT_TRUE(unsorted[99].isnull());
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
      {u",,", true, {u"<null>"}},
      {nullptr, false, {}}};
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
  EXPECT_TRUE(CStringPool::GetStringRef(&piece) == CPPoolString(u"abc"));
}

} // namespace
