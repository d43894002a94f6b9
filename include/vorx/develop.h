// VORX::Develop: the diagnostics spine. A levelled log writer with a replaceable sink, runtime
// assumption checks ("RTA") that may stop in a box, the three debug switches read from the
// settings file at load, the library's clocks and stopwatch (`CHFLapse`), a population count
// (`bitcount64`) and the Mersenne-Twister random numbers (`CMTRandom`, the lock-free
// process-wide `_random`).
#pragma once

#include <cstdarg>
#include <new>

#include <vorx/base.h>
#include <vorx/string.h>

// Log levels. The writer itself never filters by level; an external logger may.
enum _qefDebugLevel : int {
  qefDL_Full = -1,
  qefDL_Error = 1,
  qefDL_Warning = 2,
  qefDL_Verbose = 4,
  qefDL_Trace = 8,
  qefDL_Info = 16,
};

// Placement forms that let a level ride along with a placement construction; they return
// `place` and do nothing else.
inline void * operator new(std::size_t, void * place, _qefDebugLevel) noexcept {
  return place;
}
inline void operator delete(void *, void *, _qefDebugLevel) noexcept {}

namespace VORX::Develop {

// The external logger: receives every log call exactly as made, with its argument list not yet
// formatted (format it with `VORX::String::_vsnwprintf`). It must consume `arguments` at most
// once. A logger that throws is uninstalled and never called again.
using _qefExternalLogger = void (*)(_qefDebugLevel level, qefWChar const * category,
                                    char const * file, int line, qefWChar const * format,
                                    std::va_list arguments);

// Writes one log message: to the external logger when one is installed, else to the debugger
// output when a debugger is attached, else nowhere. `category` and `file` may be null.
VORX_API void _logWrite(_qefDebugLevel level, qefWChar const * category, char const * file,
                        int line, qefWChar const * format, ...);
// As `_logWrite` with the argument list already collected.
VORX_API void _vlogWrite(_qefDebugLevel level, qefWChar const * category, char const * file,
                         int line, qefWChar const * format, std::va_list arguments);
// As `_logWrite` with a message that is already formatted: the external logger receives the
// format "%ls" with `text` (the empty text for null) as its one argument, so that a "%" in the
// text stays a "%" whatever the logger does with it; the debugger path copies at most 2047
// characters of it verbatim.
VORX_API void _logWriteText(_qefDebugLevel level, qefWChar const * category, char const * file,
                            int line, qefWChar const * text);

// Stores `logger` in the process-wide slot, replacing any earlier one; null removes it. No lock.
VORX_API void SetExternalLogger(_qefExternalLogger logger);
// The logger now installed, or null.
VORX_API _qefExternalLogger GetExternalLogger();

// The fixed seven-character label of a level ("ERROR  ", "verbose", ...), "unknown" otherwise.
VORX_API qefWChar const * _levelLabel(_qefDebugLevel level);

// Formats the log prefix for a line written `clockMs` milliseconds after process start:
// "%8.3f [label] [category] [] {[file:F] [line:L]} " with a file, "%8.3f [label] [category] [] "
// without one; a null category is "VORX.default". Writes at most `count` units including the
// terminator; returns the length written. Raises no box: the writer does that for unknown levels.
VORX_API std::size_t _formatLogPrefix(qefWChar * buffer, std::size_t count, std::int64_t clockMs,
                                      _qefDebugLevel level, qefWChar const * category,
                                      char const * file, int line);

// Reports a false assumption when `condition` is true ("RTA_ON_TRUE"); returns `condition`.
VORX_API bool _istrue_(bool condition, char const * text);
// Reports a false assumption when `condition` is false ("RTA_ON_FALSE"); returns `condition`.
VORX_API bool _isfalse_(bool condition, char const * text);

// False on this platform; decided once, on first call.
VORX_API bool _isBigEndian();
// Always false: the library's wide character is 16 bits.
VORX_API bool _isWChar32();

// The three switches of the "Debug" section of the settings file, read once at load.
struct tagDEBUGSWITCHES {
  bool AssertBox;        // `RTABox` shows a box and may answer Cancel
  bool LogFailedHRESULT; // a negative `hr` writes a trace line
  bool BreakOnHRESULT;   // a negative `hr` raises an assumption box
};
VORX_API tagDEBUGSWITCHES GetDebugSwitches();
// Replaces the switches; meant for hosts and tests that set them other than by the file.
VORX_API void _SetDebugSwitches(tagDEBUGSWITCHES const & switches);

// Clocks.
// Seconds of process time: milliseconds since the process started, divided by 1000.
VORX_API double _getTicks();
// Monotonic nanoseconds; 0 when the clock cannot be read.
VORX_API std::uint64_t _now_nano();
// `_now_nano()` in microseconds, a remainder of 500 ns or more rounding up.
VORX_API std::uint64_t _now_micro();
// `_now_nano()` in milliseconds, a remainder of 500000 ns or more rounding up.
VORX_API std::uint64_t _now_milli();
// The rounding of `_now_micro` and `_now_milli` applied to a given reading.
constexpr std::uint64_t _nanoToMicro(std::uint64_t ns) {
  return ns / 1000 + (ns % 1000 >= 500);
}
constexpr std::uint64_t _nanoToMilli(std::uint64_t ns) {
  return ns / 1000000 + (ns % 1000000 >= 500000);
}

// Stopwatch that writes its results to the log. One state word: odd while running (the start
// instant of `_now_nano()` times 2, plus 1), even while stopped (the elapsed nanoseconds times
// 2). A named stopwatch starts on construction and, still running when destroyed, logs "Total".
// Each logged result is one line at level 16 whose category is "NAME - 12.34ms" (the name, or
// "CHFLapse" for the null or empty name, and the elapsed milliseconds) and whose message is the
// caller's format with its arguments. A value (copies time on independently); not synchronised.
class VORX_API CHFLapse {
public:
  // Keeps `name`; starts at once unless it is null or empty (then stopped at 0).
  explicit CHFLapse(String::CPPoolString const & name);
  // Logs "Total" (verbatim, not as a format) when still running and named.
  ~CHFLapse();
  CHFLapse(CHFLapse const &) = default;
  CHFLapse & operator=(CHFLapse const &) = default;

