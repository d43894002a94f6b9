// Typed values written into data and attributes and read back through the typed readers.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include <vorx/math.h>
#include <vorx/timecode.h>

#include "support/memory_hooks.h"
#include "xmlnode_support.h"

namespace {

using VORX::Math::CRational;
using VORX::String::CPPoolString;
using VORX::TimeCode::timecode;
using VORX::XML::CPXMLObject;
using VORX::XML::CXMLValue;
using VORX::XML::tagXMLFLAGMAP;

using vorx::test::kNone;
using vorx::test::Named;
using vorx::test::Text;

// A node with `value` as the data of its child "e" and as its attribute "a".
CPXMLObject Holding(CXMLValue const & value) {
  CPXMLObject parent = Named(u"p");
  EXPECT_TRUE(parent.AddTag(u"e", value));
  EXPECT_TRUE(parent.AddAttribute(u"a", value));
  return parent;
}

TEST(XMLValues, DocumentedTextForms) {
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.Add(std::uint64_t{16}));
  EXPECT_EQ(Text(node.GetData()), u"10");
  EXPECT_EQ(node.GetDataLUInt(7), 10u) << "16 is written 10 and read as ten";
  ASSERT_TRUE(node.Set(1.5));
  EXPECT_TRUE(node.GetDataEDouble(0) == 1.5 && node.GetDataDouble(0) == 3.0) << "3ff8...(1.5)";
  ASSERT_TRUE(node.Set(u"yes"));
  EXPECT_TRUE(node.GetDataBool(true) && !node.GetDataBool(false));
  ASSERT_TRUE(node.Set(CRational(-30000, 1001)));
  EXPECT_EQ(Text(node.GetData()), u"-30000/1001");
  ASSERT_TRUE(node.Set(u" 2 / 4"));
  EXPECT_EQ(node.GetDataRational(CRational()), CRational(1, 2)) << "read back normalised";
  std::uint8_t const bytes[] = {0x01, 0xAB};
  ASSERT_TRUE(node.Set(bytes, 2));
  EXPECT_EQ(Text(node.GetData()), u"10BA") << "low nibble first";
  ASSERT_TRUE(node.Set(u"12abc"));
  EXPECT_TRUE(node.GetDataInt(0) == 12 && node.GetDataHex(0) == 0x12ABCu);
}

TEST(XMLValues, FlagsAndIndexLists) {
  tagXMLFLAGMAP const map[] = {{1, u"a"}, {2, u"b"}, {8, CPPoolString::pempty}};
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.Add(7, map, 3, u'|'));
  EXPECT_EQ(Text(node.GetData()), u"a|b|0x00000004");
  EXPECT_EQ(node.GetDataFlags(map, 3, u'|'), 7u);
  ASSERT_TRUE(node.AddAttribute(u"f", 0xFFFFFFFFu, map, 3, u','));
  EXPECT_EQ(node.FindAttributeFlags(u"f", map, 3, u','), 0xFFFFFFFFu);
  EXPECT_FALSE(node.AddAttribute(u"g", 0u, map, 3, u',')) << "0 gives an empty value";
  ASSERT_TRUE(node.AddTag(u"e", u"z"));
  EXPECT_EQ(node.FindAttributeIndex(u"absent", u"x|y|z", u'|'), kNone);
  EXPECT_EQ(node.FindElementIndex(u"e", u"x|y|z", u'|'), 2u);
}

TEST(XMLValues, NumberReadersNeedDataWithoutChildren) {
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.Add(u"42") && node.AddTag(u"c"));
  EXPECT_TRUE(node.GetDataInt(-1) == -1 && node.GetDataLUInt(1) == 1u && node.GetDataHex(1) == 1u);
  EXPECT_TRUE(node.GetDataDouble(0.5) == 0.5 && node.GetDataIndex(u"42", u'|') == kNone);
  // The text readers need only a named node with data.
  EXPECT_EQ(node.GetDataFileTime(0), 42u);
  EXPECT_EQ(node.GetDataRational(CRational(5, 7)), CRational(5, 7)) << "one number is not enough";
  ASSERT_TRUE(node.DeleteElements());
  EXPECT_EQ(node.GetDataInt(-1), 42);
}

