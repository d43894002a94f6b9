// The 16-bit scanner: scanf over `qefWChar` text with the conventions of the Windows wide
// runtime. The input is a string, so a number's end is decided by looking ahead freely: a float
// is cut to the longest prefix the C library reads, and nothing after it is consumed.
#include <vorx/core.h>
#include <vorx/string.h>

#include "format_conventions.h"
#include "format_utf8.h"

#include <climits>
#include <cstdlib>

namespace VORX::String {
namespace {

// A float's characters fit here unless the input holds an absurdly long number.
constexpr std::size_t g_floatStack = 512;

bool _isSpace(qefWChar unit) {
  return unit == u' ' || (unit >= u'\t' && unit <= u'\r');
}

int _digitValue(qefWChar unit) {
  if (unit >= u'0' && unit <= u'9') {
    return unit - u'0';
  }
  if (unit >= u'a' && unit <= u'z') {
    return unit - u'a' + 10;
  }
  if (unit >= u'A' && unit <= u'Z') {
    return unit - u'A' + 10;
  }
  return 99;
}

// Units a float's text may hold; the C library then decides how many of them form the number.
bool _isFloatUnit(qefWChar unit) {
  return _digitValue(unit) < 99 || unit == u'.' || unit == u',' || unit == u'+' || unit == u'-' ||
         unit == u'(' || unit == u')' || unit == u'_';
}

// Reads an integer of `base` (0: by its prefix) from at most `width` units, as strtoll (signed)
// or strtoull would: a value beyond 64 bits saturates, a minus sign negates an unsigned value.
// A lone "0x" prefix reads as 0. False when no digit is there.
bool _readInteger(qefWChar const *& p, std::size_t width, int base, bool isSigned,
                  std::uint64_t & value) {
  bool negative = false;
  if (width && (*p == u'+' || *p == u'-')) {
    negative = *p == u'-';
    ++p;
    --width;
  }
  bool prefix = false;
  if ((base == 0 || base == 16) && width >= 2 && p[0] == u'0' && (p[1] == u'x' || p[1] == u'X')) {
    p += 2;
    width -= 2;
    base = 16;
    prefix = true;
  } else if (base == 0) {
    base = width && *p == u'0' ? 8 : 10;
  }
  std::uint64_t magnitude = 0;
  bool overflow = false;
  bool any = false;
  for (int digit; width && (digit = _digitValue(*p)) < base; ++p, --width) {
    any = true;
    auto const b = static_cast<std::uint64_t>(base);
    if (magnitude > (UINT64_MAX - static_cast<std::uint64_t>(digit)) / b) {
      overflow = true;
    } else {
      magnitude = magnitude * b + static_cast<std::uint64_t>(digit);
    }
  }
  if (!any && !prefix) {
    return false;
  }
  if (isSigned) {
    std::uint64_t const limit = negative ? 0x8000000000000000ull : 0x7FFFFFFFFFFFFFFFull;
    if (overflow || magnitude > limit) {
      magnitude = limit;
    }
  } else if (overflow) {
    value = UINT64_MAX;
    return true;
  }
  value = negative ? 0 - magnitude : magnitude;
  return true;
}

// One unit of narrow text for `%hc`: its own value up to U+00FF, else '?'.
char _narrowUnit(qefWChar unit) {
  return unit <= 0xFF ? static_cast<char>(unit) : '?';
}

// Appends the UTF-8 of the character at `p` to `out` while `room` lasts; false (consuming
// nothing) when it does not fit. A lone surrogate becomes U+FFFD.
bool _appendUTF8(qefWChar const *& p, std::size_t length, char * out, std::size_t & room,
                 std::size_t & used) {
  char32_t cp = p[0];
  std::size_t units = 1;
  if (cp >= 0xD800 && cp <= 0xDBFF && length >= 2 && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
    cp = 0x10000 + ((cp - 0xD800) << 10) + (p[1] - 0xDC00u);
    units = 2;
  } else if (cp >= 0xD800 && cp <= 0xDFFF) {
    cp = 0xFFFD;
  }
  char bytes[4];
  auto const n = static_cast<std::size_t>(_encodeUTF8(cp, bytes));
  if (n > room) {
    return false;
  }
  if (out) {
    for (std::size_t i = 0; i < n; ++i) {
      out[used + i] = bytes[i];
    }
  }
  used += n;
  room -= n;
  p += units;
  return true;
}

// `%[...]`: the units between `first` and `last`; "a-z" is a range unless the '-' is first or
// last; a ']' right after the '[' (or "[^") belongs to the set.
struct _tagSCANSET {
  qefWChar const * first;
  qefWChar const * last;
  bool negated;

