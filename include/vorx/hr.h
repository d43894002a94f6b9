// VORX::hr: a signed 32-bit result code in the HRESULT convention (negative means failure).
#pragma once

#include <vorx/base.h>

namespace VORX {

// Value class over one result code. Constructing it from a negative code applies the debug
// switches LogFailedHRESULT (a trace line "lResult < 0: %x") and BreakOnHRESULT (a box).
// Converts to bool by the sign (true for codes >= 0) wherever a bool is initialised from it:
// `bool ok = code;`, an argument, a `return`, a condition. The conversion to the integer stays for
// code that reads the code itself (`std::int32_t raw = code;`, `static_cast<std::int32_t>(code)`);
// mixing it into arithmetic or ordered comparisons needs that cast.
// Note: the default constructor leaves the code unset.
class VORX_API hr {
public:
  hr() = default;
  hr(std::int32_t code);

  operator bool() const { return m_code >= 0; }
  bool operator==(hr const & other) const { return m_code == other.m_code; }
  bool operator==(std::int32_t code) const { return m_code == code; }
  operator std::int32_t() const { return m_code; }

private:
  std::int32_t m_code;
};

} // namespace VORX
