// Arbitrary 16-bit text as XML names, search paths, element data and attribute values, read
// through every typed reader.
#include <vorx/string.h>
#include <vorx/xml.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_check.h"

using VORX::String::CPPoolString;
using VORX::XML::CPXMLObject;
using VORX::XML::tagXMLFLAGMAP;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  AgeThePoolNowAndThen(); // the texts of earlier runs
  std::vector<qefWChar> text(size / 2 + 1, 0);
  std::memcpy(text.data(), data, size / 2 * 2);
  qefWChar const * const input = text.data();
  std::size_t length = 0;
  while (input[length]) {
    ++length;
  }

  // As a name: accepted names are kept as given, refused ones leave the handle alone.
  CPXMLObject named;
  if (named.SetName(input)) {
    Check(named.GetName() == CPPoolString(input));
    Check(named.AddTag(input) && named.AddAttribute(input, u"v"));
    Check(named.FindFirstElement(input) != nullptr);
  } else {
    Check(!named);
  }

  // As a path below a small tree.
  CPXMLObject root;
  Check(root.SetName(u"root"));
  Check(root.AddTag(u"a") && root.AddTag(u"b", u"text"));
  CPXMLObject const * parent = &root;
  CPXMLObject const * found =
      static_cast<CPXMLObject const &>(root).FindFirstElement(input, &parent);
  Check((found == nullptr) == (parent == nullptr));

  // As data and as an attribute value, through every reader.
  CPXMLObject node;
  Check(node.SetName(u"n"));
  // Text the pool refuses (a lone surrogate) makes the writers fail.
  bool const usable = length == 0 || !CPPoolString(input).isnull();
  Check(node.Add(input) == usable);
  Check(node.AddAttribute(u"v", input) == (usable && length > 0));
  tagXMLFLAGMAP const map[] = {{1, u"a"}, {2, u"b"}, {4, u"0x"}};
  node.GetDataInt(0);
  node.GetDataUInt(0);
  node.GetDataLInt(0);
  node.GetDataLUInt(0);
  node.GetDataHex(0);
  node.GetDataEDouble(0);
  node.GetDataDouble(0);
  node.GetDataRational(VORX::Math::CRational());
  node.GetDataBool(false);
  node.GetDataTimecode(VORX::TimeCode::timecode());
  node.GetDataIndex(u"a|b|c", u'|');
  node.GetDataFlags(map, 3, u'|');
  node.FindAttributeDouble(u"v", 0);
  node.FindAttributeFlags(u"v", map, 3, u',');
  std::uint64_t const bytes = node.GetDataBinarySize();
  Check(bytes == 0 || bytes * 2 == length);
  std::vector<std::uint8_t> buffer(length / 2 + 1);
  Check(node.GetDataBinary(buffer.data(), buffer.size()) <= length / 2);
  return 0;
}
