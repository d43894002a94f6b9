// VORX::String: text. The 16-bit formatter and scanner every area formats and reads wide text
// with; the encodings, converters and pooled strings join them here.
//
// Map of this header:
//   formatting and scanning   `_vsnwprintf`, `_snwprintf`, `vswscanf`, `swscanf`
//   owning string buffers     `CQEFWChar`, `CUTF8Char`, `CUTF16Char`, `CANSIChar`
//   whole-buffer converters   `UTF8_To_qefWChar`, `qefWChar_To_UTF8`, `OS::ANSI_To_qefWChar`, ...
//   per-character codecs      `utf8_qefW32`, `qefW32_utf8`, `qefW_qefW32`, `qefW32_qefW`, ...
//   sizes, counters, sync     `UTF8Size`, `UTF8Len`, `UTF8u16strlen`, `UTF8Sync`, ...
//   character classes         `_isSlash`, `_isblank`, `_iswhitespace`, `_isCRLF`, `_isUNCW`
//   wide-character utilities  `wctolower`, `wcscmpi`, `wcsncmpi`, `wcscnt`, `wcscount`, ...
//   pooled strings            `CPPoolString`, `CStringPool`, `tagPOOLSTRING`
//   string arrays, submitters `CPPoolStringArray`, `IStringSubmitter`, `CStringArraySubmitter`,
//                             `CSubStringSubmitter`
//
// Text types: `qefWChar const *` is wide text (UTF-16 units), `unsigned char const *` UTF-8,
// `std::uint16_t const *` raw 16-bit units, `char const *` the ANSI code page and
// `std::uint32_t const *` code points. All are zero-terminated.
#pragma once

#include <cstdarg>

#include <vorx/base.h>
#include <vorx/buffers.h>

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

// ---------------------------------------------------------------------------------------------
// Owning string buffers
//
// Each class owns one zero-terminated buffer on the library heap (or none: the empty state) and
// a length field. Constructing or assigning from a source converts it; the length recorded
// depends on the source, deliberately (see each constructor). Copies are deep; assignment builds
// the new buffer before it frees the old one, so assigning from the object's own text is safe.
// Bad input truncates the text at the first bad character; a failed allocation leaves the buffer
// null. No locking: one object belongs to one thread at a time.
// Note: a narrow literal ("abc") selects the ANSI overloads and u"abc" the wide ones; UTF-8 must
// be passed as `unsigned char const *`. A bare `nullptr` or `0` is ambiguous: use a typed null.
// ---------------------------------------------------------------------------------------------

class CUTF8Char;
class CUTF16Char;
class CANSIChar;

// Wide text (UTF-16 units) in an owned buffer.
class VORX_API CQEFWChar {
public:
  CQEFWChar() = default;
  // Note: a copy records the text's length plus one, whatever the source recorded.
  CQEFWChar(CQEFWChar const & other);
  ~CQEFWChar();

  // Copies up to the terminator; length: characters plus one (the terminator is counted).
  CQEFWChar(qefWChar const * text);
  // Decodes UTF-8; code points from U+10000 become a pair without subtracting 0x10000 first.
  // Stops quietly at a malformed character or one above U+10FFFF; length: units written.
  CQEFWChar(unsigned char const * utf8);
  // Copies 16-bit units; length: units copied.
  CQEFWChar(std::uint16_t const * utf16);
  // Decodes the ANSI code page; length: characters plus one.
  CQEFWChar(char const * ansi);
  // Encodes code points (pairs as for UTF-8); stops quietly above U+10FFFF; length: units
  // written.
  CQEFWChar(std::uint32_t const * utf32);
  CQEFWChar(CUTF8Char const & utf8);
  CQEFWChar(CUTF16Char const & utf16);
  CQEFWChar(CANSIChar const & ansi);

  CQEFWChar & operator=(CQEFWChar const & other);
  CQEFWChar & operator=(qefWChar const * text);
  CQEFWChar & operator=(unsigned char const * utf8);
  CQEFWChar & operator=(std::uint16_t const * utf16);
  CQEFWChar & operator=(char const * ansi);
  CQEFWChar & operator=(std::uint32_t const * utf32);
  CQEFWChar & operator=(CUTF8Char const & utf8);
  CQEFWChar & operator=(CUTF16Char const & utf16);
  CQEFWChar & operator=(CANSIChar const & ansi);

  // Replaces every "%s" of the text by `replacement` (a null replacement, a null or empty text,
  // no "%s" or a failed allocation change nothing). Note: the length grows by the inserted
  // characters only; the two removed per "%s" are not subtracted, so it overstates the text.
  void patch_percent_s_with(qefWChar const * replacement);

