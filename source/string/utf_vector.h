// Private to the string area: the AVX-512 kernels behind the converters and counters
// (utf_vector.cpp). Each takes whole blocks from the start of a window of text that holds no
// zero unit, as long as a block is one it can take entirely (well formed, and in the Basic
// Multilingual Plane where it converts), and stops before the first block it cannot take: the
// portable code then goes on from there. They start and end on character boundaries, read only
// inside the window and write only the units they produce.
#pragma once

#include <cstddef>
#include <cstdint>

namespace VORX::String::Codec {

// Whether the kernels may run (the processor has them and the test hook has not hidden them).
bool _textVectors();

struct _VecStep {
  std::size_t read;    // source units taken
  std::size_t written; // destination units produced
};

// Counts the UTF-8 characters of whole blocks of `p[0..n)` into `count`: wide units when
// `units16`, else code points. Returns the bytes counted.
std::size_t _countUTF8Vec(unsigned char const * p, std::size_t n, bool units16,
                          std::uint64_t & count);

// Decodes UTF-8 from `p[0..n)` into 16-bit units at `d`, one per byte at most.
_VecStep _decodeUTF8Vec(unsigned char const * p, std::size_t n, void * d);

// Counts wide units of `p[0..n)` without surrogates into `count`: their UTF-8 bytes when
// `utf8Bytes`, else characters. Returns the units counted.
std::size_t _countWideVec(void const * p, std::size_t n, bool utf8Bytes, std::uint64_t & count);

// Encodes wide units without surrogates from `p[0..n)` as UTF-8 at `d`, three bytes per unit
// at most.
_VecStep _encodeWideVec(void const * p, std::size_t n, unsigned char * d);

} // namespace VORX::String::Codec
