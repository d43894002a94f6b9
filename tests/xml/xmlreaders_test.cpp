// Typed values written into data and attributes and read back through the typed readers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include <vorx/math.h>
#include <vorx/string.h>
#include <vorx/timecode.h>
#include <vorx/xml.h>

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

std::uint64_t Bits(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

TEST(XMLValues, DocumentedTextForms) {
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.Add(std::uint64_t{255}));
  EXPECT_EQ(Text(node.GetData()), u"ff");
  EXPECT_EQ(node.GetDataLUInt(7), 7u) << "the decimal reader converts nothing of ff";
  ASSERT_TRUE(node.Set(std::uint64_t{16}));
  EXPECT_EQ(node.GetDataLUInt(7), 10u) << "16 is written 10 and read as ten";
  ASSERT_TRUE(node.Set(1.5));
  EXPECT_TRUE(node.GetDataEDouble(0) == 1.5 && node.GetDataDouble(0) == 3.0) << "3ff8...(1.5)";
  ASSERT_TRUE(node.Set(true));
  EXPECT_EQ(Text(node.GetData()), u"true");
  ASSERT_TRUE(node.Set(u"TRUE"));
  EXPECT_TRUE(node.GetDataBool(false));
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

TEST(XMLValues, FlagsThroughAMap) {
  tagXMLFLAGMAP const map[] = {{1, u"a"}, {2, u"b"}, {8, CPPoolString::pempty}};
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.Add(7, map, 3, u'|'));
  EXPECT_EQ(Text(node.GetData()), u"a|b|0x00000004");
  EXPECT_EQ(node.GetDataFlags(map, 3, u'|'), 7u);
  ASSERT_TRUE(node.AddAttribute(u"f", 0xFFFFFFFFu, map, 3, u','));
  EXPECT_EQ(Text(node.FindAttribute(u"f")), u"a,b,0xfffffffc");
  EXPECT_EQ(node.FindAttributeFlags(u"f", map, 3, u','), 0xFFFFFFFFu);
  EXPECT_FALSE(node.AddAttribute(u"g", 0u, map, 3, u',')) << "0 gives an empty value";
  ASSERT_TRUE(node.AddTag(u"e", 2u, map, 3, u'|'));
  EXPECT_TRUE(node.FindElementFlags(u"e", map, 3, u'|') == 2u &&
              node.FindElementFlags(u"none", map, 3, u'|') == 0u);
}

TEST(XMLValues, IndexLists) {
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.AddAttribute(u"y", u"y") && node.AddAttribute(u"w", u"w"));
  EXPECT_EQ(node.FindAttributeIndex(u"y", u"x|y|z", u'|'), 1u);
  EXPECT_EQ(node.FindAttributeIndex(u"absent", u"x|y|z", u'|'), kNone);
  ASSERT_TRUE(node.AddTag(u"e", u"z"));
  EXPECT_EQ(node.FindElementIndex(u"e", u"x|y|z", u'|'), 2u);
  EXPECT_EQ(node.GetDataIndex(u"x|y|z", u'|'), kNone) << "no data";
  CPXMLObject data = Named(u"d");
  ASSERT_TRUE(data.Add(u"x"));
  EXPECT_EQ(data.GetDataIndex(u"x|y|z", u'|'), 0u);
}

TEST(XMLValues, NumberReadersNeedDataWithoutChildren) {
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.Add(u"42"));
  ASSERT_TRUE(node.AddTag(u"c"));
  EXPECT_TRUE(node.GetDataInt(-1) == -1 && node.GetDataUInt(1) == 1u &&
              node.GetDataLInt(-1) == -1 && node.GetDataLUInt(1) == 1u && node.GetDataHex(1) == 1u);
  EXPECT_TRUE(node.GetDataDouble(0.5) == 0.5 && node.GetDataEDouble(0.5) == 0.5);
  EXPECT_EQ(node.GetDataIndex(u"42", u'|'), kNone);
  // The text readers need only a named node with data.
  EXPECT_EQ(node.GetDataFileTime(0), 42u);
  EXPECT_EQ(node.GetDataRational(CRational(5, 7)), CRational(5, 7)) << "one number is not enough";
  ASSERT_TRUE(node.DeleteElements());
  EXPECT_EQ(node.GetDataInt(-1), 42);
}

