// VORX::String: text. The 16-bit formatter and scanner every area formats and reads wide text
// with; the encodings, converters and pooled strings join them here.
#pragma once

#include <cstdarg>

#include <vorx/base.h>

namespace VORX::String {

// Formats like the wide printf family of the Windows runtime: in a 16-bit format `%s`, `%ls`
// and `%ws` take `qefWChar const *`, `%hs` and `%S` take `char const *`, `%c` and `%lc` a
// `qefWChar`, `%hc` and `%C` a `char`; size prefixes `I64`, `I32`, `I`, `ll`, `l`, `h`, `hh`,
// `j`, `z`, `t`, `L`; flags, width, precision and `*` as in C; `%f`/`%e`/`%g`/`%a` use the C
// library's digits in the current locale. A null string argument prints "(null)".
// Writes at most `count` units including the terminator (always terminated when `count` > 0,
// cutting the text) and returns the length the whole text has, so a result of `count` or more
// means it was cut. An unknown conversion is copied as it stands. -1 for a null format.
// Ordinary messages are formatted without heap allocation.
VORX_API int _vsnwprintf(qefWChar * buffer, std::size_t count, qefWChar const * format,
                         std::va_list arguments);
VORX_API int _snwprintf(qefWChar * buffer, std::size_t count, qefWChar const * format, ...);

// Reads like the wide scanf family of the Windows runtime, with the same type conventions as
// `_vsnwprintf` (`%s` and `%[...]` store `qefWChar`, `%hs` and `%h[...]` store `char`; `%c`
// stores a `qefWChar`, `%hc` a `char`), `*` suppression, widths, `%n`. Returns the number of
// fields stored, or -1 when the input ends (or is null) before the first conversion.
VORX_API int vswscanf(qefWChar const * input, qefWChar const * format, std::va_list arguments);
VORX_API int swscanf(qefWChar const * input, qefWChar const * format, ...);

} // namespace VORX::String
