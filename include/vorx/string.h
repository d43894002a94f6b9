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
// library's digits in the current locale; `%p` prints 16 upper-case hexadecimal digits and no
// prefix. A null string argument prints "(null)". Narrow text is read as UTF-8; a byte that is
// not part of a well-formed sequence becomes the unit of the same value (Latin-1 style).
// Width and precision of strings count 16-bit units; a precision never splits a surrogate pair
// decoded from narrow text. Note: `%ld`/`%lu` read the host's 64-bit `long`.
// Writes at most `count` units including the terminator (always terminated when `count` > 0,
// cutting the text) and returns the length the whole text has, so a result of `count` or more
// means it was cut; a null `buffer` only measures. An unknown conversion is copied as it stands
// (arguments its `*` named are still taken).
// -1 for a null format, a text longer than INT_MAX, or a floating conversion too long for the
// stack whose heap block cannot be had (the buffer then holds the text before it).
// Ordinary messages are formatted without heap allocation.
VORX_API int _vsnwprintf(qefWChar * buffer, std::size_t count, qefWChar const * format,
                         std::va_list arguments);
VORX_API int _snwprintf(qefWChar * buffer, std::size_t count, qefWChar const * format, ...);

// Reads like the wide scanf family of the Windows runtime, with the same type conventions as
// `_vsnwprintf` (`%s` and `%[...]` store `qefWChar`, `%hs` and `%h[...]` store `char`; `%c`
// stores a `qefWChar`, `%hc` a `char`), `*` suppression, widths, `%n`. Returns the number of
// fields stored, or -1 when the input ends (or is null) before the first conversion (a
// suppressed one counts). A malformed format or an unknown conversion stops the scan.
// Narrow fields are stored as UTF-8 (a lone surrogate as U+FFFD) and their width counts the
// bytes stored: a character that does not fit ends the field. `%hc` stores units up to U+00FF
// as their value, others as '?'.
// Integers read as strtoll (`d`, `i`) or strtoull would, then keep the low bits of their size;
// a lone "0x" reads as 0. `%f` stores a float, `%lf` a double, `%Lf` a long double, and takes
// only the characters of the longest number the C library reads in the current locale.
// Blanks are the ASCII ones (space, tab, line feed, vertical tab, form feed, carriage return).
VORX_API int vswscanf(qefWChar const * input, qefWChar const * format, std::va_list arguments);
VORX_API int swscanf(qefWChar const * input, qefWChar const * format, ...);

} // namespace VORX::String
