// The pooled-string handle: construction, the static records, comparisons, the UTF-8 view and
// the numbering of names.
#include <vorx/string.h>

#include <string>
#include <thread>
#include <tuple>

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
  std::tuple<char const *, CPPoolString, std::u16string> const rows[] = {
      {"int literal", CPPoolString(7), u"7"},
      {"negative int", CPPoolString(-5), u"-5"},
      {"unsigned 32", CPPoolString(4294967295u), u"4294967295"},
      // The 64-bit forms keep the low 32 bits only.
      {"unsigned 64", CPPoolString(std::uint64_t{4294967296}), u"0"},
      {"signed 64", CPPoolString(std::int64_t{0x1FFFFFFFF}), u"-1"},
      {"unsigned long long", CPPoolString(0x100000005ULL), u"5"},
      {"ANSI", CPPoolString("plain"), u"plain"},
      {"UTF-8", CPPoolString(reinterpret_cast<unsigned char const *>("\xC3\xA9t\xC3\xA9")),
       u"\u00E9t\u00E9"},
      {"true", CPPoolString(true), u"true"},
  };
  for (auto const & [label, s, text] : rows) {
    EXPECT_EQ(Text(s), text) << label;
  }
  EXPECT_TRUE(CPPoolString("plain") == CPPoolString(u"plain"));
  EXPECT_TRUE(CPPoolString(static_cast<char const *>(nullptr)).isnull());

  CPPoolString s;
  s = u"assigned";
  EXPECT_EQ(Text(s), u"assigned");
  s = std::uint64_t{4294967298};
  EXPECT_EQ(Text(s), u"2");
}

TEST(PooledString, StaticRecordsAreDistinctFromThePoolsAndNeverCounted) {
  CPPoolString const none;
  CPPoolString const empty(u"");
  EXPECT_TRUE(none.isnull() && none == CPPoolString::pnull && !none);
  EXPECT_TRUE(empty.isempty() && empty == CPPoolString::pempty && empty) << "the empty one is true";
  EXPECT_FALSE(empty.isdef() || none.isdef() || !CPPoolString(u"x").isdef());
  EXPECT_EQ(none.lockcnt() + empty.lockcnt(), 0u);
  EXPECT_EQ(Utf8(none), "");
  // "true" and "false" are static records too: equal in text and hashes to the pool's.
  CPPoolString const interned(u"true");
  EXPECT_FALSE(CPPoolString(true) == interned);
  EXPECT_TRUE(CStringPool::GetStringRef(u"true") == interned);
  EXPECT_EQ(CPPoolString(true).cmp(u"true"), 0);
  EXPECT_EQ(CPPoolString::ptrue.sHash(), interned.sHash());
  EXPECT_EQ(CPPoolString::pfalse.sHashi(), CPPoolString(u"FALSE").sHashi());
  EXPECT_EQ(CPPoolString::pfalse.len() + CPPoolString::pfalse.UTF8Size(), 10u);
}

TEST(PooledString, CopiesCountAndTransferDoesNot) {
  CPPoolString a(u"counted");
  std::uint32_t const base = a.lockcnt();
  {
    CPPoolString const b = a;
    EXPECT_EQ(a.lockcnt(), base + 1);
  }
  EXPECT_EQ(a.lockcnt(), base);
  CPPoolString target(u"replaced");
  target.TransferFrom(a);
  EXPECT_TRUE(a.isnull());
  EXPECT_EQ(target.lockcnt(), base);
  EXPECT_EQ(Text(target), u"counted");
  CPPoolString moved(std::move(target));
  EXPECT_TRUE(target.isnull());
  EXPECT_EQ(moved.lockcnt(), base);
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
  auto check = [](char const * label, auto compare,
                  std::initializer_list<std::pair<char16_t const *, int>> cases) {
    for (auto const & [argument, expected] : cases) {
      EXPECT_EQ(compare(argument), expected) << label << " " << vorx::test::Narrow(argument);
      EXPECT_EQ(Sign(compare(CPPoolString(argument))), Sign(expected)) << label << " (pooled)";
    }
  };
  check("cmp", [&](auto a) { return abc.cmp(a); }, {{u"abd", -1}, {u"ab", 1}});
  check("cmpi", [&](auto a) { return abc.cmpi(a); }, {{u"ABC", 0}});
  check("cmpp", [&](auto a) { return abc.cmpp(a); }, {{u"abcd", -1}, {u"ab", 0}});
  check("cmppi", [&](auto a) { return abc.cmppi(a); }, {{u"AB", 0}});
  check("cmp_p", [&](auto a) { return abc.cmp_p(a); }, {{u"bc", 0}, {u"zabc", -1}});
  check("cmp_pi", [&](auto a) { return abc.cmp_pi(a); }, {{u"BC", 0}});
  qefWChar const * const null = nullptr;
  EXPECT_EQ(abc.cmp(null), 1) << "a null text sorts first";
  EXPECT_EQ(abc.cmpp(null), -1);
  EXPECT_TRUE(abc == u"abc" && !(abc == null) && CPPoolString() == u"");
  EXPECT_TRUE(abc.cnt(u"bc") && abc.cnt(CPPoolString(u"bc")));
  EXPECT_FALSE(abc.cnt(u"abcd") || abc.cnt(CPPoolString(u"abcd")));
  EXPECT_FALSE(abc.cnt(u"")) << "an empty needle is not found";
  EXPECT_TRUE(abc.cnti(u"BC") && abc.cnti(CPPoolString(u"BC")));
  CPPoolString const other(u"zzz");
  EXPECT_TRUE(abc.pcmp(other) == -other.pcmp(abc) && abc.pcmp(other) != 0);
  EXPECT_EQ(abc.pcmp(CPPoolString(u"abc")), 0);
}

