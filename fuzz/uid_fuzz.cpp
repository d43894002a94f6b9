// Identifier text: arbitrary bytes read as narrow text and as the same units in wide text.
#include <vorx/qef.h>

#include <cstdint>
#include <cstdlib>
#include <string>

using VORX::QEF::cqefuid;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  std::string const narrow(reinterpret_cast<char const *>(data), size);
  std::u16string const wide(narrow.begin(), narrow.end()); // each byte as the unit of its value
  cqefuid a;
  cqefuid b;
  bool const ok = a.Set(narrow.c_str());
  // Both readings agree; a failure leaves the null identifier.
  if (ok != b.Set(wide.c_str()) || a != b || (!ok && a)) {
    std::abort();
  }
  // The text form reads back to the same identifier.
  VORX::String::CANSIChar const text = a.ANSI();
  cqefuid c;
  if (*text && (!c.Set(*text) || c != a)) {
    std::abort();
  }
  return 0;
}
