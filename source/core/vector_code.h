// Private: the intrinsics for the vector kernels chosen at run time (see core/cpu.h), included
// only by files that hold such kernels.
#pragma once

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#if defined(__GNUC__) && !defined(__clang__)
// GCC 12's AVX-512 headers start some results from a deliberately undefined vector and then
// warn about it where the intrinsics are inlined.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
