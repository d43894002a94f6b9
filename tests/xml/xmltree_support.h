// Test support for the XML reader: a sink that builds a plain tree, its one-line text form, and
// the place of the shared conformance cases.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "../../source/xml/xmlreader.h"

namespace vorx::test {

struct XmlNode {
  std::u16string name;
  std::vector<std::pair<std::u16string, std::u16string>> attributes;
  std::u16string data;
  std::vector<XmlNode> children;
};

// Builds an `XmlNode` tree from the reader's calls.
class XmlTreeSink final : public VORX::XML::_IXMLItemSink {
public:
  bool StartElement(char16_t const * name, std::size_t length) override {
    XmlNode * node = &root;
    if (m_open.empty()) {
      ++roots;
      root = XmlNode{};
    } else {
      node = &m_open.back()->children.emplace_back();
    }
    node->name.assign(name, length);
    m_open.push_back(node);
    return true;
  }
  bool Attribute(char16_t const * name, std::size_t nameLength, char16_t const * value,
                 std::size_t valueLength) override {
    m_open.back()->attributes.emplace_back(std::u16string(name, nameLength),
                                           std::u16string(value, valueLength));
    return true;
  }
  bool Data(char16_t const * text, std::size_t length) override {
    m_open.back()->data.assign(text, length);
    return true;
  }
  bool EndElement() override {
    m_open.pop_back();
    return true;
  }
  XmlNode root;
  int roots = 0;

private:
  std::vector<XmlNode *> m_open;
};

// One line: name[attr=value ...]("data"){children}, for comparisons and messages.
inline std::u16string XmlText(XmlNode const & node) {
  std::u16string out = node.name;
  for (std::size_t i = 0; i < node.attributes.size(); ++i) {
    out += (i == 0 ? u"[" : u" ") + node.attributes[i].first + u"=" + node.attributes[i].second;
  }
  out += node.attributes.empty() ? u"" : u"]";
  out += node.data.empty() ? u"" : u"(\"" + node.data + u"\")";
  for (std::size_t i = 0; i < node.children.size(); ++i) {
    out += (i == 0 ? u"{" : u",") + XmlText(node.children[i]);
  }
  return out + (node.children.empty() ? u"" : u"}");
}

// Reads a document given as bytes the way a file is read: UTF-16 with a byte-order mark in
// either order, else UTF-8.
inline VORX::XML::tagXMLREADRESULT ReadBytes(std::string const & bytes, XmlTreeSink & sink) {
  auto const * b = reinterpret_cast<unsigned char const *>(bytes.data());
  if (bytes.size() >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == 0xFE && b[1] == 0xFF))) {
    std::vector<std::uint16_t> units;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
      units.push_back(b[0] == 0xFE ? std::uint16_t(b[i] << 8 | b[i + 1])
                                   : std::uint16_t(b[i + 1] << 8 | b[i]));
    }
    return VORX::XML::_XMLReadDocument(units.data(), units.size(), sink);
  }
  return VORX::XML::_XMLReadDocument(b, bytes.size(), sink);
}

// The xmltest directory of the shared conformance cases (../shared/xmlconf/xmltest beside the
// repository or a directory above it), or empty when absent.
inline std::filesystem::path XmlConformanceDir() {
  std::error_code ec;
  std::filesystem::path dir = std::filesystem::absolute(__FILE__, ec);
  for (; !dir.empty() && dir != dir.parent_path(); dir = dir.parent_path()) {
    std::filesystem::path const candidate = dir.parent_path() / "shared" / "xmlconf" / "xmltest";
    if (std::filesystem::is_regular_file(candidate / "xmltest.xml", ec)) {
      return candidate;
    }
  }
  return {};
}

inline std::string ReadFileBytes(std::filesystem::path const & path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace vorx::test