TEST(XMLValues, IntegerReadersOnElementsAndAttributes) {
  // Each scan reads as strtoll or strtoull would and keeps the low bits of its size.
  struct {
    char16_t const * text;
    std::int32_t i;
    std::uint32_t u;
    std::int64_t l;
    std::uint64_t lu;
  } const rows[] = {
      {u"0", 0, 0, 0, 0},
      {u"-1", -1, 0xFFFFFFFFu, -1, ~std::uint64_t{0}},
      {u"4294967295", -1, 0xFFFFFFFFu, 4294967295, 4294967295u},
      {u"18446744073709551615", -1, 0xFFFFFFFFu, std::numeric_limits<std::int64_t>::max(),
       ~std::uint64_t{0}},
      {u"-9223372036854775808", 0, 0, std::numeric_limits<std::int64_t>::min(),
       std::uint64_t{1} << 63},
      {u"12abc", 12, 12, 12, 12},
  };
  for (auto const & row : rows) {
    CPXMLObject parent = Holding(row.text);
    SCOPED_TRACE(&row - rows);
    EXPECT_TRUE(parent.FindElementInt(u"e", 7) == row.i &&
                parent.FindAttributeInt(u"a", 7) == row.i);
    EXPECT_TRUE(parent.FindElementUInt(u"e", 7) == row.u &&
                parent.FindAttributeUInt(u"a", 7) == row.u);
    EXPECT_TRUE(parent.FindElementLInt(u"e", 7) == row.l &&
                parent.FindAttributeLInt(u"a", 7) == row.l);
    EXPECT_TRUE(parent.FindElementLUInt(u"e", 7) == row.lu &&
                parent.FindAttributeLUInt(u"a", 7) == row.lu);
    EXPECT_TRUE(parent.FindElementFileTime(u"e", 7) == row.lu &&
                parent.FindAttributeFileTime(u"a", 7) == row.lu);
  }
  // Nothing readable, or nothing there: the fallback.
  CPXMLObject parent = Holding(u"x1");
  EXPECT_TRUE(parent.FindAttributeInt(u"a", 7) == 7 && parent.FindElementUInt(u"e", 7) == 7u);
  EXPECT_TRUE(parent.FindAttributeHex(u"a", 7) == 7u && parent.FindElementHex(u"e", 7) == 7u);
  EXPECT_TRUE(parent.FindAttributeInt(u"none", 7) == 7 && parent.FindElementLInt(u"none", 7) == 7);
  CPXMLObject hex = Holding(u"fFfFfFfF");
  EXPECT_TRUE(hex.FindElementHex(u"e", 7) == 0xFFFFFFFFu &&
              hex.FindAttributeHex(u"a", 7) == 0xFFFFFFFFu);
}

TEST(XMLValues, DoublesRoundTripThroughTheirBits) {
  using L = std::numeric_limits<double>;
  double const values[] = {0.0,
                           -0.0,
                           1.5,
                           -1.0 / 3.0,
                           L::max(),
                           L::lowest(),
                           L::denorm_min(),
                           L::infinity(),
                           -L::infinity(),
                           L::quiet_NaN(),
                           -L::quiet_NaN()};
  for (double value : values) {
    CPXMLObject parent = Holding(value);
    EXPECT_EQ(Bits(parent.FindElementEDouble(u"e", 7.0)), Bits(value));
    EXPECT_EQ(Bits(parent.FindAttributeEDouble(u"a", 7.0)), Bits(value));
  }
  CPXMLObject parent = Holding(u"2.5e3");
  EXPECT_TRUE(parent.FindElementDouble(u"e", 0) == 2500.0 &&
              parent.FindAttributeDouble(u"a", 0) == 2500.0);
  EXPECT_EQ(parent.FindAttributeDouble(u"none", 0.25), 0.25);
}