TEST(XMLValues, IntegerReadersKeepTheLowBitsOfTheirSize) {
  // Each scan reads as strtoll or strtoull would and keeps the low bits of its size.
  struct {
    char16_t const * text;
    std::int32_t i;
    std::uint32_t u;
    std::int64_t l;
    std::uint64_t lu;
  } const rows[] = {
      {u"18446744073709551615", -1, 0xFFFFFFFFu, std::numeric_limits<std::int64_t>::max(),
       ~std::uint64_t{0}},
      {u"-9223372036854775808", 0, 0, std::numeric_limits<std::int64_t>::min(),
       std::uint64_t{1} << 63},
  };
  for (auto const & row : rows) {
    CPXMLObject parent = Holding(row.text);
    EXPECT_TRUE(
        parent.FindElementInt(u"e", 7) == row.i && parent.FindElementUInt(u"e", 7) == row.u &&
        parent.FindElementLInt(u"e", 7) == row.l && parent.FindElementLUInt(u"e", 7) == row.lu)
        << &row - rows;
  }
  // Every attribute form once; nothing readable or nothing there gives the fallback.
  CPXMLObject parent = Holding(u"4294967295");
  EXPECT_TRUE(parent.FindAttributeInt(u"a", 7) == -1 && parent.FindAttributeUInt(u"a", 7) == ~0u &&
              parent.FindAttributeLInt(u"a", 7) == 4294967295 &&
              parent.FindAttributeLUInt(u"a", 7) == 4294967295u &&
              parent.FindAttributeFileTime(u"a", 7) == 4294967295u &&
              parent.FindElementFileTime(u"e", 7) == 4294967295u);
  CPXMLObject bad = Holding(u"x1");
  EXPECT_TRUE(bad.FindAttributeInt(u"a", 7) == 7 && bad.FindElementHex(u"e", 7) == 7u &&
              bad.FindElementLInt(u"none", 7) == 7);
  EXPECT_EQ(Holding(u"fFfFfFfF").FindAttributeHex(u"a", 7), 0xFFFFFFFFu);
}

TEST(XMLValues, DoublesRationalsBoolsAndTimecodesRoundTrip) {
  using L = std::numeric_limits<double>;
  for (double value : {-0.0, L::denorm_min(), -L::infinity(), -L::quiet_NaN()}) {
    CPXMLObject parent = Holding(value);
    double const back[] = {parent.FindElementEDouble(u"e", 7.0),
                           parent.FindAttributeEDouble(u"a", 7.0)};
    EXPECT_TRUE(std::memcmp(&back[0], &value, 8) == 0 && std::memcmp(&back[1], &value, 8) == 0)
        << value;
  }
  EXPECT_EQ(Holding(u"2.5e3").FindAttributeDouble(u"a", 0), 2500.0);
  for (CRational const & value :
       {CRational(), CRational(1, 0), CRational(-0x3FFFFFFF, 0x3FFFFFFE)}) {
    CPXMLObject parent = Holding(value);
    EXPECT_TRUE(parent.FindElementRational(u"e", CRational(5, 7)) == value &&
                parent.FindAttributeRational(u"a", CRational(5, 7)) == value);
  }
  EXPECT_TRUE(Holding(false).FindElementBool(u"e", true) == false &&
              Holding(true).FindAttributeBool(u"a", false) == true);
  timecode const fallback(std::int64_t{5}, 0);
  for (timecode const & value :
       {timecode(), timecode(23, 59, 59, 29, VORX::TimeCode::TC_NTSC_DF)}) {
    CPXMLObject parent = Holding(value);
    EXPECT_TRUE(parent.FindElementTimecode(u"e", fallback) == value &&
                parent.FindAttributeTimecode(u"a", fallback) == value);
  }
  EXPECT_TRUE(Named(u"p").FindElementTimecode(u"none", fallback) == fallback);
}

TEST(XMLValues, IdentifiersRoundTripThroughTheirTextForm) {
  using VORX::QEF::cqefuid;
  _qefUID const some{
      0x0123ABCDu, 0x4567u, 0x89EFu, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
  _qefUID const ones{0xFFFFFFFFu, 0xFFFFu, 0xFFFFu, {255, 255, 255, 255, 255, 255, 255, 255}};
  CPXMLObject parent = Holding(some);
  EXPECT_EQ(Text(parent.FindElementData(u"e")), u"0123ABCD-4567-89EF-0123-456789ABCDEF");
  cqefuid const fallback(ones);
  EXPECT_TRUE(parent.FindElementGUID(u"e", fallback) == some &&
              parent.FindAttributeGUID(u"a", fallback) == some);
  EXPECT_TRUE(Holding(cqefuid(ones)).FindElementGUID(u"e", cqefuid(some)) == ones);
  EXPECT_TRUE(Holding(u"x-y-z-w-v").FindElementGUID(u"e", fallback) == fallback)
      << "four dashes, groups unreadable";
}

TEST(XMLValues, BinaryRoundTripsAndWritersFailWhenTheTextCannotBeMade) {
  std::uint8_t all[256];
  for (int i = 0; i < 256; ++i) {
    all[i] = static_cast<std::uint8_t>(255 - i);
  }
  CPXMLObject parent = Holding(CXMLValue(all, sizeof all));
  CPXMLObject const * e = parent.FindNextElement(u"e");
  ASSERT_NE(e, nullptr);
  std::uint8_t read[256] = {};
  EXPECT_TRUE(e->GetDataBinarySize() == 256u && e->GetDataBinary(read, sizeof read) == 256u);
  EXPECT_EQ(std::memcmp(read, all, sizeof all), 0);
  // An empty buffer writes nothing: no data; an attribute is refused (never empty).
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node.Add(all, 0) && node.GetState() == 0u);
  EXPECT_FALSE(node.AddAttribute(u"b", all, 0));
  vorx::test::AllocationFailure fail;
  EXPECT_FALSE(node.Add(all, 3) || node.AddAttribute(u"b", all, 3));
  EXPECT_EQ(node.AddTag(u"b", all, 3).sIndex(), kNone);
  EXPECT_EQ(node.GetState(), 0u);
}

} // namespace