  bool Contains(qefWChar unit) const {
    bool found = false;
    for (qefWChar const * s = first; s < last && !found; ++s) {
      if (s + 2 < last && s[1] == u'-') {
        found = unit >= s[0] && unit <= s[2];
        s += 2;
      } else {
        found = unit == *s;
      }
    }
    return found != negated;
  }
};

// Reads the float at `p` (at most `width` units) and stores it per `size` unless suppressed;
// false on a matching failure or when a huge number's heap block cannot be had.
bool _readFloat(qefWChar const *& p, std::size_t width, _eSIZE size, bool suppress,
                _tagARGS & args) {
  std::size_t length = 0;
  while (length < width && _isFloatUnit(p[length])) {
    ++length;
  }
  if (length == 0) {
    return false;
  }
  char stack[g_floatStack];
  char * text = stack;
  if (length >= sizeof(stack)) {
    text = static_cast<char *>(Core::OS::_falloc(length + 1));
    if (!text) {
      return false;
    }
  }
  for (std::size_t i = 0; i < length; ++i) {
    text[i] = static_cast<char>(p[i]);
  }
  text[length] = 0;
  char * end = text;
  long double longValue = 0;
  double value = 0;
  float shortValue = 0;
  if (size == _eSIZE::BigL || size == _eSIZE::LL) {
    longValue = std::strtold(text, &end);
  } else if (size == _eSIZE::L) {
    value = std::strtod(text, &end);
  } else {
    shortValue = std::strtof(text, &end);
  }
  auto const used = static_cast<std::size_t>(end - text);
  if (text != stack) {
    Core::OS::_ffree(text);
  }
  if (used == 0) {
    return false;
  }
  p += used;
  if (!suppress) {
    if (size == _eSIZE::BigL || size == _eSIZE::LL) {
      *va_arg(args.list, long double *) = longValue;
    } else if (size == _eSIZE::L) {
      *va_arg(args.list, double *) = value;
    } else {
      *va_arg(args.list, float *) = shortValue;
    }
  }
  return true;
}

// The whole scan. Returns the fields stored, or -1 when the input ends before a conversion.
int _scan(qefWChar const * p, qefWChar const * f, _tagARGS & args) {
  qefWChar const * const input = p;
  int stored = 0;
  bool converted = false;
  auto const endOfInput = [&] { return converted ? stored : -1; };

  while (*f) {
    if (_isSpace(*f)) {
      while (_isSpace(*f)) {
        ++f;
      }
      while (_isSpace(*p)) {
        ++p;
      }
      continue;
    }
    if (*f != u'%') {
      if (!*p) {
        return endOfInput();
      }
      if (*p != *f) {
        return stored;
      }
      ++p;
      ++f;
      continue;
    }
    ++f;
    bool const suppress = *f == u'*';
    if (suppress) {
      ++f;
    }
    int const width = _readNumber(f);
    std::size_t const limit = width > 0 ? static_cast<std::size_t>(width) : SIZE_MAX;
    _eSIZE const size = _readSizePrefix(f);
    qefWChar const conversion = *f++;
    bool const narrowSize = size == _eSIZE::H || size == _eSIZE::HH;
    bool const wideSize = size == _eSIZE::L || size == _eSIZE::W;

    if (conversion == u'n') {
      if (!suppress) {
        _storeInteger(args, size, static_cast<std::uint64_t>(p - input));
      }
      continue;
    }
    if (conversion != u'c' && conversion != u'C' && conversion != u'[') {
      while (_isSpace(*p)) {
        ++p;
      }
    }

    switch (conversion) {
    case u'%':
      if (!*p) {
        return endOfInput();
      }
      if (*p != u'%') {
        return stored;
      }
      ++p;
      continue;
    case u'd':
    case u'i':
    case u'u':
    case u'o':
    case u'x':
    case u'X':
    case u'p': {
      if (!*p) {
        return endOfInput();
      }
      int const base = conversion == u'd' || conversion == u'u' ? 10
                       : conversion == u'i'                     ? 0
                       : conversion == u'o'                     ? 8
                                                                : 16;
      std::uint64_t value = 0;
      if (!_readInteger(p, limit, base, conversion == u'd' || conversion == u'i', value)) {
        return stored;
      }
      if (!suppress) {
        if (conversion == u'p') {
          *va_arg(args.list, void **) =
              reinterpret_cast<void *>(static_cast<std::uintptr_t>(value));
        } else {
          _storeInteger(args, size, value);
        }
        ++stored;
      }
      break;
    }
    case u'e':
    case u'E':
    case u'f':
    case u'F':
    case u'g':
    case u'G':
    case u'a':
    case u'A':
      if (!*p) {
        return endOfInput();
      }
      if (!_readFloat(p, limit, size, suppress, args)) {
        return stored;
      }
      if (!suppress) {
        ++stored;
      }
      break;
    case u'c':
    case u'C': {
      if (!*p) {
        return endOfInput();
      }
      bool const narrow = conversion == u'c' ? narrowSize : !wideSize;
      std::size_t const count = width > 0 ? static_cast<std::size_t>(width) : 1;
      qefWChar * wide = nullptr;
      char * bytes = nullptr;
      if (!suppress) {
        if (narrow) {
          bytes = va_arg(args.list, char *);
        } else {
          wide = va_arg(args.list, qefWChar *);
        }
      }
      for (std::size_t i = 0; i < count && *p; ++i, ++p) {
        if (wide) {
          wide[i] = *p;
        } else if (bytes) {
          bytes[i] = _narrowUnit(*p);
        }
      }
      if (!suppress) {
        ++stored;
      }
      break;
    }
    case u's':
    case u'S':
    case u'[': {
      _tagSCANSET set{nullptr, nullptr, false};
      if (conversion == u'[') {
        set.negated = *f == u'^';
        if (set.negated) {
          ++f;
        }
        set.first = f;
        if (*f == u']') {
          ++f;
        }
        while (*f && *f != u']') {
          ++f;
        }
        if (!*f) {
          return stored; // no closing bracket
        }
        set.last = f++;
      }
      if (!*p) {
        return endOfInput();
      }
      bool const narrow = conversion == u'S' ? !wideSize : narrowSize;
      qefWChar * wide = nullptr;
      char * bytes = nullptr;
      if (!suppress) {
        if (narrow) {
          bytes = va_arg(args.list, char *);
        } else {
          wide = va_arg(args.list, qefWChar *);
        }
      }
      qefWChar const * const start = p;
      std::size_t used = 0;
      std::size_t room = limit;
      while (*p && (set.first ? set.Contains(*p) : !_isSpace(*p))) {
        if (narrow) {
          std::size_t length = 1;
          while (length < 2 && p[length] &&
                 (set.first ? set.Contains(p[length]) : !_isSpace(p[length]))) {
            ++length;
          }
          if (!_appendUTF8(p, length, bytes, room, used)) {
            break;
          }
        } else {
          if (!room) {
            break;
          }
          if (wide) {
            wide[used] = *p;
          }
          ++used;
          --room;
          ++p;
        }
      }
      if (p == start) {
        return stored;
      }
      if (wide) {
        wide[used] = 0;
      } else if (bytes) {
        bytes[used] = 0;
      }
      if (!suppress) {
        ++stored;
      }
      break;
    }
    default:
      return stored; // an unknown conversion, or the format ends inside one
    }
    converted = true;
  }
  return stored;
}

} // namespace

int vswscanf(qefWChar const * input, qefWChar const * format, std::va_list arguments) {
  if (!input || !format) {
    return -1;
  }
  _tagARGS args;
  va_copy(args.list, arguments);
  int const result = _scan(input, format, args);
  va_end(args.list);
  return result;
}

int swscanf(qefWChar const * input, qefWChar const * format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  int const result = vswscanf(input, format, arguments);
  va_end(arguments);
  return result;
}

} // namespace VORX::String