  // Starts anew from now.
  void Start();
  // Stops; nothing is logged. A stopped stopwatch keeps what it had.
  void Stop();
  // Stops and logs the elapsed time with `format` and its arguments as the message. A stopped
  // stopwatch logs the time it had.
  void Stop(qefWChar const * format, ...);
  // Logs as `Stop(format, ...)`, then runs on from the first start: the new start is now minus
  // the elapsed time just logged, so the time spent logging is left out.
  void Lapse(qefWChar const * format, ...);

  // Now minus the start, in nanoseconds; meaningful while running.
  std::uint64_t lapse_nano() const;
  // `lapse_nano()` in microseconds or milliseconds, rounded half up, or in seconds.
  std::uint64_t lapse_micro() const { return _nanoToMicro(lapse_nano()); }
  std::uint64_t lapse_milli() const { return _nanoToMilli(lapse_nano()); }
  double lapse_double() const { return static_cast<double>(lapse_nano()) / 1e9; }

  // The state word read as it stands, kept exactly as the library has them (use the `lapse_`
  // forms for elapsed time). Note: after `Stop()` the word is twice the elapsed time, so
  // `count_double` (the word / 1e9) and `count_micro` (the word / 1000, rounded half up) report
  // twice the elapsed time; `count_milli` is now minus the word, in milliseconds rounded half up.
  double count_double() const { return static_cast<double>(m_state) / 1e9; }
  std::uint64_t count_micro() const { return _nanoToMicro(m_state); }
  std::uint64_t count_milli() const;

private:
  bool _running() const { return (m_state & 1u) != 0; }
  // Stops and logs; a null `arguments` logs `format` verbatim. Returns the elapsed nanoseconds.
  std::uint64_t _stop(qefWChar const * format, std::va_list * arguments);

  std::uint64_t m_state;
  String::CPPoolString m_name;
};

// Population count.
// Number of set bits in `value`, by the parallel bit count (pairs, nibbles, bytes, then one
// multiplication that sums the eight byte counts into the top byte).
constexpr std::uint64_t bitcount64(std::uint64_t value) {
  value -= (value >> 1) & 0x5555555555555555ull;
  value = (value & 0x3333333333333333ull) + ((value >> 2) & 0x3333333333333333ull);
  value = (value + (value >> 4)) & 0x0F0F0F0F0F0F0F0Full;
  return (value * 0x0101010101010101ull) >> 56;
}

// Random numbers.
// Mersenne-Twister generator of 32-bit words, a value (copies continue the same sequence
// independently). Seeding and tempering are MT19937's, but the regeneration of the 624 state
// words tests the low bit of each freshly computed word (not of the next word) before applying
// the twist constant, and the first 624 draws after seeding are the seeded words themselves,
// tempered but never twisted: so the sequence deliberately differs from `std::mt19937`'s.
// Not synchronised: one object belongs to one thread at a time. Nothing can fail.
class VORX_API CMTRandom {
public:
  // Seeds with the low 32 bits of `_now_nano()`; no modulus; scale 1/4294967295.
  CMTRandom();

