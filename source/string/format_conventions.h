// What the 16-bit formatter and scanner share: the argument list wrapper and the size prefixes
// of a conversion, in the conventions of the Windows wide runtime beside the C99 ones.
#pragma once

#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include <vorx/base.h>

namespace VORX::String {

// The argument list, wrapped so that helpers can take it by reference on every ABI.
struct _tagARGS {
  std::va_list list;
};

// The size prefix of a conversion: none, hh, h, l, ll, j, z, t, L, I64, I32, I, w.
enum class _eSIZE : unsigned char { None, HH, H, L, LL, J, Z, T, BigL, I64, I32, I, W };

// Reads the size prefix at `f`, if any, and moves past it.
inline _eSIZE _readSizePrefix(qefWChar const *& f) {
  switch (*f) {
  case u'h':
    if (f[1] == u'h') {
      f += 2;
      return _eSIZE::HH;
    }
    ++f;
    return _eSIZE::H;
  case u'l':
    if (f[1] == u'l') {
      f += 2;
      return _eSIZE::LL;
    }
    ++f;
    return _eSIZE::L;
  case u'j':
    ++f;
    return _eSIZE::J;
  case u'z':
    ++f;
    return _eSIZE::Z;
  case u't':
    ++f;
    return _eSIZE::T;
  case u'L':
    ++f;
    return _eSIZE::BigL;
  case u'w':
    ++f;
    return _eSIZE::W;
  case u'I':
    if (f[1] == u'6' && f[2] == u'4') {
      f += 3;
      return _eSIZE::I64;
    }
    if (f[1] == u'3' && f[2] == u'2') {
      f += 3;
      return _eSIZE::I32;
    }
    ++f;
    return _eSIZE::I;
  default:
    return _eSIZE::None;
  }
}

// Reads a decimal number (a width or precision), saturating at INT_MAX.
inline int _readNumber(qefWChar const *& f) {
  int value = 0;
  while (*f >= u'0' && *f <= u'9') {
    int const digit = *f++ - u'0';
    value = value > (INT_MAX - digit) / 10 ? INT_MAX : value * 10 + digit;
  }
  return value;
}

// Stores `value` through the pointer argument of the size's integer type (a `%n` count or a
// scanned integer; signed and unsigned targets of one size take the same bits).
inline void _storeInteger(_tagARGS & args, _eSIZE size, std::uint64_t value) {
  switch (size) {
  case _eSIZE::HH:
    *va_arg(args.list, unsigned char *) = static_cast<unsigned char>(value);
    return;
  case _eSIZE::H:
    *va_arg(args.list, unsigned short *) = static_cast<unsigned short>(value);
    return;
  case _eSIZE::L:
    *va_arg(args.list, unsigned long *) = static_cast<unsigned long>(value);
    return;
  case _eSIZE::LL:
  case _eSIZE::BigL:
  case _eSIZE::I64:
    *va_arg(args.list, unsigned long long *) = value;
    return;
  case _eSIZE::J:
    *va_arg(args.list, std::uintmax_t *) = value;
    return;
  case _eSIZE::Z:
  case _eSIZE::T:
  case _eSIZE::I:
    *va_arg(args.list, std::size_t *) = static_cast<std::size_t>(value);
    return;
  case _eSIZE::I32:
  case _eSIZE::None:
  case _eSIZE::W:
    break;
  }
  *va_arg(args.list, unsigned *) = static_cast<unsigned>(value);
}

} // namespace VORX::String
