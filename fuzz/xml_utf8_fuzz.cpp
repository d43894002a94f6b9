// The XML reader on UTF-8 text: no crash, no overrun, no leak; reading is deterministic; and a
// text it accepts (without an encoding name) is accepted as 16-bit text too, with the same tree.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "../tests/xml/xmltree_support.h"
#include "fuzz_check.h"

namespace {

std::vector<std::uint16_t> ToUnits(std::uint8_t const * p, std::size_t size) {
  std::vector<std::uint16_t> units;
  for (std::size_t i = 0; i < size;) {
    std::uint32_t c = p[i];
    std::size_t n = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    c &= n == 1 ? 0x7F : n == 2 ? 0x1F : n == 3 ? 0x0F : 0x07;
    for (std::size_t k = 1; k < n; ++k) {
      c = (c << 6) | (p[i + k] & 0x3F);
    }
    i += n;
    if (c >= 0x10000) {
      units.push_back(std::uint16_t(0xD800 + ((c - 0x10000) >> 10)));
      units.push_back(std::uint16_t(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      units.push_back(std::uint16_t(c));
    }
  }
  return units;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  std::vector<std::uint8_t> const bounded(data, data + size);
  vorx::test::XmlTreeSink first;
  auto const result = VORX::XML::_XMLReadDocument(bounded.data(), bounded.size(), first);
  vorx::test::XmlTreeSink second;
  auto const again = VORX::XML::_XMLReadDocument(bounded.data(), bounded.size(), second);
  Check(result.code == again.code && result.position == again.position);
  if (result.code != VORX::XML::kXMLNoError) {
    return 0;
  }
  Check(first.roots == 1 && vorx::test::XmlText(first.root) == vorx::test::XmlText(second.root));
  std::string const text(bounded.begin(), bounded.end());
  if (text.find("encoding") == std::string::npos) {
    std::vector<std::uint16_t> const units = ToUnits(bounded.data(), bounded.size());
    vorx::test::XmlTreeSink wide;
    Check(VORX::XML::_XMLReadDocument(units.data(), units.size(), wide).code ==
          VORX::XML::kXMLNoError);
    Check(vorx::test::XmlText(wide.root) == vorx::test::XmlText(first.root));
  }
  return 0;
}
