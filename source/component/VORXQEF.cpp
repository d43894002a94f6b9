// Identifiers and their text forms, the counted component base and the static class factory.
#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/qef.h>
#include <vorx/string.h>

#include <atomic>
#include <cstdio>

#include "component/component_os.h"

namespace VORX::QEF {
namespace {

// Wide text up to this many units is parsed from a copy on the stack; longer narrow text is
// widened on the heap.
constexpr std::size_t kStackUnits = 128;

// Calls `print` with the fields of `uid` in the order of its text form, each byte widened for
// `%02hX`.
template <class Print> void _printFields(_qefUID const & uid, Print && print) {
  auto const byte = [&](int i) { return static_cast<unsigned short>(uid.Data4[i]); };
  print(uid.Data1, uid.Data2, uid.Data3, byte(0), byte(1), byte(2), byte(3), byte(4), byte(5),
        byte(6), byte(7));
}

// The parse rules over wide text; `text` is never null.
bool _parse(qefWChar const * text, _qefUID & uid) {
  uid = _qefUID{};
  std::size_t dashes = 0;
  qefWChar const * last = nullptr;
  for (qefWChar const * p = text; *p; ++p) {
    if (*p == u'-') {
      ++dashes;
      last = p;
    }
  }
  if (dashes != 4) {
    return true; // not an identifier text: the null identifier, by design
  }
  unsigned int group1 = 0;
  unsigned short group2 = 0;
  unsigned short group3 = 0;
  unsigned short pair = 0;
  if (String::swscanf(text, u"%x-%hx-%hx-%hx", &group1, &group2, &group3, &pair) != 4) {
    return false;
  }
  _qefUID read{};
  read.Data1 = group1;
  read.Data2 = group2;
  read.Data3 = group3;
  read.Data4[0] = static_cast<std::uint8_t>(pair >> 8);
  read.Data4[1] = static_cast<std::uint8_t>(pair & 0xFF);
  qefWChar const * digits = last + 1;
  for (int i = 2; i < 8; ++i, digits += 2) {
    if (digits[0] == 0 || digits[1] == 0) {
      return false;
    }
    qefWChar const two[3] = {digits[0], digits[1], 0};
    unsigned short value = 0;
    if (String::swscanf(two, u"%hx", &value) != 1) {
      return false;
    }
    read.Data4[i] = static_cast<std::uint8_t>(value & 0xFF);
  }
  uid = read;
  return true;
}

} // namespace

bool cqefuid::Set(qefWChar const * text) {
  return _parse(text ? text : u"", m_uid);
}

bool cqefuid::Set(char const * text) {
  if (!text) {
    return _parse(u"", m_uid);
  }
  // Each byte becomes the unit of the same value: the rules look at ASCII characters only.
  std::size_t length = 0;
  while (text[length]) {
    ++length;
  }
  qefWChar local[kStackUnits];
  qefWChar * wide = local;
  if (length >= kStackUnits) {
    wide = static_cast<qefWChar *>(Core::OS::_falloc((length + 1) * sizeof(qefWChar)));
    if (!wide) {
      m_uid = _qefUID{};
      return false;
    }
  }
  for (std::size_t i = 0; i <= length; ++i) {
    wide[i] = static_cast<unsigned char>(text[i]);
  }
  bool const ok = _parse(wide, m_uid);
  if (wide != local) {
    Core::OS::_ffree(wide);
  }
  return ok;
}

String::CANSIChar cqefuid::ANSI() const {
  char text[40];
  _printFields(m_uid, [&](auto... fields) {
    std::snprintf(text, sizeof text, "%08X-%04hX-%04hX-%02hX%02hX-%02hX%02hX%02hX%02hX%02hX%02hX",
                  fields...);
  });
  return String::CANSIChar(static_cast<char const *>(text));
}

cqefuid::operator String::CQEFWChar() const {
  qefWChar text[40];
  _printFields(m_uid, [&](auto... fields) {
    String::_snwprintf(text, 40, u"%08X-%04hX-%04hX-%02hX%02hX-%02hX%02hX%02hX%02hX%02hX%02hX",
                       fields...);
  });
  return String::CQEFWChar(static_cast<qefWChar const *>(text));
}

bool _createUID(_qefUID & uid) {
  unsigned char bytes[16];
  if (!OS::_systemRandom(bytes, sizeof bytes)) {
    uid = _qefUID{};
    return false;
  }
  _qefUID fresh{};
  fresh.Data1 = static_cast<std::uint32_t>(bytes[0]) << 24 |
                static_cast<std::uint32_t>(bytes[1]) << 16 |
                static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
  fresh.Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  fresh.Data3 = static_cast<std::uint16_t>(((bytes[6] & 0x0F) | 0x40) << 8 | bytes[7]);
  fresh.Data4[0] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
  for (int i = 1; i < 8; ++i) {
    fresh.Data4[i] = bytes[8 + i];
  }
  uid = fresh;
  return true;
}

// _cQEFUnknown

std::uint32_t _cQEFUnknown::_addRef() const {
  std::atomic_ref<std::uint32_t> count(m_lRefCount);
  if (count.load() == 0) {
    return 0;
  }
  return count.fetch_add(1) + 1;
}

std::uint32_t _cQEFUnknown::_release() const {
  std::atomic_ref<std::uint32_t> count(m_lRefCount);
  if (count.load() == 0) {
    return 0;
  }
  std::uint32_t const left = count.fetch_sub(1) - 1;
  if (left == 0) {
    _destroy();
  }
  return left;
}

void * _cQEFUnknown::_queryinterfaceadd(_qefUID const & id) const {
  void * const found = _queryinterface(id);
  if (found) {
    std::atomic_ref<std::uint32_t> count(m_lRefCount);
    if (count.load() != 0) {
      count.fetch_add(1);
    }
  }
  return found;
}

void * _cQEFUnknown::_queryinterface(_qefUID const & id) const {
  if (_sameUID(id, IID_IQEFUnknown) || _sameUID(id, IID_IQEFClassFactory)) {
    return base();
  }
  return nullptr;
}

std::int32_t _cQEFUnknown::_query(_qefUID const & id, void ** out) const {
  if (!out) {
    return QEF_E_POINTER;
  }
  *out = _queryinterfaceadd(id);
  return *out ? QEF_S_OK : QEF_E_NOINTERFACE;
}

// _csFactory

std::int32_t _csFactory::QueryInterface(_qefUID const & id, void ** out) {
  if (!out) {
    return QEF_E_ARGUMENT;
  }
  if (_sameUID(id, IID_IQEFUnknown) || _sameUID(id, IID_IQEFClassFactory)) {
    *out = static_cast<IQEFClassFactory *>(this);
    return QEF_S_OK;
  }
  *out = nullptr;
  return QEF_E_NOINTERFACE_16;
}

std::int32_t _csFactory::CreateInstance(IQEFUnknown * outer, void *, _qefUID const & id,
                                        void ** out) {
  if (!out) {
    return QEF_E_ARGUMENT;
  }
  *out = nullptr;
  if (outer) {
    return QEF_E_NOAGGREGATION;
  }
  bool created = false;
  try {
    created = _createInstance(id, out);
  } catch (...) {
    created = false;
  }
  if (!created) {
    *out = nullptr;
    return QEF_E_CLASSNOTAVAILABLE;
  }
  return QEF_S_OK;
}

} // namespace VORX::QEF
