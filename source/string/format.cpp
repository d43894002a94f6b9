// Placeholder until the formatter lands.
#include <vorx/string.h>
namespace VORX::String {
int _vsnwprintf(qefWChar * buffer, std::size_t count, qefWChar const *, std::va_list) {
  if (count) buffer[0] = 0;
  return 0;
}
int _snwprintf(qefWChar * buffer, std::size_t count, qefWChar const * format, ...) {
  std::va_list a; va_start(a, format); int r = _vsnwprintf(buffer, count, format, a); va_end(a); return r;
}
int vswscanf(qefWChar const *, qefWChar const *, std::va_list) { return -1; }
int swscanf(qefWChar const * input, qefWChar const * format, ...) {
  std::va_list a; va_start(a, format); int r = vswscanf(input, format, a); va_end(a); return r;
}
}
