// Test support for the XML object model: a named node, the text of a pooled string, a tree's
// one-line text form, and reading written output back.
#pragma once

#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <vorx/string.h>
#include <vorx/xml.h>

namespace vorx::test {

// "No index", as the model's searches answer it.
constexpr std::uint64_t kNone = ~std::uint64_t{0};

inline VORX::XML::CPXMLObject Named(char16_t const * name) {
  VORX::XML::CPXMLObject node;
  EXPECT_TRUE(node.SetName(name));
  return node;
}

inline std::u16string Text(VORX::String::CPPoolString const & s) {
  return s.isnull() ? u"" : static_cast<char16_t const *>(s);
}

// One line: name[attr=value ...]("data"){children}.
inline std::u16string TreeText(VORX::XML::CPXMLObject const & node) {
  std::u16string out = Text(node.GetName());
  for (std::uint64_t i = 0; i < node.GetNAttributes(); ++i) {
    VORX::String::CPPoolString name, value;
    node.GetAttribute(i, name, value);
    out += (i == 0 ? u"[" : u" ") + Text(name) + u"=" + Text(value);
  }
  out += node.GetNAttributes() == 0 ? u"" : u"]";
  out += node.GetData().isdef() ? u"(\"" + Text(node.GetData()) + u"\")" : u"";
  std::uint64_t count = 0;
  VORX::XML::CPXMLObject const * children = node.GetElements(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    out += (i == 0 ? u"{" : u",") + TreeText(children[i]);
  }
  return out + (count == 0 ? u"" : u"}");
}

// Reads what a writer put in `out` in `encoding` into `doc`.
inline bool ReadBack(VORX::Buffers::CPPlainMemory const & out, VORX::XML::eXMLEncoding encoding,
                     VORX::XML::CXMLDoc & doc) {
  void const * bytes = out;
  return encoding == VORX::XML::eXMLEncodingUTF8
             ? doc.OpenDocText(static_cast<unsigned char const *>(bytes))
             : doc.OpenDocText(static_cast<std::uint16_t const *>(bytes));
}

} // namespace vorx::test
