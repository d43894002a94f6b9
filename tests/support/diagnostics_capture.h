// Test support: capture the library's log lines and assumption boxes, and set debug switches,
// each for the lifetime of one object (the previous state comes back afterwards).
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <vorx/develop.h>

namespace vorx::test {

struct LoggedLine {
  _qefDebugLevel level;
  std::u16string category; // "<null>" for a null category
  std::string file;        // "<null>" for a null file
  int line;
  std::u16string format;
  std::u16string message; // the format applied to its arguments
};

// Installs an external logger that records every line.
class LogCapture {
public:
  LogCapture();
  ~LogCapture();
  LogCapture(LogCapture const &) = delete;
  LogCapture & operator=(LogCapture const &) = delete;
  std::vector<LoggedLine> Lines() const;
  void Clear();
};

struct ShownBox {
  std::string caption;
  std::string text;
};

// Installs an assertion box that records what it is shown and answers `cancel`; turns the
// AssertBox switch on.
class BoxCapture {
public:
  explicit BoxCapture(bool cancel = false);
  ~BoxCapture();
  BoxCapture(BoxCapture const &) = delete;
  BoxCapture & operator=(BoxCapture const &) = delete;
  std::vector<ShownBox> Boxes() const;
};

// Sets the three debug switches.
class SwitchesScope {
public:
  explicit SwitchesScope(VORX::Develop::tagDEBUGSWITCHES const & switches);
  ~SwitchesScope();
  SwitchesScope(SwitchesScope const &) = delete;
  SwitchesScope & operator=(SwitchesScope const &) = delete;

private:
  VORX::Develop::tagDEBUGSWITCHES m_saved;
};

// UTF-8 view of a wide string, for readable failure messages.
std::string Narrow(std::u16string const & text);

} // namespace vorx::test
