// The text forms of typed values in XML data and attributes, and their readers, on plain wide
// texts. The element tree turns the texts into pooled strings; these functions do the rest.
// Readers never fail loudly: each answers false (or its "none" value) and leaves its output
// alone when the text holds no value. Pure functions: safe from any thread.
#pragma once

#include <cstdint>

#include <vorx/base.h>
#include <vorx/math.h>

namespace VORX::XML {

// Buffer lengths (terminator included) of the fixed text forms.
inline constexpr std::size_t kXMLUInt64Text = 20;
inline constexpr std::size_t kXMLDoubleText = 32;
inline constexpr std::size_t kXMLRationalText = 24;
// Bytes one hexadecimal remainder of a flag text may need beside the names: a separator,
// "0x", eight digits and the terminator.
inline constexpr std::size_t kXMLFlagsRemainder = 12;
// Units of a "0x" flag token that are read (the rest is ignored), terminator included.
inline constexpr std::size_t kXMLFlagsDigits = 64;

// "%I64x": lower-case hexadecimal, no prefix or leading zeros. The text's length, -1 on failure.
VORX_API int _xmlUInt64Text(std::uint64_t value, qefWChar (&text)[kXMLUInt64Text]);
// "%I64x(%.4g)": the value's 64 bits in hexadecimal, then the value for human readers, in the
// current locale. The text's length, -1 on failure.
VORX_API int _xmlDoubleText(double value, qefWChar (&text)[kXMLDoubleText]);
// "%d/%d": the numerator and the denominator as stored. The text's length, -1 on failure.
VORX_API int _xmlRationalText(Math::CRational const & value, qefWChar (&text)[kXMLRationalText]);
// "true" or "false".
VORX_API qefWChar const * _xmlBoolText(bool value);
// Two upper-case hexadecimal digits per byte, low nibble first (0x1F gives "F1"), into `text`
// of 2 * `length` + 1 units.
VORX_API void _xmlBinaryText(std::uint8_t const * bytes, std::size_t length, qefWChar * text);

// Scans `text` with `format` (one conversion) into `value`; false when nothing is converted.
VORX_API bool _xmlScan(qefWChar const * text, qefWChar const * format, std::int32_t & value);
VORX_API bool _xmlScan(qefWChar const * text, qefWChar const * format, std::uint32_t & value);
VORX_API bool _xmlScan(qefWChar const * text, qefWChar const * format, std::int64_t & value);
VORX_API bool _xmlScan(qefWChar const * text, qefWChar const * format, std::uint64_t & value);
// The 64 bits scanned with `format` ("%I64x" or " %I64x"), as a double.
VORX_API bool _xmlScanBits(qefWChar const * text, qefWChar const * format, double & value);
// Decimal reading: leading Digits are skipped, a locale decimal point after them becomes ".",
// then "%lg".
VORX_API bool _xmlReadDouble(qefWChar const * text, double & value);
// " %d / %d", normalised; false when fewer than two numbers are read.
VORX_API bool _xmlReadRational(qefWChar const * text, Math::CRational & value);
// "true" or "false" without regard to case; false for any other text.
VORX_API bool _xmlReadBool(qefWChar const * text, bool & value);
// Separators before the first item of `list` (cut at `sep`) that equals `value[0..length)`;
// all ones when none does or `list` is null.
VORX_API std::uint64_t _xmlIndex(qefWChar const * value, std::size_t length, qefWChar const * list,
                                 qefWChar sep);
// Pairs of characters when every character is a hexadecimal digit or a blank (tab, line feed,
// carriage return, space) and their number is even; else 0.
VORX_API std::uint64_t _xmlBinarySize(qefWChar const * text);
// Bytes read into `bytes[0..size)`: blanks skipped anywhere, first digit the low nibble; stops
// at the terminator or any other character.
VORX_API std::size_t _xmlReadBinary(qefWChar const * text, std::uint8_t * bytes, std::size_t size);

// A zeroed heap block of `bytes`, null on failure; freed with `_xmlFreeBlock`.
VORX_API void * _xmlZeroBlock(std::size_t bytes);
VORX_API void _xmlFreeBlock(void * block);

// A flag table entry's name as text (null counts as empty).
inline qefWChar const * _xmlFlagName(qefWChar const * name) {
  return name;
}

// Units (terminator included) a flag text of `map` can need: every name, a separator per entry
// and the hexadecimal remainder.
template <class Entry> std::size_t _xmlFlagsTextSize(Entry const * map, std::size_t count) {
  std::size_t units = kXMLFlagsRemainder;
  for (std::size_t i = 0; map && i < count; ++i) {
    qefWChar const * const name = _xmlFlagName(map[i].name);
    for (std::size_t n = 0; name && name[n]; ++n) {
      ++units;
    }
    ++units;
  }
  return units;
}

// Writes the names of the set flags of `value` in the order of `map`, joined by `sep`, and the
// bits no entry took as "0x%08x"; 0 gives an empty text. `text` holds
// `_xmlFlagsTextSize(map, count)` units.
template <class Entry>
void _xmlFlagsText(std::uint32_t value, Entry const * map, std::size_t count, qefWChar sep,
                   qefWChar * text) {
  std::size_t at = 0;
  for (std::size_t i = 0; map && i < count && value; ++i) {
    qefWChar const * const name = _xmlFlagName(map[i].name);
    std::uint32_t const bits = map[i].value;
    if (!name || !name[0] || bits == 0 || (value & bits) != bits) {
      continue;
    }
    if (at) {
      text[at++] = sep;
    }
    for (std::size_t n = 0; name[n]; ++n) {
      text[at++] = name[n];
    }
    value &= ~bits;
  }
  if (value) {
    if (at) {
      text[at++] = sep;
    }
    text[at++] = u'0';
    text[at++] = u'x';
    for (int shift = 28; shift >= 0; shift -= 4) {
      text[at++] = u"0123456789abcdef"[(value >> shift) & 0xF];
    }
  }
  text[at] = 0;
}

// Bits of a flag text: tokens cut at `sep`; "0x" tokens scanned as hexadecimal (their first 63
// digits); any other token
// matched exactly against the names of entries not matched yet (each entry adds its bits once);
// unknown tokens ignored. 0 for an empty text, a null map, a count of 0, or when the record of
// matched entries of a map above 256 entries cannot be allocated.
template <class Entry>
std::uint32_t _xmlReadFlags(qefWChar const * text, Entry const * map, std::size_t count,
                            qefWChar sep) {
  if (!text || !text[0] || !map || count == 0) {
    return 0;
  }
  std::uint64_t local[4] = {};
  std::uint64_t * matched = local;
  if (count > 256) {
    matched = static_cast<std::uint64_t *>(_xmlZeroBlock((count + 63) / 64 * 8));
    if (!matched) {
      return 0;
    }
  }
  std::uint32_t bits = 0;
  qefWChar const * token = text;
  for (;;) {
    std::size_t length = 0;
    while (token[length] && token[length] != sep) {
      ++length;
    }
    if (length >= 2 && token[0] == u'0' && token[1] == u'x') {
      // Scanned from a copy, so a separator that is itself a digit ends the number.
      qefWChar digits[kXMLFlagsDigits];
      std::size_t n = 0;
      for (; n + 2 < length && n + 1 < kXMLFlagsDigits; ++n) {
        digits[n] = token[n + 2];
      }
      digits[n] = 0;
      std::uint32_t hex = 0;
      if (_xmlScan(digits, u"%x", hex)) {
        bits |= hex;
      }
    } else if (length > 0) {
      for (std::size_t i = 0; i < count; ++i) {
        qefWChar const * const name = _xmlFlagName(map[i].name);
        if (!name || (matched[i / 64] >> (i % 64)) & 1) {
          continue;
        }
        std::size_t n = 0;
        while (n < length && name[n] == token[n]) {
          ++n;
        }
        if (n == length && name[n] == 0) {
          matched[i / 64] |= std::uint64_t{1} << (i % 64);
          bits |= map[i].value;
          break;
        }
      }
    }
    if (!token[length]) {
      break;
    }
    token += length + 1;
  }
  if (matched != local) {
    _xmlFreeBlock(matched);
  }
  return bits;
}

} // namespace VORX::XML
