// The pooled-string handle: construction from every kind of source, the comparisons, the lazy
// UTF-8 view, integrity checks and the numbering of names.
#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/string.h>

#include "string/pool_record.h"

namespace VORX::String {
namespace {

unsigned char const kNoUTF8[1] = {0};

// Unit-wise comparison of at most `n` units, stopping at a terminator: -1, 0 or 1.
int _ncompare(qefWChar const * a, qefWChar const * b, std::uint64_t n) {
  for (std::uint64_t i = 0; i < n; ++i) {
    if (a[i] != b[i]) {
      return a[i] < b[i] ? -1 : 1;
    }
    if (a[i] == 0) {
      break;
    }
  }
  return 0;
}

// As `wcscmp`, with a null text below every other and two null texts equal.
int _compareNullSafe(qefWChar const * a, qefWChar const * b) {
  if (!a || !b) {
    return a ? 1 : b ? -1 : 0;
  }
  return _ncompare(a, b, qefAllOnes);
}

std::uint64_t _length(qefWChar const * text) {
  std::uint64_t n = 0;
  while (text[n] != 0) {
    ++n;
  }
  return n;
}

using _NCompare = int (*)(qefWChar const *, qefWChar const *, std::uint64_t);

// Compares the `k` units at the start (with `atEnd`, at the end) of `text`, `n` units long, with
// `piece` through `compare`: a text shorter than the piece is below it.
int _comparePiece(qefWChar const * text, std::uint64_t n, qefWChar const * piece, std::uint64_t k,
                  bool atEnd, _NCompare compare) {
  if (n < k) {
    return -1;
  }
  return compare(atEnd ? text + (n - k) : text, piece, k);
}

// As above for a caller's terminated piece: a null piece is below every text.
int _comparePiece(qefWChar const * text, std::uint64_t n, qefWChar const * piece, bool atEnd,
                  _NCompare compare) {
  if (!piece) {
    return -1;
  }
  return _comparePiece(text, n, piece, _length(piece), atEnd, compare);
}

} // namespace

CPPoolString::CPPoolString(qefWChar const * text) : CPPoolString() {
  CPPoolString s = CStringPool::GetStringRef(text);
  TransferFrom(s);
}

CPPoolString::CPPoolString(unsigned char const * utf8) : CPPoolString() {
  CPPoolString s = CStringPool::GetStringRef(utf8);
  TransferFrom(s);
}

CPPoolString::CPPoolString(char const * ansi) : CPPoolString() {
  if (!ansi) {
    return;
  }
  if (*ansi == 0) {
    *this = u"";
    return;
  }
  CQEFWChar const wide(ansi);
  if (*wide) {
    CPPoolString s = CStringPool::GetStringRef(*wide);
    TransferFrom(s);
  }
}

CPPoolString::CPPoolString(std::uint32_t value) : CPPoolString() {
  *this = value;
}

CPPoolString::CPPoolString(std::int32_t value) : CPPoolString() {
  *this = value;
}

CPPoolString::CPPoolString(std::uint64_t value) : CPPoolString() {
  *this = value;
}

CPPoolString::CPPoolString(std::int64_t value) : CPPoolString() {
  *this = value;
}

CPPoolString & CPPoolString::operator=(qefWChar const * text) {
  CPPoolString s = CStringPool::GetStringRef(text);
  TransferFrom(s);
  return *this;
}

CPPoolString & CPPoolString::operator=(unsigned char const * utf8) {
  CPPoolString s = CStringPool::GetStringRef(utf8);
  TransferFrom(s);
  return *this;
}

CPPoolString & CPPoolString::operator=(std::uint32_t value) {
  qefWChar buffer[32];
  _snwprintf(buffer, 32, u"%u", static_cast<unsigned>(value));
  return *this = buffer;
}

CPPoolString & CPPoolString::operator=(std::int32_t value) {
  qefWChar buffer[32];
  _snwprintf(buffer, 32, u"%d", static_cast<int>(value));
  return *this = buffer;
}

CPPoolString & CPPoolString::operator=(std::uint64_t value) {
  // The 32-bit conversion of the library's platform: only the low 32 bits reach the text.
  return *this = static_cast<std::uint32_t>(value);
}

CPPoolString & CPPoolString::operator=(std::int64_t value) {
  return *this = static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

CPPoolString::operator unsigned char const *() const {
  tagPOOLSTRING * record = _cRecordAccess::Record(*this);
  unsigned char * cached = _utf8Slot(record).load();
  if (cached) {
    return cached;
  }
  std::uint64_t const size = record->utf8Size + 1;
  auto * buffer = static_cast<unsigned char *>(Core::OS::_falloc(size));
  if (!buffer) {
    return kNoUTF8;
  }
  if (qefWChar_To_UTF8(record->text, qefAllOnes, buffer, size) != size) {
    Core::OS::_ffree(buffer);
    return kNoUTF8;
  }
  unsigned char * expected = nullptr;
  if (_utf8Slot(record).compare_exchange_strong(expected, buffer)) {
    return buffer;
  }
  Core::OS::_ffree(buffer);
  return expected;
}

void CPPoolString::free() noexcept {
  Buffers::tagCPOMEMHEADER * const old = m_pMH;
  m_pMH = _nullHeader();
  Free(old);
}

void CPPoolString::TransferFrom(CPPoolString & other) noexcept {
  if (&other == this) {
    return;
  }
  Buffers::tagCPOMEMHEADER * const old = m_pMH;
  m_pMH = other.m_pMH;
  other.m_pMH = _nullHeader();
  Free(old);
}

bool CPPoolString::Verify() const {
  if (isnull()) {
    return true;
  }
  tagPOOLSTRING const * record = _rec();
  _tagMeasure m;
  std::uint64_t units = 0;
  if (_measureWide(record->text, record->length, m, units) && m.length == record->length &&
      m.sHash == record->sHash && m.sHashi == record->sHashi) {
    return true;
  }
  Develop::OS::RTABox("Illegal code point reached", "String pool integrity violation");
  return false;
}

bool CPPoolString::operator==(qefWChar const * text) const {
  try {
    qefWChar const * mine = _rec()->text;
    return mine == text || _compareNullSafe(mine, text) == 0;
  } catch (...) {
    return false;
  }
}

int CPPoolString::cmp(CPPoolString const & other) const {
  try {
    return m_pMH == other.m_pMH ? 0 : _compareNullSafe(_rec()->text, other._rec()->text);
  } catch (...) {
    return 1;
  }
}

int CPPoolString::cmp(qefWChar const * text) const {
  try {
    qefWChar const * mine = _rec()->text;
    return mine == text ? 0 : _compareNullSafe(mine, text);
  } catch (...) {
    return text ? 1 : -1;
  }
}

int CPPoolString::cmpi(CPPoolString const & other) const {
  try {
    return wcscmpi(_rec()->text, other._rec()->text);
  } catch (...) {
    return 1;
  }
}

int CPPoolString::cmpi(qefWChar const * text) const {
  try {
    return wcscmpi(_rec()->text, text);
  } catch (...) {
    return text ? 1 : -1;
  }
}

int CPPoolString::cmpp(CPPoolString const & prefix) const {
  try {
    return _comparePiece(_rec()->text, len(), prefix._rec()->text, prefix.len(), false, _ncompare);
  } catch (...) {
    return 1;
  }
}

int CPPoolString::cmpp(qefWChar const * prefix) const {
  try {
    return _comparePiece(_rec()->text, len(), prefix, false, _ncompare);
  } catch (...) {
    return prefix ? 1 : -1;
  }
}

int CPPoolString::cmppi(CPPoolString const & prefix) const {
  try {
    return _comparePiece(_rec()->text, len(), prefix._rec()->text, prefix.len(), false, wcsncmpi);
  } catch (...) {
    return 1;
  }
}

int CPPoolString::cmppi(qefWChar const * prefix) const {
  try {
    return _comparePiece(_rec()->text, len(), prefix, false, wcsncmpi);
  } catch (...) {
    return prefix ? 1 : -1;
  }
}

int CPPoolString::cmp_p(CPPoolString const & suffix) const {
  try {
    return _comparePiece(_rec()->text, len(), suffix._rec()->text, suffix.len(), true, _ncompare);
  } catch (...) {
    return 1;
  }
}

int CPPoolString::cmp_p(qefWChar const * suffix) const {
  try {
    return _comparePiece(_rec()->text, len(), suffix, true, _ncompare);
  } catch (...) {
    return suffix ? 1 : -1;
  }
}

int CPPoolString::cmp_pi(CPPoolString const & suffix) const {
  try {
    return _comparePiece(_rec()->text, len(), suffix._rec()->text, suffix.len(), true, wcsncmpi);
  } catch (...) {
    return 1;
  }
}

int CPPoolString::cmp_pi(qefWChar const * suffix) const {
  try {
    return _comparePiece(_rec()->text, len(), suffix, true, wcsncmpi);
  } catch (...) {
    return suffix ? 1 : -1;
  }
}

bool CPPoolString::cnt(CPPoolString const & sub) const {
  try {
    return len() >= sub.len() && wcsncnt(_rec()->text, sub._rec()->text, len());
  } catch (...) {
    return false;
  }
}

bool CPPoolString::cnt(qefWChar const * sub) const {
  try {
    return wcscnt(_rec()->text, sub);
  } catch (...) {
    return false;
  }
}

bool CPPoolString::cnti(CPPoolString const & sub) const {
  try {
    return len() >= sub.len() && wcsncnti(_rec()->text, sub._rec()->text, len());
  } catch (...) {
    return false;
  }
}

bool CPPoolString::cnti(qefWChar const * sub) const {
  try {
    return wcscnti(_rec()->text, sub);
  } catch (...) {
    return false;
  }
}

bool CPPoolString::iequals(CPPoolString const & other) const {
  tagPOOLSTRING const * a = _rec();
  tagPOOLSTRING const * b = other._rec();
  if (a->sHashi != b->sHashi) {
    return false;
  }
  if (a == b) {
    return true;
  }
  if (a->length != b->length) {
    return false;
  }
  if (a->text == b->text) {
    return true;
  }
  if (!a->text || !b->text) {
    return false;
  }
  for (std::uint64_t i = 0;; ++i) {
    qefWChar const x = a->text[i];
    qefWChar const y = b->text[i];
    if (x != y && wctolower(x) != wctolower(y)) {
      return false;
    }
    if (x == 0) {
      return true;
    }
  }
}

int CPPoolString::pcmp(CPPoolString const & other) const {
  return m_pMH > other.m_pMH ? 1 : m_pMH < other.m_pMH ? -1 : 0;
}

CPPoolString CPPoolString::inc() const {
  if (isnull()) {
    return CPPoolString();
  }
  qefWChar const * text = _rec()->text;
  std::uint64_t const n = len();
  // The new text needs at most len() + 5 units (" (2)" and the terminator).
  auto * buffer = static_cast<qefWChar *>(Core::OS::_falloc((n + 5) * sizeof(qefWChar)));
  if (!buffer) {
    return CPPoolString();
  }
  std::uint64_t open = n;
  if (n >= 2 && text[n - 1] == u')') {
    std::uint64_t i = n - 1;
    while (i > 0 && text[i - 1] >= u'0' && text[i - 1] <= u'9') {
      --i;
    }
    if (i > 0 && text[i - 1] == u'(') {
      open = i - 1;
    }
  }
  unsigned number = 0;
  if (open < n && swscanf(text + open, u"(%u)", &number) == 1) {
    std::memcpy(buffer, text, open * sizeof(qefWChar));
    _snwprintf(buffer + open, n + 2 - open, u"(%u)", number + 1);
  } else {
    std::memcpy(buffer, text, n * sizeof(qefWChar));
    std::memcpy(buffer + n, u" (2)", 5 * sizeof(qefWChar));
  }
  CPPoolString next = CStringPool::GetStringRef(buffer);
  Core::OS::_ffree(buffer);
  return next;
}

} // namespace VORX::String
