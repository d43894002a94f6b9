// CXMLDoc's detecting buffer entry (UTF-8, or 16-bit in either byte order): no crash, overrun or
// leak; a document it accepts is written in each encoding and read back to an equal tree, unless
// its texts hold what the writers cannot give back as it was (characters above U+FFFF, carriage
// returns in data, tab, line feed or carriage return in attribute values).
#include <vorx/xml.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_check.h"

using namespace VORX::XML;
using VORX::String::CPPoolString;

namespace {

bool Writable(qefWChar const * text, bool attribute) {
  for (; *text != 0; ++text) {
    if ((*text >= 0xD800 && *text <= 0xDFFF) || *text == 0xD ||
        (attribute && (*text == 0x9 || *text == 0xA))) {
      return false;
    }
  }
  return true;
}

// True when both trees are equal; `comparable` turns false when `a` holds texts the writers
// cannot give back.
bool Same(CPXMLObject const & a, CPXMLObject const & b, bool & comparable) {
  comparable = comparable && Writable(a.GetData(), false);
  bool same = a.GetName() == b.GetName() && a.GetData() == b.GetData() &&
              a.GetNAttributes() == b.GetNAttributes();
  for (std::uint64_t i = 0; same && i < a.GetNAttributes(); ++i) {
    CPPoolString an, av, bn, bv;
    a.GetAttribute(i, an, av);
    b.GetAttribute(i, bn, bv);
    comparable = comparable && Writable(av, true);
    same = an == bn && av == bv;
  }
  std::uint64_t ac = 0;
  std::uint64_t bc = 0;
  CPXMLObject const * ae = a.GetElements(ac);
  CPXMLObject const * be = b.GetElements(bc);
  same = same && ac == bc;
  for (std::uint64_t i = 0; same && i < ac; ++i) {
    same = Same(ae[i], be[i], comparable);
  }
  return same;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  AgeThePoolNowAndThen(); // the texts of earlier runs
  if (size > 1 << 16) {
    return 0;
  }
  // The buffer must end in a 16-bit zero and be 2-byte aligned for 16-bit text.
  std::vector<std::uint16_t> buffer(size / 2 + 2, 0);
  std::memcpy(buffer.data(), data, size);
  CXMLDoc doc;
  if (!doc.OpenDocText(static_cast<void *>(buffer.data()), size)) {
    return 0;
  }
  CPXMLObject const root = doc.GetRootElement();
  bool comparable = true;
  Check(Same(root, root, comparable));
  if (!comparable) {
    return 0;
  }
  for (eXMLEncoding encoding : {eXMLEncodingUTF8, eXMLEncodingUTF16}) {
    VORX::Buffers::CPPlainMemory out;
    Check(root.Write(out, encoding, true));
    Check(out.GetMemorySize() != 0);
    CXMLDoc back;
    void const * bytes = out;
    bool const read = encoding == eXMLEncodingUTF8
                          ? back.OpenDocText(static_cast<unsigned char const *>(bytes))
                          : back.OpenDocText(static_cast<std::uint16_t const *>(bytes));
    Check(read && Same(root, back.GetRootElement(), comparable));
  }
  return 0;
}
