#include "support/diagnostics_capture.h"

#include <vorx/string.h>

namespace vorx::test {
namespace {

std::mutex g_mutex;
std::vector<LoggedLine> g_lines;
std::vector<ShownBox> g_boxes;
bool g_cancel = false;

void Record(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
            qefWChar const * format, std::va_list arguments) {
  qefWChar message[2048];
  VORX::String::_vsnwprintf(message, 2048, format, arguments);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.push_back({level, category ? std::u16string(category) : u"<null>",
                     file ? std::string(file) : "<null>", line,
                     format ? std::u16string(format) : u"<null>", message});
}

bool Show(char const * caption, char const * text) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_boxes.push_back({caption ? caption : "<null>", text ? text : "<null>"});
  return g_cancel;
}

} // namespace

LogCapture::LogCapture() {
  Clear();
  VORX::Develop::SetExternalLogger(&Record);
}

LogCapture::~LogCapture() {
  VORX::Develop::SetExternalLogger(nullptr);
}

std::vector<LoggedLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

BoxCapture::BoxCapture(bool cancel) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_boxes.clear();
    g_cancel = cancel;
  }
  VORX::Develop::OS::SetAssertBox(&Show);
  auto switches = VORX::Develop::GetDebugSwitches();
  switches.AssertBox = true;
  VORX::Develop::_SetDebugSwitches(switches);
}

BoxCapture::~BoxCapture() {
  auto switches = VORX::Develop::GetDebugSwitches();
  switches.AssertBox = false;
  VORX::Develop::_SetDebugSwitches(switches);
  VORX::Develop::OS::SetAssertBox(nullptr);
}

std::vector<ShownBox> BoxCapture::Boxes() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_boxes;
}

SwitchesScope::SwitchesScope(VORX::Develop::tagDEBUGSWITCHES const & switches)
    : m_saved(VORX::Develop::GetDebugSwitches()) {
  VORX::Develop::_SetDebugSwitches(switches);
}

SwitchesScope::~SwitchesScope() {
  VORX::Develop::_SetDebugSwitches(m_saved);
}

std::string Narrow(std::u16string const & text) {
  std::string out;
  for (char16_t c : text) {
    out += c < 0x80 ? static_cast<char>(c) : '?';
  }
  return out;
}

} // namespace vorx::test
