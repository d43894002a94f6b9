// VORX::Internetional: percent-encoding of 8-bit (UTF-8) text in caller-supplied buffers, as in
// URLs. Size the output with `URL_encoderequired` first. All functions are stateless.
//
// Unreserved bytes are never escaped: "-", ".", "_", "~", digits and ASCII letters. Callers may
// pass `allowed`, a zero-terminated list of further bytes to keep (null or empty for none), for
// example "/" or ":". An escape is "%" and two hexadecimal digits: upper case on output, either
// case on input.
#pragma once

#include <vorx/base.h>

namespace VORX::Internetional {

// Bytes the encoded text needs without its terminator: 1 per unreserved or allowed byte, 3 per
// other byte. 0 for an empty or null text.
VORX_API std::size_t URL_encoderequired(unsigned char const * text, unsigned char const * allowed);

// Writes the encoded text and a terminator to `out` (at least `URL_encoderequired` + 1 bytes).
// Every byte from 0x80 up is escaped. False, writing nothing, when `out` or `text` is null or
// when they are the same buffer (encoding in place is refused).
VORX_API bool URL_encodebuffer(unsigned char * out, unsigned char const * text,
                               unsigned char const * allowed);

// Writes the decoded text and a terminator to `out`, which may be `text` itself (the output is
// never longer). A "%" not followed by two hexadecimal digits is kept as it is, without error.
// Note: "%00" decodes to a zero byte, which ends the output text early. False when either
// pointer is null.
VORX_API bool URL_decodebuffer(unsigned char * out, unsigned char const * text);

// Whether every byte is unreserved, allowed, or the "%" of a well-formed escape: false at the
// first other byte; true for an empty or null text.
VORX_API bool URL_checkescape(unsigned char const * text, unsigned char const * allowed);

} // namespace VORX::Internetional
