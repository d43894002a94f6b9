// Text forms of typed XML values and their readers on plain wide texts.
#include "xml/xmlvalues.h"

#include <clocale>
#include <cstring>

#include <vorx/core.h>
#include <vorx/string.h>

#include "xml/xmlchars.h"

namespace VORX::XML {

using String::_snwprintf;
using String::swscanf;

int _xmlUInt64Text(std::uint64_t value, qefWChar (&text)[kXMLUInt64Text]) {
  int const length = _snwprintf(text, kXMLUInt64Text, u"%I64x", value);
  return length >= 0 && static_cast<std::size_t>(length) < kXMLUInt64Text ? length : -1;
}

int _xmlDoubleText(double value, qefWChar (&text)[kXMLDoubleText]) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  int const length = _snwprintf(text, kXMLDoubleText, u"%I64x(%.4g)", bits, value);
  return length >= 0 && static_cast<std::size_t>(length) < kXMLDoubleText ? length : -1;
}

int _xmlRationalText(Math::CRational const & value, qefWChar (&text)[kXMLRationalText]) {
  int const length = _snwprintf(text, kXMLRationalText, u"%d/%d", value.num(),
                                static_cast<std::int32_t>(value.den()));
  return length >= 0 && static_cast<std::size_t>(length) < kXMLRationalText ? length : -1;
}

qefWChar const * _xmlBoolText(bool value) {
  return value ? u"true" : u"false";
}

void _xmlBinaryText(std::uint8_t const * bytes, std::size_t length, qefWChar * text) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  for (std::size_t i = 0; i < length; ++i) {
    text[2 * i] = kDigits[bytes[i] & 0xF];
    text[2 * i + 1] = kDigits[bytes[i] >> 4];
  }
  text[2 * length] = 0;
}

bool _xmlScan(qefWChar const * text, qefWChar const * format, std::int32_t & value) {
  std::int32_t read = 0;
  if (!text || swscanf(text, format, &read) < 1) {
    return false;
  }
  value = read;
  return true;
}

bool _xmlScan(qefWChar const * text, qefWChar const * format, std::uint32_t & value) {
  std::uint32_t read = 0;
  if (!text || swscanf(text, format, &read) < 1) {
    return false;
  }
  value = read;
  return true;
}

bool _xmlScan(qefWChar const * text, qefWChar const * format, std::int64_t & value) {
  std::int64_t read = 0;
  if (!text || swscanf(text, format, &read) < 1) {
    return false;
  }
  value = read;
  return true;
}

bool _xmlScan(qefWChar const * text, qefWChar const * format, std::uint64_t & value) {
  std::uint64_t read = 0;
  if (!text || swscanf(text, format, &read) < 1) {
    return false;
  }
  value = read;
  return true;
}

bool _xmlScanBits(qefWChar const * text, qefWChar const * format, double & value) {
  std::uint64_t bits = 0;
  if (!_xmlScan(text, format, bits)) {
    return false;
  }
  std::memcpy(&value, &bits, sizeof value);
  return true;
}

bool _xmlReadDouble(qefWChar const * text, double & value) {
  if (!text) {
    return false;
  }
  std::size_t at = 0;
  while (text[at] && _isXMLDigit(text[at])) {
    ++at;
  }
  char const * const point = std::localeconv()->decimal_point;
  qefWChar const local = point && point[0] ? static_cast<unsigned char>(point[0]) : u'.';
  double read = 0;
  int scanned = 0;
  if (text[at] != u'.' && text[at] == local) {
    std::size_t length = at;
    while (text[length]) {
      ++length;
    }
    auto * copy = static_cast<qefWChar *>(Core::OS::_falloc((length + 1) * sizeof(qefWChar)));
    if (!copy) {
      return false;
    }
    std::memcpy(copy, text, (length + 1) * sizeof(qefWChar));
    copy[at] = u'.';
    scanned = swscanf(copy, u"%lg", &read);
    Core::OS::_ffree(copy);
  } else {
    scanned = swscanf(text, u"%lg", &read);
  }
  if (scanned < 1) {
    return false;
  }
  value = read;
  return true;
}

bool _xmlReadRational(qefWChar const * text, Math::CRational & value) {
  std::int32_t num = 0;
  std::int32_t den = 0;
  if (!text || swscanf(text, u" %d / %d", &num, &den) < 2) {
    return false;
  }
  value = Math::CRational(num, den);
  return true;
}

bool _xmlReadBool(qefWChar const * text, bool & value) {
  if (!text) {
    return false;
  }
  if (String::wcscmpi(text, u"true") == 0) {
    value = true;
    return true;
  }
  if (String::wcscmpi(text, u"false") == 0) {
    value = false;
    return true;
  }
  return false;
}

std::uint64_t _xmlIndex(qefWChar const * value, std::size_t length, qefWChar const * list,
                        qefWChar sep) {
  if (!list) {
    return ~std::uint64_t{0};
  }
  std::uint64_t index = 0;
  qefWChar const * item = list;
  for (;;) {
    std::size_t n = 0;
    while (item[n] && item[n] != sep) {
      ++n;
    }
    if (n == length && (length == 0 || std::memcmp(item, value, n * sizeof(qefWChar)) == 0)) {
      return index;
    }
    if (!item[n]) {
      return ~std::uint64_t{0};
    }
    item += n + 1;
    ++index;
  }
}

namespace {

bool _isBlank(qefWChar c) {
  return c == u'\t' || c == u'\n' || c == u'\r' || c == u' ';
}

int _hexDigit(qefWChar c) {
  if (c >= u'0' && c <= u'9') {
    return c - u'0';
  }
  if (c >= u'a' && c <= u'f') {
    return c - u'a' + 10;
  }
  if (c >= u'A' && c <= u'F') {
    return c - u'A' + 10;
  }
  return -1;
}

} // namespace

std::uint64_t _xmlBinarySize(qefWChar const * text) {
  if (!text) {
    return 0;
  }
  std::uint64_t pairs = 0;
  for (std::size_t at = 0; text[at]; at += 2) {
    for (std::size_t k = 0; k < 2; ++k) {
      qefWChar const c = text[at + k];
      if (c == 0 || (_hexDigit(c) < 0 && !_isBlank(c))) {
        return 0;
      }
    }
    ++pairs;
  }
  return pairs;
}

std::size_t _xmlReadBinary(qefWChar const * text, std::uint8_t * bytes, std::size_t size) {
  if (!text || !bytes) {
    return 0;
  }
  std::size_t stored = 0;
  int low = -1;
  for (std::size_t at = 0; text[at] && stored < size; ++at) {
    if (_isBlank(text[at])) {
      continue;
    }
    int const digit = _hexDigit(text[at]);
    if (digit < 0) {
      break;
    }
    if (low < 0) {
      low = digit;
    } else {
      bytes[stored++] = static_cast<std::uint8_t>(low | digit << 4);
      low = -1;
    }
  }
  return stored;
}

void * _xmlZeroBlock(std::size_t bytes) {
  void * const block = Core::OS::_falloc(bytes);
  if (block) {
    std::memset(block, 0, bytes);
  }
  return block;
}

void _xmlFreeBlock(void * block) {
  Core::OS::_ffree(block);
}

} // namespace VORX::XML
