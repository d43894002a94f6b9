// Exact fractions inside the definition space of magnitudes below 2^30.
#include <vorx/develop.h>
#include <vorx/math.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace VORX::Math {
namespace {

constexpr std::int64_t kLimit = 0x40000000; // first magnitude outside the definition space

void _logOverflow(int line, qefWChar const * message) {
  VORX::Develop::_logWrite(qefDL_Info, u"VORX", "crational", line, message);
}

// Truncating remainder that is also defined for the one quotient that overflows.
template <typename T> T _mod(T b, T a) {
  return a == -1 ? T(0) : static_cast<T>(b % a);
}

template <typename T> T _signedGcd(T a, T b) {
  while (a != 0) {
    b = _mod(b, a);
    if (b == 0) {
      return a;
    }
    a = _mod(a, b);
  }
  return b;
}

} // namespace

std::int32_t CRational::_gcd(std::int32_t a, std::int32_t b) {
  return _signedGcd(a, b);
}
std::int64_t CRational::_gcd64(std::int64_t a, std::int64_t b) {
  return _signedGcd(a, b);
}

CRational::CRational(std::int32_t num, std::int32_t den) : m_num(num), m_den(den) {
  _normalize();
}

CRational::CRational(std::int32_t num) : m_num(num), m_den(1) {
  _normalize();
}

bool CRational::assign(std::int32_t num, std::int32_t den) {
  m_num = num;
  m_den = den;
  _normalize();
  return den != 0;
}

void CRational::_normalize() {
  // 64-bit magnitudes, so that -2^31 has a positive counterpart.
  std::int64_t num = m_num;
  std::int64_t den = m_den;
  bool flip = false;
  if (den < 0) {
    den = -den;
    flip = true;
  }
  if (num < 0) {
    num = -num;
    flip = !flip;
  }
  if (den < 2) {
    if (den == 0) {
      _setUndefined();
      return;
    }
    if (num == 0) {
      m_num = 0;
      m_den = 1;
      return;
    }
    if (num >= kLimit) {
      _logOverflow(__LINE__, u"CRational::_normalize(): components exceed definition space");
      _setUndefined();
      return;
    }
  } else {
    std::int64_t const g = _gcd64(num, den);
    num /= g;
    den /= g;
    if (num > kMaxComponent || den >= kLimit) {
      _logOverflow(__LINE__, u"CRational::_normalize(): components exceed definition space");
      _setUndefined();
      return;
    }
  }
  m_num = static_cast<std::int32_t>(flip ? -num : num);
  m_den = static_cast<std::int32_t>(den);
}

double CRational::fract() const {
  return static_cast<double>(m_num) / static_cast<double>(m_den);
}

CRational & CRational::operator+=(CRational const & other) {
  std::int64_t const b = m_den;
  std::int64_t const d = other.m_den;
  std::int64_t const g = _gcd(m_den, other.m_den);
  if (g == 0) {
    _setUndefined();
    return *this;
  }
  std::int64_t const b1 = b / g;
  std::int64_t const d1 = d / g;
  std::int64_t const t = d1 * m_num + other.m_num * b1;
  std::int64_t h = _gcd64(t, g);
  if (h < 0) {
    h = -h;
  }
  std::int64_t const num = t / h;
  std::int64_t const den = b1 * (d / h);
  // The denominator test is signed: a negative denominator (from a sign that `*` left there)
  // passes whatever its size and is kept modulo 2^32.
  if (num > kMaxComponent || num < -kMaxComponent || den >= kLimit) {
    _logOverflow(__LINE__, u"CRational::operator +(): Result exceeded definition space");
    _setUndefined();
    return *this;
  }
  m_num = static_cast<std::int32_t>(num);
  m_den = static_cast<std::int32_t>(den);
  return *this;
}

CRational & CRational::operator-=(CRational const & other) {
  return *this += -other;
}

CRational & CRational::operator*=(CRational const & other) {
  std::int64_t const g = _gcd(m_num, other.m_den);
  std::int64_t const h = _gcd(other.m_num, m_den);
  if (g == 0 || h == 0) {
    _setUndefined();
    return *this;
  }
  std::int64_t const num = (m_num / g) * (other.m_num / h);
  std::int64_t const den = (m_den / h) * (other.m_den / g);
  // The denominator test is signed, as in addition.
  if (num > kMaxComponent || num < -kMaxComponent || den > kMaxComponent) {
    _logOverflow(__LINE__, u"CRational::operator *(): Result exceeded definition space");
    _setUndefined();
    return *this;
  }
  m_num = static_cast<std::int32_t>(num);
  m_den = static_cast<std::int32_t>(den);
  return *this;
}