TEST(PooledString, EqualsIgnoringCase) {
  std::tuple<char16_t const *, char16_t const *, bool> const rows[] = {
      {u"Abc", u"aBC", true},
      {u"\u00C9t\u00C9", u"\u00E9T\u00E9", true}, // U+00C9 LATIN CAPITAL LETTER E WITH ACUTE
      {u"abc", u"abcd", false},
  };
  for (auto const & [a, b, expected] : rows) {
    EXPECT_EQ(CPPoolString(a).iequals(CPPoolString(b)), expected);
    EXPECT_EQ(CPPoolString(b).iequals(CPPoolString(a)), expected);
  }
  EXPECT_TRUE(CPPoolString().iequals(CPPoolString()));
  EXPECT_FALSE(CPPoolString().iequals(CPPoolString(u""))) << "null and empty differ";
}

TEST(PooledString, NumbersTheNextNameOfASeries) {
  std::pair<char16_t const *, char16_t const *> const rows[] = {
      {u"Take", u"Take (2)"}, {u"Take(9)", u"Take(10)"}, {u"(7)", u"(8)"},
      {u"a(x)", u"a(x) (2)"}, {u"()", u"() (2)"},        {u"", u" (2)"},
      {u"a)", u"a) (2)"},     {u"n(007)", u"n(8)"},      {u"(4294967295)", u"(0)"},
  };
  for (auto const & [text, next] : rows) {
    EXPECT_EQ(Text(CPPoolString(text).inc()), next) << vorx::test::LiveBlocks();
  }
  EXPECT_TRUE(CPPoolString().inc().isnull());
}

TEST(PooledString, MakesItsUTF8FormOnceForAllHandles) {
  CPPoolString const s(u"\u00E9t\u00E9-utf8");
  long const before = vorx::test::LiveBlocks();
  unsigned char const * first = s;
  EXPECT_STREQ(reinterpret_cast<char const *>(first), "\xC3\xA9t\xC3\xA9-utf8");
  EXPECT_EQ(vorx::test::LiveBlocks(), before + 1);
  CPPoolString const copy = s;
  EXPECT_EQ(static_cast<unsigned char const *>(copy), first);
  EXPECT_EQ(vorx::test::LiveBlocks(), before + 1);
  EXPECT_EQ(Utf8(CPPoolString(false)), "false");

  // Racing threads all end up with the one installed copy.
  CPPoolString const raced(u"raced-utf8");
  unsigned char const * seen[4] = {};
  std::thread threads[4];
  for (int i = 0; i < 4; ++i) {
    threads[i] = std::thread([&, i] { seen[i] = raced; });
  }
  for (std::thread & t : threads) {
    t.join();
  }
  for (unsigned char const * p : seen) {
    EXPECT_EQ(p, static_cast<unsigned char const *>(raced));
  }

  CPPoolString const starved(u"starved-utf8");
  long const blocks = vorx::test::LiveBlocks();
  {
    vorx::test::AllocationFailure failure;
    EXPECT_EQ(Utf8(starved), "");
  }
  EXPECT_EQ(vorx::test::LiveBlocks(), blocks);
  EXPECT_EQ(Utf8(starved), "starved-utf8");
}

} // namespace
