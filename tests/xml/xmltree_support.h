// Test support for the XML reader: a sink that builds a plain tree, its one-line text form, and
// the place of the shared conformance cases.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <fstream>
#include <iterator>

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
  bool StartElement(char16_t const * name, std::size_t length) override;
  bool Attribute(char16_t const * name, std::size_t nameLength, char16_t const * value,
                 std::size_t valueLength) override;
  bool Data(char16_t const * text, std::size_t length) override;
  bool EndElement() override;
  XmlNode root;
  int roots = 0;

private:
  std::vector<XmlNode *> m_open;
};

inline bool XmlTreeSink::StartElement(char16_t const * name, std::size_t length) {
  XmlNode * node;
  if (m_open.empty()) {
    ++roots;
    root = XmlNode{};
    node = &root;
  } else {
    m_open.back()->children.emplace_back();
    node = &m_open.back()->children.back();
  }
  node->name.assign(name, length);
  m_open.push_back(node);
  return true;
}

inline bool XmlTreeSink::Attribute(char16_t const * name, std::size_t nameLength,
                                   char16_t const * value, std::size_t valueLength) {
  m_open.back()->attributes.emplace_back(std::u16string(name, nameLength),
                                         std::u16string(value, valueLength));
  return true;
}

inline bool XmlTreeSink::Data(char16_t const * text, std::size_t length) {
  m_open.back()->data.assign(text, length);
  return true;
}

inline bool XmlTreeSink::EndElement() {
  m_open.pop_back();
  return true;
}

inline void AppendUtf8(std::string & out, std::u16string const & text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size()) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    }
    if (c < 0x80) {
      out += char(c);
    } else if (c < 0x800) {
      out += char(0xC0 | (c >> 6));
      out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += char(0xE0 | (c >> 12));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    } else {
      out += char(0xF0 | (c >> 18));
      out += char(0x80 | ((c >> 12) & 0x3F));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    }
  }
}

inline void AppendNode(std::string & out, XmlNode const & node) {
  AppendUtf8(out, node.name);
  if (!node.attributes.empty()) {
    out += '[';
    for (std::size_t i = 0; i < node.attributes.size(); ++i) {
      out += i == 0 ? "" : " ";
      AppendUtf8(out, node.attributes[i].first);
      out += '=';
      AppendUtf8(out, node.attributes[i].second);
    }
    out += ']';
  }
  if (!node.data.empty()) {
    out += "(\"";
    AppendUtf8(out, node.data);
    out += "\")";
  }
  if (!node.children.empty()) {
    out += '{';
    for (std::size_t i = 0; i < node.children.size(); ++i) {
      out += i == 0 ? "" : ",";
      AppendNode(out, node.children[i]);
    }
    out += '}';
  }
}

// One line: name[attr=value ...]("data"){children}, in UTF-8, for comparisons and messages.
inline std::string XmlText(XmlNode const & node) {
  std::string out;
  AppendNode(out, node);
  return out;
}

// Reads a document given as bytes the way a file is read: UTF-16 with a byte-order mark in
// either order, else UTF-8.
inline VORX::XML::tagXMLREADRESULT ReadBytes(std::string const & bytes, XmlTreeSink & sink) {
  auto const * b = reinterpret_cast<unsigned char const *>(bytes.data());
  if (bytes.size() >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == 0xFE && b[1] == 0xFF))) {
    bool const big = b[0] == 0xFE;
    std::vector<std::uint16_t> units;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
      units.push_back(big ? std::uint16_t(b[i] << 8 | b[i + 1])
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
  for (int up = 0; up < 8 && !dir.empty(); ++up) {
    std::filesystem::path const candidate = dir.parent_path() / "shared" / "xmlconf" / "xmltest";
    if (std::filesystem::is_regular_file(candidate / "xmltest.xml", ec)) {
      return candidate;
    }
    if (dir == dir.parent_path()) {
      break;
    }
    dir = dir.parent_path();
  }
  return {};
}

inline std::string ReadFileBytes(std::filesystem::path const & path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace vorx::test
