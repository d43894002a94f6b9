// Threads intern, compare, copy and release one shared vocabulary while the maintenance thread
// collects as often as it can: every interning of a held text yields its record, and the pool
// stays whole.
#include <vorx/core.h>
#include <vorx/string.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using namespace VORX::String;

namespace {

constexpr int kWords = 48;
constexpr int kIterations = 20000;

// The vocabulary: each word in three case variants, as wide and as UTF-8 text.
struct Vocabulary {
  Vocabulary() {
    for (int i = 0; i < kWords; ++i) {
      std::string base = "word-" + std::to_string(i * 7919) + std::string(i % 24, 'x') + "\xC3\xA9";
      std::string upper = base;
      for (char & c : upper) {
        if (c >= 'a' && c <= 'z') {
          c = static_cast<char>(c - 32);
        }
      }
      std::string first = base;
      first[0] = 'W';
      for (std::string const & v : {base, upper, first}) {
        utf8.push_back(v);
        std::u16string w;
        for (std::size_t k = 0; k < v.size(); ++k) {
          if (static_cast<unsigned char>(v[k]) == 0xC3) {
            w.push_back(static_cast<char16_t>(0xC0 | (v[++k] & 0x3F)));
          } else {
            w.push_back(static_cast<char16_t>(v[k]));
          }
        }
        wide.push_back(w);
      }
    }
  }
  std::vector<std::string> utf8;
  std::vector<std::u16string> wide;
};

struct Failures {
  std::atomic<int> differentRecord{0};
  std::atomic<int> wrongText{0};
  std::atomic<int> notInterned{0};
  std::atomic<int> groupMismatch{0};
  std::atomic<int> verify{0};
};

void Work(Vocabulary const & words, std::vector<CPPoolString> const & anchors, unsigned seed,
          Failures & failures) {
  std::size_t const n = words.wide.size();
  std::vector<CPPoolString> held(n);
  std::uint32_t state = seed;
  auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  for (int iteration = 0; iteration < kIterations; ++iteration) {
    std::size_t const j = next() % n;
    std::uint32_t const op = next();
    CPPoolString s;
    switch (op % 3) {
    case 0:
      s = CStringPool::GetStringRef(words.wide[j].c_str());
      break;
    case 1:
      s = reinterpret_cast<unsigned char const *>(words.utf8[j].c_str());
      break;
    default:
      s = CStringPool::GetStringRefn(words.wide[j].c_str(), words.wide[j].size());
      break;
    }
    if (s.isnull()) {
      ++failures.notInterned;
      continue;
    }
    if ((!held[j].isnull() && !(held[j] == s)) || (!anchors[j].isnull() && !(anchors[j] == s))) {
      ++failures.differentRecord;
    }
    if (s.cmp(words.wide[j].c_str()) != 0 ||
        std::strcmp(reinterpret_cast<char const *>(static_cast<unsigned char const *>(s)),
                    words.utf8[j].c_str()) != 0) {
      ++failures.wrongText;
    }
    CPPoolString const first = CStringPool::GetStringRefi(words.wide[j ^ 1].c_str());
    if (!first.iequals(s) && (j / 3 == (j ^ 1) / 3)) {
      ++failures.groupMismatch;
    }
    if ((op >> 4) % 2 == 0) {
      held[j] = s;
    } else {
      held[j].free();
    }
    if (iteration % 512 == 0 && !CStringPool::Verify()) {
      ++failures.verify;
    }
  }
}

class PoolStress : public ::testing::TestWithParam<int> {};

TEST_P(PoolStress, HeldTextsKeepTheirRecordsWhileTheMaintenanceThreadCollects) {
  Vocabulary const words;
  CStringPool::Collect(0xFFFFFFFFu);
  CStringPool::Collect(0xFFFFFFFFu);
  std::uint64_t const size = CStringPool::GetSize();
  std::uint64_t const records = CStringPool::GetNItems();

  // Collect whenever the maintenance thread is free (the intervals are shortened for the test).
  CStringPool::_SetMaintenanceIntervals(0, 0);
  ASSERT_TRUE(VORX::AppInit());
  // Every other word is held by the test throughout.
  std::vector<CPPoolString> anchors(words.wide.size());
  for (std::size_t j = 0; j < anchors.size(); j += 2) {
    anchors[j] = words.wide[j].c_str();
  }
  Failures failures;
  std::vector<std::thread> threads;
  for (int t = 0; t < GetParam(); ++t) {
    threads.emplace_back(Work, std::cref(words), std::cref(anchors), 17u + 31u * t,
                         std::ref(failures));
  }
  for (std::thread & thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures.differentRecord.load(), 0);
  EXPECT_EQ(failures.wrongText.load(), 0);
  EXPECT_EQ(failures.notInterned.load(), 0);
  EXPECT_EQ(failures.groupMismatch.load(), 0);
  EXPECT_EQ(failures.verify.load(), 0);
  EXPECT_TRUE(CStringPool::Verify());
  anchors.clear();
  VORX::AppExit();
  CStringPool::_SetMaintenanceIntervals(20000, 10000);

  CStringPool::Collect(0xFFFFFFFFu);
  CStringPool::Collect(0xFFFFFFFFu);
  EXPECT_EQ(CStringPool::GetNItems(), records);
  EXPECT_EQ(CStringPool::GetSize(), size);
}

INSTANTIATE_TEST_SUITE_P(Threads, PoolStress, ::testing::Values(2, 3));

} // namespace
