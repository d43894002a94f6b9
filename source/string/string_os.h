// Private to the string area: the operating-system pieces that are not exported.
#pragma once

#include <vorx/base.h>

namespace VORX::String::OS {

// Case mapping of one unit in the process-wide C.UTF-8 locale, whatever the host's locale is.
// Without that locale (never on a standard system) only A-Z and a-z map.
qefWChar _towlower(qefWChar c);
qefWChar _towupper(qefWChar c);

} // namespace VORX::String::OS