  explicit operator bool() const { return m_buffer != nullptr; }
  std::uint64_t len() const { return m_length; }
  // The buffer, or null when empty.
  qefWChar const * operator*() const { return m_buffer; }
  operator qefWChar const *() const { return m_buffer; }

private:
  qefWChar * m_buffer = nullptr;
  std::uint64_t m_length = 0;
};

// UTF-8 bytes in an owned buffer. Wide sources are decoded with the library's pair rule: a
// surrogate pair becomes the single character U+0000 (both halves with ten low bits clear) or
// U+0001, and the text stops quietly at a lone surrogate.
class VORX_API CUTF8Char {
public:
  CUTF8Char() = default;
  // Copies the bytes; length: their count (0 for a copy of an empty object).
  CUTF8Char(CUTF8Char const & other);
  ~CUTF8Char();

  // Encodes wide text; length: bytes written.
  CUTF8Char(qefWChar const * text);
  // Copies bytes; length: the source's byte count. Note: a null source records all ones.
  CUTF8Char(unsigned char const * utf8);
  // As from wide text.
  CUTF8Char(std::uint16_t const * utf16);
  // Decodes the ANSI code page to wide text first, then as from wide text.
  CUTF8Char(char const * ansi);
  CUTF8Char(CQEFWChar const & text);
  CUTF8Char(CUTF16Char const & utf16);
  CUTF8Char(CANSIChar const & ansi);

  CUTF8Char & operator=(CUTF8Char const & other);
  CUTF8Char & operator=(qefWChar const * text);
  CUTF8Char & operator=(unsigned char const * utf8);
  CUTF8Char & operator=(std::uint16_t const * utf16);
  CUTF8Char & operator=(char const * ansi);
  CUTF8Char & operator=(CQEFWChar const & text);
  CUTF8Char & operator=(CUTF16Char const & utf16);
  CUTF8Char & operator=(CANSIChar const & ansi);

  explicit operator bool() const { return m_buffer != nullptr; }
  std::uint64_t len() const { return m_length; }
  unsigned char const * operator*() const { return m_buffer; }
  operator unsigned char const *() const { return m_buffer; }

private:
  unsigned char * m_buffer = nullptr;
  std::uint64_t m_length = 0;
};

// Raw 16-bit units in an owned buffer. From wide text each decoded character is stored as one
// unit (a surrogate pair becomes the unit 0x0000 or 0x0001; a lone surrogate ends the text);
// from UTF-8 the units are those `CQEFWChar` would hold.
class VORX_API CUTF16Char {
public:
  CUTF16Char() = default;
  CUTF16Char(CUTF16Char const & other);
  ~CUTF16Char();

  // Length: units written.
  CUTF16Char(qefWChar const * text);
  // Length: units written.
  CUTF16Char(unsigned char const * utf8);
  // Copies; length: units copied.
  CUTF16Char(std::uint16_t const * utf16);
  // Decodes the ANSI code page to wide text first, then as from wide text.
  CUTF16Char(char const * ansi);
  CUTF16Char(CQEFWChar const & text);
  CUTF16Char(CUTF8Char const & utf8);
  CUTF16Char(CANSIChar const & ansi);

  CUTF16Char & operator=(CUTF16Char const & other);
  CUTF16Char & operator=(qefWChar const * text);
  CUTF16Char & operator=(unsigned char const * utf8);
  CUTF16Char & operator=(std::uint16_t const * utf16);
  CUTF16Char & operator=(char const * ansi);
  CUTF16Char & operator=(CQEFWChar const & text);
  CUTF16Char & operator=(CUTF8Char const & utf8);
  CUTF16Char & operator=(CANSIChar const & ansi);

  explicit operator bool() const { return m_buffer != nullptr; }
  std::uint64_t len() const { return m_length; }
  std::uint16_t const * operator*() const { return m_buffer; }
  operator std::uint16_t const *() const { return m_buffer; }

private:
  std::uint16_t * m_buffer = nullptr;
  std::uint64_t m_length = 0;
};

// Bytes of the ANSI code page in an owned buffer. Note: the buffer reserves eight bytes per
// character (8n+8 for a copy of n bytes, 8m for a conversion needing m bytes with the
// terminator); only the text and its terminator are written.
class VORX_API CANSIChar {
public:
  CANSIChar() = default;
  CANSIChar(CANSIChar const & other);
  ~CANSIChar();

  // Encodes into the ANSI code page (unmappable characters become "?"); length: bytes without
  // the terminator.
  CANSIChar(qefWChar const * text);
  // Copies; length: the source's byte count.
  CANSIChar(char const * ansi);
  CANSIChar(CQEFWChar const & text);

  CANSIChar & operator=(CANSIChar const & other);
  CANSIChar & operator=(qefWChar const * text);
  CANSIChar & operator=(char const * ansi);
  CANSIChar & operator=(CQEFWChar const & text);

