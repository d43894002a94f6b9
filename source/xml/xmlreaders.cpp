// Typed readers of element data, child elements and attributes.
#include <vorx/xml.h>

#include "xml/xmlnode.h"
#include "xml/xmlvalues.h"

namespace VORX::XML {

namespace {

template <class T> T _scanOr(qefWChar const * text, qefWChar const * format, T def) {
  T value = def;
  return text && _xmlScan(text, format, value) ? value : def;
}

double _bitsOr(qefWChar const * text, qefWChar const * format, double def) {
  double value = def;
  return text && _xmlScanBits(text, format, value) ? value : def;
}

double _doubleOr(qefWChar const * text, double def) {
  double value = def;
  return text && _xmlReadDouble(text, value) ? value : def;
}

Math::CRational _rationalOr(qefWChar const * text, Math::CRational const & def) {
  Math::CRational value = def;
  return text && _xmlReadRational(text, value) ? value : def;
}

bool _boolOr(qefWChar const * text, bool def) {
  bool value = def;
  return text && _xmlReadBool(text, value) ? value : def;
}

QEF::cqefuid _guidOr(qefWChar const * text, QEF::cqefuid const & def) {
  QEF::cqefuid value;
  return text && value.Set(text) ? value : def;
}

TimeCode::timecode _timecodeOr(qefWChar const * text, TimeCode::timecode const & def) {
  return text ? static_cast<TimeCode::timecode>(TimeCode::SZUTC(text)) : def;
}

std::uint64_t _indexOf(qefWChar const * text, qefWChar const * list, qefWChar sep) {
  if (!text) {
    return ~std::uint64_t{0};
  }
  std::size_t length = 0;
  while (text[length]) {
    ++length;
  }
  return _xmlIndex(text, length, list, sep);
}

std::uint32_t _flagsOf(qefWChar const * text, tagXMLFLAGMAP const * map, std::size_t count,
                       qefWChar sep) {
  return text ? _xmlReadFlags(text, map, count, sep) : 0;
}

} // namespace

qefWChar const * CPXMLObject::_numberData() const {
  tagXMLNODE * const node = _named();
  return node && node->state == kXMLStateData && node->data.isdef()
             ? static_cast<qefWChar const *>(node->data)
             : nullptr;
}

qefWChar const * CPXMLObject::_textData() const {
  tagXMLNODE * const node = _named();
  return node && node->data.isdef() ? static_cast<qefWChar const *>(node->data) : nullptr;
}

// Data ------------------------------------------------------------------------------------------

std::int32_t CPXMLObject::GetDataInt(std::int32_t def) const {
  return _scanOr(_numberData(), u" %d", def);
}
std::uint32_t CPXMLObject::GetDataUInt(std::uint32_t def) const {
  return _scanOr(_numberData(), u" %u", def);
}
std::int64_t CPXMLObject::GetDataLInt(std::int64_t def) const {
  return _scanOr(_numberData(), u" %I64d", def);
}
std::uint64_t CPXMLObject::GetDataLUInt(std::uint64_t def) const {
  return _scanOr(_numberData(), u" %I64u", def);
}
std::uint64_t CPXMLObject::GetDataFileTime(std::uint64_t def) const {
  return _scanOr(_textData(), u" %I64u", def);
}
std::uint32_t CPXMLObject::GetDataHex(std::uint32_t def) const {
  return _scanOr(_numberData(), u" %x", def);
}
double CPXMLObject::GetDataEDouble(double def) const {
  return _bitsOr(_numberData(), u" %I64x", def);
}
double CPXMLObject::GetDataDouble(double def) const {
  return _doubleOr(_numberData(), def);
}
Math::CRational CPXMLObject::GetDataRational(Math::CRational const & def) const {
  return _rationalOr(_textData(), def);
}
bool CPXMLObject::GetDataBool(bool def) const {
  return _boolOr(_textData(), def);
}
QEF::cqefuid CPXMLObject::GetDataGUID(QEF::cqefuid const & def) const {
  return _guidOr(_textData(), def);
}
TimeCode::timecode CPXMLObject::GetDataTimecode(TimeCode::timecode const & def) const {
  return _timecodeOr(_textData(), def);
}
std::uint64_t CPXMLObject::GetDataIndex(qefWChar const * list, qefWChar sep) const {
  return _indexOf(_numberData(), list, sep);
}
std::uint32_t CPXMLObject::GetDataFlags(tagXMLFLAGMAP const * map, std::size_t count,
                                        qefWChar sep) const {
  return _flagsOf(_textData(), map, count, sep);
}
std::uint64_t CPXMLObject::GetDataBinarySize() const {
  return _xmlBinarySize(_textData());
}
std::uint64_t CPXMLObject::GetDataBinary(std::uint8_t * bytes, std::uint64_t size) const {
  return _xmlReadBinary(_textData(), bytes, size);
}

// First child of a name -------------------------------------------------------------------------

std::int32_t CPXMLObject::FindElementInt(CPPoolString const & name, std::int32_t def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataInt(def) : def;
}
std::uint32_t CPXMLObject::FindElementUInt(CPPoolString const & name, std::uint32_t def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataUInt(def) : def;
}
std::int64_t CPXMLObject::FindElementLInt(CPPoolString const & name, std::int64_t def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataLInt(def) : def;
}
std::uint64_t CPXMLObject::FindElementLUInt(CPPoolString const & name, std::uint64_t def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataLUInt(def) : def;
}
std::uint64_t CPXMLObject::FindElementFileTime(CPPoolString const & name, std::uint64_t def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataFileTime(def) : def;
}
std::uint32_t CPXMLObject::FindElementHex(CPPoolString const & name, std::uint32_t def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataHex(def) : def;
}
double CPXMLObject::FindElementEDouble(CPPoolString const & name, double def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataEDouble(def) : def;
}
double CPXMLObject::FindElementDouble(CPPoolString const & name, double def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataDouble(def) : def;
}
Math::CRational CPXMLObject::FindElementRational(CPPoolString const & name,
                                                 Math::CRational const & def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataRational(def) : def;
}
bool CPXMLObject::FindElementBool(CPPoolString const & name, bool def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataBool(def) : def;
}
QEF::cqefuid CPXMLObject::FindElementGUID(CPPoolString const & name,
                                          QEF::cqefuid const & def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataGUID(def) : def;
}
TimeCode::timecode CPXMLObject::FindElementTimecode(CPPoolString const & name,
                                                    TimeCode::timecode const & def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataTimecode(def) : def;
}
std::uint64_t CPXMLObject::FindElementIndex(CPPoolString const & name, qefWChar const * list,
                                            qefWChar sep) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataIndex(list, sep) : ~std::uint64_t{0};
}
std::uint32_t CPXMLObject::FindElementFlags(CPPoolString const & name, tagXMLFLAGMAP const * map,
                                            std::size_t count, qefWChar sep) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetDataFlags(map, count, sep) : 0;
}

