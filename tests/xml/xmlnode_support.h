// Test support for the XML object model: a named node and the text of a pooled string.
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
  return static_cast<char16_t const *>(s);
}

} // namespace vorx::test
