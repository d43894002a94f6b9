#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>

using namespace VORX::Buffers::Sort;

// Byte-wise comparison of whole elements; the plain form takes the width from this variable,
// the context form from its context.
static std::size_t g_width = 0;

static int CompareBytes(void const * a, void const * b) {
  return std::memcmp(a, b, g_width);
}

static int CompareBytesIn(void const * a, void const * b, void const * width) {
  return std::memcmp(a, b, *static_cast<std::size_t const *>(width));
}

// std::sort over the elements as strings is the oracle. Shapes: random bytes as they come,
// sorted, reversed, then three distinct bytes, then all equal. Counts around the switch from
// the selection pass (8 or fewer) to partitioning.
TEST(Sort, AgreesWithStdSortForEveryShapeSizeAndWidth) {
  std::mt19937 rng(20261121);
  for (int shape = 0; shape < 5; ++shape) {
    for (std::size_t width : {1, 3, 8, 13}) {
      for (std::size_t count : {0, 1, 2, 3, 8, 9, 10, 17, 257, 4099}) {
        std::vector<std::string> items(count, std::string(width, 'a'));
        for (auto & item : items) {
          for (auto & ch : item) {
            ch = static_cast<char>('a' + rng() % (shape == 3 ? 3 : shape == 4 ? 1 : 256));
          }
        }
        std::string plain = std::accumulate(items.begin(), items.end(), std::string());
        std::sort(items.begin(), items.end());
        std::string const expected = std::accumulate(items.begin(), items.end(), std::string());
        if (shape == 1 || shape == 2) {
          plain =
              shape == 1 ? expected : std::accumulate(items.rbegin(), items.rend(), std::string());
        }
        std::string withContext = plain;
        g_width = width;
        vfqsort(plain.data(), count, width, &CompareBytes);
        vfpqsort(withContext.data(), count, width, &width, &CompareBytesIn);
        ASSERT_EQ(plain, expected) << "shape " << shape << " width " << width << " count " << count;
        ASSERT_EQ(withContext, expected) << "width " << width << " count " << count;
      }
    }
  }
}

// Elements of two bytes, a key and a tag, compared by key only: the order of equal keys shows
// which algorithm ran. The selection pass moves the first of equal maxima to the end; 9 elements
// are partitioned around the middle one, which goes to the front. Width 0 changes nothing.
TEST(Sort, SelectionPassForEightOrFewerPartitionAbove) {
  std::size_t const keyWidth = 1;
  for (auto [items, sorted] : {std::pair<std::string, char const *>{"2a1b2c1d", "1b1d2c2a"},
                               {"0a0b0c0d0e0f0g0h", "0b0c0d0e0f0g0h0a"},
                               {"0a0b0c0d0e0f0g0h0i", "0e0b0c0d0a0f0g0h0i"}}) {
    vfpqsort(items.data(), items.size() / 2, 2, &keyWidth, &CompareBytesIn);
    EXPECT_EQ(items, sorted);
  }
  char data[] = "dcba";
  vfpqsort(data, 4, 0, &keyWidth, &CompareBytesIn);
  EXPECT_STREQ(data, "dcba");
}

// Both forms against std::lower_bound over one-byte elements: sorted arrays of growing size
// (the first empty) with runs of equal keys and keys below, between and above them all.
TEST(Sort, SearchGivesTheFirstPositionNotBelowTheKey) {
  g_width = 1;
  std::mt19937 rng(7);
  std::string array; // one random key more each round
  while (array.size() < 40) {
    std::sort(array.begin(), array.end());
    for (char key = 'a' - 1; key <= 'a' + 20; ++key) {
      auto const expected = static_cast<std::size_t>(
          std::lower_bound(array.begin(), array.end(), key) - array.begin());
      EXPECT_EQ(vfqfind(&key, array.data(), array.size(), 1, &CompareBytes), expected) << array;
      EXPECT_EQ(vfpqsearch(&key, array.data(), array.size(), 1, &g_width, &CompareBytesIn),
                expected);
    }
    array += static_cast<char>('a' + rng() % 20);
  }
}
