// The pooled-string record shared by the pool and the string handle: measuring and hashing a text
// in one pass, and reaching the record behind a handle.
#pragma once

#include <vorx/buffers.h>
#include <vorx/string.h>

#include <atomic>

namespace VORX::Buffers {
class _CBlockArena;
} // namespace VORX::Buffers

namespace VORX::String {

// What one pass over a text yields.
struct _tagMeasure {
  std::uint64_t length = 0;
  std::uint64_t utf8Size = 0;
  std::uint64_t sHash = 0;
  std::uint64_t sHashi = 0;
};

// Wide text, at most `n` units (stopping at the terminator; a pair that would reach beyond `n`
// ends the text before it). `units` receives the units read. False for a lone surrogate.
bool _measureWide(qefWChar const * text, std::uint64_t n, _tagMeasure & m, std::uint64_t & units);
// As `_measureWide` over raw 16-bit units.
bool _measureUnits(std::uint16_t const * text, std::uint64_t n, _tagMeasure & m,
                   std::uint64_t & units);
// UTF-8 text, at most `n` bytes (a character that would reach beyond `n` ends the text before
// it). False for malformed UTF-8 or a code point above U+10FFFF.
bool _measureUTF8(unsigned char const * text, std::uint64_t n, _tagMeasure & m,
                  std::uint64_t & bytes);

// The lower-case form of one character below 0x10000, as the case-insensitive hash sees it.
inline qefWChar _lowerUnit(qefWChar c) {
  if (c < 0x80) {
    return static_cast<qefWChar>(c >= u'A' && c <= u'Z' ? c + 32 : c);
  }
  return wctolower(c);
}

// Reaches the block behind any handle; the memory layer keeps these members protected.
struct _cRecordAccess : Buffers::CPObjectMemory {
  static Buffers::tagCPOMEMHEADER *& Header(Buffers::CPObjectMemory & h) {
    return h.*(&_cRecordAccess::m_pMH);
  }
  static Buffers::tagCPOMEMHEADER * Header(Buffers::CPObjectMemory const & h) {
    return h.*(&_cRecordAccess::m_pMH);
  }
  static tagPOOLSTRING * Record(Buffers::CPObjectMemory const & h) {
    return reinterpret_cast<tagPOOLSTRING *>(Header(h) + 1);
  }
  // A pooled string taking over `block` (which becomes empty) without touching its count.
  static CPPoolString Adopt(Buffers::CPObjectMemory && block) {
    CPPoolString s;
    Header(s) = Header(block);
    Header(block) = nullptr;
    return s;
  }
  // A handle on a block that is not counted (count 0), such as a probe on the stack.
  static Buffers::CPObjectMemory Wrap(Buffers::tagCPOMEMHEADER * header) {
    Buffers::CPObjectMemory h;
    Header(h) = header;
    return h;
  }
  // Allocates a record block for `units` units of text (with its terminator), carved from `arena`
  // when one is given; empty on failure.
  static Buffers::CPObjectMemory NewRecord(std::uint64_t units,
                                           Buffers::_CBlockArena * arena = nullptr);
  // Sets the size in use of a record block.
  static void SetRecordSize(Buffers::CPObjectMemory const & h, std::uint64_t units);
};

// The units of a record's text.
inline qefWChar * _recordText(tagPOOLSTRING * record) {
  return reinterpret_cast<qefWChar *>(record + 1);
}

// The most units a record may hold: its block size must stay far from overflow.
inline constexpr std::uint64_t kMaxRecordUnits = (std::uint64_t{1} << 40);

inline std::atomic_ref<unsigned char *> _utf8Slot(tagPOOLSTRING * record) {
  return std::atomic_ref<unsigned char *>(record->utf8Cache);
}

} // namespace VORX::String
