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
      std::string const digits = std::to_string(i * 7919);
      std::string const base = "word-" + digits + std::string(i % 24, 'x');
      for (std::string const & v :
           {base, "WORD-" + digits + std::string(i % 24, 'X'), "W" + base.substr(1)}) {
        utf8.push_back(v + "\xC3\xA9"); // U+00E9 LATIN SMALL LETTER E WITH ACUTE
        wide.push_back(std::u16string(v.begin(), v.end()) + u"\u00E9");
      }
    }
  }
  std::vector<std::string> utf8;
  std::vector<std::u16string> wide;
};

// Failures by kind: not interned, a different record, wrong text, a case group mismatch,
// Verify() failed.
enum Failure { kNotInterned, kDifferentRecord, kWrongText, kGroupMismatch, kVerify, kKinds };
using Failures = std::atomic<int>[kKinds];

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
    CPPoolString const s = // from the three sources in turn
        op % 3 == 0   ? CStringPool::GetStringRef(words.wide[j].c_str())
        : op % 3 == 1 ? CStringPool::GetStringRef(
                            reinterpret_cast<unsigned char const *>(words.utf8[j].c_str()))
                      : CStringPool::GetStringRefn(words.wide[j].c_str(), words.wide[j].size());
    if (s.isnull()) {
      ++failures[kNotInterned];
      continue;
    }
    failures[kDifferentRecord] +=
        (!held[j].isnull() && !(held[j] == s)) || (!anchors[j].isnull() && !(anchors[j] == s));
    failures[kWrongText] +=
        s.cmp(words.wide[j].c_str()) != 0 ||
        std::strcmp(reinterpret_cast<char const *>(static_cast<unsigned char const *>(s)),
                    words.utf8[j].c_str()) != 0;
    // The case variants j and j ^ 1 of one word are one group.
    failures[kGroupMismatch] +=
        j / 3 == (j ^ 1) / 3 && !CStringPool::GetStringRefi(words.wide[j ^ 1].c_str()).iequals(s);
    held[j] = (op >> 4) % 2 == 0 ? s : CPPoolString();
    failures[kVerify] += iteration % 512 == 0 && !CStringPool::Verify();
  }
}

class PoolStress : public ::testing::TestWithParam<int> {};

TEST_P(PoolStress, HeldTextsKeepTheirRecordsWhileTheMaintenanceThreadCollects) {
  Vocabulary const words;
  CStringPool::Collect(0xFFFFFFFFu); // two ageing passes remove every unheld string
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
  Failures failures = {};
  std::vector<std::thread> threads;
  for (int t = 0; t < GetParam(); ++t) {
    threads.emplace_back(Work, std::cref(words), std::cref(anchors), 17u + 31u * t,
                         std::ref(failures));
  }
  for (std::thread & thread : threads) {
    thread.join();
  }
  for (int kind = 0; kind < kKinds; ++kind) {
    EXPECT_EQ(failures[kind].load(), 0) << "failure kind " << kind;
  }
  EXPECT_TRUE(CStringPool::Verify());
  anchors.clear();
  VORX::AppExit();
  CStringPool::_SetMaintenanceIntervals(20000, 10000);
  CStringPool::Collect(0xFFFFFFFFu);
  CStringPool::Collect(0xFFFFFFFFu);
  EXPECT_TRUE(CStringPool::GetNItems() == records && CStringPool::GetSize() == size);
}

INSTANTIATE_TEST_SUITE_P(Threads, PoolStress, ::testing::Values(2, 3));

} // namespace
