// The stopwatch that writes its results to the log.
#include <vorx/core.h>
#include <vorx/develop.h>

namespace VORX::Develop {
namespace {

constexpr qefWChar kUnnamed[] = u"CHFLapse";
constexpr std::size_t kUnnamedLength = 8;
constexpr std::size_t kRoomForTime = 32;
// Category texts up to this many units are built on the stack.
constexpr std::size_t kStackUnits = 256;

} // namespace

CHFLapse::CHFLapse(String::CPPoolString const & name) : m_state(0), m_name(name) {
  if (m_name.isdef()) {
    Start();
  }
}

CHFLapse::~CHFLapse() {
  if (_running() && m_name.isdef()) {
    _stop(u"Total", nullptr);
  }
}

void CHFLapse::Start() {
  m_state = _now_nano() * 2 + 1;
}

void CHFLapse::Stop() {
  if (_running()) {
    m_state = (_now_nano() - (m_state >> 1)) * 2;
  }
}

void CHFLapse::Stop(qefWChar const * format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  _stop(format, &arguments);
  va_end(arguments);
}

void CHFLapse::Lapse(qefWChar const * format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::uint64_t const elapsed = _stop(format, &arguments);
  va_end(arguments);
  m_state = (_now_nano() - elapsed) * 2 + 1;
}

std::uint64_t CHFLapse::lapse_nano() const {
  return _now_nano() - (m_state >> 1);
}

std::uint64_t CHFLapse::count_milli() const {
  return _nanoToMilli(_now_nano() - m_state);
}

std::uint64_t CHFLapse::_stop(qefWChar const * format, std::va_list * arguments) {
  std::uint64_t const elapsed = _running() ? _now_nano() - (m_state >> 1) : m_state >> 1;
  m_state = elapsed * 2;

  bool const named = m_name.isdef();
  qefWChar const * const name = named ? *m_name : kUnnamed;
  std::size_t const units = (named ? m_name.len() : kUnnamedLength) + kRoomForTime;
  qefWChar onStack[kStackUnits];
  qefWChar * category = onStack;
  std::size_t room = kStackUnits;
  if (units > kStackUnits) {
    // A very long name: its own block, or the name cut to the stack buffer without one.
    if (auto * block = static_cast<qefWChar *>(Core::OS::_falloc(units * sizeof(qefWChar)))) {
      category = block;
      room = units;
    }
  }
  String::_snwprintf(category, room, u"%ls - %.2fms", name, static_cast<double>(elapsed) / 1e6);
  if (arguments) {
    _vlogWrite(qefDL_Info, category, nullptr, 0, format, *arguments);
  } else {
    _logWriteText(qefDL_Info, category, nullptr, 0, format);
  }
  if (category != onStack) {
    Core::OS::_ffree(category);
  }
  return elapsed;
}

} // namespace VORX::Develop
