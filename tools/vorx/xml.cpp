// vorx xml: check, reformat, query and measure XML files with the library's reader and writers.
#include <vorx/string.h>
#include <vorx/xml.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "command.h"

namespace {

using namespace VORX::XML;
using VORX::String::CPPoolString;
using VORX::String::CQEFWChar;
using VORX::String::CUTF8Char;

char const kName[] = "xml";

char const kUsage[] =
    "usage: vorx xml check FILE...\n"
    "       vorx xml format [--utf16] [--no-indent] FILE [-o OUT]\n"
    "       vorx xml get FILE PATH\n"
    "       vorx xml stats FILE\n\n"
    "check   reads each FILE; prints \"FILE: ok\" or \"FILE: \" and the positioned error report,\n"
    "        e.g. \"file.xml: [Invalid tag, Line 3, Offset 57] ...<a><[[*]]/b>\".\n"
    "format  reads FILE and writes it back (UTF-8, or UTF-16 with --utf16; indented unless\n"
    "        --no-indent) to standard output or to OUT.\n"
    "get     prints the data of the element PATH (names joined by \"/\", below the root), or,\n"
    "        with \"@NAME\" (or \"/@NAME\") after the path, that attribute of it.\n"
    "stats   prints the number of elements, attributes and distinct names, the parse time and\n"
    "        the parse speed in MB/s.\n\n"
    "Options:\n"
    "  --utf16      write UTF-16 (format)\n"
    "  --no-indent  write the document on one line (format)\n"
    "  -o OUT       write to OUT instead of standard output (format)\n"
    "  -h, --help   show this help\n\n"
    "Exit status: 0 on success; 1 when a file cannot be read, is not accepted, or PATH finds\n"
    "nothing; 2 on a usage error.\n";

std::u16string Wide(std::string const & utf8) {
  CQEFWChar const wide(reinterpret_cast<unsigned char const *>(utf8.c_str()));
  qefWChar const * text = wide;
  return text != nullptr ? std::u16string(text) : std::u16string();
}

std::string Narrow(qefWChar const * text) {
  CUTF8Char const utf8(text);
  unsigned char const * bytes = utf8;
  return bytes != nullptr ? std::string(reinterpret_cast<char const *>(bytes)) : std::string();
}

// Reads `file`; prints the report and answers false when it is not accepted.
bool Open(CXMLDoc & doc, std::string const & file) {
  if (doc.OpenDocFile(Wide(file).c_str(), eXMLEncodingAuto)) {
    return true;
  }
  CQEFWChar text;
  std::uint32_t const code = doc.GetErrorInfo(nullptr, &text);
  std::string report = Narrow(text);
  if (report.empty() || code == 0) {
    report = code == 0 ? "Bad file or bad encoding" : report;
  }
  std::printf("%s: %s\n", file.c_str(), report.c_str());
  return false;
}

int Check(std::vector<std::string> const & files) {
  if (files.empty()) {
    return vorx_tool::Fail(kName, "check: no FILE given", 2);
  }
  int status = 0;
  for (std::string const & file : files) {
    CXMLDoc doc;
    if (Open(doc, file)) {
      std::printf("%s: ok\n", file.c_str());
    } else {
      status = 1;
    }
  }
  return status;
}

int Format(std::vector<std::string> const & args) {
  bool utf16 = false;
  bool indent = true;
  std::string file;
  std::string out;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--utf16") {
      utf16 = true;
    } else if (args[i] == "--no-indent") {
      indent = false;
    } else if (args[i] == "-o" && i + 1 < args.size()) {
      out = args[++i];
    } else if (file.empty() && !args[i].empty() && args[i][0] != '-') {
      file = args[i];
    } else {
      return vorx_tool::Fail(kName, "format: unexpected argument " + args[i], 2);
    }
  }
  if (file.empty()) {
    return vorx_tool::Fail(kName, "format: no FILE given", 2);
  }
  CXMLDoc doc;
  if (!Open(doc, file)) {
    return 1;
  }
  eXMLEncoding const encoding = utf16 ? eXMLEncodingUTF16 : eXMLEncodingUTF8;
  if (!out.empty()) {
    // The file form answers true when the serialiser failed; the file is there on success.
    bool const failed = doc.GetRootElement().Write(Wide(out).c_str(), encoding, indent);
    std::error_code ec;
    if (failed || !std::filesystem::exists(out, ec)) {
      return vorx_tool::Fail(kName, "format: cannot write " + out);
    }
    return 0;
  }
  VORX::Buffers::CPPlainMemory memory;
  if (!doc.GetRootElement().Write(memory, encoding, indent) || memory.GetMemorySize() == 0) {
    return vorx_tool::Fail(kName, "format: cannot write the document");
  }
  std::size_t const terminator = utf16 ? 2 : 1;
  std::fwrite(static_cast<void const *>(memory), 1, memory.GetMemorySize() - terminator, stdout);
  return 0;
}

