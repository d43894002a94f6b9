#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include <gtest/gtest.h>
#include <vorx/math.h>

#include "support/diagnostics_capture.h"

using VORX::Math::CRational;

namespace {

struct Fraction {
  std::int32_t num, den; // den as stored, signed
};

::testing::AssertionResult Is(CRational const & value, std::int32_t num, std::int32_t den) {
  std::int32_t const held = static_cast<std::int32_t>(value.den());
  if (value.num() == num && held == den) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << "holds " << value.num() << "/" << held;
}

CRational Of(Fraction f) {
  return CRational(f.num, f.den);
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
  struct Case {
    Fraction given, held;
    bool logged;
  };
  constexpr Case kCases[] = {
      {{6, -4}, {-3, 2}, false},
      {{0, -5}, {0, 1}, false},
      {{5, 0}, {1, 0}, false}, // a zero denominator is not logged
      {{-5, 0}, {1, 0}, false},
      {{INT32_MIN, INT32_MIN}, {1, 1}, false},
      {{0x3FFFFFFF, 1}, {0x3FFFFFFF, 1}, false},
      {{0x40000000, 2}, {0x20000000, 1}, false},
      {{0x40000000, 1}, {1, 0}, true},
      {{INT32_MIN, 1}, {1, 0}, true},
      {{1, 0x40000000}, {1, 0}, true},
  };
  for (Case const & c : kCases) {
    vorx::test::LogCapture log;
    EXPECT_TRUE(Is(Of(c.given), c.held.num, c.held.den)) << c.given.num << "/" << c.given.den;
    EXPECT_EQ(Messages(log), std::vector<std::u16string>(c.logged ? 1 : 0, kNormalize));
    if (c.logged && log.Lines().size() == 1) {
      EXPECT_EQ(log.Lines()[0].level, qefDL_Info);
      EXPECT_EQ(log.Lines()[0].category, u"VORX");
      EXPECT_EQ(log.Lines()[0].file, "crational");
    }
  }
  EXPECT_TRUE(Is(CRational(), 0, 1));
  EXPECT_TRUE(Is(CRational(-7), -7, 1));
  CRational value;
  EXPECT_TRUE(value.assign(4, 6));
  EXPECT_TRUE(Is(value, 2, 3));
  EXPECT_FALSE(value.assign(4, 0));
  EXPECT_TRUE(Is(value, 1, 0));
  EXPECT_TRUE(value.assign(0x40000000, 1)) << "a definition-space failure still answers true";
}

TEST(Rational, ArithmeticKeepsTheSignWhereTheDivisorsLeaveIt) {
  struct Case {
    Fraction a, b;
    char op;
    Fraction result; // fields as stored: `*` and `/` may leave the sign in the denominator
  };
  constexpr Case kCases[] = {
      {{1, 3}, {1, 6}, '+', {1, 2}},
      {{3, 4}, {5, 6}, '-', {-1, 12}},
      {{-1, 2}, {-1, 3}, '+', {-5, 6}},
      {{0x3FFFFFFE, 1}, {-1, 1}, '-', {0x3FFFFFFF, 1}},
      {{30000, 1001}, {1001, 30000}, '*', {1, 1}},
      {{-1, 2}, {1, 1}, '*', {1, -2}},
      {{-2, 3}, {3, 4}, '*', {1, -2}},
      {{0x8000, 1}, {0x7FFF, 1}, '*', {0x3FFF8000, 1}},
      {{1, 2}, {-1, 4}, '/', {-2, 1}},
      {{3, 4}, {0, 1}, '/', {1, 0}},
      {{0, 1}, {0, 1}, '/', {1, 0}},
  };
  vorx::test::LogCapture log;
  for (Case const & c : kCases) {
    CRational const a = Of(c.a);
    CRational const b = Of(c.b);
    CRational inPlace = a;
    CRational const result = c.op == '+'   ? (inPlace += b, a + b)
                             : c.op == '-' ? (inPlace -= b, a - b)
                             : c.op == '*' ? (inPlace *= b, a * b)
                                           : (inPlace /= b, a / b);
    EXPECT_TRUE(Is(result, c.result.num, c.result.den)) << c.a.num << "/" << c.a.den << c.op;
    EXPECT_EQ(inPlace, result) << c.a.num << "/" << c.a.den << c.op;
  }
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_FALSE(CRational(-1, 2) * CRational(1) == CRational(-1, 2)) << "== compares fields";
  EXPECT_EQ((CRational(-1, 2) * CRational(1)).den(), 0xFFFFFFFEu);
}

TEST(Rational, ResultsOutsideTheDefinitionSpace) {
  vorx::test::LogCapture log;
  CRational const big(0x3FFFFFFF);
  EXPECT_TRUE(Is(big + CRational(1), 1, 0));
  EXPECT_TRUE(Is(CRational(1, 0x3FFFFFFF) - CRational(1, 0x3FFFFFFE), 1, 0)) << "denominator";
  EXPECT_TRUE(Is(CRational(0x8000) * CRational(0x8000), 1, 0));
  EXPECT_TRUE(Is(CRational(0x8000) / CRational(1, 0x8000), 1, 0)) << "the multiply message";
  EXPECT_TRUE(Is(CRational(1, 0x8000) * CRational(1, 0x8000), 1, 0));
  CRational accumulated(1, 2);
  accumulated += big;
  EXPECT_TRUE(Is(accumulated, 1, 0)) << "in place: the full result or 1/0";
  EXPECT_EQ(Messages(log),
            (std::vector<std::u16string>{kAdd, kAdd, kMultiply, kMultiply, kMultiply, kAdd}));
  log.Clear();

  // The denominator bound is tested signed. g = gcd(-1, 0x3FFFFFFE) = -1 makes the denominator
  // -(2^60 - 3 * 2^30 + 2), which passes and is kept modulo 2^32: -0x40000002.
  EXPECT_TRUE(Is(CRational(-1, 0x3FFFFFFF) * CRational(1, 0x3FFFFFFE), 1, -0x40000002));
  // 1/-3 times 1/0x3FFFFFFF: -3221225469 modulo 2^32 is the positive 0x40000003.
  EXPECT_TRUE(Is(CRational(-1, 3) * CRational(1) * CRational(1, 0x3FFFFFFF), 1, 0x40000003));
  // Addition too: 1/-2 + 1/0x3FFFFFFF has the denominator -2 * 0x3FFFFFFF.
  EXPECT_TRUE(
      Is(CRational(-1, 2) * CRational(1) + CRational(1, 0x3FFFFFFF), 0x3FFFFFFD, -0x7FFFFFFE));
  // Undefined operands propagate silently as a denominator 0.
  CRational const undefined(1, 0);
  EXPECT_TRUE(Is(undefined + undefined, 1, 0));
  EXPECT_EQ((CRational(1, 2) + undefined).den(), 0u);
  EXPECT_EQ((undefined * CRational(1, 2)).den(), 0u);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(Rational, IntegerOperandsAreNormalisedFirst) {
  vorx::test::LogCapture log;
  CRational const half(1, 2);
  EXPECT_TRUE(Is(half - 1, -1, 2));
  EXPECT_TRUE(Is(half / 2, 1, 4));
  EXPECT_TRUE(Is(1 / CRational(1, 4), 4, 1));
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_EQ((half + 0x40000000).den(), 0u);
  EXPECT_EQ(Messages(log), std::vector<std::u16string>{kNormalize});
}

TEST(Rational, UnaryOperators) {
  struct Case {
    Fraction value, minus, reciprocal, absolute;
  };
  constexpr Case kCases[] = {{{-3, 4}, {3, 4}, {-4, 3}, {3, 4}},
                             {{3, 4}, {-3, 4}, {4, 3}, {3, 4}},
                             {{0, 1}, {0, 1}, {1, 0}, {0, 1}}};
  for (Case const & c : kCases) {
    CRational const value = Of(c.value);
    EXPECT_TRUE(Is(-value, c.minus.num, c.minus.den)) << c.value.num;
    EXPECT_TRUE(Is(~value, c.reciprocal.num, c.reciprocal.den)) << c.value.num;
    EXPECT_TRUE(Is(+value, c.absolute.num, c.absolute.den)) << c.value.num;
  }
  EXPECT_TRUE(Is(+(CRational(-1, 2) * CRational(1)), 1, -2)) << "abs works on the numerator only";
  EXPECT_FALSE(!CRational());
  EXPECT_FALSE(!CRational(1, 0));
  EXPECT_FALSE(!(CRational() / CRational()));
  EXPECT_FALSE(CRational(3, 0).isNormal());
}

TEST(Rational, OrderingBySignThenByTheQuotient) {
  struct Case {
    CRational a, b;
    bool less, greater, lessEqual, greaterEqual;
  };
  CRational const signInDenominator = CRational(-1, 2) * CRational(1); // 1/-2
  vorx::test::LogCapture log;
  Case const kCases[] = {
      {CRational(-1, 2), CRational(1, 3), true, false, true, false}, // by sign alone
      {CRational(1, 3), CRational(1, 2), true, false, true, false},  // quotient 2/3
      {CRational(1, 2), CRational(1, 3), false, true, false, true},  // quotient 3/2
      {CRational(1, 2), CRational(1, 2), false, false, true, true},
      {CRational(), CRational(), false, false, true, true},
      // Two negatives: (-1/2) / (-1/3) is 3/2, so -1/2 reads as the greater; (-1/3) / (-1/2)
      // is -2/-3 (signed divisors), whose |-2| > -3 reads as greater too.
      {CRational(-1, 2), CRational(-1, 3), false, true, false, true},
      {CRational(-1, 3), CRational(-1, 2), false, true, false, true},
      {CRational(2), CRational(), false, true, false, true}, // 2 / 0 is 1/0
      {CRational(), CRational(2), true, false, true, false},
      // The quotient's denominator 0x3FFFFFFF^2 overflows: 1/0 with a log line, "greater".
      {CRational(1, 0x3FFFFFFF), CRational(0x3FFFFFFF), false, true, false, true},
      {CRational(), CRational(1, 0), true, false, true, false},
      {CRational(1, 0), CRational(1, 0), false, true, true, true},
      {signInDenominator, CRational(1, 3), false, true, false, true},  // quotient 3/-2
      {signInDenominator, CRational(-1, 2), false, true, false, true}, // by sign alone
  };
  for (std::size_t i = 0; i < sizeof(kCases) / sizeof(kCases[0]); ++i) {
    Case const & c = kCases[i];
    EXPECT_EQ(c.a < c.b, c.less) << "row " << i;
    EXPECT_EQ(c.a > c.b, c.greater) << "row " << i;
    EXPECT_EQ(c.a <= c.b, c.lessEqual) << "row " << i;
    EXPECT_EQ(c.a >= c.b, c.greaterEqual) << "row " << i;
  }
  EXPECT_EQ(Messages(log), std::vector<std::u16string>(4, kMultiply)) << "the overflowing row";
  EXPECT_TRUE(CRational(1, 2) < 0.6) << "with a double: in floating point";
  EXPECT_TRUE(CRational(1, 3) >= 1.0 / 3.0);
  EXPECT_TRUE(CRational(3, 1) > 2) << "an int compares as a double";
  EXPECT_TRUE(std::isinf(CRational(1, 0).fract()));
}

TEST(Rational, BestApproximationFromADouble) {
  struct Case {
    double value;
    std::int32_t maxDen;
    Fraction expected; // {1, 0}: refused
  };
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  constexpr Case kCases[] = {
      {29.97, 1001, {2997, 100}},
      {30000.0 / 1001.0, 1000, {19001, 634}}, // semiconvergent of 10999/367
      {3.14159265358979, 100, {311, 99}},     // semiconvergent beats 22/7
      {-0.75, 100, {-3, 4}},
      {1.0 / 3.0, 2, {1, 2}}, // semiconvergent beats 0/1
      {2.5, 1, {2, 1}},       // tie: the convergent stays
      {-1073741823.0, 1, {-1073741823, 1}},
      {0.1, INT32_MAX, {1, 10}},
      {2e9, 100, {1, 0}},
      {kNaN, 100, {1, 0}},
      {0.5, 0, {1, 0}}, // no bound to divide by
  };
  for (Case const & c : kCases) {
    CRational value(3, 4);
    EXPECT_EQ(value.fassign(c.value, c.maxDen), c.expected.den != 0) << c.value;
    EXPECT_TRUE(Is(value, c.expected.num, c.expected.den)) << c.value << " max " << c.maxDen;
  }
  CRational value;
  EXPECT_TRUE(value.fassign(1.0e9 + 0.5, 1000)) << "numerators stay in the definition space";
  EXPECT_LE(std::abs(value.num()), CRational::kMaxComponent);
}
