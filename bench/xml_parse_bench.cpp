// XML parse and write throughput against pugixml, libxml2 and tinyxml2: every document of the
// CLDR locale data (Debian unicode-cldr-core, common/main/, read at run time), one generated
// document of about 50 MB, and 10 000 generated documents of about 85 bytes. Parse: a whole tree
// from a buffer in memory; also a first parse, of generated documents whose texts are new to the
// process. Write: the parsed tree back to memory, indented where the library indents. Bytes
// processed are the input documents' sizes for both, so every library is measured against the
// same bytes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <pugixml.hpp>
#include <tinyxml2.h>
#include <vorx/buffers.h>
#include <vorx/xml.h>

#include "../source/xml/xmlreader.h"

namespace {

using VORX::Buffers::CPPlainMemory;
using VORX::XML::CXMLDoc;
using VORX::XML::eXMLEncodingUTF8;

constexpr char const * kCldrMain = "/usr/share/unicode/cldr/common/main";

struct Corpus {
  std::vector<std::string> documents;
  std::int64_t bytes = 0;
  std::string missing; // why the corpus is empty
};

// Every .xml file of the CLDR locale directory, in name order.
Corpus const & Cldr() {
  static Corpus const corpus = [] {
    Corpus c;
    std::error_code error;
    std::vector<std::filesystem::path> paths;
    for (auto const & entry : std::filesystem::directory_iterator(kCldrMain, error)) {
      if (entry.path().extension() == ".xml") {
        paths.push_back(entry.path());
      }
    }
    std::sort(paths.begin(), paths.end());
    for (auto const & path : paths) {
      std::ifstream in(path, std::ios::binary);
      std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
      // The object model holds 16-bit characters one by one and refuses surrogates (code 18),
      // so the few locales written in scripts beyond U+FFFF are left out, for every library.
      CXMLDoc doc;
      if (!doc.OpenDocText(reinterpret_cast<unsigned char const *>(text.c_str()))) {
        std::fprintf(stderr, "xml bench: %s left out (refused, code %u)\n", path.c_str(),
                     doc.GetErrorInfo(nullptr, nullptr));
        continue;
      }
      c.bytes += static_cast<std::int64_t>(text.size());
      c.documents.push_back(std::move(text));
    }
    if (c.documents.empty()) {
      c.missing = std::string("no CLDR files in ") + kCldrMain + " (install unicode-cldr-core)";
    }
    return c;
  }();
  return corpus;
}

// About 50 MB of records: attributes (one with a reference), text data, two levels of nesting
// and indentation between elements, no mixed content. The records are numbered from `first`, and
// the numbers make most of their texts: documents of different `first` share only the names and
// a few constant texts.
std::string LargeText(unsigned first) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalogue version=\"3\">\n";
  text.reserve(52u << 20);
  char line[512];
  for (unsigned i = first; text.size() < (50u << 20); ++i) {
    int const n = std::snprintf(
        line, sizeof line,
        "  <record id=\"%u\" kind=\"%s\" owner=\"Smith &amp; Sons\">\n"
        "    <name>Record number %u</name>\n"
        "    <value unit=\"ms\">%u.%03u</value>\n"
        "    <note>Free text with &lt;escapes&gt; and a few more words, %u times.</note>\n"
        "    <tags><tag>alpha</tag><tag>beta</tag><tag>gamma</tag></tags>\n"
        "  </record>\n",
        i,
        (i % 3 == 0)   ? "clip"
        : (i % 3 == 1) ? "track"
                       : "marker",
        i, i * 7u, i % 1000u, i % 17u);
    text.append(line, static_cast<std::size_t>(n));
  }
  text += "</catalogue>\n";
  return text;
}

Corpus const & Large() {
  static Corpus const corpus = [] {
    Corpus c;
    c.documents.push_back(LargeText(0));
    c.bytes = static_cast<std::int64_t>(c.documents.back().size());
    return c;
  }();
  return corpus;
}

// Many small documents, a message each, as a host reading a stream of them meets: 10 000 of about
// 85 bytes, each with its own id.
Corpus const & Small() {
  static Corpus const corpus = [] {
    Corpus c;
    for (int i = 0; i < 10000; ++i) {
      std::string const id = "take-" + std::to_string(i);
      c.documents.push_back("<clip id=\"" + id + "\" kind=\"video\"><name>Take " + id +
                            "</name><rate>25</rate></clip>");
      c.bytes += static_cast<std::int64_t>(c.documents.back().size());
    }
    return c;
  }();
  return corpus;
}

// Checks the corpus before a run; false (run skipped) when it is missing.
bool Ready(benchmark::State & state, Corpus const & corpus) {
  if (corpus.documents.empty()) {
    state.SkipWithError(corpus.missing.c_str());
    return false;
  }
  return true;
}

// --- Parse --------------------------------------------------------------------------------------

