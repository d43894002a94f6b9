// The XML writers: the element serialiser, the writer interface `_IXMLOut`, its buffering and
// encoding base `_CXMLOut` (a 16384-byte staging buffer; UTF-8, UTF-16 or 16-bit units as they
// stand) and the two sinks `_CFileOut` (a file) and `_CMemOut` (a chain of 16384-byte chunks
// joined into one `CPPlainMemory`). A writer lives on the stack of one `CPXMLObject::Write` call
// and is used by one thread. Failures are false results; nothing is logged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <vorx/files.h>
#include <vorx/xml.h>

namespace VORX::XML {

// The writer's operations, in slot order.
class _IXMLOut {
public:
  // Writes `count` characters: first the pending indentation (when indenting), then the text
  // through the encoder. False when the encoder refuses the text or a flush fails.
  virtual bool Write(qefWChar const * text, std::uint64_t count) = 0;
  virtual void IndentIn() = 0;
  // The new depth; never below 0.
  virtual std::uint64_t IndentOut() = 0;
  // "\r\n" and a pending indentation when indenting; nothing otherwise. True unless the write
  // fails.
  virtual bool NewLine() = 0;
  virtual void SetError() = 0;
  virtual ~_IXMLOut() = default;
  // Hands the used part of the buffer to the sink; an empty buffer succeeds at once.
  virtual bool Flush() = 0;
};

// Buffering and encoding shared by the sinks. `failed` is set from construction until `Begin`
// succeeds, and again by `SetError`.
class _CXMLOut : public _IXMLOut {
public:
  static constexpr std::size_t kBufferSize = 16384;
  // Pieces of at most this many units may take the short path of `Write`.
  static constexpr std::size_t kShortPiece = 32;

  _CXMLOut();
  _CXMLOut(_CXMLOut const &) = delete;
  _CXMLOut & operator=(_CXMLOut const &) = delete;
  ~_CXMLOut() override;

  // Starts the output: the declaration of `encoding` (1 UTF-8, 2 UTF-16, 3 16-bit units as they
  // stand) and a line end. False (and failed) without a buffer or for any other encoding.
  bool Begin(eXMLEncoding encoding, bool indent);
  bool Write(qefWChar const * text, std::uint64_t count) override;
  void IndentIn() override { ++m_depth; }
  std::uint64_t IndentOut() override {
    if (m_depth > 0) {
      --m_depth;
    }
    return m_depth;
  }
  bool NewLine() override;
  void SetError() override { m_failed = true; }
  bool Failed() const { return m_failed; }

  // The short path for UTF-8 output: writes the pending indentation and answers where `count`
  // more bytes fit in the buffer. Null (nothing written) for the other encodings or when the
  // buffer lacks the room; the caller then takes `Write`. Bytes placed there count from
  // `Commit`.
  std::uint8_t * Room(std::size_t count) {
    std::uint64_t const indent = m_pendingIndent && m_indent ? m_depth * 2 : 0;
    if (m_encoding != eXMLEncodingUTF8 || indent > m_free || count > m_free - indent) {
      return nullptr;
    }
    std::uint8_t * const at = m_buffer + (kBufferSize - m_free);
    if (indent != 0) {
      if (indent <= 32 && m_free >= 32) {
        // Up to sixteen levels in two stores; the spaces beyond `indent` are written over.
        std::memcpy(at, kSpaceBytes, 32);
      } else {
        std::memset(at, ' ', std::size_t(indent));
      }
      m_free -= std::size_t(indent);
    }
    m_pendingIndent = false;
    return at + indent;
  }
  // Ends the line at `at` as `NewLine` does (room for two bytes is the caller's); the end.
  std::uint8_t * LineEnd(std::uint8_t * at) {
    if (!m_indent) {
      return at;
    }
    at[0] = '\r';
    at[1] = '\n';
    m_pendingIndent = true;
    return at + 2;
  }
  // The bytes up to `end`, placed after `Room`, are written.
  void Commit(std::uint8_t const * end) { m_free = kBufferSize - std::size_t(end - m_buffer); }

protected:
  std::size_t Used() const { return kBufferSize - m_free; }
  std::uint8_t const * Buffer() const { return m_buffer; }
  void MarkEmpty() { m_free = kBufferSize; }
  // Hands the buffer (a `_falloc` block of `kBufferSize` bytes) to the caller and takes `fresh`,
  // a block of the same size, as the new, empty buffer.
  std::uint8_t * SwapBuffer(std::uint8_t * fresh) {
    std::uint8_t * const full = m_buffer;
    m_buffer = fresh;
    m_free = kBufferSize;
    return full;
  }

private:
  // Kept out of line: inlined into writes of short constants, its four-unit ASCII step draws
  // false array-bounds warnings.
  [[gnu::noinline]] bool Encode(qefWChar const * text, std::uint64_t count);
  // Encodes the character at `text[i]` through `Put` and moves `i` past it.
  bool EncodeOne(qefWChar const * text, std::uint64_t count, std::uint64_t & i);
  bool Put(void const * bytes, std::size_t count);

  static char16_t const kSpaces[64];
  static constexpr std::uint8_t kSpaceBytes[32] = {
      ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
      ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
  std::uint64_t m_depth = 0;
  bool m_indent = false;
  bool m_pendingIndent = false;
  bool m_failed = true;
  std::uint8_t * m_buffer;
  std::size_t m_free = kBufferSize;
  eXMLEncoding m_encoding = eXMLEncodingUTF8;
};

// Output to a file opened for writing (created, replacing what was there). A writer whose file
// is still open when it is destroyed (an abandoned write) closes and deletes the file.
class _CFileOut final : public _CXMLOut {
public:
  explicit _CFileOut(qefWChar const * path);
  ~_CFileOut() override;
  // Opens the file; false when it cannot be opened.
  bool Open();
  bool Flush() override;
  // Closes the file; with `remove` the file is deleted too.
  void Close(bool remove);

private:
  String::CPPoolString m_path;
  Files::OS::CFile m_file;
};

// Output to a list of the writer's filled buffers, joined into one block by `Finish`: a full
// buffer is kept as it stands and a fresh one takes its place, so the bytes are copied once.
class _CMemOut final : public _CXMLOut {
public:
  _CMemOut() = default;
  ~_CMemOut() override;
  bool Flush() override;
  // Writes the terminating zero character and hands the joined output to `out`. False (buffers
  // released, `out` untouched) when the writer failed or a step fails.
  bool Finish(Buffers::CPPlainMemory & out);

private:
  struct tagCHUNK {
    std::uint8_t * bytes; // a former buffer
    std::size_t used;
  };
  void Release();
  tagCHUNK * m_chunks = nullptr;
  std::size_t m_count = 0;
  std::size_t m_capacity = 0;
};

// Writes `node` and its subtree. False for a node without a name, a processing instruction
// without data, a node with both children and data, or a failed write. Walks the tree with an
// explicit stack, so any depth is written.
bool _XMLWriteElement(_CXMLOut & out, CPXMLObject const & node);

} // namespace VORX::XML
