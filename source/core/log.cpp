// The log writer: one external logger slot, else the debugger channel, else nothing.
#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/string.h>

#include <atomic>
#include <cstring>

#include "core/os.h"
#include "core/text.h"

namespace VORX::Develop {
namespace {

// Read and written without ordering, as a plain pointer would be; atomic only to be well defined.
std::atomic<_qefExternalLogger> g_logger{nullptr};

constexpr std::size_t kMessageUnits = 2048;
constexpr std::size_t kPrefixUnits = 512;

bool IsKnownLevel(_qefDebugLevel level) {
  switch (level) {
  case qefDL_Full:
  case qefDL_Error:
  case qefDL_Warning:
  case qefDL_Verbose:
  case qefDL_Trace:
  case qefDL_Info:
    return true;
  }
  return false;
}

// Hands the call to the external logger; a logger that throws is uninstalled. False when no
// logger is installed.
bool ToExternalLogger(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
                      qefWChar const * format, std::va_list arguments) {
  _qefExternalLogger const logger = g_logger.load(std::memory_order_relaxed);
  if (!logger) {
    return false;
  }
  try {
    logger(level, category, file, line, format, arguments);
  } catch (...) {
    g_logger.store(nullptr, std::memory_order_relaxed);
  }
  return true;
}

bool ToExternalLoggerV(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
                       qefWChar const * format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  bool const handled = ToExternalLogger(level, category, file, line, format, arguments);
  va_end(arguments);
  return handled;
}

// The debugger path: prefix, message and line end as three strings.
void ToDebugger(std::int64_t clockMs, _qefDebugLevel level, qefWChar const * category,
                char const * file, int line, qefWChar const * message) {
  if (!IsKnownLevel(level)) {
    OS::RTABox("Illegal code point reached", "Unknown debug level");
  }
  qefWChar prefix[kPrefixUnits];
  _formatLogPrefix(prefix, kPrefixUnits, clockMs, level, category, file, line);
  OS::OutputDebugMessage(prefix);
  OS::OutputDebugMessage(message);
  OS::OutputDebugMessage(u"\r\n");
}

} // namespace

void SetExternalLogger(_qefExternalLogger logger) {
  g_logger.store(logger, std::memory_order_relaxed);
}

_qefExternalLogger GetExternalLogger() {
  return g_logger.load(std::memory_order_relaxed);
}

qefWChar const * _levelLabel(_qefDebugLevel level) {
  switch (level) {
  case qefDL_Full:
    return u"FULL   ";
  case qefDL_Error:
    return u"ERROR  ";
  case qefDL_Warning:
    return u"WARNING";
  case qefDL_Verbose:
    return u"verbose";
  case qefDL_Trace:
    return u"trace  ";
  case qefDL_Info:
    return u"INFO   ";
  }
  return u"unknown";
}

std::size_t _formatLogPrefix(qefWChar * buffer, std::size_t count, std::int64_t clockMs,
                             _qefDebugLevel level, qefWChar const * category, char const * file,
                             int line) {
  if (!buffer || count == 0) {
    return 0;
  }
  double const seconds = static_cast<double>(clockMs) / 1000.0;
  qefWChar const * const label = _levelLabel(level);
  qefWChar const * const name = category ? category : u"VORX.default";
  int const length =
      file ? String::_snwprintf(buffer, count, u"%8.3f [%ls] [%ls] [] {[file:%hs] [line:%d]} ",
                                seconds, label, name, file, line)
           : String::_snwprintf(buffer, count, u"%8.3f [%ls] [%ls] [] ", seconds, label, name);
  if (length < 0) {
    buffer[0] = 0;
    return 0;
  }
  return static_cast<std::size_t>(length) < count ? static_cast<std::size_t>(length) : count - 1;
}

void _vlogWrite(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
                qefWChar const * format, std::va_list arguments) {
  if (ToExternalLogger(level, category, file, line, format, arguments)) {
    return;
  }
  if (!OS::IsDebuggerPresent()) {
    return;
  }
  std::int64_t const clockMs = OS::_processClock();
  qefWChar message[kMessageUnits];
  message[0] = 0;
  if (format) {
    String::_vsnwprintf(message, kMessageUnits, format, arguments);
  }
  ToDebugger(clockMs, level, category, file, line, message);
}

void _logWrite(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
               qefWChar const * format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  _vlogWrite(level, category, file, line, format, arguments);
  va_end(arguments);
}

void _logWriteText(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
                   qefWChar const * text) {
  // A logger formats what it receives: hand it the text as the argument of "%ls" so that a "%"
  // in the text stays a "%".
  if (ToExternalLoggerV(level, category, file, line, u"%ls", text ? text : u"")) {
    return;
  }
  if (!OS::IsDebuggerPresent()) {
    return;
  }
  std::int64_t const clockMs = OS::_processClock();
  qefWChar message[kMessageUnits];
  std::size_t length = 0;
  for (; text && text[length] && length < kMessageUnits - 1; ++length) {
    message[length] = text[length];
  }
  message[length] = 0;
  ToDebugger(clockMs, level, category, file, line, message);
}

} // namespace VORX::Develop

