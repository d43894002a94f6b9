// Pooled strings against boost::flyweight<std::u16string> (hashed factory, simple locking) and a
// std::unordered_set<std::u16string> behind a std::mutex: looking up texts that are already
// interned, interning new texts, copying handles and comparing them.
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/flyweight.hpp>
#include <boost/flyweight/hashed_factory.hpp>
#include <boost/flyweight/refcounted.hpp>
#include <boost/flyweight/simple_locking.hpp>
#include <vorx/string.h>

namespace {

using VORX::String::CPPoolString;
using VORX::String::CStringPool;
using Flyweight =
    boost::flyweight<std::u16string, boost::flyweights::hashed_factory<>,
                     boost::flyweights::simple_locking, boost::flyweights::refcounted>;

constexpr std::size_t kVocabulary = 4096;
// The benchmarks of existing texts cycle through the first `state.range(0)` texts: 256 stay in
// the first-level caches, 4096 do not.

// Texts of 8 to 40 characters, as wide and as UTF-8 text.
struct Texts {
  explicit Texts(std::size_t n, char const * tag = "name") {
    for (std::size_t i = 0; i < n; ++i) {
      char buffer[64];
      int const digits = std::snprintf(buffer, sizeof buffer, "%s.%zu.", tag, i * 2654435761u);
      std::string text(buffer, static_cast<std::size_t>(digits));
      text.resize(8 + (i * 7) % 33, static_cast<char>('a' + i % 26));
      utf8.push_back(text);
      wide.emplace_back(text.begin(), text.end());
    }
  }
  std::vector<std::string> utf8;
  std::vector<std::u16string> wide;
};

Texts const & Vocabulary() {
  static Texts const texts(kVocabulary);
  return texts;
}

// What keeps the vocabulary interned in each of the three while the benchmarks run.
struct Interned {
  Interned() {
    for (std::u16string const & w : Vocabulary().wide) {
      pooled.emplace_back(w.c_str());
      flyweights.emplace_back(w);
      set.insert(w);
    }
  }
  std::vector<CPPoolString> pooled;
  std::vector<Flyweight> flyweights;
  std::mutex mutex;
  std::unordered_set<std::u16string> set;
};

Interned & Kept() {
  static Interned interned;
  return interned;
}

std::size_t Start(benchmark::State const & state) {
  return static_cast<std::size_t>(state.thread_index()) * 977;
}

void Existing_Pool_Wide(benchmark::State & state) {
  Kept();
  std::vector<std::u16string> const & texts = Vocabulary().wide;
  std::size_t const n = static_cast<std::size_t>(state.range(0));
  std::size_t i = Start(state);
  for (auto _ : state) {
    CPPoolString const s = CStringPool::GetStringRef(texts[i % n].c_str());
    benchmark::DoNotOptimize(s);
    ++i;
  }
}

void Existing_Pool_UTF8(benchmark::State & state) {
  Kept();
  std::vector<std::string> const & texts = Vocabulary().utf8;
  std::size_t const n = static_cast<std::size_t>(state.range(0));
  std::size_t i = Start(state);
  for (auto _ : state) {
    CPPoolString const s =
        CStringPool::GetStringRef(reinterpret_cast<unsigned char const *>(texts[i % n].c_str()));
    benchmark::DoNotOptimize(s);
    ++i;
  }
}

void Existing_Flyweight(benchmark::State & state) {
  Kept();
  std::vector<std::u16string> const & texts = Vocabulary().wide;
  std::size_t const n = static_cast<std::size_t>(state.range(0));
  std::size_t i = Start(state);
  for (auto _ : state) {
    // From the same zero-terminated text the pool is given.
    Flyweight const f(texts[i % n].c_str());
    benchmark::DoNotOptimize(f);
    ++i;
  }
}

// UTF-8 to UTF-16 the way a host that keeps `Flyweight` converts its UTF-8 text before the
// look-up (well-formed input, as the vocabulary is).
std::u16string FromUTF8(char const * text) {
  std::u16string out;
  out.reserve(std::strlen(text));
  for (auto const * p = reinterpret_cast<unsigned char const *>(text); *p != 0;) {
    char32_t c = *p++;
    if (c >= 0x80) {
      int const more = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : 1;
      c &= 0x3Fu >> more;
      for (int k = 0; k < more; ++k) {
        c = (c << 6) | (*p++ & 0x3Fu);
      }
    }
    if (c >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
  return out;
}
void Existing_Flyweight_UTF8(benchmark::State & state) {
  Kept();
  std::vector<std::string> const & texts = Vocabulary().utf8;
  std::size_t const n = static_cast<std::size_t>(state.range(0));
  std::size_t i = Start(state);
  for (auto _ : state) {
    Flyweight const f(FromUTF8(texts[i % n].c_str()));
    benchmark::DoNotOptimize(f);
    ++i;
  }
}
void Existing_UnorderedSet(benchmark::State & state) {
  Interned & kept = Kept();
  std::vector<std::u16string> const & texts = Vocabulary().wide;
  std::size_t const n = static_cast<std::size_t>(state.range(0));
  std::size_t i = Start(state);
  for (auto _ : state) {
    std::u16string key(texts[i % n].c_str());
    std::lock_guard<std::mutex> lock(kept.mutex);
    auto const found = kept.set.insert(std::move(key)).first;
    benchmark::DoNotOptimize(&*found);
    ++i;
  }
}

// New texts: a batch of distinct texts is interned and held; between batches (not timed) they
// are released, and the pool runs its two ageing passes.
constexpr std::size_t kBatch = 16384;

void New_Pool(benchmark::State & state) {
  static Texts const texts(kBatch, "fresh");
  std::vector<CPPoolString> held;
  held.reserve(kBatch);
  for (auto _ : state) {
    if (held.size() == kBatch) {
      state.PauseTiming();
      held.clear();
      CStringPool::Collect(0xFFFFFFFFu);
      CStringPool::Collect(0xFFFFFFFFu);
      state.ResumeTiming();
    }
    held.push_back(CStringPool::GetStringRef(texts.wide[held.size()].c_str()));
  }
  held.clear();
  CStringPool::Collect(0xFFFFFFFFu);
  CStringPool::Collect(0xFFFFFFFFu);
}

void New_Flyweight(benchmark::State & state) {
  static Texts const texts(kBatch, "fresh");
  std::vector<Flyweight> held;
  held.reserve(kBatch);
  for (auto _ : state) {
    if (held.size() == kBatch) {
      state.PauseTiming();
      held.clear();
      state.ResumeTiming();
    }
    held.emplace_back(texts.wide[held.size()].c_str());
  }
}

void New_UnorderedSet(benchmark::State & state) {
  static Texts const texts(kBatch, "fresh");
  std::mutex mutex;
  std::unordered_set<std::u16string> set;
  for (auto _ : state) {
    if (set.size() == kBatch) {
      state.PauseTiming();
      set = std::unordered_set<std::u16string>();
      state.ResumeTiming();
    }
    std::u16string key(texts.wide[set.size()].c_str());
    std::lock_guard<std::mutex> lock(mutex);
    benchmark::DoNotOptimize(&*set.insert(std::move(key)).first);
  }
}

void CopyRelease_Pool(benchmark::State & state) {
  CPPoolString const s(u"copied-and-released");
  for (auto _ : state) {
    CPPoolString const copy = s;
    benchmark::DoNotOptimize(copy);
  }
}

void CopyRelease_Flyweight(benchmark::State & state) {
  Flyweight const f(u"copied-and-released");
  for (auto _ : state) {
    Flyweight const copy = f;
    benchmark::DoNotOptimize(copy);
  }
}

void Equals_Pool(benchmark::State & state) {
  CPPoolString const a(u"compared-text");
  CPPoolString b(u"compared-text");
  for (auto _ : state) {
    benchmark::DoNotOptimize(b);
    benchmark::DoNotOptimize(a == b);
  }
}

void Equals_Flyweight(benchmark::State & state) {
  Flyweight const a(u"compared-text");
  Flyweight b(u"compared-text");
  for (auto _ : state) {
    benchmark::DoNotOptimize(b);
    benchmark::DoNotOptimize(a == b);
  }
}

BENCHMARK(Existing_Pool_Wide)->Arg(256)->Arg(4096)->Threads(1)->Threads(2);
BENCHMARK(Existing_Pool_UTF8)->Arg(256)->Arg(4096)->Threads(1)->Threads(2);
BENCHMARK(Existing_Flyweight)->Arg(256)->Arg(4096)->Threads(1)->Threads(2);
BENCHMARK(Existing_Flyweight_UTF8)->Arg(256)->Arg(4096)->Threads(1)->Threads(2);
BENCHMARK(Existing_UnorderedSet)->Arg(256)->Arg(4096)->Threads(1)->Threads(2);
BENCHMARK(New_Pool);
BENCHMARK(New_Flyweight);
BENCHMARK(New_UnorderedSet);
BENCHMARK(CopyRelease_Pool);
BENCHMARK(CopyRelease_Flyweight);
BENCHMARK(Equals_Pool);
BENCHMARK(Equals_Flyweight);

} // namespace
