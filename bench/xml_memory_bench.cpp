// Memory a host keeps when it keeps what it read from many small documents (a message each):
// the whole trees, or one text from each, against pugixml documents kept and against the same
// texts made directly in the string pool. Each repetition reads documents whose ids no earlier
// one had, so their texts are new to the pool. The counters are the heap growth (as glibc's
// `mallinfo2` counts it: bytes in use, mapped blocks included) per document kept; the time is
// that of reading the documents and keeping what is kept.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <pugixml.hpp>
#include <vorx/string.h>
#include <vorx/xml.h>

namespace {

using VORX::String::CPPoolString;
using VORX::String::CStringPool;
using VORX::XML::CPXMLObject;
using VORX::XML::CXMLDoc;

constexpr int kDocuments = 10000;

// Ids never used before in the process (the parse benchmarks' small documents use others).
long NextId() {
  static long next = 0;
  return next++;
}

std::string Id(long n) {
  return "kept-" + std::to_string(n);
}

std::string Message(std::string const & id) {
  return "<clip id=\"" + id + "\" kind=\"video\"><name>Take " + id +
         "</name><rate>25</rate></clip>";
}

std::vector<std::string> Messages(std::vector<std::string> const & ids) {
  std::vector<std::string> messages;
  messages.reserve(ids.size());
  for (std::string const & id : ids) {
    messages.push_back(Message(id));
  }
  return messages;
}

std::vector<std::string> NewIds() {
  std::vector<std::string> ids;
  ids.reserve(kDocuments);
  for (int i = 0; i < kDocuments; ++i) {
    ids.push_back(Id(NextId()));
  }
  return ids;
}

long HeapInUse() {
  struct mallinfo2 const info = mallinfo2();
  return static_cast<long>(info.uordblks + info.hblkhd);
}

// Texts nobody holds leave the pool after two ageing passes.
void AgeThePool() {
  CStringPool::Collect(0xFFFFFFFFu);
  CStringPool::Collect(0xFFFFFFFFu);
}

// Runs `keep` on fresh ids each iteration, outside the timing the set-up, the pool's ageing and
// the release of what was kept; reports the heap growth per document once the pool has let go
// of the texts nobody kept.
template <class Kept, class Keep> void Measure(benchmark::State & state, Keep keep) {
  double grown = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<std::string> const ids = NewIds();
    std::vector<std::string> const messages = Messages(ids);
    std::vector<Kept> kept;
    kept.reserve(kDocuments);
    long const before = HeapInUse();
    state.ResumeTiming();
    for (int i = 0; i < kDocuments; ++i) {
      kept.push_back(keep(ids[i], messages[i]));
    }
    state.PauseTiming();
    AgeThePool();
    grown += static_cast<double>(HeapInUse() - before);
    kept.clear();
    AgeThePool();
    state.ResumeTiming();
  }
  state.counters["bytes_per_document"] =
      grown / static_cast<double>(state.iterations()) / kDocuments;
}

CPXMLObject ReadTree(std::string const & message) {
  CXMLDoc doc;
  doc.OpenDocText(reinterpret_cast<unsigned char const *>(message.c_str()));
  return doc.GetRootElement();
}

void XMLKeep_Trees_VORX(benchmark::State & state) {
  Measure<CPXMLObject>(
      state, [](std::string const &, std::string const & message) { return ReadTree(message); });
}
BENCHMARK(XMLKeep_Trees_VORX)->Unit(benchmark::kMillisecond);

void XMLKeep_Trees_pugixml(benchmark::State & state) {
  Measure<std::unique_ptr<pugi::xml_document>>(
      state, [](std::string const &, std::string const & message) {
        auto document = std::make_unique<pugi::xml_document>();
        document->load_buffer(message.data(), message.size());
        return document;
      });
}
BENCHMARK(XMLKeep_Trees_pugixml)->Unit(benchmark::kMillisecond);

// The id attribute's value, the tree dropped.
void XMLKeep_Texts_VORX(benchmark::State & state) {
  Measure<CPPoolString>(state, [](std::string const &, std::string const & message) {
    CPPoolString name;
    CPPoolString value;
    ReadTree(message).GetAttribute(0, name, value);
    return value;
  });
}
BENCHMARK(XMLKeep_Texts_VORX)->Unit(benchmark::kMillisecond);

// The same texts made in the pool directly.
void XMLKeep_Texts_Made_VORX(benchmark::State & state) {
  Measure<CPPoolString>(state, [](std::string const & id, std::string const &) {
    return CStringPool::GetStringRef(reinterpret_cast<unsigned char const *>(id.c_str()));
  });
}
BENCHMARK(XMLKeep_Texts_Made_VORX)->Unit(benchmark::kMillisecond);

} // namespace
