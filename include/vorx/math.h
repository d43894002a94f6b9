// VORX::Math: exact arithmetic. `CRational`, a fraction of two signed 32-bit integers kept inside
// a definition space of magnitudes below 2^30, with the undefined value 1/0 for every result
// that would leave it.
#pragma once

#include <cstdint>

#include <vorx/base.h>

namespace VORX::Math {

// An exact fraction num/den of two signed 32-bit integers (for example 30000/1001). A small value
// (no heap); copies are independent; one object must not be changed by two threads at once.
// Results whose numerator or denominator would reach 2^30 become the undefined value 1/0 and
// write one "INFO" line to the log (category "VORX"). Any denominator 0 counts as undefined.
// Overloads: an `int` argument selects the `std::int32_t` forms; `std::int64_t` arguments are
// refused at compile time rather than cut to 32 bits.
class VORX_API CRational {
public:
  // The largest magnitude of a numerator or denominator inside the definition space.
  static constexpr std::int32_t kMaxComponent = 0x3FFFFFFF;

  // 0/1.
  CRational() = default;
  // Copies both fields as they are, without normalising.
  CRational(CRational const &) = default;
  CRational & operator=(CRational const &) = default;
  // num/den reduced to lowest terms with the sign in the numerator; a zero denominator gives
  // 1/0 without a log line; a component of 2^30 or more after reduction gives 1/0 and logs.
  CRational(std::int32_t num, std::int32_t den);
  // num/1; a magnitude of 2^30 or more gives 1/0 and logs.
  explicit CRational(std::int32_t num);
  CRational(std::int64_t, std::int64_t) = delete;
  explicit CRational(std::int64_t) = delete;

  // Stores num/den as the constructor does. False only for a zero denominator (a value that
  // leaves the definition space still answers true, as 1/0).
  bool assign(std::int32_t num, std::int32_t den);
  // The best approximation of `value` with a denominator at most `maxDen`: continued-fraction
  // convergents, then the semiconvergent when it is strictly closer. False (and 1/0) when
  // |value| exceeds 1073741823.0, when `value` is not a number, or when `maxDen` is below 1.
  // Note: `maxDen` above 1073741823 counts as 1073741823, and the expansion also stops before a
  // numerator would leave the definition space; the result is not normalised (it needs not be).
  bool fassign(double value, std::int32_t maxDen);

  // The numerator as stored (it carries the sign, except after the deliberate quirk of `*`).
  std::int32_t num() const { return m_num; }
  // The denominator read as unsigned. Note: a sign left in the denominator by `*` shows as a
  // value above 0x7FFFFFFF.
  std::uint32_t den() const { return static_cast<std::uint32_t>(m_den); }
  // num/den as a double; an infinity (or NaN for 0/0) when the denominator is 0.
  double fract() const;
  // True when the denominator is not 0.
  bool isNormal() const { return m_den != 0; }

  // Exact arithmetic. Results outside the definition space are 1/0 with a log line; a zero
  // denominator on both sides gives 1/0 silently; an undefined operand gives a denominator 0.
  // Note: `*` and `/` do not normalise: (-1/2) * (1/1) is 1/-2, which == tells apart from -1/2.
  // Note: the denominator bound is tested signed, so a negative denominator of any size passes
  // (kept modulo 2^32): (1/-3) * (1/0x20000000) is 1/-0x60000000, and 1/-0x60000000 + 0/1 stays.
  CRational operator+(CRational const & other) const;
  CRational operator-(CRational const & other) const;
  CRational operator*(CRational const & other) const;
  CRational operator/(CRational const & other) const;
  // The number is first made into n/1 (1/0 with a log line from 2^30 on).
  CRational operator+(std::int32_t n) const { return *this + CRational(n); }
  CRational operator-(std::int32_t n) const { return *this - CRational(n); }
  CRational operator*(std::int32_t n) const { return *this * CRational(n); }
  CRational operator/(std::int32_t n) const { return *this / CRational(n); }
  CRational operator+(std::int64_t) const = delete;
  CRational operator-(std::int64_t) const = delete;
  CRational operator*(std::int64_t) const = delete;
  CRational operator/(std::int64_t) const = delete;
  // In place: the full result or 1/0, never half of it.
  CRational & operator+=(CRational const & other);
  CRational & operator-=(CRational const & other);
  CRational & operator*=(CRational const & other);
  CRational & operator/=(CRational const & other);

  // Numerator negated, denominator kept.
  CRational operator-() const;
  // The reciprocal, not normalised: the old numerator's sign stays in the numerator, so
  // ~(-3/4) is -4/3, and ~(0/1) is 1/0.
  CRational operator~() const;
  // Note: unary plus is the absolute value (|num|/den), on purpose: the library's "abs".
  CRational operator+() const;
  // Note: true only for the raw pair 0/0, which no operation produces; false for 0/1 and 1/0.
  bool operator!() const { return m_num == 0 && m_den == 0; }

  // Field-wise: 1/-2 == -1/2 is false.
  bool operator==(CRational const & other) const {
    return m_num == other.m_num && m_den == other.m_den;
  }
  bool operator!=(CRational const & other) const { return !(*this == other); }
  // Ordering: the numerators' signs decide first (a sign that `*` left in a denominator is not
  // seen); two zero numerators are equal; otherwise the quotient this / other (the division
  // above) is compared: |numerator| below its denominator is "before", above it "after".
  // Note: with two negative operands the order comes out reversed (-1/2 > -1/3), and a quotient
  // that leaves the definition space logs the `*` message and, as 1/0, reads "after".
  // Note: `<=` and `>=` mean "strictly before/after, or equal fields", so 1/-2 <= -1/2 is false.
  bool operator<(CRational const & other) const;
  bool operator>(CRational const & other) const;
  bool operator<=(CRational const & other) const;
  bool operator>=(CRational const & other) const;
  // Compare `fract()` with a double in floating point (an `int` converts to double here).
  bool operator<(double value) const { return fract() < value; }
  bool operator>(double value) const { return fract() > value; }
  bool operator<=(double value) const { return fract() <= value; }
  bool operator>=(double value) const { return fract() >= value; }
  bool operator==(double value) const { return fract() == value; }

private:
  void _normalize();
  static std::int32_t _gcd(std::int32_t a, std::int32_t b);
  static std::int64_t _gcd64(std::int64_t a, std::int64_t b);
  int _order(CRational const & other) const;
  void _setUndefined() {
    m_num = 1;
    m_den = 0;
  }

  std::int32_t m_num = 0;
  std::int32_t m_den = 1;
};

// n/1 combined with a rational, as the member forms with the operands swapped.
VORX_API CRational operator+(std::int32_t n, CRational const & value);
VORX_API CRational operator-(std::int32_t n, CRational const & value);
VORX_API CRational operator*(std::int32_t n, CRational const & value);
VORX_API CRational operator/(std::int32_t n, CRational const & value);

} // namespace VORX::Math