// Attributes ------------------------------------------------------------------------------------

namespace {

qefWChar const * _text(CPPoolString const * value) {
  return value && value->isdef() ? static_cast<qefWChar const *>(*value) : nullptr;
}

} // namespace

std::int32_t CPXMLObject::FindAttributeInt(CPPoolString const & name, std::int32_t def) const {
  return _scanOr(_text(_attribute(name)), u"%d", def);
}
std::uint32_t CPXMLObject::FindAttributeUInt(CPPoolString const & name, std::uint32_t def) const {
  return _scanOr(_text(_attribute(name)), u"%u", def);
}
std::int64_t CPXMLObject::FindAttributeLInt(CPPoolString const & name, std::int64_t def) const {
  return _scanOr(_text(_attribute(name)), u"%I64d", def);
}
std::uint64_t CPXMLObject::FindAttributeLUInt(CPPoolString const & name, std::uint64_t def) const {
  return FindAttributeFileTime(name, def);
}
std::uint64_t CPXMLObject::FindAttributeFileTime(CPPoolString const & name,
                                                 std::uint64_t def) const {
  return _scanOr(_text(_attribute(name)), u"%I64u", def);
}
std::uint32_t CPXMLObject::FindAttributeHex(CPPoolString const & name, std::uint32_t def) const {
  return _scanOr(_text(_attribute(name)), u"%x", def);
}
double CPXMLObject::FindAttributeEDouble(CPPoolString const & name, double def) const {
  return _bitsOr(_text(_attribute(name)), u"%I64x", def);
}
double CPXMLObject::FindAttributeDouble(CPPoolString const & name, double def) const {
  return _doubleOr(_text(_attribute(name)), def);
}
Math::CRational CPXMLObject::FindAttributeRational(CPPoolString const & name,
                                                   Math::CRational const & def) const {
  return _rationalOr(_text(_attribute(name)), def);
}
bool CPXMLObject::FindAttributeBool(CPPoolString const & name, bool def) const {
  return _boolOr(_text(_attribute(name)), def);
}
QEF::cqefuid CPXMLObject::FindAttributeGUID(CPPoolString const & name,
                                            QEF::cqefuid const & def) const {
  return _guidOr(_text(_attribute(name)), def);
}
TimeCode::timecode CPXMLObject::FindAttributeTimecode(CPPoolString const & name,
                                                      TimeCode::timecode const & def) const {
  return _timecodeOr(_text(_attribute(name)), def);
}
std::uint64_t CPXMLObject::FindAttributeIndex(CPPoolString const & name, qefWChar const * list,
                                              qefWChar sep) const {
  return _indexOf(_text(_attribute(name)), list, sep);
}
std::uint32_t CPXMLObject::FindAttributeFlags(CPPoolString const & name, tagXMLFLAGMAP const * map,
                                              std::size_t count, qefWChar sep) const {
  return _flagsOf(_text(_attribute(name)), map, count, sep);
}

} // namespace VORX::XML
