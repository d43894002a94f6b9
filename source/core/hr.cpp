// Result codes and their failure switches.
#include <vorx/develop.h>
#include <vorx/hr.h>

namespace VORX {

hr::hr(std::int32_t code) : m_code(code) {
  if (code >= 0) {
    return;
  }
  Develop::tagDEBUGSWITCHES const switches = Develop::GetDebugSwitches();
  if (switches.BreakOnHRESULT) {
    Develop::OS::RTABox("RTA_ON_TRUE", "VORXQEF,22:lResult < 0");
  }
  if (switches.LogFailedHRESULT) {
    Develop::_logWrite(qefDL_Trace, u"VORX", __FILE_NAME__, __LINE__, u"lResult < 0: %x",
                       static_cast<unsigned>(code));
  }
}

} // namespace VORX
