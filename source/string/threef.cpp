// The three-F escaping encodings: 3F (3 bytes in 4 characters from "!") and 3FFF (7 bytes in
// 4 characters of U+4000..U+7FFF), their encoders and decoders.
#include <vorx/develop.h>
#include <vorx/string.h>

#include <string>

namespace VORX::String {
namespace {

constexpr qefWChar k3FHeader = 0x0100;
constexpr qefWChar k3FFFHeader = 0x0300;
constexpr qefWChar k3FFFMarker = 0x4000;
constexpr std::uint64_t kNotDecodable = ~std::uint64_t{0};

// The source position of the decoders' log lines, as the library has always reported them.
constexpr char kLogSource[] = "cstringpool";
constexpr int k3FLogLine = 4316;
constexpr int k3FFFLogLine = 4500;
constexpr qefWChar k3FMessage[] = u"C3FDecoder: Invalid string passed";
constexpr qefWChar k3FFFMessage[] = u"C3FFFDecoder: Invalid string passed";

// One 3F group. The second character keeps the low four bits of b1 in its bits 4..7 and is cut
// to 8 bits; the decoder depends on this layout.
void _3FGroup(qefWChar * out, unsigned b0, unsigned b1, unsigned b2) {
  out[0] = static_cast<qefWChar>((b0 & 0x3Fu) + 33);
  out[1] = static_cast<qefWChar>((((b1 << 4) | (b0 >> 6)) + 33) & 0xFFu);
  out[2] = static_cast<qefWChar>((((b2 & 3u) << 4) | (b1 >> 4)) + 33);
  out[3] = static_cast<qefWChar>((b2 >> 2) + 33);
}

constexpr bool _is3FSixBits(qefWChar c) {
  return c >= 33 && c < 33 + 64;
}

// Every intermediate result is an 8-bit value, as with byte-sized variables: that is what
// restores a middle byte whose low bits make (c1 - 33) wrap below zero.
constexpr std::uint8_t _byte(unsigned value) {
  return static_cast<std::uint8_t>(value);
}

// Decodes one 3F group into `count` (1 to 3) bytes; false for a character outside the alphabet.
bool _3FUngroup(std::uint8_t * out, qefWChar const * in, unsigned count) {
  if (!_is3FSixBits(in[0]) || in[1] == 0 || in[1] > 0xFF || !_is3FSixBits(in[2]) ||
      !_is3FSixBits(in[3])) {
    return false;
  }
  std::uint8_t const c0 = _byte(in[0]), c1 = _byte(in[1]), c2 = _byte(in[2]), c3 = _byte(in[3]);
  out[0] = _byte(_byte(_byte(c1 - 1u) << 6) | _byte(c0 - 33u));
  if (count > 1) {
    out[1] = _byte(_byte(_byte(c1 - 33u) >> 4) | _byte(_byte(c2 - 1u) << 4));
  }
  if (count > 2) {
    out[2] = _byte(_byte(_byte(c2 - 33u) >> 4) | _byte(_byte(c3 + 31u) << 2));
  }
  return true;
}

void _3FFFGroup(qefWChar * out, std::uint8_t const * bytes) {
  std::uint64_t value = 0;
  for (int i = 6; i >= 0; --i) {
    value = (value << 8) | bytes[i];
  }
  for (int i = 0; i < 4; ++i) {
    out[i] = static_cast<qefWChar>(k3FFFMarker | ((value >> (14 * i)) & 0x3FFFu));
  }
}

bool _3FFFUngroup(std::uint8_t * out, qefWChar const * in, unsigned count) {
  std::uint64_t value = 0;
  for (int i = 0; i < 4; ++i) {
    if ((in[i] & 0xC000u) != k3FFFMarker) {
      return false;
    }
    value |= static_cast<std::uint64_t>(in[i] & 0x3FFFu) << (14 * i);
  }
  for (unsigned i = 0; i < count; ++i) {
    out[i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
  return true;
}

// Size decoded from a text with `groupBytes`-byte groups whose header must be `scheme` | h with
// h below `groupBytes`; all ones when rejected.
std::uint64_t _decodedSize(qefWChar const * text, std::uint64_t length, qefWChar scheme,
                           unsigned groupBytes) {
  if (text == nullptr || length == 0 || (text[0] & 0xFF00u) != scheme || (length - 1) % 4 != 0) {
    return kNotDecodable;
  }
  unsigned const padding = text[0] & 0xFFu;
  std::uint64_t const whole = (length - 1) / 4 * groupBytes;
  if (padding >= groupBytes || padding > whole) {
    return kNotDecodable;
  }
  return whole - padding;
}

template <bool (*Ungroup)(std::uint8_t *, qefWChar const *, unsigned)>
bool _decode(void * out, qefWChar const * text, std::uint64_t length, qefWChar scheme,
             unsigned groupBytes) {
  std::uint64_t size = _decodedSize(text, length, scheme, groupBytes);
  if (size == kNotDecodable) {
    return false;
  }
  auto * bytes = static_cast<std::uint8_t *>(out);
  for (qefWChar const * group = text + 1; size > 0; group += 4) {
    unsigned const count = size < groupBytes ? static_cast<unsigned>(size) : groupBytes;
    if (!Ungroup(bytes, group, count)) {
      return false;
    }
    bytes += count;
    size -= count;
  }
  return true;
}

// Decodes into `result`, which stays empty on rejection (one log line) or a failed allocation.
template <std::uint64_t (*Size)(qefWChar const *, std::uint64_t),
          bool (*Decode)(void *, qefWChar const *, std::uint64_t)>
void _decodeInto(Buffers::CPPlainMemory & result, qefWChar const * text, std::uint64_t length,
                 int logLine, qefWChar const * message) {
  std::uint64_t const size = Size(text, length);
  if (size != kNotDecodable) {
    Buffers::CPPlainMemory block;
    if (!block.Alloc(static_cast<std::size_t>(size))) {
      return;
    }
    if (Decode(static_cast<void *>(block), text, length)) {
      result = block;
      return;
    }
  }
  Develop::_logWrite(qefDL_Warning, u"VORX", kLogSource, logLine, message);
}

std::uint64_t _textLength(qefWChar const * text) {
  return text ? std::char_traits<qefWChar>::length(text) : 0;
}

} // namespace

std::uint64_t _3FEncode(qefWChar * out, void const * data, std::uint64_t bytes) {
  auto const * in = static_cast<std::uint8_t const *>(data);
  qefWChar * const start = out;
  *out++ = static_cast<qefWChar>(k3FHeader | (3 - bytes % 3));
  for (; bytes >= 3; bytes -= 3, in += 3, out += 4) {
    _3FGroup(out, in[0], in[1], in[2]);
  }
  if (bytes > 0) {
    _3FGroup(out, in[0], bytes > 1 ? in[1] : 0u, 0u);
    out[3] = u'!';
    out += 4;
  }
  *out = 0;
  return static_cast<std::uint64_t>(out - start);
}

std::uint64_t _3FDecodedSize(qefWChar const * text, std::uint64_t length) {
  return _decodedSize(text, length, k3FHeader, 3);
}

bool _3FDecode(void * out, qefWChar const * text, std::uint64_t length) {
  return _decode<_3FUngroup>(out, text, length, k3FHeader, 3);
}

std::uint64_t _3FFFEncode(qefWChar * out, void const * data, std::uint64_t bytes) {
  auto const * in = static_cast<std::uint8_t const *>(data);
  qefWChar * const start = out;
  *out++ = static_cast<qefWChar>(k3FFFHeader | (7 - bytes % 7));
  for (; bytes >= 7; bytes -= 7, in += 7, out += 4) {
    _3FFFGroup(out, in);
  }
  if (bytes > 0) {
    std::uint8_t last[7] = {};
    for (std::uint64_t i = 0; i < bytes; ++i) {
      last[i] = in[i];
    }
    _3FFFGroup(out, last);
    out += 4;
  }
  *out = 0;
  return static_cast<std::uint64_t>(out - start);
}

std::uint64_t _3FFFDecodedSize(qefWChar const * text, std::uint64_t length) {
  return _decodedSize(text, length, k3FFFHeader, 7);
}

bool _3FFFDecode(void * out, qefWChar const * text, std::uint64_t length) {
  return _decode<_3FFFUngroup>(out, text, length, k3FFFHeader, 7);
}

C3FEncoder::C3FEncoder(void const * data, std::uint64_t size)
    : m_source(static_cast<std::uint8_t const *>(data)), m_remaining(data ? size : 0) {
  m_result = CStringPool::GetStringRef(this);
}

C3FEncoder::C3FEncoder(Buffers::CPPlainMemory const & block)
    : C3FEncoder(static_cast<void const *>(block), block.GetMemorySize()) {}

std::uint64_t C3FEncoder::GetStringLen() {
  return _3FReserve(m_remaining);
}

bool C3FEncoder::GetString(qefWChar * out) {
  _3FEncode(out, m_source, m_remaining);
  m_source += m_remaining;
  m_remaining = 0;
  return true;
}

C3FFFEncoder::C3FFFEncoder(void const * data, std::uint64_t size)
    : m_source(static_cast<std::uint8_t const *>(data)), m_remaining(data ? size : 0) {
  m_result = CStringPool::GetStringRef(this);
}

C3FFFEncoder::C3FFFEncoder(Buffers::CPPlainMemory const & block)
    : C3FFFEncoder(static_cast<void const *>(block), block.GetMemorySize()) {}

std::uint64_t C3FFFEncoder::GetStringLen() {
  return _3FFFReserve(m_remaining);
}

bool C3FFFEncoder::GetString(qefWChar * out) {
  _3FFFEncode(out, m_source, m_remaining);
  m_source += m_remaining;
  m_remaining = 0;
  return true;
}

C3FDecoder::C3FDecoder(qefWChar const * text) {
  _decodeInto<_3FDecodedSize, _3FDecode>(m_result, text, _textLength(text), k3FLogLine, k3FMessage);
}

C3FDecoder::C3FDecoder(CPPoolString const & text) {
  _decodeInto<_3FDecodedSize, _3FDecode>(m_result, *text, text.len(), k3FLogLine, k3FMessage);
}

C3FFFDecoder::C3FFFDecoder(qefWChar const * text) {
  _decodeInto<_3FFFDecodedSize, _3FFFDecode>(m_result, text, _textLength(text), k3FFFLogLine,
                                             k3FFFMessage);
}

C3FFFDecoder::C3FFFDecoder(CPPoolString const & text) {
  _decodeInto<_3FFFDecodedSize, _3FFFDecode>(m_result, *text, text.len(), k3FFFLogLine,
                                             k3FFFMessage);
}

} // namespace VORX::String
