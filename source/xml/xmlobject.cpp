// The XML element tree: node records, their mutation rules, navigation and search.
#include <cstdint>
#include <cstring>
#include <new>

#include <vorx/core.h>
#include <vorx/xml.h>

#include "xml/xmlchars.h"
#include "xml/xmlnode.h"
#include "xml/xmlvalues.h"

namespace VORX::XML {

namespace {

constexpr std::uint64_t kNone = ~std::uint64_t{0};
// Units of the buffer of the formatting operations, terminator included.
constexpr std::size_t kFormatUnits = 2048;

bool _validName(CPPoolString const & name) {
  return _isXMLName(name);
}

std::size_t _units(qefWChar const * text) {
  std::size_t n = 0;
  while (text[n]) {
    ++n;
  }
  return n;
}

bool _format(qefWChar (&text)[kFormatUnits], qefWChar const * format, std::va_list arguments) {
  if (!format) {
    return false;
  }
  int const length = String::_vsnwprintf(text, kFormatUnits, format, arguments);
  return length >= 0 && static_cast<std::size_t>(length) < kFormatUnits;
}

// The node whose finalizer is releasing children on this thread: nested finalizers hand their
// children to it instead of releasing them, so freeing a tree never recurses with its depth.
thread_local _CXMLArray<CPXMLObject> * t_releasing = nullptr;

void _nodeCreate(void * payload, std::size_t) {
  ::new (payload) tagXMLNODE();
}

void _nodeFinalize(void * payload, std::size_t) {
  tagXMLNODE * const node = static_cast<tagXMLNODE *>(payload);
  _CXMLArray<CPXMLObject> children(std::move(node->elements));
  node->~tagXMLNODE();
  if (t_releasing) {
    // Handed over when possible; otherwise `children` releases them here, one level deeper.
    t_releasing->TakeAll(children);
    return;
  }
  if (children.GetNItems() == 0) {
    return;
  }
  t_releasing = &children;
  while (children.GetNItems() > 0) {
    CPXMLObject last;
    children.PopInto(last);
  }
  t_releasing = nullptr;
}

// Index of the slot `p` points into, or all ones when `p` is not inside `array`.
std::uint64_t _slotOf(_CXMLArray<CPXMLObject> const & array, CPXMLObject const * p) {
  std::size_t const count = array.GetNItems();
  if (!p || count == 0) {
    return kNone;
  }
  auto const first = reinterpret_cast<std::uintptr_t>(array.items());
  auto const at = reinterpret_cast<std::uintptr_t>(p);
  if (at < first || at >= first + count * sizeof(CPXMLObject)) {
    return kNone;
  }
  return (at - first) / sizeof(CPXMLObject);
}

// Index of the first slot holding the node `node` holds; all ones when none (or `node` null).
std::uint64_t _slotHolding(_CXMLArray<CPXMLObject> const & array, CPXMLObject const & node) {
  if (!_CXMLNodeAccess::Record(node)) {
    return kNone;
  }
  std::size_t const count = array.GetNItems();
  CPXMLObject const * const items = array.items();
  for (std::size_t i = 0; i < count; ++i) {
    if (items[i] == node) {
      return i;
    }
  }
  return kNone;
}

void _addElementsState(tagXMLNODE * node) {
  if (node->state == kXMLStateEmpty) {
    node->state = kXMLStateElements;
  } else if (node->state == kXMLStateData) {
    node->state = kXMLStateMixed;
  }
}

void _addDataState(tagXMLNODE * node) {
  if (node->state == kXMLStateEmpty) {
    node->state = kXMLStateData;
  } else if (node->state == kXMLStateElements) {
    node->state = kXMLStateMixed;
  }
}

} // namespace

Buffers::tagCPOVTABL const CPXMLObject::_vtbl = {&_nodeCreate, nullptr, &_nodeFinalize,
                                                 &Buffers::CPObjectMemory::_nointerface};

// ---------------------------------------------------------------------------------------------
// Values

CXMLValue::CXMLValue(qefWChar const * text) : m_failed(false) {
  _set(text);
}

CXMLValue::CXMLValue(_qefUID const & id) : CXMLValue(QEF::cqefuid(id)) {}

CXMLValue::CXMLValue(QEF::cqefuid const & id) : m_failed(true) {
  String::CQEFWChar const text = id;
  if (text) {
    m_failed = false;
    _set(*text);
  }
}

CXMLValue::CXMLValue(TimeCode::timecode const & value) : m_failed(false) {
  _set(TimeCode::SZUTC(value).c_str());
}

CXMLValue::CXMLValue(std::uint64_t value) : m_failed(true) {
  qefWChar text[kXMLUInt64Text];
  if (_xmlUInt64Text(value, text) >= 0) {
    m_failed = false;
    _set(text);
  }
}

CXMLValue::CXMLValue(Math::CRational const & value) : m_failed(true) {
  qefWChar text[kXMLRationalText];
  if (_xmlRationalText(value, text) >= 0) {
    m_failed = false;
    _set(text);
  }
}

CXMLValue::CXMLValue(double value) : m_failed(true) {
  qefWChar text[kXMLDoubleText];
  if (_xmlDoubleText(value, text) >= 0) {
    m_failed = false;
    _set(text);
  }
}

CXMLValue::CXMLValue(bool value) : m_failed(false) {
  _set(_xmlBoolText(value));
}

CXMLValue::CXMLValue(std::uint8_t const * bytes, std::size_t length) : m_failed(false) {
  if (!bytes || length == 0) {
    m_text = CPPoolString::pempty;
    return;
  }
  if (length > (static_cast<std::size_t>(-1) / sizeof(qefWChar) - 1) / 2) {
    m_failed = true;
    return;
  }
  auto * const text =
      static_cast<qefWChar *>(Core::OS::_falloc((2 * length + 1) * sizeof(qefWChar)));
  if (!text) {
    m_failed = true;
    return;
  }
  _xmlBinaryText(bytes, length, text);
  _set(text);
  Core::OS::_ffree(text);
}

CXMLValue::CXMLValue(std::uint32_t value, tagXMLFLAGMAP const * map, std::size_t count,
                     qefWChar separator)
    : m_failed(false) {
  std::size_t const units = _xmlFlagsTextSize(map, count);
  auto * const text = static_cast<qefWChar *>(Core::OS::_falloc(units * sizeof(qefWChar)));
  if (!text) {
    m_failed = true;
    return;
  }
  _xmlFlagsText(value, map, count, separator, text);
  _set(text);
  Core::OS::_ffree(text);
}

void CXMLValue::_set(qefWChar const * text) {
  m_text = text;
  if (text && text[0] && m_text.isnull()) {
    m_failed = true;
  }
}

// ---------------------------------------------------------------------------------------------
// Identity and state

bool CPXMLObject::_create(CPXMLObject & node, CPPoolString const & name) {
  CPXMLObject fresh;
  if (!fresh.Alloc(sizeof(tagXMLNODE), &_vtbl)) {
    return false;
  }
  _CXMLNodeAccess::Construct(fresh, name);
  node = std::move(fresh);
  return true;
}

tagXMLNODE * CPXMLObject::_named() const {
  tagXMLNODE * const node = _node();
  return node && node->name.isdef() ? node : nullptr;
}

bool CPXMLObject::_setName(CPPoolString const & name) {
  return _create(*this, name);
}

bool CPXMLObject::SetName(CPPoolString const & name) {
  return _validName(name) && _setName(name);
}

bool CPXMLObject::Rename(CPPoolString const & name) {
  tagXMLNODE * const node = _node();
  if (!node || !_validName(name)) {
    return false;
  }
  node->name = name;
  return true;
}

void CPXMLObject::Reset() {
  tagXMLNODE * const node = _node();
  if (!node) {
    return;
  }
  node->state = kXMLStateEmpty;
  node->attributes.free();
  // Released through a local, so the node is consistent while the children go.
  _CXMLArray<CPXMLObject> children(std::move(node->elements));
  node->data = CPPoolString::pempty;
}

CPXMLObject::operator bool() const {
  tagXMLNODE * const node = _node();
  return node && (node->name.isdef() || node->attributes.GetNItems() > 0 ||
                  node->elements.GetNItems() > 0 || node->data.isdef());
}

bool CPXMLObject::IsDefault() const {
  return !static_cast<bool>(*this);
}

bool CPXMLObject::IsNamedDefault() const {
  tagXMLNODE * const node = _named();
  return node && node->attributes.GetNItems() == 0 && node->elements.GetNItems() == 0 &&
         !node->data.isdef();
}

std::uint32_t CPXMLObject::GetState() const {
  tagXMLNODE * const node = _node();
  return node ? node->state : 0;
}

CPPoolString const & CPXMLObject::GetName() const {
  tagXMLNODE * const node = _node();
  return node ? node->name : CPPoolString::pempty;
}

CPPoolString const & CPXMLObject::GetData() const {
  tagXMLNODE * const node = _named();
  return node ? node->data : CPPoolString::pempty;
}

CPPoolString const & CPXMLObject::GetContent() const {
  return CPPoolString::pempty;
}

std::uint64_t CPXMLObject::GetNameIndex(qefWChar const * list, qefWChar separator) const {
  tagXMLNODE * const node = _named();
  if (!node) {
    return kNone;
  }
  qefWChar const * const name = node->name;
  return _xmlIndex(name, _units(name), list, separator);
}

bool CPXMLObject::IsName(CPPoolString const & name) const {
  tagXMLNODE * const node = _node();
  return node && node->name == name;
}

bool CPXMLObject::IsData(CPPoolString const & data) const {
  return GetData() == data;
}

bool CPXMLObject::IsNameData(CPPoolString const & name, CPPoolString const & data) const {
  return IsName(name) && IsData(data);
}

bool CPXMLObject::IsNameAttrib(CPPoolString const & name, CPPoolString const & attribute) const {
  return IsName(name) && _attribute(attribute);
}

bool CPXMLObject::IsNameAttribVal(CPPoolString const & name, CPPoolString const & attribute,
                                  CPPoolString const & value) const {
  if (!IsName(name)) {
    return false;
  }
  CPPoolString const * const found = _attribute(attribute);
  return found && *found == value;
}

// ---------------------------------------------------------------------------------------------
// Children

xmlret CPXMLObject::Add(CPXMLObject const & child) {
  tagXMLNODE * const node = _named();
  if (!node || child.IsDefault() || child == *this) {
    return xmlret();
  }
  bool const added = node->elements.Put(child, static_cast<std::size_t>(-1));
  _addElementsState(node);
  return xmlret(added ? 1 : 0);
}

bool CPXMLObject::CAdd(CPXMLObject const & child) {
  if (child.IsDefault()) {
    return true;
  }
  return Add(child).sIndex() == 1;
}

xmlret CPXMLObject::Insert(CPXMLObject const & child, std::uint64_t index) {
  tagXMLNODE * const node = _named();
  if (!node || node->data.isdef() || child.IsDefault() || child == *this) {
    return xmlret();
  }
  if (!node->elements.Put(child, index)) {
    return xmlret();
  }
  _addElementsState(node);
  return xmlret(index);
}

xmlret CPXMLObject::Replace(CPXMLObject const & child, CPXMLObject const * old) {
  tagXMLNODE * const node = _named();
  if (!node) {
    return xmlret(0);
  }
  if (!old || child == *this) {
    return xmlret();
  }
  std::uint64_t slot = _slotOf(node->elements, old);
  if (slot == kNone) {
    slot = _slotHolding(node->elements, *old);
  }
  if (slot == kNone) {
    return xmlret();
  }
  node->elements.items()[slot] = child;
  return xmlret(slot);
}

xmlret CPXMLObject::Replace(CPXMLObject const & child, CPXMLObject const & old) {
  tagXMLNODE * const node = _named();
  if (!node || child == *this) {
    return xmlret();
  }
  std::uint64_t const slot = _slotHolding(node->elements, old);
  if (slot == kNone) {
    return xmlret();
  }
  node->elements.items()[slot] = child;
  return xmlret(slot);
}

bool CPXMLObject::Replace(CPXMLObject const & child, std::uint64_t index) {
  tagXMLNODE * const node = _named();
  if (!node || child.IsDefault() || child == *this || index >= node->elements.GetNItems()) {
    return false;
  }
  node->elements.items()[index] = child;
  return true;
}

bool CPXMLObject::Delete(std::uint64_t index) {
  tagXMLNODE * const node = _named();
  return node && node->elements.Delete(index, false);
}

bool CPXMLObject::Delete(CPXMLObject const * child) {
  tagXMLNODE * const node = _named();
  if (!node || !child) {
    return false;
  }
  std::uint64_t slot = _slotOf(node->elements, child);
  if (slot == kNone) {
    slot = _slotHolding(node->elements, *child);
  }
  return slot != kNone && node->elements.Delete(slot, false);
}

bool CPXMLObject::Delete(CPXMLObject const & child) {
  tagXMLNODE * const node = _named();
  if (!node) {
    return false;
  }
  std::uint64_t const slot = _slotHolding(node->elements, child);
  return slot != kNone && node->elements.Delete(slot, false);
}

bool CPXMLObject::DeleteElements() {
  tagXMLNODE * const node = _named();
  if (!node) {
    return false;
  }
  if (!node->elements) {
    return true;
  }
  _CXMLArray<CPXMLObject> children(std::move(node->elements));
  node->state = node->data.isdef() ? kXMLStateData : kXMLStateEmpty;
  return true;
}

bool CPXMLObject::DeleteData() {
  tagXMLNODE * const node = _named();
  if (!node) {
    return false;
  }
  if (!node->data.isdef()) {
    return true;
  }
  node->data = CPPoolString::pempty;
  node->state = node->elements ? kXMLStateElements : kXMLStateEmpty;
  return true;
}

bool CPXMLObject::DeleteContent() {
  return DeleteData() && DeleteElements();
}

CPXMLObject * CPXMLObject::GetElements(std::uint64_t & count) const {
  tagXMLNODE * const node = _named();
  count = node ? node->elements.GetNItems() : 0;
  return count ? node->elements.items() : nullptr;
}

std::uint64_t CPXMLObject::GetNElements(CPPoolString const & name) const {
  tagXMLNODE * const node = _named();
  if (!node || !name.isdef()) {
    return 0;
  }
  std::uint64_t found = 0;
  std::size_t const count = node->elements.GetNItems();
  CPXMLObject const * const items = node->elements.items();
  for (std::size_t i = 0; i < count; ++i) {
    found += items[i].IsName(name) ? 1 : 0;
  }
  return found;
}

CPXMLObject CPXMLObject::item(std::uint64_t index) const {
  tagXMLNODE * const node = _named();
  if (!node || index >= node->elements.GetNItems()) {
    return CPXMLObject();
  }
  return node->elements.items()[index];
}

// ---------------------------------------------------------------------------------------------
// Data and valued children

bool CPXMLObject::Add(CXMLValue const & value) {
  tagXMLNODE * const node = _named();
  if (!node || value.failed()) {
    return false;
  }
  if ((node->state & kXMLStateData) && node->data.isdef()) {
    return false;
  }
  if (!value.text().isdef()) {
    return true;
  }
  node->data = value.text();
  _addDataState(node);
  return true;
}

bool CPXMLObject::Set(CXMLValue const & value) {
  return DeleteData() && DeleteElements() && Add(value);
}

bool CPXMLObject::Set(CPXMLObject const & child) {
  return DeleteData() && DeleteElements() && static_cast<bool>(Add(child));
}

bool CPXMLObject::_vprintf(qefWChar const * format, std::va_list arguments) {
  tagXMLNODE * const node = _named();
  if (!node || node->data.isdef()) {
    return false;
  }
  qefWChar text[kFormatUnits];
  return _format(text, format, arguments) && Add(CXMLValue(text));
}

bool CPXMLObject::printf(qefWChar const * format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  bool const done = _vprintf(format, arguments);
  va_end(arguments);
  return done;
}

bool CPXMLObject::Sprintf(qefWChar const * format, ...) {
  qefWChar text[kFormatUnits];
  std::va_list arguments;
  va_start(arguments, format);
  bool const formatted = _format(text, format, arguments);
  va_end(arguments);
  return formatted && Set(CXMLValue(text));
}

xmlret CPXMLObject::AddTag(CPPoolString const & name) {
  CPXMLObject child;
  if (!_validName(name) || !_named() || !_create(child, name)) {
    return xmlret();
  }
  return Add(child);
}

xmlret CPXMLObject::AddTag(CPPoolString const & name, CXMLValue const & value) {
  CPXMLObject child;
  if (!_validName(name) || value.failed() || !_named() || !_create(child, name)) {
    return xmlret();
  }
  child.Add(value);
  return Add(child);
}

bool CPXMLObject::SetTag(CPPoolString const & name, CXMLValue const & value) {
  CPXMLObject child;
  if (!_validName(name) || value.failed() || !_named() || !_create(child, name)) {
    return false;
  }
  child.Add(value);
  DeleteData();
  DeleteElements();
  return Add(child).sIndex() == 1;
}

xmlret CPXMLObject::printfTag(CPPoolString const & name, qefWChar const * format, ...) {
  qefWChar text[kFormatUnits];
  std::va_list arguments;
  va_start(arguments, format);
  bool const formatted = _format(text, format, arguments);
  va_end(arguments);
  return formatted ? AddTag(name, CXMLValue(text)) : xmlret();
}

bool CPXMLObject::SprintfTag(CPPoolString const & name, qefWChar const * format, ...) {
  qefWChar text[kFormatUnits];
  std::va_list arguments;
  va_start(arguments, format);
  bool const formatted = _format(text, format, arguments);
  va_end(arguments);
  return formatted && SetTag(name, CXMLValue(text));
}

// ---------------------------------------------------------------------------------------------
// Attributes

CPPoolString const * CPXMLObject::_attribute(CPPoolString const & name) const {
  tagXMLNODE * const node = _named();
  if (!node) {
    return nullptr;
  }
  std::size_t const count = node->attributes.GetNItems();
  CPPoolString const * const pairs = node->attributes.items();
  for (std::size_t i = 0; i + 1 < count; i += 2) {
    if (pairs[i] == name) {
      return pairs + i + 1;
    }
  }
  return nullptr;
}

bool CPXMLObject::_addAttribute(CPPoolString const & name, CPPoolString const & value) {
  tagXMLNODE * const node = _named();
  if (!node || !value.isdef() || _attribute(name)) {
    return false;
  }
  std::size_t const count = node->attributes.GetNItems();
  if (!node->attributes.Put(name, count)) {
    return false;
  }
  if (!node->attributes.Put(value, count + 1)) {
    node->attributes.Delete(count, true);
    return false;
  }
  return true;
}

void CPXMLObject::_deleteAttribute(CPPoolString const & name) {
  tagXMLNODE * const node = _named();
  CPPoolString const * const value = _attribute(name);
  if (!node || !value) {
    return;
  }
  std::size_t const at = static_cast<std::size_t>(value - node->attributes.items()) - 1;
  node->attributes.Delete(at + 1, false);
  node->attributes.Delete(at, true);
}

bool CPXMLObject::AddAttribute(CPPoolString const & name, CXMLValue const & value) {
  return _validName(name) && !value.failed() && _addAttribute(name, value.text());
}

bool CPXMLObject::SetAttribute(CPPoolString const & name, CXMLValue const & value) {
  _deleteAttribute(name);
  return AddAttribute(name, value);
}

bool CPXMLObject::printfAttribute(CPPoolString const & name, qefWChar const * format, ...) {
  qefWChar text[kFormatUnits];
  std::va_list arguments;
  va_start(arguments, format);
  bool const formatted = _format(text, format, arguments);
  va_end(arguments);
  return formatted && AddAttribute(name, CXMLValue(text));
}

bool CPXMLObject::SprintfAttribute(CPPoolString const & name, qefWChar const * format, ...) {
  qefWChar text[kFormatUnits];
  std::va_list arguments;
  va_start(arguments, format);
  bool const formatted = _format(text, format, arguments);
  va_end(arguments);
  return formatted && SetAttribute(name, CXMLValue(text));
}

bool CPXMLObject::DeleteAttribute(CPPoolString const & name) {
  if (!_validName(name)) {
    return false;
  }
  _deleteAttribute(name);
  return true;
}

bool CPXMLObject::MergeAttributes(CPXMLObject const & other, bool overwrite) {
  tagXMLNODE * const node = _named();
  if (!node) {
    return false;
  }
  tagXMLNODE * const from = other._node();
  if (!from || from == node) {
    return true;
  }
  bool complete = true;
  std::size_t const count = from->attributes.GetNItems();
  for (std::size_t i = 0; i + 1 < count; i += 2) {
    CPPoolString const & name = from->attributes.items()[i];
    CPPoolString const & value = from->attributes.items()[i + 1];
    CPPoolString const * const mine = _attribute(name);
    if (mine) {
      if (overwrite) {
        *const_cast<CPPoolString *>(mine) = value;
      }
    } else if (!_addAttribute(name, value)) {
      complete = false;
    }
  }
  return complete;
}

std::uint64_t CPXMLObject::GetNAttributes() const {
  tagXMLNODE * const node = _node();
  return node ? node->attributes.GetNItems() / 2 : 0;
}

bool CPXMLObject::GetAttribute(std::uint64_t index, CPPoolString & name,
                               CPPoolString & value) const {
  name = CPPoolString::pempty;
  value = CPPoolString::pempty;
  tagXMLNODE * const node = _named();
  if (!node || index >= node->attributes.GetNItems() / 2) {
    return false;
  }
  name = node->attributes.items()[2 * index];
  value = node->attributes.items()[2 * index + 1];
  return true;
}

bool CPXMLObject::HasAttribute(CPPoolString const & name) const {
  return _attribute(name) != nullptr;
}

CPPoolString const & CPXMLObject::FindAttribute(CPPoolString const & name) const {
  CPPoolString const * const value = _attribute(name);
  return value ? *value : CPPoolString::pempty;
}

CPPoolString CPXMLObject::FindAttributeString(CPPoolString const & name,
                                              CPPoolString const & def) const {
  CPPoolString const * const value = _attribute(name);
  return value ? *value : def;
}

bool CPXMLObject::FindAttributeValue(CPPoolString const & name, CPPoolString const & value) const {
  CPPoolString const * const found = _attribute(name);
  return found && *found == value;
}

// ---------------------------------------------------------------------------------------------
// Search

namespace {

bool _isPathBlank(qefWChar c) {
  return c == u'\t' || c == u'\n' || c == u'\r' || c == u' ';
}

// Reads the next name of a path from `at`: its first unit and length; moves `at` past the
// blanks and the "/" after it. False when the path is invalid there.
bool _pathStep(qefWChar const *& at, qefWChar const *& name, std::size_t & length) {
  while (_isPathBlank(*at)) {
    ++at;
  }
  if (!_isXMLNameStart(*at)) {
    return false;
  }
  name = at++;
  while (_isXMLNameChar(*at)) {
    ++at;
  }
  length = static_cast<std::size_t>(at - name);
  while (_isPathBlank(*at)) {
    ++at;
  }
  if (*at == u'/') {
    ++at;
    // A "/" must be followed by another name.
    return *at != 0;
  }
  return *at == 0;
}

} // namespace

CPXMLObject const * CPXMLObject::FindFirstElement(qefWChar const * path,
                                                  CPXMLObject const ** parent) const {
  if (parent) {
    *parent = nullptr;
  }
  if (!path || !path[0]) {
    return nullptr;
  }
  qefWChar const * at = path;
  qefWChar const * name = nullptr;
  std::size_t length = 0;
  while (*at) {
    if (!_pathStep(at, name, length)) {
      return nullptr;
    }
  }
  CPXMLObject const * current = this;
  CPXMLObject const * up = nullptr;
  at = path;
  while (*at) {
    _pathStep(at, name, length);
    tagXMLNODE * const node = current->_named();
    if (!node) {
      return nullptr;
    }
    std::size_t const count = node->elements.GetNItems();
    CPXMLObject const * const items = node->elements.items();
    CPXMLObject const * found = nullptr;
    for (std::size_t i = 0; i < count && !found; ++i) {
      tagXMLNODE * const child = items[i]._node();
      if (!child) {
        continue;
      }
      qefWChar const * const text = child->name;
      std::size_t n = 0;
      while (n < length && text[n] == name[n]) {
        ++n;
      }
      if (n == length && text[n] == 0) {
        found = items + i;
      }
    }
    if (!found) {
      return nullptr;
    }
    up = current;
    current = found;
  }
  if (parent) {
    *parent = up;
  }
  return current;
}

CPXMLObject * CPXMLObject::FindFirstElement(qefWChar const * path, CPXMLObject ** parent) {
  CPXMLObject const * up = nullptr;
  CPXMLObject const * const found =
      static_cast<CPXMLObject const *>(this)->FindFirstElement(path, parent ? &up : nullptr);
  if (parent) {
    *parent = const_cast<CPXMLObject *>(up);
  }
  return const_cast<CPXMLObject *>(found);
}

namespace {

// The first slot after `from` (forward) or before it (backward), `from` null meaning the
// array's end, whose named child passes `test`.
template <class Test>
CPXMLObject * _scan(tagXMLNODE * node, CPXMLObject const * from, bool forward, Test test) {
  if (!node) {
    return nullptr;
  }
  std::size_t const count = node->elements.GetNItems();
  CPXMLObject * const items = node->elements.items();
  std::size_t i = 0;
  if (from) {
    std::uint64_t const slot = _slotOf(node->elements, from);
    if (slot == kNone || (forward && slot + 1 >= count) || (!forward && slot == 0)) {
      return nullptr;
    }
    i = forward ? slot + 1 : slot - 1;
  } else if (count == 0) {
    return nullptr;
  } else {
    i = forward ? 0 : count - 1;
  }
  for (;;) {
    tagXMLNODE * const child = _CXMLNodeAccess::Record(items[i]);
    if (child && child->name.isdef() && test(items[i], *child)) {
      return items + i;
    }
    if (forward ? ++i >= count : i-- == 0) {
      return nullptr;
    }
  }
}

} // namespace

CPXMLObject * CPXMLObject::FindNextElement(CPPoolString const & name,
                                           CPXMLObject const * after) const {
  return _scan(_named(), after, true,
               [&](CPXMLObject const &, tagXMLNODE const & c) { return c.name == name; });
}

CPXMLObject * CPXMLObject::FindNextElementAtt(CPPoolString const & name,
                                              CPPoolString const & attribute,
                                              CPXMLObject const * after) const {
  return _scan(_named(), after, true, [&](CPXMLObject const & o, tagXMLNODE const & c) {
    return c.name == name && o._attribute(attribute);
  });
}

CPXMLObject * CPXMLObject::FindNextElementAttVal(CPPoolString const & name,
                                                 CPPoolString const & attribute,
                                                 CPPoolString const & value,
                                                 CPXMLObject const * after) const {
  return _scan(_named(), after, true, [&](CPXMLObject const & o, tagXMLNODE const & c) {
    return c.name == name && o.FindAttributeValue(attribute, value);
  });
}

CPXMLObject * CPXMLObject::FindNextElementData(CPPoolString const & name, CPPoolString const & data,
                                               CPXMLObject const * after) const {
  return _scan(_named(), after, true, [&](CPXMLObject const &, tagXMLNODE const & c) {
    return c.name == name && c.data == data;
  });
}

CPXMLObject * CPXMLObject::FindPrevElement(CPPoolString const & name,
                                           CPXMLObject const * before) const {
  return _scan(_named(), before, false,
               [&](CPXMLObject const &, tagXMLNODE const & c) { return c.name == name; });
}

CPXMLObject * CPXMLObject::FindPrevElementAtt(CPPoolString const & name,
                                              CPPoolString const & attribute,
                                              CPXMLObject const * before) const {
  return _scan(_named(), before, false, [&](CPXMLObject const & o, tagXMLNODE const & c) {
    return c.name == name && o._attribute(attribute);
  });
}

CPXMLObject * CPXMLObject::FindPrevElementAttVal(CPPoolString const & name,
                                                 CPPoolString const & attribute,
                                                 CPPoolString const & value,
                                                 CPXMLObject const * before) const {
  return _scan(_named(), before, false, [&](CPXMLObject const & o, tagXMLNODE const & c) {
    return c.name == name && o.FindAttributeValue(attribute, value);
  });
}

CPXMLObject * CPXMLObject::FindPrevElementData(CPPoolString const & name, CPPoolString const & data,
                                               CPXMLObject const * before) const {
  return _scan(_named(), before, false, [&](CPXMLObject const &, tagXMLNODE const & c) {
    return c.name == name && c.data == data;
  });
}

CPXMLObject const * CPXMLObject::_firstChild(CPPoolString const & name) const {
  return FindNextElement(name, nullptr);
}

CPPoolString const & CPXMLObject::FindElementData(CPPoolString const & name) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetData() : CPPoolString::pempty;
}

CPPoolString CPXMLObject::FindElementString(CPPoolString const & name,
                                            CPPoolString const & def) const {
  CPXMLObject const * const child = _firstChild(name);
  return child ? child->GetData() : def;
}

} // namespace VORX::XML