  explicit operator bool() const { return m_buffer != nullptr; }
  std::uint64_t len() const { return m_length; }
  char const * operator*() const { return m_buffer; }
  operator char const *() const { return m_buffer; }

private:
  char * m_buffer = nullptr;
  std::uint64_t m_length = 0;
};

// ---------------------------------------------------------------------------------------------
// Whole-buffer converters
//
// A `srcMax` of all ones means "up to the terminator"; otherwise at most `srcMax` source units
// are read, and a character that would reach beyond them is left out. Results count the
// terminator. All are stateless and may run on any thread.
// ---------------------------------------------------------------------------------------------

// Every bit set: "until the terminator" for the `max` arguments below.
inline constexpr std::uint64_t qefAllOnes = ~std::uint64_t{0};

// UTF-8 to wide text. Returns the units written including the terminator; with a null `dst`, the
// units needed. 0 for a null `src`, a `dstCount` too small (nothing written), a malformed
// character or a code point above U+10FFFF (the part already written stays, unterminated).
VORX_API std::uint64_t UTF8_To_qefWChar(unsigned char const * src, std::uint64_t srcMax,
                                        qefWChar * dst, std::uint64_t dstCount);
// Wide text to UTF-8, in bytes, with the same result convention. Surrogate pairs collapse to
// U+0000 or U+0001 (see `qefW_qefW32`); a lone surrogate gives 0.
VORX_API std::uint64_t qefWChar_To_UTF8(qefWChar const * src, std::uint64_t srcMax,
                                        unsigned char * dst, std::uint64_t dstCount);

// ---------------------------------------------------------------------------------------------
// Per-character codecs. Each advances its pointer(s) past what it consumed or produced and
// returns false on failure.
// ---------------------------------------------------------------------------------------------

// Decodes one UTF-8 character. Note: permissive on purpose: overlong forms, encoded surrogates
// and values up to 0x13FFFF decode to their value. A byte that cannot lead writes 0 and fails
// without moving; a bad continuation byte fails with `p` on it and the partial value written.
VORX_API bool utf8_qefW32(std::uint32_t * cp, unsigned char const *& p);
// Decodes one wide character. Note: a surrogate pair does not combine: it yields 0 when both
// units have their ten low bits clear and 1 otherwise; any second unit from 0xDBFF up completes
// a pair. Fails, without moving, on a low surrogate first or a high one not followed by such a
// unit.
VORX_API bool qefW_qefW32(std::uint32_t * cp, qefWChar const *& p);
// Encodes one code point in one to four bytes (surrogate values too); false above U+10FFFF,
// writing nothing.
VORX_API bool qefW32_utf8(unsigned char *& p, std::uint32_t cp);
// Encodes one code point as one unit or a pair. Note: the pair is 0xD800 | (cp >> 10),
// 0xDC00 | (cp & 0x3FF), without subtracting 0x10000. False above U+10FFFF, writing nothing.
VORX_API bool qefW32_qefW(qefWChar *& p, std::uint32_t cp);
// `utf8_qefW32` then `qefW32_qefW`; false when either fails.
VORX_API bool utf8_qefW(qefWChar *& d, unsigned char const *& s);
// Copies one unit; always true.
VORX_API bool utf16_qefW(qefWChar *& d, std::uint16_t const *& s);
// `qefW_qefW32` then `qefW32_utf8`.
VORX_API bool qefW_utf8(unsigned char *& d, qefWChar const *& s);
// `qefW_qefW32`, stored as one unit (a pair becomes 0x0000 or 0x0001).
VORX_API bool qefW_utf16(std::uint16_t *& d, qefWChar const *& s);

// ---------------------------------------------------------------------------------------------
// Sizes, lengths, counters and resynchronisation
// ---------------------------------------------------------------------------------------------

// Bytes for `cp`: 1, 2, 3 or 4; 0 from 0x110000 up.
VORX_API std::uint64_t UTF8Size(std::uint32_t cp);
// Units for `cp`: 1 below 0x10000, 2 up to 0x110000; 0 above. Note: 0x110000 itself gives 2.
VORX_API std::uint64_t UTF16Size(std::uint32_t cp);
// 1 below 0x10000, else 2, with no upper limit.
VORX_API std::uint64_t qefWSize(std::uint32_t cp);
// Bytes of the character a lead byte starts: 1, 2, 3 or 4; 0 for a byte that cannot lead.
VORX_API std::uint64_t UTF8Len(unsigned char lead);
// 1 for a non-surrogate, 2 for a high surrogate, 0 for a low surrogate.
VORX_API std::uint64_t UTF16Len(std::uint16_t unit);
// Always 1.
VORX_API std::uint64_t qefWLen(qefWChar unit);
// Moves `p` past bytes of the form 110xxxxx. Note: it skips two-byte lead bytes, not
// continuation bytes.
VORX_API void UTF8Sync(unsigned char const *& p);
// Moves `p` past low surrogates.
VORX_API void UTF16Sync(std::uint16_t const *& p);

