// The Mersenne-Twister generators: the `CMTRandom` value and the lock-free process-wide one.
#include <vorx/develop.h>

#include <atomic>
#include <thread>

namespace VORX::Develop {
namespace {

constexpr std::size_t kWords = CMTRandom::kStateWords;
constexpr std::size_t kOffset = 397;
constexpr std::uint32_t kTwist = 0x9908B0DFu;

void _seedWords(std::uint32_t * state, std::uint32_t s) {
  state[0] = s;
  for (std::uint32_t i = 1; i < kWords; ++i) {
    state[i] = 1812433253u * (state[i - 1] ^ (state[i - 1] >> 30)) + i;
  }
}

// One round, in place and in order, so that the words from 227 on mix in words already renewed.
// The twist constant follows the low bit of the new word, deliberately.
void _regenerate(std::uint32_t * state) {
  for (std::size_t i = 0; i < kWords; ++i) {
    std::uint32_t const y = (((state[i] ^ state[(i + 1) % kWords]) & 0x7FFFFFFEu) ^ state[i]) >> 1;
    std::uint32_t word = y ^ state[(i + kOffset) % kWords];
    if (word & 1u) {
      word ^= kTwist;
    }
    state[i] = word;
  }
}

constexpr std::uint32_t _temper(std::uint32_t y) {
  y ^= y >> 11;
  y ^= (y << 7) & 0x9D2C5680u;
  y ^= (y << 15) & 0xEFC60000u;
  y ^= y >> 18;
  return y;
}

// The process-wide generator. The shared index holds the position in the bank in use in its
// low 32 bits and the number of banks swapped in so far in its high 32 bits, so that a
// compare-and-swap by a caller that stalled across whole rounds cannot succeed on a position
// of a later round. Bank words are read and written with relaxed atomic accesses: a reader may
// hold a stale bank pointer while the bank is being refilled, but its compare-and-swap then
// fails and the word it read is dropped.
struct tagMTBANK {
  std::uint32_t words[kWords];
};

class CSharedGenerator {
public:
  CSharedGenerator() { Seed(static_cast<std::uint32_t>(_now_nano())); }

  void Seed(std::uint32_t s) {
    std::uint32_t work[kWords];
    _seedWords(work, s);
    _store(m_banks[0], work);
    _regenerate(work);
    _store(m_banks[1], work);
    m_inUse.store(&m_banks[0]);
    m_next.store(&m_banks[1]);
    m_index.store(0);
  }

  std::uint32_t Draw() {
    for (;;) {
      std::uint64_t index = m_index.load();
      std::uint32_t const position = static_cast<std::uint32_t>(index);
      if (position < kWords) {
        std::uint32_t const word = _load(*m_inUse.load(), position);
        if (m_index.compare_exchange_weak(index, index + 1)) {
          return _temper(word);
        }
        continue;
      }
      if (position == kWords && m_index.compare_exchange_strong(index, index + 1)) {
        return _swap(index >> 32);
      }
      // Another caller is swapping the banks.
      std::this_thread::yield();
    }
  }

private:
  // Run by the one caller that moved the position from 624 to 625: makes the bank computed in
  // advance the bank in use, starts its round at position 1, refills the retired bank with the
  // round after it and publishes that, and returns word 0 of the new round.
  std::uint32_t _swap(std::uint64_t generation) {
    tagMTBANK * fresh;
    while ((fresh = m_next.load()) == nullptr) {
      std::this_thread::yield(); // the previous swap is still computing this bank
    }
    tagMTBANK * const retired = m_inUse.load();
    m_inUse.store(fresh);
    m_next.store(nullptr);
    std::uint64_t expected = m_index.load();
    std::uint64_t const restart = ((generation + 1) << 32) | 1u;
    while (!m_index.compare_exchange_weak(expected, restart)) {
    }
    std::uint32_t work[kWords];
    for (std::size_t i = 0; i < kWords; ++i) {
      work[i] = _load(*fresh, i);
    }
    std::uint32_t const first = work[0];
    _regenerate(work);
    _store(*retired, work);
    m_next.store(retired);
    return _temper(first);
  }

  static std::uint32_t _load(tagMTBANK & bank, std::size_t i) {
    return std::atomic_ref<std::uint32_t>(bank.words[i]).load(std::memory_order_relaxed);
  }
  static void _store(tagMTBANK & bank, std::uint32_t const * words) {
    for (std::size_t i = 0; i < kWords; ++i) {
      std::atomic_ref<std::uint32_t>(bank.words[i]).store(words[i], std::memory_order_relaxed);
    }
  }

  tagMTBANK m_banks[2];
  std::atomic<tagMTBANK *> m_inUse{nullptr};
  std::atomic<tagMTBANK *> m_next{nullptr};
  alignas(64) std::atomic<std::uint64_t> m_index{0};
};

CSharedGenerator & _shared() {
  static CSharedGenerator generator;
  return generator;
}

// Seeds the process-wide generator when the library is loaded.
[[maybe_unused]] CSharedGenerator & g_sharedAtLoad = _shared();

} // namespace

CMTRandom::CMTRandom() : m_index(0), m_state{}, m_modulus(0), m_scale(1.0 / 4294967295.0) {
  seed(static_cast<std::uint32_t>(_now_nano()));
}

void CMTRandom::seed(std::uint32_t s) {
  _seedWords(m_state, s);
  m_index = 0;
}

std::uint32_t CMTRandom::_next() {
  if (m_index >= kWords) {
    _regenerate(m_state);
    m_index = 0;
  }
  return _temper(m_state[m_index++]);
}

std::uint32_t CMTRandom::rnd() {
  std::uint32_t const word = _next();
  return m_modulus != 0 ? word % m_modulus : word;
}

double CMTRandom::drnd() {
  return static_cast<double>(_next()) * m_scale;
}

std::uint32_t _random() {
  return _shared().Draw();
}

double _drandom(double max) {
  return static_cast<double>(_random()) * (max / 4294967295.0);
}

void _randomSeed(std::uint32_t seed) {
  _shared().Seed(seed);
}

} // namespace VORX::Develop
