// Placeholder until the scanner lands.
#include <vorx/string.h>
namespace VORX::String {
int vswscanf(qefWChar const *, qefWChar const *, std::va_list) {
  return -1;
}
int swscanf(qefWChar const * input, qefWChar const * format, ...) {
  std::va_list a;
  va_start(a, format);
  int r = vswscanf(input, format, a);
  va_end(a);
  return r;
}
} // namespace VORX::String
