#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>

#include <gtest/gtest.h>
#include <vorx/math.h>

#include "support/diagnostics_capture.h"

using VORX::Math::CRational;

namespace {

using Fraction = std::pair<std::int32_t, std::int32_t>; // the denominator as stored, signed

Fraction Held(CRational const & value) {
  return {value.num(), static_cast<std::int32_t>(value.den())};
}

// The messages logged so far (they take no arguments).
std::vector<std::u16string> Messages(vorx::test::LogCapture const & log) {
  std::vector<std::u16string> messages;
  for (auto const & line : log.Lines()) {
    messages.push_back(line.format);
  }
  return messages;
}

std::u16string const kNormalize = u"CRational::_normalize(): components exceed definition space";
std::u16string const kAdd = u"CRational::operator +(): Result exceeded definition space";
std::u16string const kMultiply = u"CRational::operator *(): Result exceeded definition space";

} // namespace

// An `int` selects the 32-bit forms; a 64-bit integer must not be cut to 32 bits silently.
static_assert(std::is_constructible_v<CRational, int, int>);
static_assert(!std::is_constructible_v<CRational, std::int64_t>);
static_assert(!std::is_convertible_v<int, CRational>);

TEST(Rational, ConstructionReducesAndPutsTheSignInTheNumerator) {
  constexpr std::tuple<Fraction, Fraction, bool> kCases[] = {
      // given, held, logged
      {{6, -4}, {-3, 2}, false},
      {{0, -5}, {0, 1}, false},
      {{-5, 0}, {1, 0}, false}, // a zero denominator is not logged
      {{INT32_MIN, INT32_MIN}, {1, 1}, false},
      {{0x3FFFFFFF, 1}, {0x3FFFFFFF, 1}, false},
      {{0x40000000, 2}, {0x20000000, 1}, false},
      {{0x40000000, 1}, {1, 0}, true},
      {{1, 0x40000000}, {1, 0}, true},
  };
  for (auto const & [given, held, logged] : kCases) {
    vorx::test::LogCapture log;
    EXPECT_EQ(Held(CRational(given.first, given.second)), held) << given.first;
    EXPECT_EQ(Messages(log), std::vector<std::u16string>(logged ? 1 : 0, kNormalize));
    EXPECT_TRUE(log.Lines().empty() ||
                (log.Lines()[0].level == qefDL_Info && log.Lines()[0].category == u"VORX" &&
                 log.Lines()[0].file == "crational"));
  }
  EXPECT_EQ(Held(CRational()), Fraction(0, 1));
  CRational value;
  EXPECT_TRUE(value.assign(4, 6) && Held(value) == Fraction(2, 3));
  EXPECT_FALSE(value.assign(4, 0) || Held(value) != Fraction(1, 0));
  EXPECT_TRUE(value.assign(0x40000000, 1)) << "a definition-space failure still answers true";
}

TEST(Rational, ArithmeticKeepsTheSignWhereTheDivisorsLeaveItAndLogsResultsOutOfRange) {
  struct Case {
    CRational a, b;
    char op;
    Fraction result; // fields as stored: `*` and `/` may leave the sign in the denominator
    std::u16string logged = {}; // by the operator and again by its in-place form
  };
  CRational const signInDenominator = CRational(-1, 2) * CRational(1); // 1/-2
  Case const kCases[] = {
      {CRational(1, 3), CRational(1, 6), '+', {1, 2}},
      {CRational(3, 4), CRational(5, 6), '-', {-1, 12}},
      {CRational(0x3FFFFFFE), CRational(-1), '-', {0x3FFFFFFF, 1}},
      {CRational(30000, 1001), CRational(1001, 30000), '*', {1, 1}},
      {CRational(-2, 3), CRational(3, 4), '*', {1, -2}},
      {CRational(0x8000), CRational(0x7FFF), '*', {0x3FFF8000, 1}},
      {CRational(1, 2), CRational(-1, 4), '/', {-2, 1}},
      {CRational(), CRational(), '/', {1, 0}},
      {CRational(1, 0), CRational(1, 0), '+', {1, 0}}, // undefined operands propagate silently
      {CRational(0x3FFFFFFF), CRational(1), '+', {1, 0}, kAdd},
      {CRational(1, 0x3FFFFFFF), CRational(1, 0x3FFFFFFE), '-', {1, 0}, kAdd},
      {CRational(0x8000), CRational(0x8000), '*', {1, 0}, kMultiply},
      {CRational(0x8000), CRational(1, 0x8000), '/', {1, 0}, kMultiply},
      {CRational(1, 0x8000), CRational(1, 0x8000), '*', {1, 0}, kMultiply},
      // The denominator bound is tested signed. g = gcd(-1, 0x3FFFFFFE) = -1 makes the
      // denominator -(2^60 - 3 * 2^30 + 2), which passes and is kept modulo 2^32: -0x40000002.
      {CRational(-1, 0x3FFFFFFF), CRational(1, 0x3FFFFFFE), '*', {1, -0x40000002}},
      // Addition too: 1/-2 + 1/0x3FFFFFFF has the denominator -2 * 0x3FFFFFFF.
      {signInDenominator, CRational(1, 0x3FFFFFFF), '+', {0x3FFFFFFD, -0x7FFFFFFE}},
  };
  for (Case const & c : kCases) {
    vorx::test::LogCapture log;
    CRational inPlace = c.a;
    CRational const result = c.op == '+'   ? (inPlace += c.b, c.a + c.b)
                             : c.op == '-' ? (inPlace -= c.b, c.a - c.b)
                             : c.op == '*' ? (inPlace *= c.b, c.a * c.b)
                                           : (inPlace /= c.b, c.a / c.b);
    SCOPED_TRACE(testing::Message() << "row " << &c - kCases);
    EXPECT_EQ(Held(result), c.result);
    EXPECT_EQ(inPlace, result) << "in place: the full result or 1/0";
    EXPECT_EQ(Messages(log), std::vector<std::u16string>(c.logged.empty() ? 0 : 2, c.logged));
  }
  EXPECT_FALSE(signInDenominator == CRational(-1, 2)) << "== compares fields";
  // Integer operands are normalised first.
  vorx::test::LogCapture log;
  EXPECT_EQ((CRational(1, 2) + 0x40000000).den(), 0u);
  EXPECT_EQ(Messages(log), std::vector<std::u16string>{kNormalize});
}