// Counters: `max` bounds the source units read (all ones: to the terminator); counting stops
// without error at the first malformed character, and a character reaching beyond `max` is not
// counted. A null text counts 0.
// Wide units needed for UTF-8 text (code points from 0x10000 count 2, even above U+10FFFF).
VORX_API std::uint64_t UTF8wstrlen(unsigned char const * p, std::uint64_t max);
VORX_API std::uint64_t UTF8u16strlen(unsigned char const * p, std::uint64_t max);
// Code points in UTF-8 text.
VORX_API std::uint64_t UTF8w32strlen(unsigned char const * p, std::uint64_t max);
// Units up to the terminator, at most `max`.
VORX_API std::uint64_t UTF16wstrlen(std::uint16_t const * p, std::uint64_t max);
// Characters in wide text (a pair counts 1).
VORX_API std::uint64_t UTF16w32strlen(qefWChar const * p, std::uint64_t max);
VORX_API std::uint64_t qefWw32strlen(qefWChar const * p, std::uint64_t max);
// UTF-8 bytes needed for wide text: 1, 2 or 3 per character; a pair counts 1.
VORX_API std::uint64_t UTF16u8strlen(qefWChar const * p, std::uint64_t max);
VORX_API std::uint64_t qefWu8strlen(qefWChar const * p, std::uint64_t max);
// Units needed for code points: stops at the first value above 0x110000. Note: 0x110000 itself
// counts 2.
VORX_API std::uint64_t UTF32wstrlen(std::uint32_t const * p, std::uint64_t max);
VORX_API std::uint64_t UTF32u16strlen(std::uint32_t const * p, std::uint64_t max);
// UTF-8 bytes needed for code points: stops at the first value from 0x110000 up.
VORX_API std::uint64_t UTF32u8strlen(std::uint32_t const * p, std::uint64_t max);

// ---------------------------------------------------------------------------------------------
// Character classes
// ---------------------------------------------------------------------------------------------

// "/" or "\".
VORX_API bool _isSlash(qefWChar c);
// The space only.
VORX_API bool _isblank(qefWChar c);
// Tab, line feed, carriage return and space only (not vertical tab or form feed).
VORX_API bool _iswhitespace(qefWChar c);
// Line feed or carriage return.
VORX_API bool _isCRLF(qefWChar c);
// Whether the text starts with the prefix "\\?\"; false for null.
VORX_API bool _isUNCW(qefWChar const * path);

// ---------------------------------------------------------------------------------------------
// Wide-character utilities: unit by unit, no surrogate handling. Case mapping uses one fixed
// C.UTF-8 locale, so results cover the Basic Multilingual Plane and never depend on the locale
// the host sets. Safe on any thread.
// ---------------------------------------------------------------------------------------------

VORX_API qefWChar wctolower(qefWChar const & c);
VORX_API qefWChar wctoupper(qefWChar const & c);
// Changes the case in place; null is ignored.
VORX_API void wcslower(qefWChar * s);
VORX_API void wcsupper(qefWChar * s);
// 0 for equal units, else the difference of the lower-cased units.
VORX_API int wccmpi(qefWChar a, qefWChar b);
// Compares without regard to case: the difference of the first lower-cased units that differ,
// else 0. The same pointer gives 0, a null `a` 1, a null `b` -1.
VORX_API int wcscmpi(qefWChar const * a, qefWChar const * b);
// As `wcscmpi` over at most `n` characters. Note: `n` is taken as a signed 32-bit count: when
// its low 32 bits read as 0 or negative (all ones, 2^31 to 2^32-1, ...) nothing is compared and
// the result is 0.
VORX_API int wcsncmpi(qefWChar const * a, qefWChar const * b, std::uint64_t n);
// Whether `sub` occurs in `s`. The same pointer is true; otherwise an empty or null `s` or
// `sub` is false (an empty needle is not found, deliberately).
VORX_API bool wcscnt(qefWChar const * s, qefWChar const * sub);
// As `wcscnt`, with `sub` wholly within the first `n` units of `s`.
VORX_API bool wcsncnt(qefWChar const * s, qefWChar const * sub, std::uint64_t n);
// Case-insensitive forms of `wcscnt` and `wcsncnt`.
VORX_API bool wcscnti(qefWChar const * s, qefWChar const * sub);
VORX_API bool wcsncnti(qefWChar const * s, qefWChar const * sub, std::uint64_t n);
// Units of `s` equal to `c` (0 for null or for `c` 0).
VORX_API std::uint64_t wcscount(qefWChar const * s, qefWChar c);

} // namespace VORX::String

