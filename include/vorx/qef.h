// VORX::QEF: the small binary component framework. This header holds the 16-byte identifier
// record that the memory layer's interface query already names.
#pragma once

#include <vorx/base.h>

// A 16-byte identifier in the GUID layout: one 32-bit group, two 16-bit groups, eight bytes.
struct _qefUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
static_assert(sizeof(_qefUID) == 16);

namespace VORX::QEF {

// The all-zero identifier.
inline constexpr _qefUID qefUID_null{};

} // namespace VORX::QEF

// The root component interface, in the COM binary layout: three slots, the interface query
// first. Result codes follow the HRESULT convention (negative means failure; see `VORX::hr`).
// An object that lives in an object-memory block and is counted by its block answers 0 from
// `AddRef` and `Release` (uncounted).
struct IQEFUnknown {
  // Stores the interface `id` in `*out` and answers `VORX::QEF::QEF_S_OK`; stores null and
  // answers `QEF_E_NOINTERFACE` when the object does not offer it (`QEF_E_POINTER` for a null
  // `out`).
  virtual std::int32_t QueryInterface(_qefUID const & id, void ** out) = 0;
  // The new reference count; 0 for an uncounted object.
  virtual std::uint32_t AddRef() = 0;
  // The new reference count; 0 for an uncounted object.
  virtual std::uint32_t Release() = 0;

protected:
  ~IQEFUnknown() = default;
};

namespace VORX::QEF {

// Result codes of the component interfaces.
inline constexpr std::int32_t QEF_S_OK = 0;
inline constexpr std::int32_t QEF_E_NOINTERFACE = static_cast<std::int32_t>(0x80004002u);
inline constexpr std::int32_t QEF_E_POINTER = static_cast<std::int32_t>(0x80004003u);

// 00000000-0000-0000-C000-000000000046, the identifier of `IQEFUnknown`.
inline constexpr _qefUID IID_IQEFUnknown{
    0x00000000u, 0x0000u, 0x0000u, {0xC0u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x46u}};

// Byte-wise equality of two identifiers.
constexpr bool _sameUID(_qefUID const & a, _qefUID const & b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) {
    return false;
  }
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) {
      return false;
    }
  }
  return true;
}

} // namespace VORX::QEF