TEST(XMLValues, RationalsBoolsAndTimecodesRoundTrip) {
  CRational const rationals[] = {
      CRational(),     CRational(30000, 1001),    CRational(-3, 4),
      CRational(1, 0), CRational(-0x3FFFFFFF, 1), CRational(-0x3FFFFFFF, 0x3FFFFFFE)};
  for (CRational const & value : rationals) {
    CPXMLObject parent = Holding(value);
    EXPECT_TRUE(parent.FindElementRational(u"e", CRational(5, 7)) == value &&
                parent.FindAttributeRational(u"a", CRational(5, 7)) == value);
  }
  for (bool value : {false, true}) {
    CPXMLObject parent = Holding(value);
    EXPECT_TRUE(parent.FindElementBool(u"e", !value) == value &&
                parent.FindAttributeBool(u"a", !value) == value);
  }
  timecode const timecodes[] = {
      timecode(),
      timecode(std::int64_t{0}, VORX::TimeCode::TC_PAL),
      timecode(10, 0, 0, 0, VORX::TimeCode::TC_PAL),
      timecode(23, 59, 59, 29, VORX::TimeCode::TC_NTSC_DF),
      timecode(1, 2, 3, 4, VORX::TimeCode::TC_HD60),
  };
  timecode const fallback(std::int64_t{5}, 0);
  for (timecode const & value : timecodes) {
    CPXMLObject parent = Holding(value);
    EXPECT_TRUE(parent.FindElementTimecode(u"e", fallback) == value &&
                parent.FindAttributeTimecode(u"a", fallback) == value);
  }
  EXPECT_TRUE(Named(u"p").FindElementTimecode(u"none", fallback) == fallback);
}

TEST(XMLValues, IdentifiersRoundTripThroughTheirTextForm) {
  using VORX::QEF::cqefuid;
  _qefUID const ones{0xFFFFFFFFu, 0xFFFFu, 0xFFFFu, {255, 255, 255, 255, 255, 255, 255, 255}};
  _qefUID const some{
      0x0123ABCDu, 0x4567u, 0x89EFu, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
  struct {
    _qefUID id;
    char16_t const * text;
  } const rows[] = {
      {_qefUID{}, u"00000000-0000-0000-0000-000000000000"},
      {ones, u"FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF"},
      {some, u"0123ABCD-4567-89EF-0123-456789ABCDEF"},
  };
  cqefuid const fallback(some);
  for (auto const & row : rows) {
    CPXMLObject parent = Holding(row.id);
    EXPECT_EQ(Text(parent.FindElementData(u"e")), row.text);
    EXPECT_TRUE(parent.FindElementGUID(u"e", fallback) == row.id &&
                parent.FindAttributeGUID(u"a", fallback) == row.id);
    EXPECT_TRUE(Holding(cqefuid(row.id)).FindElementGUID(u"e", fallback) == row.id);
  }
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node.GetDataGUID(fallback) == fallback) << "no data";
  ASSERT_TRUE(node.Add(u"x-y-z-w-v"));
  EXPECT_TRUE(node.GetDataGUID(fallback) == fallback) << "four dashes, groups unreadable";
}

TEST(XMLValues, BinaryRoundTrips) {
  std::uint8_t all[256];
  for (int i = 0; i < 256; ++i) {
    all[i] = static_cast<std::uint8_t>(255 - i);
  }
  CPXMLObject parent = Holding(CXMLValue(all, sizeof all));
  CPXMLObject const * e = parent.FindNextElement(u"e");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetDataBinarySize(), 256u);
  std::uint8_t read[256] = {};
  EXPECT_EQ(e->GetDataBinary(read, sizeof read), 256u);
  EXPECT_EQ(std::memcmp(read, all, sizeof all), 0);
  // An empty buffer writes nothing: no data; an attribute is refused (never empty).
  CPXMLObject empty = Named(u"n");
  EXPECT_TRUE(empty.Add(all, 0) && empty.GetState() == 0u);
  EXPECT_FALSE(empty.AddAttribute(u"b", all, 0));
}

TEST(XMLValues, WritersFailWhenTheTextCannotBeMade) {
  CPXMLObject node = Named(u"n");
  std::uint8_t const bytes[] = {1, 2, 3};
  vorx::test::AllocationFailure fail;
  EXPECT_FALSE(node.Add(bytes, 3));
  EXPECT_FALSE(node.AddAttribute(u"b", bytes, 3));
  EXPECT_EQ(node.AddTag(u"b", bytes, 3).sIndex(), kNone);
  EXPECT_EQ(node.GetState(), 0u);
}

} // namespace