namespace VORX::String::OS {

// The ANSI code page: that of the current LC_CTYPE locale, or Windows-1252 where that is plain
// ASCII (the "C" locale). `srcLen` all ones means "up to the terminator", and then the result
// counts the terminator. With a null `dst` or `dstLen` 0, returns the units needed. 0 on failure
// (null or empty source, `dstLen` too small, no converter). Undecodable bytes become U+FFFD (in
// a single-byte code page, the unit of the same value).
VORX_API std::uint64_t ANSI_To_qefWChar(char const * src, std::uint64_t srcLen, qefWChar * dst,
                                        std::uint64_t dstLen);
// Wide text to the ANSI code page with the same conventions; a character the code page cannot
// hold, or a lone surrogate, becomes "?".
VORX_API std::uint64_t qefWChar_To_ANSI(qefWChar const * src, std::uint64_t srcLen, char * dst,
                                        std::uint64_t dstLen);

} // namespace VORX::String::OS

// ---------------------------------------------------------------------------------------------
// Pooled strings
//
// Every text a `CPPoolString` holds is interned once in the process-wide pool `CStringPool`:
// equal texts share one immutable, reference-counted record, so copying is one atomic increment
// and `==` compares records. Interning works from library load; `VORX::AppInit` only adds the
// ageing of records that nobody holds any more (two idle maintenance passes remove one).
// ---------------------------------------------------------------------------------------------

namespace VORX::String {

// The payload of a pooled-string block; the text and its terminator follow it in the same block.
// Immutable once published, except `idlePasses` (changed by the pool under its lock) and
// `utf8Cache` (installed once by compare-and-swap, freed by the pool only while nobody else
// holds the record).
struct tagPOOLSTRING {
  std::uint32_t idlePasses;  // consecutive maintenance passes that found it held by the pool alone
  std::uint64_t length;      // characters as measured (a surrogate pair counts one)
  std::uint64_t utf8Size;    // bytes of the UTF-8 form, without terminator
  std::uint64_t sHash;       // CRC-64 of the characters
  std::uint64_t sHashi;      // CRC-64 of the lower-cased characters
  qefWChar const * text;     // `length` units and a terminator, at the end of this block
  unsigned char * utf8Cache; // the UTF-8 form, made on first request; null until then
};
typedef tagPOOLSTRING POOLSTRING;

// A permanent pooled-string block in static storage (the null, empty, "true" and "false"
// strings): its count is 0, so handles to it are never counted and it is never freed.
struct tagPOOLSTRINGSTATIC {
  Buffers::tagCPOMEMHEADER header;
  tagPOOLSTRING record;
  qefWChar text[8];
};

// Text that is assembled piecewise and written straight into the pool's new record, so no
// temporary buffer is needed (`CStringPool::GetStringRef(IStringSubmitter *)`). The pool calls
// `GetStringLen` once, then `GetString` once, on the caller's thread, under the pool lock: an
// implementation must not intern text itself.
class IStringSubmitter {
public:
  // Units the text needs: at least its characters (one more for the terminator is allowed).
  // 0 is refused by the pool with an assumption box.
  virtual std::uint64_t GetStringLen() = 0;
  // Writes the text into `out`, which has room for `GetStringLen() + 1` units; the pool
  // terminates it after that many units. False when the text cannot be produced.
  virtual bool GetString(qefWChar * out) = 0;

protected:
  ~IStringSubmitter() = default;
};

// Handle to an interned, immutable string record. Copies share the record (one atomic
// increment); == compares records, not text. Never null: a default handle is the null string.
// Safe to read and copy from any thread; one handle object must not be assigned concurrently.
// Text that cannot be interned (a lone surrogate, a failed allocation) gives the null string.
// Note: a text with surrogate pairs is measured with each pair as one character, and only that
// many units are stored, so its last units are cut off (one per pair), deliberately.
// Overloads: an `int` literal selects the `std::int32_t` constructor, an unsigned one
// `std::uint32_t`; `long` and `long long` values the 64-bit ones (which keep the low 32 bits).
class VORX_API CPPoolString : public Buffers::CPObjectMemory {
public:
  CPPoolString() noexcept { m_pMH = _nullHeader(); }
  CPPoolString(CPPoolString const & other) noexcept : Buffers::CPObjectMemory(other) {}
  // Leaves `other` the null string.
  CPPoolString(CPPoolString && other) noexcept {
    m_pMH = other.m_pMH;
    other.m_pMH = _nullHeader();
  }
  ~CPPoolString() = default;