// Each parses one document into a tree and frees it.
void ParseOne_VORX(std::string const & document) {
  CXMLDoc doc;
  bool const ok = doc.OpenDocText(reinterpret_cast<unsigned char const *>(document.c_str()));
  benchmark::DoNotOptimize(ok);
}

void ParseOne_pugixml(std::string const & document) {
  pugi::xml_document doc;
  pugi::xml_parse_result const result = doc.load_buffer(document.data(), document.size());
  benchmark::DoNotOptimize(result.status);
}

void ParseOne_libxml2(std::string const & document) {
  xmlDocPtr doc = xmlReadMemory(document.data(), static_cast<int>(document.size()), "memory.xml",
                                nullptr, XML_PARSE_NONET);
  benchmark::DoNotOptimize(doc);
  xmlFreeDoc(doc);
}

void ParseOne_tinyxml2(std::string const & document) {
  tinyxml2::XMLDocument doc;
  tinyxml2::XMLError const result = doc.Parse(document.data(), document.size());
  benchmark::DoNotOptimize(result);
}

// VORX's item reader alone, with a sink that keeps nothing: every check and decoding of a parse,
// without the tree and the string pool. No parse into a tree can run faster than this.
void ReadOne_VORX(std::string const & document) {
  struct NoTree final : VORX::XML::_IXMLItemSink {
    bool StartElement(qefWChar const *, std::size_t) override { return true; }
    bool Attribute(qefWChar const *, std::size_t, qefWChar const *, std::size_t) override {
      return true;
    }
    bool Data(qefWChar const *, std::size_t) override { return true; }
    bool EndElement() override { return true; }
  } sink;
  VORX::XML::tagXMLREADRESULT const result = VORX::XML::_XMLReadDocument(
      reinterpret_cast<std::uint8_t const *>(document.data()), document.size(), sink);
  benchmark::DoNotOptimize(result.code);
}

using ParseOne = void (*)(std::string const &);

void Parse(benchmark::State & state, ParseOne parse, Corpus const & (*get)()) {
  Corpus const & corpus = get();
  if (!Ready(state, corpus)) {
    return;
  }
  for (auto _ : state) {
    for (std::string const & document : corpus.documents) {
      parse(document);
    }
  }
  state.SetBytesProcessed(state.iterations() * corpus.bytes);
  state.counters["files"] = static_cast<double>(corpus.documents.size());
}

// A first parse: each iteration parses a 50 MB document (built outside the timing) whose
// numbered texts no parse in this process has met, as a host reading a new document does.
// VORX's string pool then takes in every such text; the other libraries keep no texts between
// documents, so their figures are those of any parse.
void ParseFirst(benchmark::State & state, ParseOne parse) {
  static unsigned documents = 0; // over all libraries: every document is new
  std::int64_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::string const document = LargeText(++documents * 10'000'000u);
    state.ResumeTiming();
    parse(document);
    bytes += static_cast<std::int64_t>(document.size());
  }
  state.SetBytesProcessed(bytes);
}

// --- Write --------------------------------------------------------------------------------------

void Write_VORX(benchmark::State & state, Corpus const & (*get)()) {
  Corpus const & corpus = get();
  if (!Ready(state, corpus)) {
    return;
  }
  std::vector<CXMLDoc> docs(corpus.documents.size());
  for (std::size_t i = 0; i < docs.size(); ++i) {
    if (!docs[i].OpenDocText(
            reinterpret_cast<unsigned char const *>(corpus.documents[i].c_str()))) {
      state.SkipWithError("VORX refused a document of the corpus");
      return;
    }
  }
  std::int64_t written = 0;
  for (auto _ : state) {
    for (CXMLDoc & doc : docs) {
      CPPlainMemory out;
      bool const ok = doc.GetRootElement().Write(out, eXMLEncodingUTF8, true);
      written += static_cast<std::int64_t>(out.GetMemorySize());
      benchmark::DoNotOptimize(ok);
    }
  }
  state.SetBytesProcessed(state.iterations() * corpus.bytes);
  state.counters["files"] = static_cast<double>(corpus.documents.size());
  state.counters["out_bytes"] =
      static_cast<double>(written / std::max<std::int64_t>(1, state.iterations()));
}

// Appends pugixml's output to a string.
struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(void const * data, std::size_t size) override {
    text.append(static_cast<char const *>(data), size);
  }
};

void Write_pugixml(benchmark::State & state, Corpus const & (*get)()) {
  Corpus const & corpus = get();
  if (!Ready(state, corpus)) {
    return;
  }
  std::vector<pugi::xml_document> docs(corpus.documents.size());
  for (std::size_t i = 0; i < docs.size(); ++i) {
    docs[i].load_buffer(corpus.documents[i].data(), corpus.documents[i].size());
  }
  std::int64_t written = 0;
  for (auto _ : state) {
    for (pugi::xml_document & doc : docs) {
      StringWriter writer;
      doc.save(writer, "  ");
      written += static_cast<std::int64_t>(writer.text.size());
      benchmark::DoNotOptimize(writer.text.data());
    }
  }
  state.SetBytesProcessed(state.iterations() * corpus.bytes);
  state.counters["files"] = static_cast<double>(corpus.documents.size());
  state.counters["out_bytes"] =
      static_cast<double>(written / std::max<std::int64_t>(1, state.iterations()));
}

