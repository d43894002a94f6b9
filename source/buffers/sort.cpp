// Element swap, quicksort and lower-bound search over arrays of fixed-width elements. Both forms
// of each (with and without a caller context) share one template over the comparison call, so
// the plain form pays nothing for the context.
#include <vorx/buffers.h>

#include <cstdint>
#include <cstring>

namespace VORX::Buffers {
namespace {

// Exchanges `width` bytes: eight at a time, then the rest one by one.
inline void _swapbytes(char * a, char * b, std::size_t width) {
  for (; width >= 8; width -= 8, a += 8, b += 8) {
    std::uint64_t x;
    std::uint64_t y;
    std::memcpy(&x, a, 8);
    std::memcpy(&y, b, 8);
    std::memcpy(a, &y, 8);
    std::memcpy(b, &x, 8);
  }
  for (; width > 0; --width, ++a, ++b) {
    char const t = *a;
    *a = *b;
    *b = t;
  }
}

// The element width, fixed at compile time for the common 8-byte case (handles, keys) so the
// swaps become single moves; 0 selects the run-time width.
template <std::size_t Fixed> struct _Width {
  explicit _Width(std::size_t) {}
  static constexpr std::size_t get() { return Fixed; }
};
template <> struct _Width<0> {
  explicit _Width(std::size_t w) : value(w) {}
  std::size_t get() const { return value; }
  std::size_t value;
};

// Enough ranges for any count: the larger part is stacked and the smaller one (at most half of
// the range) continued, so k stacked ranges leave at most count / 2^k elements in hand, and only
// a range of more than 8 elements pushes.
constexpr std::size_t kStackDepth = 8 * sizeof(std::size_t);

template <std::size_t Fixed, class Compare>
void _quicksort(char * base, std::size_t count, std::size_t width, Compare compare) {
  _Width<Fixed> const w(width);
  auto const exchange = [&w](char * a, char * b) {
    if (a != b) {
      _swapbytes(a, b, w.get());
    }
  };

  char * stackLo[kStackDepth];
  char * stackHi[kStackDepth];
  std::size_t depth = 0;

  char * lo = base;
  char * hi = base + (count - 1) * w.get(); // inclusive
  for (;;) {
    std::size_t const n = static_cast<std::size_t>(hi - lo) / w.get() + 1;
    if (n <= 8) {
      // Selection: the largest to the end; a later equal element never replaces the candidate.
      for (; hi > lo; hi -= w.get()) {
        char * max = lo;
        for (char * p = lo + w.get(); p <= hi; p += w.get()) {
          if (compare(p, max) > 0) {
            max = p;
          }
        }
        exchange(max, hi);
      }
    } else {
      exchange(lo + (n / 2) * w.get(), lo);
      char * left = lo;
      char * right = hi + w.get();
      for (;;) {
        do {
          left += w.get();
        } while (left <= hi && compare(left, lo) <= 0);
        do {
          right -= w.get();
        } while (right > lo && compare(right, lo) >= 0);
        if (right < left) {
          break;
        }
        exchange(left, right);
      }
      exchange(lo, right);

      // Parts lo..right-1 and left..hi; the pivot sits at `right`, and anything between it and
      // `left` compares equal to it, so it is already in place.
      std::size_t const nLow = static_cast<std::size_t>(right - lo) / w.get();
      std::size_t const nHigh = left <= hi ? static_cast<std::size_t>(hi - left) / w.get() + 1 : 0;
      if (nLow > 1 && nHigh > 1) {
        if (nLow >= nHigh) {
          stackLo[depth] = lo;
          stackHi[depth] = right - w.get();
          lo = left;
        } else {
          stackLo[depth] = left;
          stackHi[depth] = hi;
          hi = right - w.get();
        }
        ++depth;
        continue;
      }
      if (nLow > 1) {
        hi = right - w.get();
        continue;
      }
      if (nHigh > 1) {
        lo = left;
        continue;
      }
    }
    if (depth == 0) {
      return;
    }
    --depth;
    lo = stackLo[depth];
    hi = stackHi[depth];
  }
}

template <class Compare>
void _sort(void * base, std::size_t count, std::size_t width, Compare compare) {
  if (count < 2 || width == 0 || base == nullptr) {
    return;
  }
  if (width == 8) {
    _quicksort<8>(static_cast<char *>(base), count, width, compare);
  } else {
    _quicksort<0>(static_cast<char *>(base), count, width, compare);
  }
}

template <class Compare>
std::size_t _lowerbound(void const * key, void const * base, std::size_t count, std::size_t width,
                        Compare compare) {
  if (count == 0) {
    return 0;
  }
  char const * const first = static_cast<char const *>(base);
  if (compare(key, first) <= 0) {
    return 0;
  }
  std::size_t const last = count - 1;
  if (compare(key, first + last * width) > 0) {
    return count;
  }
  if (last < 2) {
    return last;
  }
  std::size_t low = 0;
  std::size_t high = last;
  while (high - low > 1) {
    std::size_t const middle = low + (high - low) / 2;
    if (compare(key, first + middle * width) <= 0) {
      high = middle;
    } else {
      low = middle;
    }
  }
  return high;
}

} // namespace

void swap(void * a, void * b, std::size_t width) {
  if (a != b) {
    _swapbytes(static_cast<char *>(a), static_cast<char *>(b), width);
  }
}

namespace Sort {

void vfqsort(void * base, std::size_t count, std::size_t width,
             int (*compare)(void const *, void const *)) {
  _sort(base, count, width, [compare](void const * a, void const * b) { return compare(a, b); });
}

void vfpqsort(void * base, std::size_t count, std::size_t width, void const * context,
              int (*compare)(void const *, void const *, void const *)) {
  _sort(base, count, width,
        [compare, context](void const * a, void const * b) { return compare(a, b, context); });
}

std::size_t vfqfind(void const * key, void const * base, std::size_t count, std::size_t width,
                    int (*compare)(void const *, void const *)) {
  return _lowerbound(key, base, count, width,
                     [compare](void const * a, void const * b) { return compare(a, b); });
}

std::size_t vfpqsearch(void const * key, void const * base, std::size_t count, std::size_t width,
                       void const * context,
                       int (*compare)(void const *, void const *, void const *)) {
  return _lowerbound(key, base, count, width, [compare, context](void const * a, void const * b) {
    return compare(a, b, context);
  });
}

} // namespace Sort
} // namespace VORX::Buffers
