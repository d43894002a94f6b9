// Minimal UTF-8 and UTF-16 transcoding for the diagnostics layer (paths, debugger output).
#pragma once

#include <cstddef>

#include <vorx/base.h>

namespace VORX::Develop {

// Decodes UTF-8 into at most `count` units including the terminator; an invalid byte becomes
// the unit of the same value. Returns the units written before the terminator.
std::size_t _utf8ToWide(char const * text, qefWChar * buffer, std::size_t count);

// Encodes zero-terminated UTF-16 as UTF-8 into at most `count` bytes including the terminator;
// a lone surrogate becomes U+FFFD. Returns the bytes written before the terminator.
std::size_t _wideToUtf8(qefWChar const * text, char * buffer, std::size_t count);

} // namespace VORX::Develop