void Write_libxml2(benchmark::State & state, Corpus const & (*get)()) {
  Corpus const & corpus = get();
  if (!Ready(state, corpus)) {
    return;
  }
  struct Free {
    void operator()(xmlDoc * doc) const { xmlFreeDoc(doc); }
  };
  std::vector<std::unique_ptr<xmlDoc, Free>> docs;
  for (std::string const & document : corpus.documents) {
    docs.emplace_back(xmlReadMemory(document.data(), static_cast<int>(document.size()),
                                    "memory.xml", nullptr, XML_PARSE_NONET));
  }
  std::int64_t written = 0;
  for (auto _ : state) {
    for (auto const & doc : docs) {
      xmlChar * text = nullptr;
      int size = 0;
      xmlDocDumpMemory(doc.get(), &text, &size);
      written += size;
      benchmark::DoNotOptimize(text);
      xmlFree(text);
    }
  }
  state.SetBytesProcessed(state.iterations() * corpus.bytes);
  state.counters["files"] = static_cast<double>(corpus.documents.size());
  state.counters["out_bytes"] =
      static_cast<double>(written / std::max<std::int64_t>(1, state.iterations()));
}

void Write_tinyxml2(benchmark::State & state, Corpus const & (*get)()) {
  Corpus const & corpus = get();
  if (!Ready(state, corpus)) {
    return;
  }
  std::vector<std::unique_ptr<tinyxml2::XMLDocument>> docs;
  for (std::string const & document : corpus.documents) {
    docs.push_back(std::make_unique<tinyxml2::XMLDocument>());
    docs.back()->Parse(document.data(), document.size());
  }
  std::int64_t written = 0;
  for (auto _ : state) {
    for (auto const & doc : docs) {
      tinyxml2::XMLPrinter printer;
      doc->Print(&printer);
      written += printer.CStrSize();
      benchmark::DoNotOptimize(printer.CStr());
    }
  }
  state.SetBytesProcessed(state.iterations() * corpus.bytes);
  state.counters["files"] = static_cast<double>(corpus.documents.size());
  state.counters["out_bytes"] =
      static_cast<double>(written / std::max<std::int64_t>(1, state.iterations()));
}

using Get = Corpus const & (*)();
using Write = void (*)(benchmark::State &, Get);

// The libraries in the order of the result table, each with its parse and its write.
struct tagLIBRARY {
  char const * name;
  ParseOne parse;
  Write write;
};
constexpr tagLIBRARY kLibraries[] = {
    {"VORX", &ParseOne_VORX, &Write_VORX},
    {"pugixml", &ParseOne_pugixml, &Write_pugixml},
    {"libxml2", &ParseOne_libxml2, &Write_libxml2},
    {"tinyxml2", &ParseOne_tinyxml2, &Write_tinyxml2},
};
constexpr std::pair<char const *, Get> kCorpora[] = {
    {"CLDR", &Cldr}, {"Large", &Large}, {"Small", &Small}};

// Every library on each corpus: the parses, VORX's reader alone, the first parses, then the
// writes.
bool const g_registered = [] {
  for (auto const & [corpus, get] : kCorpora) {
    for (tagLIBRARY const & library : kLibraries) {
      benchmark::RegisterBenchmark((std::string("XMLParse_") + corpus + "_" + library.name).c_str(),
                                   [parse = library.parse, get = get](benchmark::State & state) {
                                     Parse(state, parse, get);
                                   })
          ->Unit(benchmark::kMillisecond);
    }
  }
  for (auto const & [corpus, get] : kCorpora) {
    benchmark::RegisterBenchmark(
        (std::string("XMLRead_") + corpus + "_VORX").c_str(),
        [get = get](benchmark::State & state) { Parse(state, &ReadOne_VORX, get); })
        ->Unit(benchmark::kMillisecond);
  }
  for (tagLIBRARY const & library : kLibraries) {
    benchmark::RegisterBenchmark(
        (std::string("XMLParse_LargeFirst_") + library.name).c_str(),
        [parse = library.parse](benchmark::State & state) { ParseFirst(state, parse); })
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
  }
  for (auto const & [corpus, get] : kCorpora) {
    for (tagLIBRARY const & library : kLibraries) {
      benchmark::RegisterBenchmark(
          (std::string("XMLWrite_") + corpus + "_" + library.name).c_str(),
          [write = library.write, get = get](benchmark::State & state) { write(state, get); })
          ->Unit(benchmark::kMillisecond);
    }
  }
  return true;
}();

} // namespace
