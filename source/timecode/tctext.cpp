// The two text forms of a timecode: the twelve-character short form and the long form.
#include "timecode/tcsystem.h"

namespace VORX::TimeCode {

using detail::_row;

namespace {

constexpr qefWChar kUndefinedPicture[] = u"*##:##:##:##";
constexpr qefWChar kUnassignedPicture[] = u" --:--:--:--";
static_assert(sizeof(kUndefinedPicture) / sizeof(qefWChar) == SZTC::kLength + 1);
static_assert(sizeof(kUnassignedPicture) / sizeof(qefWChar) == SZTC::kLength + 1);

// Separator sets accepted when reading: first ":." second ":.," third ":.;,".
int _separatorCode(qefWChar ch, int slot) {
  constexpr char const * kAccepted[] = {":.", ":.,", ":.;,"};
  for (int i = 0; kAccepted[slot][i] != 0; ++i) {
    if (ch == static_cast<qefWChar>(kAccepted[slot][i])) {
      return i;
    }
  }
  return -1;
}

// The word of each of the 24 accepted separator combinations, indexed by the three codes.
struct tagSEPARATORMAP {
  std::uint32_t word[2][3][4];
};

constexpr tagSEPARATORMAP _buildSeparatorMap() {
  tagSEPARATORMAP map{};
  constexpr char kFirst[] = ":.";
  constexpr char kSecond[] = ":.,";
  constexpr char kThird[] = ":.;,";
  for (int a = 0; a < 2; ++a) {
    for (int b = 0; b < 3; ++b) {
      for (int c = 0; c < 4; ++c) {
        std::uint32_t word = TC_UNASSIGNED;
        if (kFirst[a] == '.' && kSecond[b] == '.' && kThird[c] == ':') {
          word = TC_UNDEFINED;
        }
        for (std::uint32_t i = 0; i < TC_SYSTEMS; ++i) {
          qefWChar const * s = detail::kSystems[i].separators;
          if (s[0] == kFirst[a] && s[1] == kSecond[b] && s[2] == kThird[c]) {
            word = i;
          }
        }
        map.word[a][b][c] = word;
      }
    }
  }
  return map;
}

constexpr tagSEPARATORMAP kSeparatorMap = _buildSeparatorMap();

void _putTwo(qefWChar * out, std::uint32_t value) {
  out[0] = static_cast<qefWChar>('0' + value / 10);
  out[1] = static_cast<qefWChar>('0' + value % 10);
}

bool _isSpace(qefWChar ch) {
  return ch == ' ' || (ch >= '\t' && ch <= '\r');
}
bool _isDigit(qefWChar ch) {
  return ch >= '0' && ch <= '9';
}

// Reads an unsigned number as the scanner's %u does: blanks skipped, an optional sign, then at
// least one digit, at most `width` characters counting the sign (0: no limit). A minus negates
// modulo 2^32; values beyond 32 bits saturate. False when no digit follows.
bool _scanUnsigned(qefWChar const *& p, int width, std::uint32_t & value) {
  while (_isSpace(*p)) {
    ++p;
  }
  int left = width > 0 ? width : 1 << 30;
  bool negative = false;
  if (*p == '+' || *p == '-') {
    negative = *p == '-';
    ++p;
    --left;
  }
  if (left <= 0 || !_isDigit(*p)) {
    return false;
  }
  std::uint64_t number = 0;
  while (left > 0 && _isDigit(*p)) {
    number = number * 10 + static_cast<std::uint64_t>(*p - '0');
    if (number > UINT32_MAX) {
      number = UINT32_MAX + std::uint64_t{1};
    }
    ++p;
    --left;
  }
  std::uint32_t const magnitude =
      number > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(number);
  value = negative ? 0u - magnitude : magnitude;
  return true;
}

std::size_t _length(qefWChar const * text, std::size_t limit) {
  std::size_t n = 0;
  while (n < limit && text[n] != 0) {
    ++n;
  }
  return n;
}

} // namespace

// ---- short form: writing

SZTC::SZTC() {
  for (int i = 0; i <= kLength; ++i) {
    m_text[i] = kUnassignedPicture[i];
  }
}

SZTC::SZTC(std::int64_t position, std::uint32_t system) {
  _write(TCINFO(position, system));
}
SZTC::SZTC(std::int32_t fields, std::uint32_t system) {
  _write(TCINFO(fields, system));
}
SZTC::SZTC(double seconds, std::uint32_t system) {
  _write(TCINFO(seconds, system));
}
SZTC::SZTC(timecode const & value) {
  _write(TCINFO(value));
}
SZTC::SZTC(std::int32_t hours, std::uint32_t minutes, std::uint32_t seconds, std::uint32_t frames,
           std::uint32_t system) {
  _write(TCINFO(hours, minutes, seconds, frames, system));
}
SZTC::SZTC(TCINFO const & info) {
  _write(info);
}

void SZTC::_write(TCINFO const & info) {
  std::uint32_t const word = timecode::NormalizeSystem(info.nSystem);
  qefWChar const * picture = nullptr;
  if ((word & TC_UNDEFINED) != 0) {
    picture = kUndefinedPicture;
  } else if ((word & TC_UNASSIGNED) != 0) {
    picture = kUnassignedPicture;
  } else if ((info.nDays == 0 || info.nDays == -1) &&
             (info.nHours > 99 || info.nMinutes > 99 || info.nSeconds > 99 || info.nFrames > 99)) {
    picture = kUndefinedPicture;
  }
  if (picture) {
    for (int i = 0; i <= kLength; ++i) {
      m_text[i] = picture[i];
    }
    return;
  }
  qefWChar const * separators = _row(word).separators;
  if (info.nDays == 0 || info.nDays == -1) {
    m_text[0] = info.nDays == 0 ? u' ' : u'-';
    _putTwo(m_text + 1, info.nHours);
    _putTwo(m_text + 4, info.nMinutes);
    _putTwo(m_text + 7, info.nSeconds);
    _putTwo(m_text + 10, info.nFrames);
  } else {
    for (int i = 0; i <= kLength; ++i) {
      m_text[i] = kUndefinedPicture[i];
    }
    m_text[0] = info.nDays < 0 ? u'<' : u'>';
  }
  m_text[3] = separators[0];
  m_text[6] = separators[1];
  m_text[9] = separators[2];
  m_text[kLength] = 0;
}

// ---- short form: free text

namespace {

bool _isFieldSeparator(qefWChar ch) {
  return ch == ':' || ch == '.' || ch == ',' || ch == ';';
}

// A blank or "-", then four fields of two digits or "-" separated by ":", ".", "," or ";",
// and nothing after.
bool _isTwelveCharacterForm(qefWChar const * text) {
  if (text[0] != ' ' && text[0] != '-') {
    return false;
  }
  for (int i = 1; i < SZTC::kLength; ++i) {
    if (text[i] == 0) {
      return false;
    }
    bool const separatorPlace = i % 3 == 0;
    if (separatorPlace ? !_isFieldSeparator(text[i]) : !(_isDigit(text[i]) || text[i] == '-')) {
      return false;
    }
  }
  return text[SZTC::kLength] == 0;
}

// Normalises typed text into `out` (twelve characters and a terminator); see the header.
void _normalizeFreeText(qefWChar const * text, qefWChar * out) {
  auto const copy = [out](qefWChar const * picture) {
    for (int i = 0; i <= SZTC::kLength; ++i) {
      out[i] = picture[i];
    }
  };
  if (!text) {
    copy(kUnassignedPicture);
    return;
  }
  if (_isTwelveCharacterForm(text)) {
    copy(text);
    return;
  }
  qefWChar const * begin = text;
  while (_isSpace(*begin)) {
    ++begin;
  }
  qefWChar const * end = begin;
  while (*end != 0) {
    ++end;
  }
  while (end > begin && _isSpace(end[-1])) {
    --end;
  }
  if (begin == end) {
    copy(kUnassignedPicture);
    return;
  }
  if (*begin == '*' || *begin == '<' || *begin == '>') {
    copy(kUndefinedPicture);
    return;
  }
  // All dashes (with separators): unassigned, in the separators given.
  bool allDashes = true;
  for (qefWChar const * p = begin; p < end; ++p) {
    if (_isDigit(*p)) {
      allDashes = false;
    }
  }
  qefWChar marker = u' ';
  if (!allDashes && (*begin == '-' || *begin == '+')) {
    marker = *begin == '-' ? u'-' : u' ';
    ++begin;
    while (begin < end && _isSpace(*begin)) {
      ++begin;
    }
  }
  // Groups of digits and dashes, and the separators between them.
  constexpr int kMaxGroups = 4;
  qefWChar groups[kMaxGroups][8] = {};
  int lengths[kMaxGroups] = {};
  qefWChar separators[kMaxGroups] = {};
  int count = 1;
  for (qefWChar const * p = begin; p < end; ++p) {
    qefWChar const ch = *p;
    if (_isDigit(ch) || ch == '-') {
      if (lengths[count - 1] == 8) {
        copy(kUndefinedPicture);
        return;
      }
      groups[count - 1][lengths[count - 1]++] = ch;
    } else if (ch == ':' || ch == '.' || ch == ',' || ch == ';' || _isSpace(ch)) {
      qefWChar separator = ch;
      if (_isSpace(ch)) {
        // A run of blanks, possibly around one separator character, is one separator.
        separator = u':';
        while (p + 1 < end && _isSpace(p[1])) {
          ++p;
        }
        if (p + 1 < end && (p[1] == ':' || p[1] == '.' || p[1] == ',' || p[1] == ';')) {
          separator = *++p;
        }
      }
      while (p + 1 < end && _isSpace(p[1])) {
        ++p;
      }
      if (count == kMaxGroups) {
        copy(kUndefinedPicture);
        return;
      }
      separators[count - 1] = separator;
      ++count;
    } else {
      copy(kUndefinedPicture);
      return;
    }
  }
  // One long run of digits: pairs from the right.
  if (count == 1 && lengths[0] > 2) {
    qefWChar digits[8];
    int const pad = lengths[0] % 2;
    digits[0] = u'0';
    for (int i = 0; i < lengths[0]; ++i) {
      if (!_isDigit(groups[0][i])) {
        copy(kUndefinedPicture);
        return;
      }
      digits[pad + i] = groups[0][i];
    }
    count = (lengths[0] + pad) / 2;
    for (int g = 0; g < count; ++g) {
      groups[g][0] = digits[2 * g];
      groups[g][1] = digits[2 * g + 1];
      lengths[g] = 2;
      separators[g] = u':';
    }
  }
  for (int g = 0; g < count; ++g) {
    if (lengths[g] > 2) {
      copy(kUndefinedPicture);
      return;
    }
  }
  // The given groups are the last ones; missing groups are 00, missing separators ":".
  out[0] = allDashes ? u' ' : marker;
  int const skip = kMaxGroups - count;
  for (int slot = 0; slot < kMaxGroups; ++slot) {
    qefWChar * field = out + 1 + slot * 3;
    int const g = slot - skip;
    qefWChar first = u'0';
    qefWChar second = u'0';
    if (g >= 0 && lengths[g] == 2) {
      first = groups[g][0];
      second = groups[g][1];
    } else if (g >= 0 && lengths[g] == 1) {
      first = groups[g][0] == '-' ? u'-' : u'0';
      second = groups[g][0];
    } else if (allDashes) {
      first = u'-';
      second = u'-';
    }
    field[0] = first;
    field[1] = second;
    if (slot < kMaxGroups - 1) {
      field[2] = g >= 0 && g < count - 1 ? separators[g] : u':';
    }
  }
  out[SZTC::kLength] = 0;
}

} // namespace

SZTC::SZTC(qefWChar const * text) {
  _normalizeFreeText(text, m_text);
}

SZTC::SZTC(char const * text) {
  if (!text) {
    _normalizeFreeText(nullptr, m_text);
    return;
  }
  constexpr std::size_t kMax = 64;
  qefWChar wide[kMax + 1];
  std::size_t n = 0;
  for (; text[n] != 0; ++n) {
    unsigned char const byte = static_cast<unsigned char>(text[n]);
    if (n == kMax || byte >= 0x80) {
      _normalizeFreeText(u"*", m_text);
      return;
    }
    wide[n] = byte;
  }
  wide[n] = 0;
  _normalizeFreeText(wide, m_text);
}

// ---- short form: reading

TCINFO::TCINFO(SZTC const & text) {
  qefWChar const * t = text.c_str();
  std::size_t const length = _length(t, SZTC::kLength);
  if (length == 0 || t[0] == '*' || t[0] == '<' || t[0] == '>' || (length > 1 && t[1] == '#')) {
    nSystem = TC_UNDEFINED;
    return;
  }
  int const a = length > 3 ? _separatorCode(t[3], 0) : -1;
  int const b = length > 6 ? _separatorCode(t[6], 1) : -1;
  int const c = length > 9 ? _separatorCode(t[9], 2) : -1;
  if (a < 0 || b < 0 || c < 0) {
    nSystem = TC_UNASSIGNED;
    return;
  }
  std::uint32_t const word = kSeparatorMap.word[a][b][c];
  if (word >= 16) {
    nSystem = word;
    return;
  }
  qefWChar buffer[SZTC::kLength + 1];
  for (std::size_t i = 0; i <= length; ++i) {
    buffer[i] = t[i];
  }
  buffer[3] = buffer[6] = buffer[9] = u':';
  static constexpr qefWChar kDashes[] = u"--:--:--:--";
  bool dashes = length == SZTC::kLength;
  for (std::size_t i = 1; dashes && i < SZTC::kLength; ++i) {
    dashes = buffer[i] == kDashes[i - 1];
  }
  if (dashes) {
    nSystem = word | TC_UNASSIGNED;
    return;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if (buffer[i] == '-') {
      buffer[i] = u'0';
    }
  }
  std::uint32_t fields[4] = {};
  qefWChar const * p = buffer + 1;
  for (int i = 0; i < 4; ++i) {
    if ((i > 0 && *p++ != ':') || !_scanUnsigned(p, 2, fields[i])) {
      nSystem = TC_UNDEFINED;
      return;
    }
  }
  nHours = fields[0];
  nMinutes = fields[1];
  nSeconds = fields[2];
  nFrames = fields[3];
  nDays = t[0] == '-' ? -1 : 0;
  nSystem = word;
}

SZTC::operator VORX::String::CQEFWChar() const {
  return VORX::String::CQEFWChar(m_text);
}
SZTC::operator VORX::String::CUTF8Char() const {
  return VORX::String::CUTF8Char(m_text);
}

SZTC::operator std::int64_t() const {
  return static_cast<std::int64_t>(TCINFO(*this));
}
SZTC::operator std::int32_t() const {
  return static_cast<std::int32_t>(TCINFO(*this));
}

timecode::timecode(qefWChar const * text) : timecode(TCINFO(SZTC(text))) {}

// ---- long form

namespace {

// Appends an unsigned number in decimal, at least `digits` digits.
qefWChar * _putNumber(qefWChar * out, std::uint32_t value, int digits) {
  qefWChar reversed[10];
  int n = 0;
  do {
    reversed[n++] = static_cast<qefWChar>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (n < digits) {
    reversed[n++] = u'0';
  }
  while (n > 0) {
    *out++ = reversed[--n];
  }
  return out;
}

qefWChar * _putText(qefWChar * out, char const * text) {
  while (*text != 0) {
    *out++ = static_cast<qefWChar>(*text++);
  }
  return out;
}

// Writes the long form of a value into `out` (at least 29 units).
void _writeLong(timecode const & value, qefWChar * out) {
  std::uint32_t const word = value.GetSystem();
  std::uint32_t rate = 0;
  std::uint32_t scale = 0;
  timecode::GetFrameRateScaleOf(word, rate, scale);
  qefWChar * p = out;
  if (!value.IsValid()) {
    p = _putText(p, "--:--:--:-- ");
  } else {
    timecode shown = value;
    qefWChar marker = u' ';
    if (value.GetPosition() < 0) {
      shown.Wrap();
      marker = u'-';
    }
    TCINFO const label(shown);
    if (value.GetPosition() >= 0 && label.nDays != 0) {
      marker = u'+';
    }
    p = _putNumber(p, label.nHours, 2);
    *p++ = u':';
    p = _putNumber(p, label.nMinutes, 2);
    *p++ = u':';
    p = _putNumber(p, label.nSeconds, 2);
    *p++ = u':';
    p = _putNumber(p, label.nFrames, 2);
    *p++ = marker;
  }
  *p++ = u'{';
  p = _putNumber(p, rate, 1);
  *p++ = u'/';
  p = _putNumber(p, scale, 1);
  p = _putText(p, "}Hz");
  if (timecode::IsDFSystem(word & TC_INDEX_MASK)) {
    p = _putText(p, "/D");
  }
  *p = 0;
}

// The seven-field read of the long form; false when fewer than seven fields are read.
bool _readLong(qefWChar const * text, std::uint32_t (&fields)[4], qefWChar & marker,
               std::uint32_t & rate, std::uint32_t & scale) {
  qefWChar const * p = text;
  for (int i = 0; i < 4; ++i) {
    if ((i > 0 && *p++ != ':') || !_scanUnsigned(p, 0, fields[i])) {
      return false;
    }
  }
  if (*p == 0) {
    return false;
  }
  marker = *p++;
  return *p++ == '{' && _scanUnsigned(p, 0, rate) && *p++ == '/' && _scanUnsigned(p, 0, scale);
}

timecode _parseLong(qefWChar const * text) {
  std::uint32_t fields[4] = {};
  qefWChar marker = 0;
  std::uint32_t rate = 0;
  std::uint32_t scale = 0;
  if (!text || !_readLong(text, fields, marker, rate, scale)) {
    return timecode();
  }
  std::uint32_t system = timecode::GetTCSystemOf(rate, scale);
  if (system >= 16) {
    return timecode();
  }
  std::size_t const length = _length(text, SIZE_MAX);
  if (length >= 2 && text[length - 2] == '/') {
    system = timecode::GetDFSystem(system);
  }
  timecode value(static_cast<std::int32_t>(fields[0]), fields[1], fields[2], fields[3], system);
  if (marker == '+') {
    value.Slip(1);
  } else if (marker == '-') {
    value.Slip(-1);
  }
  return value;
}

// Only the rate: "{rate/scale}Hz" with an optional "/D" after it; an unassigned value of that
// system, or the plain unassigned value.
timecode _parseRate(qefWChar const * text) {
  timecode value;
  if (!text) {
    return value;
  }
  qefWChar const * hz = nullptr;
  for (qefWChar const * p = text; *p != 0; ++p) {
    if (p[0] == '}' && p[1] == 'H' && p[2] == 'z') {
      hz = p;
      break;
    }
  }
  if (!hz || hz - text < 5) {
    return value;
  }
  qefWChar const * open = hz;
  while (open > text && *open != '{') {
    --open;
  }
  if (*open != '{') {
    return value;
  }
  qefWChar const * p = open + 1;
  std::uint32_t rate = 0;
  std::uint32_t scale = 0;
  if (!_scanUnsigned(p, 0, rate) || *p++ != '/' || !_scanUnsigned(p, 0, scale)) {
    return value;
  }
  std::uint32_t system = timecode::GetTCSystemOf(rate, scale);
  if (system >= 16) {
    return value;
  }
  if (hz[3] == '/' && hz[4] == 'D') {
    system = timecode::GetDFSystem(system);
  }
  value.Unassign(system);
  return value;
}

} // namespace

SZUTC::SZUTC() {
  _writeLong(timecode(), m_text);
}

SZUTC::SZUTC(timecode const & value) {
  _writeLong(value, m_text);
}

SZUTC::SZUTC(qefWChar const * text) {
  std::uint32_t fields[4] = {};
  qefWChar marker = 0;
  std::uint32_t rate = 0;
  std::uint32_t scale = 0;
  if (text && _readLong(text, fields, marker, rate, scale)) {
    std::size_t const length = _length(text, kCapacity);
    if (length < kCapacity) {
      for (std::size_t i = 0; i <= length; ++i) {
        m_text[i] = text[i];
      }
      return;
    }
    _writeLong(_parseLong(text), m_text);
    return;
  }
  _writeLong(_parseRate(text), m_text);
}

SZUTC::SZUTC(char const * text) {
  if (!text) {
    _writeLong(timecode(), m_text);
    return;
  }
  constexpr std::size_t kMax = 256;
  qefWChar wide[kMax + 1];
  std::size_t n = 0;
  for (; text[n] != 0 && n < kMax; ++n) {
    wide[n] = static_cast<unsigned char>(text[n]) < 0x80 ? static_cast<qefWChar>(text[n]) : u'?';
  }
  wide[n] = 0;
  *this = SZUTC(wide);
}

SZUTC::operator timecode() const {
  return _parseLong(m_text);
}

} // namespace VORX::TimeCode
