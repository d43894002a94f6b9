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