  // Restarts the sequence from `s` (the next draw is the tempered `s`).
  void seed(std::uint32_t s);
  // Makes `rnd()` return 0..`m`. Note: the modulus kept is `m` + 1, so 0xFFFFFFFF removes it.
  void maxrnd(std::uint32_t m) { m_modulus = m + 1; }
  // Sets the factor `drnd()` multiplies each word by.
  void maxdrnd(double d) { m_scale = d; }

  // The next tempered word, reduced modulo the modulus when one is set.
  std::uint32_t rnd();
  // The next tempered word times the scale: 0 to 1 inclusive by default. The modulus does not
  // apply.
  double drnd();

  static constexpr std::size_t kStateWords = 624;

private:
  std::uint32_t _next();

  std::uint64_t m_index;              // next state word to draw; regenerate at 624
  std::uint32_t m_state[kStateWords]; // the words of the present round
  std::uint32_t m_modulus;            // 0 for none
  double m_scale;                     // factor of `drnd()`
};

// The next tempered word of the process-wide generator: a `CMTRandom` sequence seeded from the
// low 32 bits of `_now_nano()` when the library is loaded. Safe from any number of threads at
// once without a lock: each draw takes one word of the sequence, none is handed out twice or
// skipped. A caller that happens to draw the first word of a new round of 624 swaps in the
// round computed in advance and computes the next one (about 624 steps); others spin (yielding)
// only while that swap is under way.
VORX_API std::uint32_t _random();
// `_random()` times `max` / 4294967295: 0 to `max` inclusive.
VORX_API double _drandom(double max);
// Restarts the process-wide sequence from `seed`, as at load. Note: not safe while another
// thread draws; meant for reproducible runs and tests, before threads start drawing.
VORX_API void _randomSeed(std::uint32_t seed);

} // namespace VORX::Develop

namespace VORX::Develop::OS {

// Reports a failed runtime assumption: with the AssertBox switch on, shows a modal OK/Cancel
// box (one at a time across threads; a thread may re-enter), then always logs
// "Failed assumption: caption:text" at level 1 in category "VORX". True only for Cancel (or a
// box that threw); false when the switch is off.
VORX_API bool RTABox(char const * caption, char const * text);

// The box itself: answers true for Cancel, false for OK. A GUI host or a test installs its own;
// null restores the default (the controlling terminal, or OK without one).
using _qefAssertBox = bool (*)(char const * caption, char const * text);
VORX_API void SetAssertBox(_qefAssertBox box);

// Passes text unchanged to the debugger output (standard error, in UTF-8).
VORX_API void OutputDebugMessage(char const * text);
VORX_API void OutputDebugMessage(qefWChar const * text);
// Whether a debugger is attached to the process now.
VORX_API bool IsDebuggerPresent();

// Redirects the debugger channel: `present` answers whether a debugger is attached and `output`
// receives each wide string sent to it. Null for either restores the system's own.
using _qefDebuggerPresent = bool (*)();
using _qefDebuggerOutput = void (*)(qefWChar const * text);
VORX_API void SetDebuggerHooks(_qefDebuggerPresent present, _qefDebuggerOutput output);

// Milliseconds since the process started, from the monotonic clock (the log's clock). The start
// is the process's own (read once when the library is loaded, to the kernel's clock tick), so a
// host that loads the library late reads the time since its own start; where it cannot be read,
// the library's load stands in.
VORX_API std::int64_t _processClock();

} // namespace VORX::Develop::OS

namespace VORX::Develop::OS {

// Reads the "Debug" section of a settings file: integer keys "AssertBox", "LogFailedHRESULT"
// and "BreakOnHRESULT" (names without regard to case, a leading decimal integer, non-zero
// meaning on). A missing file, section or key leaves that switch off.
VORX_API tagDEBUGSWITCHES _ReadDebugSettings(char const * settingsPath);

} // namespace VORX::Develop::OS
