// VORX::Random: a small, fast pseudo-random generator with a fixed, documented sequence, for
// reproducible choices (test data, dithering) where quality matters less than repeatability.
// The Mersenne-Twister generators live in VORX::Develop (<vorx/develop.h>).
#pragma once

#include <vorx/base.h>

namespace VORX::Random {

// Linear congruential generator: state = state * 214013 + 2531011 (modulo 2^32), each value
// bits 16..30 of the new state, 0..32767. Seeded with 1, the values begin 41, 18467, 6334.
// A value; not synchronised (one object belongs to one thread at a time). Nothing can fail.
class VORX_API CMonoRand {
public:
  explicit CMonoRand(int seed = 1) : m_state(static_cast<std::uint32_t>(seed)) {}
  // Restarts the sequence from `seed`.
  void Reset(int seed) { m_state = static_cast<std::uint32_t>(seed); }
  // The next value, 0..32767.
  int rand() {
    m_state = m_state * 214013u + 2531011u;
    return static_cast<int>((m_state >> 16) & 0x7FFFu);
  }

private:
  std::uint32_t m_state;
};

} // namespace VORX::Random
