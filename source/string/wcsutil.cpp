// Wide-character utilities: case mapping, case-insensitive comparison, containment and counting,
// one 16-bit unit at a time.
#include <vorx/string.h>

#include "string/string_os.h"

namespace VORX::String {
namespace {

// Identity, for the case-sensitive searches.
struct Same {
  qefWChar operator()(qefWChar c) const { return c; }
};
struct Lower {
  qefWChar operator()(qefWChar c) const { return OS::_towlower(c); }
};

// The naive search shared by the four containment tests: positions from `limit` on are not
// tried, and a match that needs a unit at or beyond `limit` fails.
template <typename Map>
bool Contains(qefWChar const * s, qefWChar const * sub, std::uint64_t limit, Map map) {
  if (s == sub) {
    return true;
  }
  if (!s || !sub || *s == 0 || *sub == 0) {
    return false;
  }
  qefWChar const first = map(sub[0]);
  for (std::uint64_t i = 0; i < limit && s[i] != 0; ++i) {
    if (map(s[i]) != first) {
      continue;
    }
    for (std::uint64_t k = 1;; ++k) {
      if (sub[k] == 0) {
        return true;
      }
      if (i + k >= limit || s[i + k] == 0) {
        return false; // the text ends before the needle could
      }
      if (map(s[i + k]) != map(sub[k])) {
        break;
      }
    }
  }
  return false;
}

// Compares at most `limit` units without regard to case.
int CompareI(qefWChar const * a, qefWChar const * b, std::uint64_t limit) {
  for (std::uint64_t i = 0; i < limit; ++i) {
    if (a[i] != b[i]) {
      int const la = OS::_towlower(a[i]);
      int const lb = OS::_towlower(b[i]);
      if (la != lb) {
        return la - lb;
      }
    }
    if (a[i] == 0) {
      return 0;
    }
  }
  return 0;
}

} // namespace

qefWChar wctolower(qefWChar const & c) {
  return OS::_towlower(c);
}

qefWChar wctoupper(qefWChar const & c) {
  return OS::_towupper(c);
}

void wcslower(qefWChar * s) {
  for (; s && *s; ++s) {
    *s = OS::_towlower(*s);
  }
}

void wcsupper(qefWChar * s) {
  for (; s && *s; ++s) {
    *s = OS::_towupper(*s);
  }
}

int wccmpi(qefWChar a, qefWChar b) {
  if (a == b) {
    return 0;
  }
  return static_cast<int>(OS::_towlower(a)) - static_cast<int>(OS::_towlower(b));
}

int wcscmpi(qefWChar const * a, qefWChar const * b) {
  if (a == b) {
    return 0;
  }
  if (!a) {
    return 1;
  }
  if (!b) {
    return -1;
  }
  return CompareI(a, b, qefAllOnes);
}

int wcsncmpi(qefWChar const * a, qefWChar const * b, std::uint64_t n) {
  if (a == b) {
    return 0;
  }
  if (!a) {
    return 1;
  }
  if (!b) {
    return -1;
  }
  // The count is a signed 32-bit number: only its low 32 bits are taken.
  std::int32_t const count = static_cast<std::int32_t>(static_cast<std::uint32_t>(n));
  return count > 0 ? CompareI(a, b, static_cast<std::uint64_t>(count)) : 0;
}

bool wcscnt(qefWChar const * s, qefWChar const * sub) {
  return Contains(s, sub, qefAllOnes, Same{});
}

bool wcsncnt(qefWChar const * s, qefWChar const * sub, std::uint64_t n) {
  return Contains(s, sub, n, Same{});
}

bool wcscnti(qefWChar const * s, qefWChar const * sub) {
  return Contains(s, sub, qefAllOnes, Lower{});
}

bool wcsncnti(qefWChar const * s, qefWChar const * sub, std::uint64_t n) {
  return Contains(s, sub, n, Lower{});
}

std::uint64_t wcscount(qefWChar const * s, qefWChar c) {
  std::uint64_t count = 0;
  for (; s && *s; ++s) {
    count += *s == c;
  }
  return count;
}

} // namespace VORX::String
