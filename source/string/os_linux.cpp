// Linux realisation of the string area's operating-system pieces: the ANSI code page through
// iconv, and case mapping through one fixed C.UTF-8 locale object.
#include <vorx/string.h>

#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <string>
#include <wctype.h>

#include "string/string_os.h"

namespace VORX::String::OS {
namespace {

// The C.UTF-8 locale, created once at load (or on first use, if another library's start-up code
// asks first) and kept for the life of the process.
locale_t CaseLocale() {
  static locale_t const locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

struct CaseLocaleAtLoad {
  CaseLocaleAtLoad() { CaseLocale(); }
} const g_caseLocaleAtLoad;

// The iconv name of the ANSI code page: the current LC_CTYPE code set, Windows-1252 for ASCII.
std::string AnsiCodeSet() {
  char const * codeset = ::nl_langinfo(CODESET);
  if (!codeset || !*codeset || std::strcmp(codeset, "ANSI_X3.4-1968") == 0 ||
      std::strcmp(codeset, "ASCII") == 0 || std::strcmp(codeset, "US-ASCII") == 0) {
    return "WINDOWS-1252";
  }
  return codeset;
}

// One conversion descriptor for the length of a call.
class Converter {
public:
  Converter(char const * to, char const * from) : m_cd(::iconv_open(to, from)) {}
  ~Converter() {
    if (ok()) {
      ::iconv_close(m_cd);
    }
  }
  Converter(Converter const &) = delete;
  Converter & operator=(Converter const &) = delete;
  bool ok() const { return m_cd != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return m_cd; }

private:
  iconv_t m_cd;
};

// Receives converted units: counts them all, stores those that fit.
template <typename T> struct Sink {
  T * dst;
  std::uint64_t capacity;
  std::uint64_t count = 0;
  bool overflow = false;
  void put(T const * units, std::size_t n) {
    for (std::size_t k = 0; k < n; ++k, ++count) {
      if (dst) {
        if (count < capacity) {
          dst[count] = units[k];
        } else {
          overflow = true;
        }
      }
    }
  }
};

// Runs `cd` over `in` (`inBytes` bytes), in chunks through a small buffer. On an invalid or
// incomplete sequence, puts `replacement` and skips `skip` input bytes.
template <typename T>
void Convert(iconv_t cd, char const * in, std::size_t inBytes, std::size_t skip,
             T const & replacement, bool byteAsUnit, Sink<T> & sink) {
  char * source = const_cast<char *>(in);
  std::size_t left = inBytes;
  T chunk[256];
  while (left > 0) {
    char * out = reinterpret_cast<char *>(chunk);
    std::size_t room = sizeof chunk;
    std::size_t const result = ::iconv(cd, &source, &left, &out, &room);
    int const error = result == static_cast<std::size_t>(-1) ? errno : 0;
    sink.put(chunk, static_cast<std::size_t>(reinterpret_cast<T *>(out) - chunk));
    if (error == E2BIG) {
      continue;
    }
    if (error == EILSEQ || error == EINVAL) {
      T const substitute =
          byteAsUnit ? static_cast<T>(static_cast<unsigned char>(*source)) : replacement;
      sink.put(&substitute, 1);
      std::size_t const step = skip < left ? skip : left;
      source += step;
      left -= step;
      ::iconv(cd, nullptr, nullptr, nullptr, nullptr);
      continue;
    }
    if (error != 0) {
      return;
    }
  }
}

} // namespace

qefWChar _towlower(qefWChar c) {
  if (locale_t const locale = CaseLocale()) {
    return static_cast<qefWChar>(::towlower_l(static_cast<wint_t>(c), locale));
  }
  return c >= u'A' && c <= u'Z' ? static_cast<qefWChar>(c + 32) : c;
}

qefWChar _towupper(qefWChar c) {
  if (locale_t const locale = CaseLocale()) {
    return static_cast<qefWChar>(::towupper_l(static_cast<wint_t>(c), locale));
  }
  return c >= u'a' && c <= u'z' ? static_cast<qefWChar>(c - 32) : c;
}

std::uint64_t ANSI_To_qefWChar(char const * src, std::uint64_t srcLen, qefWChar * dst,
                               std::uint64_t dstLen) {
  if (!src || srcLen == 0) {
    return 0;
  }
  bool const terminated = srcLen == qefAllOnes;
  std::size_t const bytes = terminated ? std::strlen(src) : static_cast<std::size_t>(srcLen);
  std::string const codeset = AnsiCodeSet();
  Converter const cd("UTF-16LE", codeset.c_str());
  if (!cd.ok()) {
    return 0;
  }
  // A single-byte code page maps its undefined bytes to the unit of the same value.
  bool const singleByte = codeset == "WINDOWS-1252" || codeset.rfind("ISO-8859", 0) == 0 ||
                          codeset.rfind("KOI8", 0) == 0 || codeset.rfind("CP125", 0) == 0;
  Sink<qefWChar> sink{dstLen ? dst : nullptr, dstLen};
  Convert<qefWChar>(cd.get(), src, bytes, 1, u'\xFFFD', singleByte, sink);
  if (terminated) {
    qefWChar const zero = 0;
    sink.put(&zero, 1);
  }
  if (sink.count == 0 || sink.overflow) {
    return 0;
  }
  return sink.count;
}

std::uint64_t qefWChar_To_ANSI(qefWChar const * src, std::uint64_t srcLen, char * dst,
                               std::uint64_t dstLen) {
  if (!src || srcLen == 0) {
    return 0;
  }
  bool const terminated = srcLen == qefAllOnes;
  std::size_t units = 0;
  if (terminated) {
    while (src[units] != 0) {
      ++units;
    }
  } else {
    units = static_cast<std::size_t>(srcLen);
  }
  std::string const codeset = AnsiCodeSet();
  Converter const cd(codeset.c_str(), "UTF-16LE");
  if (!cd.ok()) {
    return 0;
  }
  Sink<char> sink{dstLen ? dst : nullptr, dstLen};
  Convert<char>(cd.get(), reinterpret_cast<char const *>(src), units * sizeof(qefWChar),
                sizeof(qefWChar), '?', false, sink);
  if (terminated) {
    char const zero = 0;
    sink.put(&zero, 1);
  }
  if (sink.count == 0 || sink.overflow) {
    return 0;
  }
  return sink.count;
}

} // namespace VORX::String::OS