  // `CStringPool::GetStringRef` of the text: null pointer gives the null string, "" the empty.
  CPPoolString(qefWChar const * text);
  // UTF-8 text, through the UTF-8 `CStringPool::GetStringRef`.
  CPPoolString(unsigned char const * utf8);
  // Text in the ANSI code page, converted to wide text first (a failed conversion gives the
  // null string, an empty text the empty string).
  CPPoolString(char const * ansi);
  // "%u" of the value.
  explicit CPPoolString(std::uint32_t value);
  // "%d" of the value.
  explicit CPPoolString(std::int32_t value);
  // Note: only the low 32 bits reach the text ("%u" of them): 4294967296 gives "0".
  explicit CPPoolString(std::uint64_t value);
  // Note: only the low 32 bits reach the text, read as signed ("%d" of them).
  explicit CPPoolString(std::int64_t value);
  explicit CPPoolString(unsigned long long value)
      : CPPoolString(static_cast<std::uint64_t>(value)) {}
  explicit CPPoolString(long long value) : CPPoolString(static_cast<std::int64_t>(value)) {}
  // `ptrue` or `pfalse` itself, which are not in the pool: CPPoolString(true) == u"true" as
  // text, but not the record the pool gives for "true".
  explicit CPPoolString(bool value) noexcept;

  CPPoolString & operator=(CPPoolString const & other) noexcept {
    CopyCPMemory(other);
    return *this;
  }
  // Exchanges the records: `other` is left holding this handle's former record.
  CPPoolString & operator=(CPPoolString && other) noexcept {
    std::swap(m_pMH, other.m_pMH);
    return *this;
  }
  // Each assignment interns its source as the matching constructor does; the previous record is
  // released after the new one is obtained.
  CPPoolString & operator=(qefWChar const * text);
  CPPoolString & operator=(unsigned char const * utf8);
  CPPoolString & operator=(std::uint32_t value);
  CPPoolString & operator=(std::int32_t value);
  CPPoolString & operator=(std::uint64_t value);
  CPPoolString & operator=(std::int64_t value);
  CPPoolString & operator=(bool value) noexcept;

  // The text; never null (the null and empty strings give "").
  operator qefWChar const *() const { return _rec()->text; }
  qefWChar const * operator*() const { return _rec()->text; }
  // The UTF-8 form, made once per record and shared by all its handles; a static empty text when
  // it cannot be made (no memory, or a text whose conversion does not give `UTF8Size()` bytes).
  operator unsigned char const *() const;

  std::uint64_t len() const { return _rec()->length; }
  std::uint64_t UTF8Size() const { return _rec()->utf8Size; }
  std::uint64_t sHash() const { return _rec()->sHash; }
  std::uint64_t sHashi() const { return _rec()->sHashi; }

  // True unless this is the null string (the empty string is true).
  explicit operator bool() const { return m_pMH != _nullHeader(); }
  bool isnull() const { return m_pMH == _nullHeader(); }
  bool isempty() const { return m_pMH == &_sEmpty.header; }
  // Neither null nor empty.
  bool isdef() const { return !isnull() && !isempty(); }
  // Releases the record; the handle becomes the null string.
  void free() noexcept;
  // Releases this record and takes `other`'s without touching any count; `other` becomes null.
  void TransferFrom(CPPoolString & other) noexcept;

  // The type identifier of pooled-string blocks.
  static std::size_t GetTypeID() { return reinterpret_cast<std::size_t>(&_vtbl); }
  using Buffers::CPObjectMemory::GetTypeID;

  // Re-measures the text and compares length and both hashes with the stored ones; the null
  // string is always valid. On a mismatch, an assumption box ("String pool integrity violation")
  // and false. Note: a record cut short by surrogate pairs fails, as its stored text is shorter.
  bool Verify() const;

  // Record identity; no text is read.
  bool operator==(CPPoolString const & other) const { return m_pMH == other.m_pMH; }
  bool operator!=(CPPoolString const & other) const { return m_pMH != other.m_pMH; }
  // Same text pointer, else the texts are equal (a null `text` equals nothing).
  bool operator==(qefWChar const * text) const;
  bool operator!=(qefWChar const * text) const { return !(*this == text); }

  // Comparisons: negative, 0 or positive. The `CPPoolString` forms answer 1 (false for `cnt`,
  // `cnti`) when reading a text raises an exception; the `qefWChar const *` forms 1 for a
  // non-null argument, -1 for a null one. A null `qefWChar const *` sorts before any text.
  // Whole text.
  int cmp(CPPoolString const & other) const;
  int cmp(qefWChar const * text) const;
  // Whole text, ignoring case.
  int cmpi(CPPoolString const & other) const;
  int cmpi(qefWChar const * text) const;
  // Whether this begins with the argument: 0 when it does; -1 when this is shorter.
  int cmpp(CPPoolString const & prefix) const;
  int cmpp(qefWChar const * prefix) const;
  int cmppi(CPPoolString const & prefix) const;
  int cmppi(qefWChar const * prefix) const;
  // Whether this ends with the argument: 0 when it does; -1 when this is shorter.
  int cmp_p(CPPoolString const & suffix) const;
  int cmp_p(qefWChar const * suffix) const;
  int cmp_pi(CPPoolString const & suffix) const;
  int cmp_pi(qefWChar const * suffix) const;
  // Whether this contains the argument (an empty argument is not found, see `wcscnt`).
  bool cnt(CPPoolString const & sub) const;
  bool cnt(qefWChar const * sub) const;
  bool cnti(CPPoolString const & sub) const;
  bool cnti(qefWChar const * sub) const;
  // Equal ignoring case (different case-insensitive hashes answer false at once).
  bool iequals(CPPoolString const & other) const;
  // An arbitrary stable order: the record addresses compared (1, -1 or 0).
  int pcmp(CPPoolString const & other) const;