TEST(Rational, UnaryOperators) {
  CRational const value(-3, 4);
  EXPECT_EQ(Held(-value), Fraction(3, 4));
  EXPECT_EQ(Held(~value), Fraction(-4, 3));
  EXPECT_EQ(Held(+value), Fraction(3, 4));
  EXPECT_EQ(Held(~CRational()), Fraction(1, 0));
  EXPECT_EQ(Held(+(CRational(-1, 2) * CRational(1))), Fraction(1, -2))
      << "abs works on the numerator only";
  EXPECT_FALSE(!CRational() || !CRational(1, 0));
}

TEST(Rational, OrderingBySignThenByTheQuotient) {
  struct Case {
    CRational a, b;
    char const * holds; // "1" for each of <, >, <=, >= that holds
  };
  vorx::test::LogCapture log;
  Case const kCases[] = {
      {CRational(-1, 2), CRational(1, 3), "1010"}, // by sign alone
      {CRational(1, 3), CRational(1, 2), "1010"},  // quotient 2/3
      {CRational(1, 2), CRational(1, 2), "0011"},
      // Two negatives: (-1/2) / (-1/3) is 3/2, so -1/2 reads as the greater; (-1/3) / (-1/2)
      // is -2/-3 (signed divisors), whose |-2| > -3 reads as greater too.
      {CRational(-1, 2), CRational(-1, 3), "0101"},
      {CRational(-1, 3), CRational(-1, 2), "0101"},
      {CRational(2), CRational(), "0101"}, // 2 / 0 is 1/0
      // The quotient's denominator 0x3FFFFFFF^2 overflows: 1/0 with a log line, "greater".
      {CRational(1, 0x3FFFFFFF), CRational(0x3FFFFFFF), "0101"},
      {CRational(1, 0), CRational(1, 0), "0111"},
      {CRational(-1, 2) * CRational(1), CRational(1, 3), "0101"}, // 3/-2
  };
  for (Case const & c : kCases) {
    std::string const holds{"01"[c.a < c.b], "01"[c.a > c.b], "01"[c.a <= c.b], "01"[c.a >= c.b]};
    EXPECT_EQ(holds, c.holds) << "row " << &c - kCases;
  }
  EXPECT_EQ(Messages(log), std::vector<std::u16string>(4, kMultiply)) << "the overflowing row";
  EXPECT_TRUE(CRational(1, 2) < 0.6) << "with a double: in floating point";
  EXPECT_TRUE(std::isinf(CRational(1, 0).fract()));
}

TEST(Rational, BestApproximationFromADouble) {
  // value, largest denominator, result ({1, 0}: refused)
  constexpr std::tuple<double, std::int32_t, Fraction> kCases[] = {
      {29.97, 1001, {2997, 100}},
      {30000.0 / 1001.0, 1000, {19001, 634}}, // semiconvergent of 10999/367
      {1.0 / 3.0, 2, {1, 2}},                 // semiconvergent beats 0/1
      {2.5, 1, {2, 1}},                       // tie: the convergent stays
      {2e9, 100, {1, 0}},
      {NAN, 100, {1, 0}},
      {0.5, 0, {1, 0}}, // no bound to divide by
  };
  for (auto const & [given, maxDen, expected] : kCases) {
    CRational value(3, 4);
    EXPECT_EQ(value.fassign(given, maxDen), expected.second != 0) << given;
    EXPECT_EQ(Held(value), expected) << given << " max " << maxDen;
  }
  CRational value;
  EXPECT_TRUE(value.fassign(1.0e9 + 0.5, 1000)) << "numerators stay in the definition space";
  EXPECT_LE(std::abs(value.num()), CRational::kMaxComponent);
}
