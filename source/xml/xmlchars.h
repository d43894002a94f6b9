// The one place that decides what an XML name is: the character classes of XML 1.0 (Second
// Edition), Appendix B, and the Name production built on them. The element tree, its path
// search, the value readers and the parser all ask these functions. Pure functions of their
// arguments: safe from any thread.
#pragma once

#include <cstdint>

#include <vorx/base.h>

namespace VORX::XML {

// Class tests of one code point. Every class lies inside 0..0xFFFF; anything above, and the
// surrogate code points, belong to none.
VORX_API bool _isXMLBaseChar(std::uint32_t c);
VORX_API bool _isXMLIdeographic(std::uint32_t c);
VORX_API bool _isXMLCombiningChar(std::uint32_t c);
VORX_API bool _isXMLDigit(std::uint32_t c);
VORX_API bool _isXMLExtender(std::uint32_t c);
// BaseChar or Ideographic.
VORX_API bool _isXMLLetter(std::uint32_t c);
// May open a name: a Letter, "_" or ":".
VORX_API bool _isXMLNameStart(std::uint32_t c);
// May continue a name: a Letter, a Digit, ".", "-", "_", ":", a CombiningChar or an Extender.
VORX_API bool _isXMLNameChar(std::uint32_t c);

// True when `name[0..length)` is a Name: a name start followed by name characters. Each 16-bit
// unit is one character, so a surrogate pair (which no class holds) makes the name invalid.
// False for an empty or null text.
VORX_API bool _isXMLName(qefWChar const * name, std::size_t length);
// As above for a zero-terminated text.
VORX_API bool _isXMLName(qefWChar const * name);

} // namespace VORX::XML
