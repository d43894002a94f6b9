// Definitions every VORX header rests on: the export macro and the library's wide character.
#pragma once

#include <cstddef>
#include <cstdint>

// Marks the exported interface of libvorx.so; everything else is hidden.
#define VORX_API __attribute__((visibility("default")))

// The library's wide character: one UTF-16 code unit. Wide literals are written u"...".
using qefWChar = char16_t;