namespace VORX::Develop::OS {
namespace {

std::atomic<_qefDebuggerPresent> g_debuggerPresent{nullptr};
std::atomic<_qefDebuggerOutput> g_debuggerOutput{nullptr};

} // namespace

void SetDebuggerHooks(_qefDebuggerPresent present, _qefDebuggerOutput output) {
  g_debuggerPresent.store(present);
  g_debuggerOutput.store(output);
}

bool IsDebuggerPresent() {
  _qefDebuggerPresent const present = g_debuggerPresent.load();
  return present ? present() : _tracerAttached();
}

void OutputDebugMessage(qefWChar const * text) {
  if (!text) {
    return;
  }
  if (_qefDebuggerOutput const output = g_debuggerOutput.load()) {
    output(text);
    return;
  }
  // All of the text, however long: encoded piece by piece, never splitting a surrogate pair.
  constexpr std::size_t kPieceUnits = 1024;
  qefWChar piece[kPieceUnits + 1];
  char bytes[3 * kPieceUnits + 1];
  while (*text) {
    std::size_t units = 0;
    while (units < kPieceUnits && text[units]) {
      ++units;
    }
    if (units == kPieceUnits && text[units] && text[units - 1] >= 0xD800 &&
        text[units - 1] < 0xDC00) {
      --units;
    }
    std::memcpy(piece, text, units * sizeof(qefWChar));
    piece[units] = 0;
    _writeDebugSink(bytes, _wideToUtf8(piece, bytes, sizeof bytes));
    text += units;
  }
}

void OutputDebugMessage(char const * text) {
  if (!text) {
    return;
  }
  std::size_t length = 0;
  while (text[length]) {
    ++length;
  }
  _qefDebuggerOutput const output = g_debuggerOutput.load();
  if (!output) {
    _writeDebugSink(text, length);
    return;
  }
  // The hook receives the whole text in one string: UTF-8 never needs more UTF-16 units than bytes.
  qefWChar local[kMessageUnits];
  qefWChar * wide = local;
  std::size_t const units = length + 1;
  if (units > kMessageUnits) {
    wide = static_cast<qefWChar *>(Core::OS::_falloc(units * sizeof(qefWChar)));
  }
  if (wide) {
    _utf8ToWide(text, wide, units);
    output(wide);
    if (wide != local) {
      Core::OS::_ffree(wide);
    }
    return;
  }
  // Out of memory: the text goes in pieces that end on whole characters, so nothing is lost.
  char piece[kMessageUnits];
  while (*text) {
    std::size_t bytes = 0;
    while (bytes < kMessageUnits - 1 && text[bytes]) {
      ++bytes;
    }
    if (text[bytes]) {
      while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) {
        --bytes;
      }
      if (bytes == 0) {
        bytes = kMessageUnits - 1; // no character boundary in reach: cut anyway
      }
    }
    std::memcpy(piece, text, bytes);
    piece[bytes] = 0;
    _utf8ToWide(piece, local, kMessageUnits);
    output(local);
    text += bytes;
  }
}

} // namespace VORX::Develop::OS
