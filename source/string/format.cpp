// The 16-bit formatter: printf over `qefWChar` text with the conventions of the Windows wide
// runtime. Literal runs are copied in blocks, integers and strings are converted here, floating
// conversions go through the C library's snprintf into a stack buffer and are widened.
#include <vorx/core.h>
#include <vorx/string.h>

#include "format_conventions.h"
#include "format_utf8.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace VORX::String {
namespace {

// Where the text goes: writes what fits below `room` units, counts everything.
struct _tagSINK {
  qefWChar * buffer;
  std::size_t room;
  std::size_t total;

  void Put(qefWChar unit) {
    if (total < room) {
      buffer[total] = unit;
    }
    ++total;
  }
  void Write(qefWChar const * units, std::size_t n) {
    if (total < room) {
      std::size_t const fit = room - total < n ? room - total : n;
      std::memcpy(buffer + total, units, fit * sizeof(qefWChar));
    }
    total += n;
  }
  // ASCII bytes (digits, prefixes) widened one to one.
  void WriteASCII(char const * bytes, std::size_t n) {
    if (total < room) {
      std::size_t const fit = room - total < n ? room - total : n;
      for (std::size_t i = 0; i < fit; ++i) {
        buffer[total + i] = static_cast<unsigned char>(bytes[i]);
      }
    }
    total += n;
  }
  void Fill(qefWChar unit, std::size_t n) {
    if (total < room) {
      std::size_t const fit = room - total < n ? room - total : n;
      for (std::size_t i = 0; i < fit; ++i) {
        buffer[total + i] = unit;
      }
    }
    total += n;
  }
};

struct _tagCONVERSION {
  bool left;
  bool plus;
  bool space;
  bool alt;
  bool zero;
  int width;
  int precision; // -1 when none is given
  _eSIZE size;
  qefWChar conversion;
};

// The units a string argument that is null prints.
constexpr qefWChar g_nullText[] = u"(null)";
static_assert(sizeof(g_nullText) / sizeof(g_nullText[0]) == 7);

// A float rendered by the C library fits here unless it asks for a huge width or precision.
constexpr std::size_t g_floatStack = 512;

std::size_t _padding(int width, std::size_t length) {
  return width > 0 && static_cast<std::size_t>(width) > length
             ? static_cast<std::size_t>(width) - length
             : 0;
}

std::int64_t _signedArgument(_tagARGS & args, _eSIZE size) {
  switch (size) {
  case _eSIZE::HH:
    return static_cast<signed char>(va_arg(args.list, int));
  case _eSIZE::H:
    return static_cast<short>(va_arg(args.list, int));
  case _eSIZE::L:
    return va_arg(args.list, long);
  case _eSIZE::LL:
  case _eSIZE::BigL:
  case _eSIZE::I64:
    return va_arg(args.list, long long);
  case _eSIZE::J:
    return va_arg(args.list, std::intmax_t);
  case _eSIZE::Z:
  case _eSIZE::T:
  case _eSIZE::I:
    return va_arg(args.list, std::ptrdiff_t);
  case _eSIZE::I32:
  case _eSIZE::None:
  case _eSIZE::W:
    break;
  }
  return va_arg(args.list, int);
}

std::uint64_t _unsignedArgument(_tagARGS & args, _eSIZE size) {
  switch (size) {
  case _eSIZE::HH:
    return static_cast<unsigned char>(va_arg(args.list, unsigned));
  case _eSIZE::H:
    return static_cast<unsigned short>(va_arg(args.list, unsigned));
  case _eSIZE::L:
    return va_arg(args.list, unsigned long);
  case _eSIZE::LL:
  case _eSIZE::BigL:
  case _eSIZE::I64:
    return va_arg(args.list, unsigned long long);
  case _eSIZE::J:
    return va_arg(args.list, std::uintmax_t);
  case _eSIZE::Z:
  case _eSIZE::T:
  case _eSIZE::I:
    return va_arg(args.list, std::size_t);
  case _eSIZE::I32:
  case _eSIZE::None:
  case _eSIZE::W:
    break;
  }
  return va_arg(args.list, unsigned);
}

// d i u o x X: sign or "0x" prefix, zeros up to the precision (or the width with '0'), digits.
void _putInteger(_tagSINK & out, _tagCONVERSION const & conv, std::uint64_t magnitude,
                 bool negative) {
  char digits[24];
  char * const end = digits + sizeof(digits);
  char * first = end;
  qefWChar const c = conv.conversion;
  if (magnitude != 0 || conv.precision != 0) {
    if (c == u'x' || c == u'X') {
      char const * const hex = c == u'x' ? "0123456789abcdef" : "0123456789ABCDEF";
      do {
        *--first = hex[magnitude & 15];
        magnitude >>= 4;
      } while (magnitude);
    } else if (c == u'o') {
      do {
        *--first = static_cast<char>('0' + (magnitude & 7));
        magnitude >>= 3;
      } while (magnitude);
    } else {
      do {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
      } while (magnitude);
    }
  }
  std::size_t const n = static_cast<std::size_t>(end - first);

  char prefix[2];
  std::size_t prefixLength = 0;
  if (c == u'd' || c == u'i') {
    if (negative) {
      prefix[prefixLength++] = '-';
    } else if (conv.plus) {
      prefix[prefixLength++] = '+';
    } else if (conv.space) {
      prefix[prefixLength++] = ' ';
    }
  } else if (conv.alt && (c == u'x' || c == u'X') && n != 0 && *first != '0') {
    prefix[prefixLength++] = '0';
    prefix[prefixLength++] = static_cast<char>(c);
  }

  std::size_t zeros = conv.precision > 0 && static_cast<std::size_t>(conv.precision) > n
                          ? static_cast<std::size_t>(conv.precision) - n
                          : 0;
  if (c == u'o' && conv.alt && zeros == 0 && (n == 0 || *first != '0')) {
    zeros = 1; // the alternative octal form always starts with 0
  }
  if (conv.precision < 0 && conv.zero && !conv.left) {
    zeros += _padding(conv.width, prefixLength + zeros + n);
  }
  std::size_t const pad = _padding(conv.width, prefixLength + zeros + n);
  if (!conv.left) {
    out.Fill(u' ', pad);
  }
  out.WriteASCII(prefix, prefixLength);
  out.Fill(u'0', zeros);
  out.WriteASCII(first, n);
  if (conv.left) {
    out.Fill(u' ', pad);
  }
}

// %p: 16 upper-case hexadecimal digits, no prefix.
void _putPointer(_tagSINK & out, _tagCONVERSION const & conv, void const * pointer) {
  char digits[16];
  auto value = reinterpret_cast<std::uintptr_t>(pointer);
  for (int i = 15; i >= 0; --i) {
    digits[i] = "0123456789ABCDEF"[value & 15];
    value >>= 4;
  }
  std::size_t const pad = _padding(conv.width, sizeof(digits));
  if (!conv.left) {
    out.Fill(u' ', pad);
  }
  out.WriteASCII(digits, sizeof(digits));
  if (conv.left) {
    out.Fill(u' ', pad);
  }
}

void _putWide(_tagSINK & out, _tagCONVERSION const & conv, qefWChar const * text) {
  if (!text) {
    text = g_nullText;
  }
  std::size_t length = 0;
  if (conv.precision >= 0) {
    auto const limit = static_cast<std::size_t>(conv.precision);
    while (length < limit && text[length]) {
      ++length;
    }
  } else {
    while (text[length]) {
      ++length;
    }
  }
  std::size_t const pad = _padding(conv.width, length);
  if (!conv.left) {
    out.Fill(u' ', pad);
  }
  out.Write(text, length);
  if (conv.left) {
    out.Fill(u' ', pad);
  }
}

// Decodes narrow text as UTF-8 into the sink, at most `limit` units; returns the units it takes.
// A character that needs a surrogate pair is not split: it is left out when only one unit is left.
std::size_t _putNarrow(_tagSINK * out, unsigned char const * text, std::size_t limit) {
  std::size_t units = 0;
  while (*text && units < limit) {
    if (*text < 0x80) {
      if (out) {
        out->Put(*text);
      }
      ++text;
      ++units;
      continue;
    }
    char32_t cp;
    text += _decodeUTF8(text, cp);
    if (cp < 0x10000) {
      if (out) {
        out->Put(static_cast<qefWChar>(cp));
      }
      ++units;
    } else {
      if (limit - units < 2) {
        break;
      }
      if (out) {
        out->Put(static_cast<qefWChar>(0xD800 + ((cp - 0x10000) >> 10)));
        out->Put(static_cast<qefWChar>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
      }
      units += 2;
    }
  }
  return units;
}

void _putNarrowString(_tagSINK & out, _tagCONVERSION const & conv, char const * text) {
  if (!text) {
    _putWide(out, conv, nullptr);
    return;
  }
  auto const bytes = reinterpret_cast<unsigned char const *>(text);
  std::size_t const limit =
      conv.precision >= 0 ? static_cast<std::size_t>(conv.precision) : SIZE_MAX;
  if (conv.width > 0 && !conv.left) {
    out.Fill(u' ', _padding(conv.width, _putNarrow(nullptr, bytes, limit)));
    _putNarrow(&out, bytes, limit);
  } else {
    std::size_t const length = _putNarrow(&out, bytes, limit);
    out.Fill(u' ', _padding(conv.width, length));
  }
}

void _putCharacter(_tagSINK & out, _tagCONVERSION const & conv, qefWChar unit) {
  std::size_t const pad = _padding(conv.width, 1);
  if (!conv.left) {
    out.Fill(u' ', pad);
  }
  out.Put(unit);
  if (conv.left) {
    out.Fill(u' ', pad);
  }
}

// Writes `value` in decimal, most significant digit first; returns the end.
char * _putDecimal(char * p, unsigned value) {
  char digits[10];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value);
  while (n) {
    *p++ = digits[--n];
  }
  return p;
}

// f F e E g G a A through the C library; false when it fails or the heap is out.
bool _putFloat(_tagSINK & out, _tagCONVERSION const & conv, _tagARGS & args) {
  char format[32];
  char * p = format;
  *p++ = '%';
  if (conv.left) {
    *p++ = '-';
  }
  if (conv.plus) {
    *p++ = '+';
  }
  if (conv.space) {
    *p++ = ' ';
  }
  if (conv.alt) {
    *p++ = '#';
  }
  if (conv.zero) {
    *p++ = '0';
  }
  if (conv.width > 0) {
    p = _putDecimal(p, static_cast<unsigned>(conv.width));
  }
  if (conv.precision >= 0) {
    *p++ = '.';
    p = _putDecimal(p, static_cast<unsigned>(conv.precision));
  }
  bool const isLong = conv.size == _eSIZE::BigL;
  if (isLong) {
    *p++ = 'L';
  }
  *p++ = static_cast<char>(conv.conversion);
  *p = 0;

  long double longValue = 0;
  double value = 0;
  if (isLong) {
    longValue = va_arg(args.list, long double);
  } else {
    value = va_arg(args.list, double);
  }
  char stack[g_floatStack];
  char * text = stack;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int length = isLong ? std::snprintf(stack, sizeof(stack), format, longValue)
                      : std::snprintf(stack, sizeof(stack), format, value);
  if (length < 0) {
    return false;
  }
  if (static_cast<std::size_t>(length) >= sizeof(stack)) {
    text = static_cast<char *>(Core::OS::_falloc(static_cast<std::size_t>(length) + 1));
    if (!text) {
      return false;
    }
    length = isLong ? std::snprintf(text, static_cast<std::size_t>(length) + 1, format, longValue)
                    : std::snprintf(text, static_cast<std::size_t>(length) + 1, format, value);
  }
#pragma GCC diagnostic pop
  if (length > 0) {
    _putNarrow(&out, reinterpret_cast<unsigned char const *>(text), SIZE_MAX);
  }
  if (text != stack) {
    Core::OS::_ffree(text);
  }
  return length >= 0;
}

// The whole format; false when a floating conversion failed.
bool _format(_tagSINK & out, qefWChar const * f, _tagARGS & args) {
  for (;;) {
    qefWChar const * const run = f;
    while (*f && *f != u'%') {
      ++f;
    }
    if (f != run) {
      out.Write(run, static_cast<std::size_t>(f - run));
    }
    if (!*f) {
      return true;
    }
    qefWChar const * const start = f++;
    _tagCONVERSION conv{};
    conv.precision = -1;
    for (;; ++f) {
      if (*f == u'-') {
        conv.left = true;
      } else if (*f == u'+') {
        conv.plus = true;
      } else if (*f == u' ') {
        conv.space = true;
      } else if (*f == u'#') {
        conv.alt = true;
      } else if (*f == u'0') {
        conv.zero = true;
      } else {
        break;
      }
    }
    if (*f == u'*') {
      ++f;
      int const width = va_arg(args.list, int);
      if (width < 0) {
        conv.left = true;
        conv.width = width == INT_MIN ? INT_MAX : -width;
      } else {
        conv.width = width;
      }
    } else {
      conv.width = _readNumber(f);
    }
    if (*f == u'.') {
      ++f;
      if (*f == u'*') {
        ++f;
        int const precision = va_arg(args.list, int);
        conv.precision = precision < 0 ? -1 : precision;
      } else {
        conv.precision = _readNumber(f);
      }
    }
    conv.size = _readSizePrefix(f);
    conv.conversion = *f;
    bool const narrow = conv.size == _eSIZE::H || conv.size == _eSIZE::HH;
    bool const wide = conv.size == _eSIZE::L || conv.size == _eSIZE::W;
    switch (conv.conversion) {
    case u'd':
    case u'i': {
      std::int64_t const value = _signedArgument(args, conv.size);
      bool const negative = value < 0;
      std::uint64_t const magnitude =
          negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
      _putInteger(out, conv, magnitude, negative);
      break;
    }
    case u'u':
    case u'o':
    case u'x':
    case u'X':
      _putInteger(out, conv, _unsignedArgument(args, conv.size), false);
      break;
    case u'c':
    case u'C': {
      int const value = va_arg(args.list, int);
      bool const byte = conv.conversion == u'c' ? narrow : !wide;
      _putCharacter(out, conv,
                    byte ? static_cast<unsigned char>(value) : static_cast<qefWChar>(value));
      break;
    }
    case u's':
    case u'S':
      if (conv.conversion == u's' ? narrow : !wide) {
        _putNarrowString(out, conv, va_arg(args.list, char const *));
      } else {
        _putWide(out, conv, va_arg(args.list, qefWChar const *));
      }
      break;
    case u'p':
      _putPointer(out, conv, va_arg(args.list, void const *));
      break;
    case u'n':
      _storeInteger(args, conv.size, out.total);
      break;
    case u'f':
    case u'F':
    case u'e':
    case u'E':
    case u'g':
    case u'G':
    case u'a':
    case u'A':
      if (!_putFloat(out, conv, args)) {
        return false;
      }
      break;
    case u'%':
      out.Put(u'%');
      break;
    case 0:
      out.Write(start, static_cast<std::size_t>(f - start));
      return true;
    default:
      out.Write(start, static_cast<std::size_t>(f + 1 - start));
      break;
    }
    ++f;
  }
}

} // namespace

int _vsnwprintf(qefWChar * buffer, std::size_t count, qefWChar const * format,
                std::va_list arguments) {
  _tagSINK out{buffer, buffer && count ? count - 1 : 0, 0};
  bool ok = false;
  if (format) {
    _tagARGS args;
    va_copy(args.list, arguments);
    ok = _format(out, format, args);
    va_end(args.list);
  }
  if (buffer && count) {
    buffer[out.total < out.room ? out.total : out.room] = 0;
  }
  if (!ok || out.total > static_cast<std::size_t>(INT_MAX)) {
    return -1;
  }
  return static_cast<int>(out.total);
}

int _snwprintf(qefWChar * buffer, std::size_t count, qefWChar const * format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  int const result = _vsnwprintf(buffer, count, format, arguments);
  va_end(arguments);
  return result;
}

} // namespace VORX::String
