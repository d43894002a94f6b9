// Definitions every VORX header rests on: the export macro and the library's wide character.
#pragma once

#include <cstddef>
#include <cstdint>

// Marks the exported interface of libvorx.so; everything else is hidden.
#define VORX_API __attribute__((visibility("default")))

// The library's wide character: one UTF-16 code unit. Wide literals are written u"...".
using qefWChar = char16_t;

namespace VORX {

// Test hook: false makes the text converters and the CRC take their portable code, as on a
// processor without the vector extensions they use; true (the default) lets them choose by what
// the processor offers. Results are the same either way. Safe from any thread; a call already
// running finishes on the path it chose.
VORX_API void _useVectorCode(bool enabled);

} // namespace VORX