  // The next name of a numbered series: "Take" gives "Take (2)", "Take (2)" gives "Take (3)",
  // "Take(9)" gives "Take(10)"; the null string gives the null string.
  CPPoolString inc() const;

  static CPPoolString const pnull;
  static CPPoolString const pempty;
  static CPPoolString const ptrue;
  static CPPoolString const pfalse;

  // The class table of pooled-string blocks (no clone slot: records are never copied).
  static Buffers::tagCPOVTABL const _vtbl;
  // The static null and empty records.
  static tagPOOLSTRINGSTATIC _sNull;
  static tagPOOLSTRINGSTATIC _sEmpty;

private:
  friend class CStringPool;
  static Buffers::tagCPOMEMHEADER * _nullHeader() { return &_sNull.header; }
  tagPOOLSTRING const * _rec() const { return reinterpret_cast<tagPOOLSTRING const *>(m_pMH + 1); }
};
static_assert(sizeof(CPPoolString) == sizeof(void *));

} // namespace VORX::String

namespace VORX::Buffers {
extern template class VORX_API CPObjectVector<String::CPPoolString>;
} // namespace VORX::Buffers

namespace VORX::String {

// The process-wide string pool: static operations only. Every lookup answers a new reference.
// Wide (`qefWChar const *`) and UTF-8 (`unsigned char const *`) forms exist for each lookup; the
// `n` forms read at most `n` units (wide) or bytes (UTF-8) and stop earlier at a terminator; a
// character that would reach beyond `n` is left out. A null text gives the null string, a text
// that starts with its terminator the empty string. Text that cannot be measured (a lone
// surrogate, malformed UTF-8, a code point above U+10FFFF) and a failed allocation give the
// null string.
// Note: texts of equal length and equal hashes whose first ten characters agree are one record,
// deliberately (the two 64-bit hashes are trusted).
// Thread safety: every operation may run on any thread; one recursive lock guards the tables,
// and measuring happens before it is taken.
class VORX_API CStringPool {
public:
  CStringPool() = delete;

  // The record with exactly this text, created when there is none.
  static CPPoolString GetStringRef(qefWChar const * text);
  static CPPoolString GetStringRef(unsigned char const * utf8);
  static CPPoolString GetStringRefn(qefWChar const * text, std::uint64_t n);
  static CPPoolString GetStringRefn(unsigned char const * utf8, std::uint64_t n);
  // From raw 16-bit units, read as wide text.
  static CPPoolString GetStringRefn(std::uint16_t const * units, std::uint64_t n);
  // The text `submitter` writes; a submitted length of 0 raises an assumption box and gives the
  // null string, as does a `GetString` that answers false. A null `submitter` gives the null
  // string.
  static CPPoolString GetStringRef(IStringSubmitter * submitter);

  // The first record of the group equal to this text ignoring case; when none, the text is
  // interned as it is.
  static CPPoolString GetStringRefi(qefWChar const * text);
  static CPPoolString GetStringRefi(unsigned char const * utf8);
  static CPPoolString GetStringRefni(qefWChar const * text, std::uint64_t n);
  static CPPoolString GetStringRefni(unsigned char const * utf8, std::uint64_t n);

  // As `GetStringRef` and `GetStringRefi`, but never creating: the null string when absent.
  static CPPoolString QueryStringRef(qefWChar const * text);
  static CPPoolString QueryStringRef(unsigned char const * utf8);
  static CPPoolString QueryStringRefn(qefWChar const * text, std::uint64_t n);
  static CPPoolString QueryStringRefn(unsigned char const * utf8, std::uint64_t n);
  static CPPoolString QueryStringRefi(qefWChar const * text);
  static CPPoolString QueryStringRefi(unsigned char const * utf8);
  static CPPoolString QueryStringRefni(qefWChar const * text, std::uint64_t n);
  static CPPoolString QueryStringRefni(unsigned char const * utf8, std::uint64_t n);

  // Creates the pool's maintenance request and registers it with the maintenance service.
  // False when it exists already, or when it cannot be created or registered.
  static bool AppInit();
  // Unregisters the maintenance request and releases it; when the service refuses, it is kept.
  static void AppExit();