CRational & CRational::operator/=(CRational const & other) {
  // The operand's reciprocal, with a negative sign moved back into the numerator.
  auto const negate = [](std::int32_t v) {
    return static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(v));
  };
  CRational reciprocal;
  reciprocal.m_num = other.m_num < 0 ? negate(other.m_den) : other.m_den;
  reciprocal.m_den = other.m_num < 0 ? negate(other.m_num) : other.m_num;
  return *this *= reciprocal;
}

CRational CRational::operator+(CRational const & other) const {
  CRational result(*this);
  return result += other;
}
CRational CRational::operator-(CRational const & other) const {
  CRational result(*this);
  return result -= other;
}
CRational CRational::operator*(CRational const & other) const {
  CRational result(*this);
  return result *= other;
}
CRational CRational::operator/(CRational const & other) const {
  CRational result(*this);
  return result /= other;
}

CRational CRational::operator-() const {
  CRational result(*this);
  result.m_num = static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(m_num));
  return result;
}

CRational CRational::operator~() const {
  CRational result;
  result.m_num =
      m_num < 0 ? static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(m_den)) : m_den;
  result.m_den =
      m_num < 0 ? static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(m_num)) : m_num;
  return result;
}

CRational CRational::operator+() const {
  return m_num < 0 ? -*this : *this;
}

// -1 before, 1 after, 0 for two zero numerators or neither. The numerators' signs decide first;
// otherwise the quotient this / other, formed by the division above, is before when its
// numerator's magnitude is below its (signed) denominator and after when above.
int CRational::_order(CRational const & other) const {
  if (m_num >= 0 && other.m_num < 0) {
    return 1;
  }
  if (m_num < 0 && other.m_num >= 0) {
    return -1;
  }
  if (m_num == 0 && other.m_num == 0) {
    return 0;
  }
  CRational const quotient = *this / other;
  std::int64_t const magnitude =
      quotient.m_num < 0 ? -std::int64_t{quotient.m_num} : quotient.m_num;
  if (magnitude < quotient.m_den) {
    return -1;
  }
  return magnitude > quotient.m_den ? 1 : 0;
}

bool CRational::operator<(CRational const & other) const {
  return _order(other) == -1;
}
bool CRational::operator>(CRational const & other) const {
  return _order(other) == 1;
}
bool CRational::operator<=(CRational const & other) const {
  return _order(other) == -1 || *this == other;
}
bool CRational::operator>=(CRational const & other) const {
  return _order(other) == 1 || *this == other;
}

bool CRational::fassign(double value, std::int32_t maxDen) {
  constexpr double kBound = 1073741823.0;
  if (!(std::fabs(value) <= kBound) || maxDen < 1) {
    _setUndefined();
    return false;
  }
  std::int64_t const limit = maxDen > kMaxComponent ? kMaxComponent : maxDen;
  double const x0 = std::fabs(value);
  double x = x0;
  // Convergents h/k with their two predecessors.
  std::int64_t h2 = 0;
  std::int64_t h1 = 1;
  std::int64_t k2 = 1;
  std::int64_t k1 = 0;
  for (;;) {
    std::int64_t const a = static_cast<std::int64_t>(x);
    std::int64_t const k = a * k1 + k2;
    std::int64_t const h = a * h1 + h2;
    if (k > limit || h > kMaxComponent) {
      break;
    }
    h2 = h1;
    h1 = h;
    k2 = k1;
    k1 = k;
    if (x == static_cast<double>(a)) {
      break;
    }
    x = 1.0 / (x - static_cast<double>(a));
    if (x > kBound) {
      break;
    }
  }
  std::int64_t num = h1;
  std::int64_t den = k1;
  if (k1 != 0) {
    // The semiconvergent with the largest step that stays within both bounds.
    std::int64_t t = (limit - k2) / k1;
    if (h1 != 0 && (kMaxComponent - h2) / h1 < t) {
      t = (kMaxComponent - h2) / h1;
    }
    std::int64_t const semiNum = h1 * t + h2;
    std::int64_t const semiDen = k1 * t + k2;
    if (semiDen != 0 &&
        std::fabs(x0 - static_cast<double>(h1) / static_cast<double>(k1)) >
            std::fabs(x0 - static_cast<double>(semiNum) / static_cast<double>(semiDen))) {
      num = semiNum;
      den = semiDen;
    }
  }
  m_num = static_cast<std::int32_t>(value < 0 ? -num : num);
  m_den = static_cast<std::int32_t>(den);
  return true;
}

CRational operator+(std::int32_t n, CRational const & value) {
  return CRational(n) + value;
}
CRational operator-(std::int32_t n, CRational const & value) {
  return CRational(n) - value;
}
CRational operator*(std::int32_t n, CRational const & value) {
  return CRational(n) * value;
}
CRational operator/(std::int32_t n, CRational const & value) {
  return CRational(n) / value;
}

} // namespace VORX::Math
