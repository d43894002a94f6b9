#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using VORX::Buffers::Sort::vfpqsearch;
using VORX::Buffers::Sort::vfpqsort;
using VORX::Buffers::Sort::vfqfind;
using VORX::Buffers::Sort::vfqsort;

// Byte-wise comparison of whole elements; the plain form takes the width from this variable,
// the context form from its context.
std::size_t g_width = 0;

int CompareBytes(void const * a, void const * b) {
  return std::memcmp(a, b, g_width);
}

int CompareBytesIn(void const * a, void const * b, void const * width) {
  return std::memcmp(a, b, *static_cast<std::size_t const *>(width));
}

enum class Shape { Random, Sorted, Reversed, AllEqual, FewDistinct };

std::string Flatten(std::vector<std::string> const & items) {
  std::string flat;
  for (auto const & item : items) {
    flat += item;
  }
  return flat;
}

// std::sort over the elements as strings is the oracle.
TEST(Sort, AgreesWithStdSortForEveryShapeSizeAndWidth) {
  std::mt19937 rng(20261121);
  std::vector<std::size_t> counts = {64, 257, 1000, 4099};
  for (std::size_t n = 0; n <= 20; ++n) {
    counts.push_back(n);
  }
  for (Shape shape :
       {Shape::Random, Shape::Sorted, Shape::Reversed, Shape::AllEqual, Shape::FewDistinct}) {
    for (std::size_t width : {1, 3, 8, 13, 24}) {
      for (std::size_t count : counts) {
        std::vector<std::string> items(count, std::string(width, 'q'));
        for (auto & item : items) {
          for (auto & ch : item) {
            if (shape == Shape::FewDistinct) {
              ch = static_cast<char>('a' + rng() % 3);
            } else if (shape != Shape::AllEqual) {
              ch = static_cast<char>(rng());
            }
          }
        }
        if (shape == Shape::Sorted) {
          std::sort(items.begin(), items.end());
        } else if (shape == Shape::Reversed) {
          std::sort(items.begin(), items.end(), std::greater<>());
        }
        std::string plain = Flatten(items);
        std::string withContext = plain;
        g_width = width;
        vfqsort(plain.data(), count, width, &CompareBytes);
        vfpqsort(withContext.data(), count, width, &width, &CompareBytesIn);
        std::sort(items.begin(), items.end());
        ASSERT_EQ(plain, Flatten(items))
            << "shape " << static_cast<int>(shape) << " width " << width << " count " << count;
        ASSERT_EQ(withContext, plain) << "width " << width << " count " << count;
      }
    }
  }
}

int Uncallable(void const *, void const *, void const *) {
  ADD_FAILURE() << "nothing to compare";
  return 0;
}

TEST(Sort, LeavesArraysOfFewerThanTwoOrWidthZeroUntouched) {
  char data[] = "dcba";
  vfpqsort(data, 1, 1, nullptr, &Uncallable);
  vfpqsort(data, 4, 0, nullptr, &Uncallable);
  vfpqsort(nullptr, 0, 4, nullptr, &Uncallable);
  EXPECT_STREQ(data, "dcba");
}

struct Tagged {
  int key;
  char tag;
};

int CompareKeys(void const * a, void const * b) {
  int const x = static_cast<Tagged const *>(a)->key;
  int const y = static_cast<Tagged const *>(b)->key;
  return (x > y) - (x < y);
}

// The order of equal keys shows which algorithm ran: the selection pass moves the first of
// equal maxima to the end; 9 elements are partitioned around the middle one.
TEST(Sort, SelectionPassForEightOrFewerPartitionAbove) {
  struct Row {
    std::vector<int> keys; // tagged a, b, c, ... in order
    char const * tags;     // tags after sorting
  } const rows[] = {
      {{5, 5}, "ba"},
      {{1, 1, 1}, "bca"},
      {{2, 1, 2, 1}, "bdca"},
      {{0, 0, 0, 0, 0, 0, 0, 0}, "bcdefgha"},
      {{0, 0, 0, 0, 0, 0, 0, 0, 0}, "ebcdafghi"}, // middle swapped to the front, nothing else
  };
  for (Row const & row : rows) {
    std::vector<Tagged> items;
    for (int key : row.keys) {
      items.push_back({key, static_cast<char>('a' + items.size())});
    }
    vfqsort(items.data(), items.size(), sizeof(Tagged), &CompareKeys);
    std::string tags;
    for (Tagged const & t : items) {
      tags += t.tag;
    }
    EXPECT_EQ(tags, row.tags) << row.keys.size() << " elements";
  }
}

int CompareInts(void const * a, void const * b) {
  int const x = *static_cast<int const *>(a);
  int const y = *static_cast<int const *>(b);
  return (x > y) - (x < y);
}

int CompareIntsIn(void const * a, void const * b, void const * context) {
  EXPECT_EQ(context, &g_width);
  return CompareInts(a, b);
}

// Both forms against std::lower_bound: hand-picked cases, then random sorted arrays.
TEST(Sort, SearchGivesTheFirstPositionNotBelowTheKey) {
  auto check = [](std::vector<int> const & array, int key) {
    auto const expected =
        static_cast<std::size_t>(std::lower_bound(array.begin(), array.end(), key) - array.begin());
    EXPECT_EQ(vfqfind(&key, array.data(), array.size(), sizeof(int), &CompareInts), expected)
        << array.size() << " elements, key " << key;
    EXPECT_EQ(vfpqsearch(&key, array.data(), array.size(), sizeof(int), &g_width, &CompareIntsIn),
              expected)
        << array.size() << " elements, key " << key;
  };
  check({}, 7);
  check({1, 3}, 3);             // equal to the last of two
  check({2, 4, 6, 8}, 9);       // above all: the count
  check({1, 3, 3, 3, 3, 9}, 3); // the first of equals
  check({4, 4, 4, 4}, 4);
  std::mt19937 rng(7);
  for (std::size_t count = 1; count < 100; ++count) {
    std::vector<int> array(count);
    for (int & v : array) {
      v = static_cast<int>(rng() % 50);
    }
    std::sort(array.begin(), array.end());
    for (int key = -1; key <= 51; ++key) {
      check(array, key);
    }
  }
}

TEST(Sort, SwapExchangesExactlyWidthBytes) {
  for (std::size_t width = 0; width <= 20; ++width) {
    std::string a = "ABCDEFGHIJKLMNOPQRSTUVWX";
    std::string b = "abcdefghijklmnopqrstuvwx";
    std::string const wantA = b.substr(0, width) + a.substr(width);
    std::string const wantB = a.substr(0, width) + b.substr(width);
    VORX::Buffers::swap(a.data(), b.data(), width);
    EXPECT_EQ(a, wantA) << width;
    EXPECT_EQ(b, wantB) << width;
  }
  std::string same = "0123456789";
  VORX::Buffers::swap(same.data(), same.data(), 10);
  EXPECT_EQ(same, "0123456789");
}

} // namespace
