// Arrays of pooled strings, and the submitters that write joined text and pieces of text
// straight into the pool.
#include <vorx/develop.h>
#include <vorx/string.h>

#include <cstring>

namespace VORX::String {
namespace {

using PoolVector = Buffers::CPObjectVector<CPPoolString>;

int _compareElements(void const * a, void const * b) {
  return static_cast<CPPoolString const *>(a)->cmp(*static_cast<CPPoolString const *>(b));
}

CPPoolString const g_outOfRange;

} // namespace

CPPoolStringArray & CPPoolStringArray::operator=(Buffers::CPObjectMemory const & block) {
  if (block && block.IsNAssignable(sizeof(CPPoolString), &PoolVector::_vtbl)) {
    m_items = block;
    if (m_sorted) {
      Sort();
    }
  } else {
    m_items.free();
  }
  return *this;
}

CPPoolString const & CPPoolStringArray::operator[](std::uint64_t i) const {
  return i < m_items.GetNItems() ? m_items[i] : g_outOfRange;
}

void CPPoolStringArray::Sort() {
  m_items.Sort(&_compareElements);
}

std::size_t CPPoolStringArray::_position(CPPoolString const & s) const {
  std::size_t count = 0;
  CPPoolString const * items = const_cast<PoolVector &>(m_items).GetArray(count);
  return items ? Buffers::Sort::vfqfind(&s, items, count, sizeof(CPPoolString), &_compareElements)
               : 0;
}

bool CPPoolStringArray::Add(CPPoolString const & s) {
  if (!m_sorted) {
    return m_items.Insert(s, m_items.GetNItems());
  }
  std::size_t const at = _position(s);
  if (at < m_items.GetNItems() && m_items[at] == s) {
    return true;
  }
  return m_items.Insert(s, at);
}

bool CPPoolStringArray::Insert(CPPoolString const & s, std::uint64_t index) {
  if (m_sorted) {
    return false;
  }
  return m_items.Insert(s, static_cast<std::size_t>(index));
}

bool CPPoolStringArray::Delete(CPPoolString const & s) {
  if (!m_sorted) {
    return false;
  }
  std::size_t const at = _position(s);
  if (at < m_items.GetNItems() && m_items[at] == s) {
    m_items.Delete(at, false);
  }
  return true;
}

std::uint64_t CPPoolStringArray::LocateEntry(CPPoolString const & s) const {
  if (!m_sorted || !m_items) {
    return ~std::uint64_t{0};
  }
  return _position(s);
}

CPPoolString CPPoolStringArray::Flatten(qefWChar separator) const {
  std::size_t count = 0;
  CPPoolString const * items = const_cast<PoolVector &>(m_items).GetArray(count);
  if (count == 0) {
    return CPPoolString();
  }
  CStringArraySubmitter submitter(items, count, separator);
  if (submitter.GetStringLen() == 0) {
    // Only empty pieces: the joined text is empty.
    return CStringPool::GetStringRef(u"");
  }
  return CStringPool::GetStringRef(&submitter);
}

bool CPPoolStringArray::Inflate(CPPoolString const & text, qefWChar separator) {
  m_items.free();
  if (text.isnull()) {
    return true;
  }
  qefWChar const * p = text;
  if (!m_items.Reserve(wcscount(p, separator) + 1)) {
    return false;
  }
  if (text.isempty()) {
    return true;
  }
  qefWChar const * start = p;
  for (; *p; ++p) {
    if (*p != separator) {
      continue;
    }
    if (p == start) {
      if (!Add(CPPoolString())) {
        return false;
      }
    } else {
      CSubStringSubmitter piece(start, static_cast<std::uint64_t>(p - start));
      CPPoolString const s = CStringPool::GetStringRef(&piece);
      if (s.isnull() || !Add(s)) {
        return false;
      }
    }
    start = p + 1;
  }
  if (*start) {
    std::uint64_t const sccLen = static_cast<std::uint64_t>(p - start);
    if (!(sccLen > 0)) {
      Develop::OS::RTABox("Runtime assumption failed", "sccLen > 0");
    }
    CSubStringSubmitter piece(start, sccLen);
    CPPoolString const s = CStringPool::GetStringRef(&piece);
    if (s.isnull() || !Add(s)) {
      return false;
    }
  }
  return true;
}

std::uint64_t CStringArraySubmitter::GetStringLen() {
  if (m_count == 0 || !m_items) {
    return 0;
  }
  std::uint64_t total = m_count - 1;
  for (std::uint64_t i = 0; i < m_count; ++i) {
    total += m_items[i].len();
  }
  return total;
}

bool CStringArraySubmitter::GetString(qefWChar * out) {
  if (!out || (m_count > 0 && !m_items)) {
    return false;
  }
  for (std::uint64_t i = 0; i < m_count; ++i) {
    std::uint64_t const n = m_items[i].len();
    std::memcpy(out, static_cast<qefWChar const *>(m_items[i]), n * sizeof(qefWChar));
    out += n;
    if (i + 1 < m_count) {
      *out++ = m_separator;
    }
  }
  *out = 0;
  return true;
}

bool CSubStringSubmitter::GetString(qefWChar * out) {
  if (!out || (m_count > 0 && !m_text)) {
    return false;
  }
  std::memcpy(out, m_text, m_count * sizeof(qefWChar));
  return true;
}

} // namespace VORX::String
