#include <vorx/buffers.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using VORX::Buffers::Sort::vfpqsearch;
using VORX::Buffers::Sort::vfpqsort;
using VORX::Buffers::Sort::vfqfind;
using VORX::Buffers::Sort::vfqsort;

// Byte-wise comparison of whole elements; the width comes through the context, or, for the
// plain form, through this variable.
std::size_t g_width = 0;

int CompareBytes(void const * a, void const * b) {
  return std::memcmp(a, b, g_width);
}

struct ByteOrder {
  std::size_t width;
  bool descending;
};

int CompareBytesIn(void const * a, void const * b, void const * context) {
  auto const & order = *static_cast<ByteOrder const *>(context);
  int const c = std::memcmp(a, b, order.width);
  return order.descending ? -c : c;
}

enum class Shape { Random, Sorted, Reversed, AllEqual, FewDistinct };

// `count` elements of `width` bytes each, as strings so that std::sort is the oracle.
std::vector<std::string> MakeElements(Shape shape, std::size_t count, std::size_t width,
                                      std::mt19937 & rng) {
  std::vector<std::string> items(count, std::string(width, '\0'));
  for (auto & item : items) {
    for (auto & ch : item) {
      switch (shape) {
      case Shape::AllEqual:
        ch = 'q';
        break;
      case Shape::FewDistinct:
        ch = static_cast<char>('a' + rng() % 3);
        break;
      default:
        ch = static_cast<char>(rng());
        break;
      }
    }
  }
  if (shape == Shape::Sorted) {
    std::sort(items.begin(), items.end());
  } else if (shape == Shape::Reversed) {
    std::sort(items.begin(), items.end(), std::greater<>());
  }
  return items;
}

std::string Flatten(std::vector<std::string> const & items) {
  std::string flat;
  for (auto const & item : items) {
    flat += item;
  }
  return flat;
}

TEST(Sort, AgreesWithStdSortForEveryShapeSizeAndWidth) {
  std::mt19937 rng(20261121);
  std::vector<std::size_t> counts;
  for (std::size_t n = 0; n <= 40; ++n) {
    counts.push_back(n);
  }
  for (std::size_t n : {63, 64, 65, 100, 257, 1000, 4099}) {
    counts.push_back(n);
  }
  for (Shape shape :
       {Shape::Random, Shape::Sorted, Shape::Reversed, Shape::AllEqual, Shape::FewDistinct}) {
    for (std::size_t width = 1; width <= 24; ++width) {
      for (std::size_t count : counts) {
        auto items = MakeElements(shape, count, width, rng);
        std::string plain = Flatten(items);
        std::string withContext = plain;
        std::string descending = plain;

        g_width = width;
        vfqsort(plain.data(), count, width, &CompareBytes);
        ByteOrder const up{width, false};
        vfpqsort(withContext.data(), count, width, &up, &CompareBytesIn);
        ByteOrder const down{width, true};
        vfpqsort(descending.data(), count, width, &down, &CompareBytesIn);

        std::sort(items.begin(), items.end());
        std::string const expected = Flatten(items);
        std::sort(items.begin(), items.end(), std::greater<>());
        std::string const expectedDown = Flatten(items);
        ASSERT_EQ(plain, expected)
            << "shape " << static_cast<int>(shape) << " width " << width << " count " << count;
        ASSERT_EQ(withContext, expected) << "width " << width << " count " << count;
        ASSERT_EQ(descending, expectedDown) << "width " << width << " count " << count;
      }
    }
  }
}

int CountingCompare(void const * a, void const * b, void const * context) {
  ++*static_cast<int *>(const_cast<void *>(context));
  return std::memcmp(a, b, 1);
}

