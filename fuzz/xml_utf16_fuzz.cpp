// The XML reader on 16-bit text (the input's bytes in pairs, little-endian, a byte-order mark
// in either order honoured as a file's would be): no crash, no overrun, no leak; reading is
// deterministic and an accepted text has exactly one root element.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "../tests/xml/xmltree_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  std::string const bytes(reinterpret_cast<char const *>(data), size);
  std::string const marked =
      size >= 2 && ((data[0] == 0xFF && data[1] == 0xFE) || (data[0] == 0xFE && data[1] == 0xFF))
          ? bytes
          : "\xFF\xFE" + bytes;
  vorx::test::XmlTreeSink first;
  auto const result = vorx::test::ReadBytes(marked, first);
  vorx::test::XmlTreeSink second;
  auto const again = vorx::test::ReadBytes(marked, second);
  if (result.code != again.code || result.position != again.position) {
    std::abort();
  }
  if (result.code == VORX::XML::kXMLNoError &&
      (first.roots != 1 || vorx::test::XmlText(first.root) != vorx::test::XmlText(second.root))) {
    std::abort();
  }
  return 0;
}
