// The XML item reader: the one place that decides what the library accepts as an XML document.
// It reads a whole document held in memory (UTF-8 bytes or 16-bit units), checks it, and hands
// the elements, attributes and data it finds to a sink that builds the tree. It never recurses
// on the document's structure: nesting, entity expansion and content models are walked with
// explicit stacks on the heap. Pure function of its arguments: documents may be read on several
// threads at once.
//
// What is accepted: XML 1.0 well-formed documents, strictly.
// - Only legal XML characters anywhere (tab, line feed, carriage return, U+0020..U+D7FF,
//   U+E000..U+FFFD, U+10000..U+10FFFF): else code 16. UTF-8 that does not decode (overlong forms,
//   encoded surrogates, truncated sequences, values above U+10FFFF) gives code 13; in 16-bit text
//   a surrogate without its partner gives code 16.
// - One optional byte-order mark, then the XML declaration only at the very start; version "1.0"
//   required (code 11 when absent or different); an encoding name other than those of the text's
//   form gives code 12 ("UTF-8" for UTF-8 text; "UTF-16", "ISO-10646-UCS-2", "Unicode" for 16-bit
//   text; compared ignoring case); standalone "yes" or "no". A later "xml" target (any case)
//   gives code 5.
// - Line ends are normalised: carriage return plus line feed, and a lone carriage return, read as
//   one line feed (characters given by reference are kept as they are).
// - Names are checked with `_isXMLNameStart` / `_isXMLNameChar` (xmlchars.h).
// - Start and end tags match (code 14 otherwise, also for an end tag at top level); attribute
//   names unique, values quoted, no "<" in values (code 6); an unterminated value code 3;
//   attribute values are normalised (each white-space character becomes a space, references
//   expanded). Declared attribute defaults are checked but not applied.
// - Comments may not hold "--" and must be closed (code 2); processing instructions need a name
//   target and a closing "?>" (code 4 when unclosed); CDATA sections must be closed (code 9);
//   "]]>" in character data gives code 10; an unclosed tag or declaration code 4; anything else
//   malformed in markup code 5; the end of the text inside an open element code 1.
// - References: the five predefined entities; decimal and hexadecimal character references that
//   name legal XML characters; internal general entities declared in the internal subset, whose
//   replacement text is read as if it stood in place of the reference (markup in it must be
//   complete within it). A reference to an undeclared entity gives code 7, unless the document
//   has an external subset or refers to an outside parameter entity, whose declarations are not
//   read: then code 8, as for a reference to an entity with outside content (SYSTEM or PUBLIC),
//   which is never fetched. Malformed references code 7.
// - `<!DOCTYPE ...>` is read and every declaration in its internal subset checked (element,
//   attribute list, entity and notation declarations, comments, processing instructions,
//   references to internal parameter entities, whose text is read as declarations). A parameter
//   entity reference inside a declaration gives code 5. The external subset is not read.
// - Processing instructions and comments inside the document are checked and dropped; top-level
//   character data other than white space gives code 5; no element gives code 17, as does a
//   second top-level element.
// - Content: an element with child elements and character data other than white space gives code
//   15 (a node holds one data text, and mixed content cannot be written back); white space
//   between child elements is not data. The text of an element without children, white space
//   included, is its data. CDATA sections and references count as data even when they hold only
//   white space.
//
// Limits on hostile input (exceeding any gives code 18):
// - `kXMLMaxDepth` nested elements;
// - the text produced by entity expansion: at most `_XMLExpansionLimit(length)` units in all
//   (ten times the document's length plus 1 Mi units), so the "billion laughs" and quadratic
//   blow-up documents are refused after a bounded amount of work; an entity that refers to itself,
//   directly or through others, gives code 7;
// - `kXMLMaxModelDepth` nested groups in one content model.
// Memory grows with the document: the text of the element being read, the open elements' names
// and the declared entities, each at most a small multiple of the document or of the expansion
// limit. A failed allocation, or a sink that answers false, gives code 18.
#pragma once

#include <cstddef>
#include <cstdint>

#include <vorx/base.h>

namespace VORX::XML {

// Error codes: indexes into the fixed table of error texts ("Bad file" ... "DOM error").
enum : std::uint32_t {
  kXMLErrBadFile = 0,
  kXMLErrEndOfFile = 1,
  kXMLErrOpenComment = 2,
  kXMLErrOpenString = 3,
  kXMLErrOpenEnclosure = 4,
  kXMLErrInvalidTag = 5,
  kXMLErrBadAttribute = 6,
  kXMLErrBadEscape = 7,
  kXMLErrExternal = 8,
  kXMLErrOpenCDATA = 9,
  kXMLErrBadDataTerminator = 10,
  kXMLErrVersion = 11,
  kXMLErrEncoding = 12,
  kXMLErrBadEncoding = 13,
  kXMLErrBadTermination = 14,
  kXMLErrMixedContent = 15,
  kXMLErrIllegalCharacter = 16,
  kXMLErrRootMissing = 17,
  kXMLErrDOM = 18,
  kXMLNoError = 128,
};

inline constexpr std::uint32_t kXMLMaxDepth = 4096;
inline constexpr std::uint32_t kXMLMaxModelDepth = 256;

// The most units entity expansion may produce for a document of `length` units.
constexpr std::uint64_t _XMLExpansionLimit(std::uint64_t length) {
  return 10 * length + (std::uint64_t(1) << 20);
}

// Receives what the reader finds, in document order. Each element gives `StartElement`, then one
// `Attribute` per attribute in document order, then, when it has no child elements and a
// non-empty text, one `Data` with the whole text, or the children's calls, then `EndElement`.
// Texts are 16-bit units (characters above U+FFFF as surrogate pairs), not zero-terminated, valid
// only during the call. A false answer stops the reading with code 18.
class _IXMLItemSink {
public:
  virtual bool StartElement(qefWChar const * name, std::size_t length) = 0;
  virtual bool Attribute(qefWChar const * name, std::size_t nameLength, qefWChar const * value,
                         std::size_t valueLength) = 0;
  virtual bool Data(qefWChar const * text, std::size_t length) = 0;
  virtual bool EndElement() = 0;

protected:
  ~_IXMLItemSink() = default;
};

struct tagXMLREADRESULT {
  std::uint32_t code;     // kXMLNoError when the document was read completely
  std::uint64_t position; // of the error, in 16-bit units from the start of the text
};

// Reads `text[0..length)` as UTF-8 (a leading byte-order mark is skipped). The position counts
// each character as the 16-bit units it takes (two above U+FFFF).
VORX_API tagXMLREADRESULT _XMLReadDocument(std::uint8_t const * text, std::size_t length,
                                           _IXMLItemSink & sink);
// Reads `text[0..length)` as 16-bit units in host order (a leading U+FEFF is skipped).
VORX_API tagXMLREADRESULT _XMLReadDocument(std::uint16_t const * text, std::size_t length,
                                           _IXMLItemSink & sink);

} // namespace VORX::XML