TEST(Sort, LeavesArraysOfFewerThanTwoOrWidthZeroUntouched) {
  char data[4] = {'d', 'c', 'b', 'a'};
  int calls = 0;
  vfpqsort(data, 1, 1, &calls, &CountingCompare);
  vfpqsort(data, 0, 1, &calls, &CountingCompare);
  vfpqsort(data, 4, 0, &calls, &CountingCompare);
  vfpqsort(nullptr, 0, 4, &calls, &CountingCompare);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(std::string(data, 4), "dcba");
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
TEST(Sort, SelectionPassKeepsTheFirstOfEqualMaxima) {
  struct Row {
    char const * label;
    std::vector<Tagged> input;
    char const * tags; // tags after sorting
  };
  Row const rows[] = {
      {"two equal", {{5, 'a'}, {5, 'b'}}, "ba"},
      {"three equal", {{1, 'a'}, {1, 'b'}, {1, 'c'}}, "bca"},
      {"two pairs", {{2, 'a'}, {1, 'b'}, {2, 'c'}, {1, 'd'}}, "bdca"},
      {"eight equal",
       {{0, 'a'}, {0, 'b'}, {0, 'c'}, {0, 'd'}, {0, 'e'}, {0, 'f'}, {0, 'g'}, {0, 'h'}},
       "bcdefgha"},
      {"nine equal: middle swapped to the front, nothing else moves",
       {{0, 'a'}, {0, 'b'}, {0, 'c'}, {0, 'd'}, {0, 'e'}, {0, 'f'}, {0, 'g'}, {0, 'h'}, {0, 'i'}},
       "ebcdafghi"},
  };
  for (Row const & row : rows) {
    std::vector<Tagged> items = row.input;
    vfqsort(items.data(), items.size(), sizeof(Tagged), &CompareKeys);
    std::string tags;
    for (Tagged const & t : items) {
      tags += t.tag;
    }
    EXPECT_EQ(tags, row.tags) << row.label;
  }
}

int CompareInts(void const * a, void const * b) {
  int const x = *static_cast<int const *>(a);
  int const y = *static_cast<int const *>(b);
  return (x > y) - (x < y);
}

int CompareIntsIn(void const * a, void const * b, void const * context) {
  ++*static_cast<int *>(const_cast<void *>(context));
  return CompareInts(a, b);
}

TEST(Sort, SearchGivesTheFirstPositionNotBelowTheKey) {
  struct Row {
    char const * label;
    std::vector<int> array;
    int key;
    std::size_t expected;
  };
  Row const rows[] = {
      {"empty array", {}, 7, 0},
      {"one element, key below", {5}, 4, 0},
      {"one element, key equal", {5}, 5, 0},
      {"one element, key above", {5}, 6, 1},
      {"two elements, key between", {1, 3}, 2, 1},
      {"two elements, key equal to the last", {1, 3}, 3, 1},
      {"three elements, key equal to the last", {1, 2, 3}, 3, 2},
      {"key equal to the first", {2, 4, 6, 8}, 2, 0},
      {"key below all", {2, 4, 6, 8}, -1, 0},
      {"key above all", {2, 4, 6, 8}, 9, 4},
      {"key between", {2, 4, 6, 8}, 5, 2},
      {"key equal to the last", {2, 4, 6, 8}, 8, 3},
      {"first of a run of equals", {1, 3, 3, 3, 3, 3, 9}, 3, 1},
      {"run at the end", {1, 2, 7, 7, 7}, 7, 2},
      {"all equal", {4, 4, 4, 4, 4, 4}, 4, 0},
      {"long array, key between", {0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100}, 71, 8},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(vfqfind(&row.key, row.array.data(), row.array.size(), sizeof(int), &CompareInts),
              row.expected)
        << row.label;
    int calls = 0;
    EXPECT_EQ(vfpqsearch(&row.key, row.array.data(), row.array.size(), sizeof(int), &calls,
                         &CompareIntsIn),
              row.expected)
        << row.label;
    EXPECT_EQ(calls == 0, row.array.empty()) << row.label;
  }
}

TEST(Sort, SearchAgreesWithLowerBoundOnRandomArrays) {
  std::mt19937 rng(7);
  for (std::size_t count = 0; count < 200; ++count) {
    std::vector<int> array(count);
    for (int & v : array) {
      v = static_cast<int>(rng() % 50);
    }
    std::sort(array.begin(), array.end());
    for (int key = -1; key <= 51; ++key) {
      auto const expected = static_cast<std::size_t>(
          std::lower_bound(array.begin(), array.end(), key) - array.begin());
      ASSERT_EQ(vfqfind(&key, array.data(), count, sizeof(int), &CompareInts), expected)
          << "count " << count << " key " << key;
    }
  }
}

TEST(Sort, SwapExchangesExactlyWidthBytes) {
  for (std::size_t width = 0; width <= 20; ++width) {
    std::array<char, 24> a;
    std::array<char, 24> b;
    for (std::size_t i = 0; i < a.size(); ++i) {
      a[i] = static_cast<char>('A' + i);
      b[i] = static_cast<char>('a' + i);
    }
    VORX::Buffers::swap(a.data(), b.data(), width);
    for (std::size_t i = 0; i < a.size(); ++i) {
      bool const swapped = i < width;
      EXPECT_EQ(a[i], static_cast<char>((swapped ? 'a' : 'A') + i)) << width << " " << i;
      EXPECT_EQ(b[i], static_cast<char>((swapped ? 'A' : 'a') + i)) << width << " " << i;
    }
  }
  std::array<char, 11> same{"0123456789"};
  VORX::Buffers::swap(same.data(), same.data(), 10);
  EXPECT_STREQ(same.data(), "0123456789");
}

} // namespace
