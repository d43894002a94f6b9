// VORX::hr: a signed 32-bit result code in the HRESULT convention (negative means failure).
#pragma once

#include <vorx/base.h>

namespace VORX {

// Value class over one result code. Constructing it from a negative code applies the debug
// switches LogFailedHRESULT (a trace line "lResult < 0: %x") and BreakOnHRESULT (a box).
// Note: the default constructor leaves the code unset.
class VORX_API hr {
public:
  hr() = default;
  hr(std::int32_t code);

  explicit operator bool() const { return m_code >= 0; }
  bool operator==(hr const & other) const { return m_code == other.m_code; }
  bool operator==(std::int32_t code) const { return m_code == code; }
  operator std::int32_t() const { return m_code; }

private:
  std::int32_t m_code;
};

} // namespace VORX
