// Text forms of typed values and their readers, on plain texts.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "../../source/xml/xmlvalues.h"
#include "support/memory_hooks.h"

namespace {

using namespace VORX::XML;

TEST(XMLValueText, DoublesHaveTheirFixedForm) {
  struct {
    double value;
    char16_t const * text;
  } const doubles[] = {
      {0.0, u"0(0)"},
      {-0.0, u"8000000000000000(-0)"},
      {123456.0, u"40fe240000000000(1.235e+05)"},
      {-std::numeric_limits<double>::max(), u"ffefffffffffffff(-1.798e+308)"},
  };
  for (auto const & row : doubles) {
    qefWChar text[kXMLDoubleText];
    EXPECT_GT(_xmlDoubleText(row.value, text), 0);
    EXPECT_EQ(std::u16string(text), row.text);
  }
}

TEST(XMLValueText, BinaryReadersSkipBlanksAndCountPairs) {
  struct {
    char16_t const * text;
    std::uint64_t size; // _xmlBinarySize
    std::size_t stored; // _xmlReadBinary into 4 bytes
    std::uint8_t bytes[4];
  } const rows[] = {
      {u"10 BA", 0, 2, {0x01, 0xAB}},       // odd count of characters: no size
      {u"10  ba", 3, 2, {0x01, 0xAB}},      // blank pairs count, either case reads
      {u"1 0\tB\r\nA", 4, 2, {0x01, 0xAB}}, // blanks even between the digits of a byte
      {u"10B", 0, 1, {0x01}},               // three digits: no size; the half byte is dropped
      {u"0102030405", 5, 4, {0x10, 0x20, 0x30, 0x40}}, // stops when the buffer is full
  };
  for (auto const & row : rows) {
    EXPECT_EQ(_xmlBinarySize(row.text), row.size);
    std::uint8_t bytes[4] = {};
    ASSERT_EQ(_xmlReadBinary(row.text, bytes, 4), row.stored);
    EXPECT_EQ(std::memcmp(bytes, row.bytes, row.stored), 0);
  }
  EXPECT_TRUE(_xmlBinarySize(nullptr) == 0u && _xmlReadBinary(nullptr, nullptr, 4) == 0u);
}

TEST(XMLValueText, IndexCountsSeparatorsBeforeTheFirstWholeMatch) {
  struct {
    char16_t const * value;
    char16_t const * list;
    std::uint64_t index;
  } const rows[] = {
      {u"z", u"x|y|z", 2}, {u"Y", u"x|y|z", ~0ull}, {u"x", u"xx|x", 1},
      {u"xx", u"x|xx", 1}, {u"", u"a||b", 1},       {u"b", u"b|b", 0},
  };
  for (auto const & row : rows) {
    std::size_t const length = std::u16string(row.value).size();
    EXPECT_EQ(_xmlIndex(row.value, length, row.list, u'|'), row.index);
  }
  EXPECT_EQ(_xmlIndex(u"a", 1, nullptr, u'|'), ~0ull);
}

struct Flag {
  std::uint32_t value;
  qefWChar const * name;
};

std::u16string FlagsText(std::uint32_t value, Flag const * map, std::size_t count) {
  std::u16string text(_xmlFlagsTextSize(map, count), u'?');
  _xmlFlagsText(value, map, count, u'|', text.data());
  return text.c_str();
}

TEST(XMLFlags, WriteNamesInMapOrderThenTheRemainderAndReadThemBack) {
  Flag const map[] = {{1, u"a"}, {2, u"b"}};
  EXPECT_EQ(FlagsText(0, map, 2), u"");
  EXPECT_EQ(FlagsText(0x80000002u, map, 2), u"b|0x80000000");
  // An entry is written only when all of its bits are set; empty names are ignored.
  Flag const wide[] = {{3, u"ab"}, {0, u"zero"}, {4, u""}, {4, nullptr}, {1, u"a"}};
  EXPECT_EQ(FlagsText(1, wide, 5), u"a");
  EXPECT_EQ(FlagsText(7, wide, 5), u"ab|0x00000004");
  // Reading takes each entry once per token, by its exact name.
  EXPECT_EQ(_xmlReadFlags(u"b|0x10|b", map, 2, u'|'), 0x12u);
  EXPECT_EQ(_xmlReadFlags(u"A|c||", map, 2, u'|'), 0u) << "exact, case-sensitive names";
  EXPECT_EQ(_xmlReadFlags(u"0x1c2", map, 2, u'c'), 1u) << "a digit as separator ends the number";
  EXPECT_EQ(_xmlReadFlags<Flag>(u"a", nullptr, 2, u'|'), 0u);
  // Two entries of one name: each token takes the next one.
  Flag const twice[] = {{1, u"x"}, {4, u"x"}};
  EXPECT_EQ(_xmlReadFlags(u"x", twice, 2, u'|'), 1u);
  EXPECT_EQ(_xmlReadFlags(u"x|x", twice, 2, u'|'), 5u);
}

TEST(XMLFlags, LargeMapsKeepTheirMatchesOnTheHeap) {
  static Flag map[300];
  for (std::size_t i = 0; i < 300; ++i) {
    map[i] = {std::uint32_t{1} << (i % 32), i == 299 ? u"last" : u"x"};
  }
  EXPECT_EQ(_xmlReadFlags(u"last|x|x", map, 300, u'|'), 0x800u | 1u | 2u); // 299 % 32 is 11
  vorx::test::AllocationFailure fail;
  EXPECT_EQ(_xmlReadFlags(u"last", map, 300, u'|'), 0u);
}

} // namespace