  // One ageing pass, for at most about `timeLimit` milliseconds, resuming where the last one
  // stopped: a record held by the pool alone loses its UTF-8 copy on the first pass that visits
  // it and is removed on the second. True when every slot was visited. Note: false at once, doing
  // nothing, on a thread whose priority (`GetThreadPriority`) is not normal, deliberately.
  static bool Collect(std::uint32_t timeLimit);
  // Re-measures every record; false at the first whose length or hashes differ.
  static bool Verify();
  // Total bytes of all records' blocks (header, fields and text).
  static std::uint64_t GetSize();
  // Records in the pool.
  static std::uint64_t GetNItems();
  // Case-insensitive groups in the pool.
  static std::uint64_t GetNGroups();

  // Test hook: the delays after which the maintenance request wants to run again, after a
  // completed and after an interrupted collection (20000 and 10000 ms unless changed).
  static void _SetMaintenanceIntervals(std::uint32_t completedMs, std::uint32_t interruptedMs);
};

// Growable array of pooled strings, either in insertion order or kept sorted (by
// `CPPoolString::cmp`) without duplicates; the order is fixed at construction. Copies share the
// element vector: changes made in place are seen through every copy, while growing or `Inflate`
// may give the changing copy a vector of its own. One array (and the copies sharing its vector)
// must be changed by one thread at a time. Failed allocations answer false and leave the
// elements as they were.
class VORX_API CPPoolStringArray {
public:
  explicit CPPoolStringArray(bool sorted = false) : m_sorted(sorted) {}
  CPPoolStringArray(CPPoolStringArray const & other) = default;
  CPPoolStringArray & operator=(CPPoolStringArray const & other) = default;
  // Adopts `block` when it is a vector of pooled strings (a sorted array then sorts it); else
  // the array becomes empty.
  CPPoolStringArray & operator=(Buffers::CPObjectMemory const & block);

  bool IsSorted() const { return m_sorted; }
  std::uint64_t GetNItems() const { return m_items.GetNItems(); }
  // Element `i`; the null string beyond the end.
  CPPoolString const & operator[](std::uint64_t i) const;
  // The element vector (empty when the array never held anything).
  Buffers::CPObjectVector<CPPoolString> const & GetVector() const { return m_items; }

  // Sorts by `CPPoolString::cmp` (quick sort); an empty array is left alone.
  void Sort();
  // Sorted: inserts at the binary-search position, doing nothing (true) when that very record is
  // there. Unsorted: appends. False when memory runs out.
  bool Add(CPPoolString const & s);
  // Unsorted arrays only: inserts at `index` (appends beyond the end). False for a sorted array.
  bool Insert(CPPoolString const & s, std::uint64_t index);
  // Sorted arrays only: removes that very record; true also when it is absent. False for an
  // unsorted array.
  bool Delete(CPPoolString const & s);
  // Sorted arrays: where `s` is or would be inserted (0 for an empty array). All ones for an
  // unsorted array or one without a vector.
  std::uint64_t LocateEntry(CPPoolString const & s) const;
  // The elements joined by `separator` as one pooled string; the null string for no elements.
  // Null elements contribute empty pieces. Note: each element contributes its `len()` units;
  // the joined text is then interned like any other, so where it holds surrogate pairs its last
  // units are cut off (one per pair).
  CPPoolString Flatten(qefWChar separator) const;
  // Replaces the elements by the pieces of `text` between separators: a leading or doubled
  // separator gives a null element, a trailing one nothing (deliberately). A sorted array skips
  // pieces it holds already. True for a null text (no elements); false when memory runs out
  // (the pieces added so far stay).
  bool Inflate(CPPoolString const & text, qefWChar separator);

private:
  // The binary-search position of `s`.
  std::size_t _position(CPPoolString const & s) const;

  Buffers::CPObjectVector<CPPoolString> m_items;
  bool m_sorted;
};

// Submits the elements of an array joined by a separator.
class VORX_API CStringArraySubmitter final : public IStringSubmitter {
public:
  CStringArraySubmitter(CPPoolString const * items, std::uint64_t count, qefWChar separator)
      : m_items(items), m_count(count), m_separator(separator) {}
  // The elements' `len()` summed plus one per separator; 0 for no elements.
  std::uint64_t GetStringLen() override;
  // Each element's `len()` units, the separator between them, then the terminator.
  bool GetString(qefWChar * out) override;

private:
  CPPoolString const * m_items;
  std::uint64_t m_count;
  qefWChar m_separator;
};

// Submits `count` units of a longer text, without copying it first.
class VORX_API CSubStringSubmitter final : public IStringSubmitter {
public:
  CSubStringSubmitter(qefWChar const * text, std::uint64_t count) : m_text(text), m_count(count) {}
  std::uint64_t GetStringLen() override { return m_count; }
  // Copies exactly the units; the pool terminates them.
  bool GetString(qefWChar * out) override;

private:
  qefWChar const * m_text;
  std::uint64_t m_count;
};

} // namespace VORX::String