int Get(std::vector<std::string> const & args) {
  if (args.size() != 2) {
    return vorx_tool::Fail(kName, "get: FILE and PATH expected", 2);
  }
  CXMLDoc doc;
  if (!Open(doc, args[0])) {
    return 1;
  }
  std::string path = args[1];
  std::string attribute;
  std::size_t const at = path.find('@');
  if (at != std::string::npos) {
    attribute = path.substr(at + 1);
    path.resize(at);
    if (!path.empty() && path.back() == '/') {
      path.pop_back(); // "PATH/@NAME", as XPath writes it, means "PATH@NAME"
    }
  }
  CPXMLObject const & root = doc.GetRootElement();
  CPXMLObject const * found = &root;
  if (!path.empty()) {
    found = root.FindFirstElement(Wide(path).c_str());
  }
  if (found == nullptr) {
    return vorx_tool::Fail(kName, "get: " + args[1] + " finds nothing");
  }
  if (!attribute.empty()) {
    CPPoolString const name(Wide(attribute).c_str());
    if (!found->HasAttribute(name)) {
      return vorx_tool::Fail(kName, "get: " + args[1] + " finds nothing");
    }
    std::printf("%s\n", Narrow(found->FindAttribute(name)).c_str());
    return 0;
  }
  std::printf("%s\n", Narrow(found->GetData()).c_str());
  return 0;
}

int Stats(std::vector<std::string> const & args) {
  if (args.size() != 1) {
    return vorx_tool::Fail(kName, "stats: one FILE expected", 2);
  }
  std::error_code ec;
  std::uintmax_t const size = std::filesystem::file_size(args[0], ec);
  CXMLDoc doc;
  auto const start = std::chrono::steady_clock::now();
  if (!Open(doc, args[0])) {
    return 1;
  }
  double const seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::uint64_t elements = 0;
  std::uint64_t attributes = 0;
  std::set<std::u16string> names;
  std::vector<CPXMLObject const *> pending{&doc.GetRootElement()};
  while (!pending.empty()) {
    CPXMLObject const * node = pending.back();
    pending.pop_back();
    ++elements;
    names.insert(static_cast<qefWChar const *>(node->GetName()));
    for (std::uint64_t i = 0; i < node->GetNAttributes(); ++i) {
      CPPoolString name;
      CPPoolString value;
      node->GetAttribute(i, name, value);
      ++attributes;
      names.insert(static_cast<qefWChar const *>(name));
    }
    std::uint64_t count = 0;
    CPXMLObject const * children = node->GetElements(count);
    for (std::uint64_t i = 0; i < count; ++i) {
      pending.push_back(children + i);
    }
  }
  std::printf("elements: %llu\nattributes: %llu\ndistinct names: %zu\n",
              static_cast<unsigned long long>(elements),
              static_cast<unsigned long long>(attributes), names.size());
  std::printf("parse time: %.3f ms\nspeed: %.1f MB/s\n", seconds * 1000.0,
              seconds > 0 ? double(size) / 1e6 / seconds : 0.0);
  return 0;
}

int Run(std::vector<std::string> const & args) {
  if (vorx_tool::WantsHelp(args)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (args.empty()) {
    return vorx_tool::Fail(kName, "no action given (check, format, get, stats)", 2);
  }
  std::vector<std::string> const rest(args.begin() + 1, args.end());
  if (args[0] == "check") {
    return Check(rest);
  }
  if (args[0] == "format") {
    return Format(rest);
  }
  if (args[0] == "get") {
    return Get(rest);
  }
  if (args[0] == "stats") {
    return Stats(rest);
  }
  return vorx_tool::Fail(kName, "unknown action " + args[0], 2);
}

vorx_tool::CommandRegistration const
    registration({kName, "check, reformat, query and measure XML files", kUsage, &Run});

} // namespace
