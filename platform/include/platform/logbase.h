// LOGBASE, the logging function of every module of the service.
//
// Each source file that includes this header has a copy, and so a message counter, of its own.
#ifndef KORVANDIS_PLATFORM_LOGBASE_H
#define KORVANDIS_PLATFORM_LOGBASE_H

#include <sys/slog.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

// A level is handed to slogf as its severity.
enum LOG_LEV_EN {
  LOG_LEV_ERROR = _SLOG_ERROR,   // 2: failures
  LOG_LEV_INFO = _SLOG_INFO,     // 5: text written to PPS
  LOG_LEV_DEBUG = _SLOG_DEBUG1,  // 6: tracing of receive, dispatch and reply
};

// Room of a line with its terminator; what is longer is cut.
static const std::size_t kLogLineSize = 512;

// Puts `text` behind the `used` characters of `line`, and returns how many it has then.
static inline std::size_t AppendToLogLine(char* line, std::size_t used, const char* text) {
  const std::size_t length = ::strnlen(text, kLogLineSize - 1 - used);
  std::memcpy(line + used, text, length);
  line[used + length] = '\0';
  return used + length;
}

// Starts `line` with "_KRV_[function]-" and returns its length. By hand: it stands in front of each
// byte of each packet.
static inline std::size_t StartLogLine(char* line, const char* function) {
  std::size_t used = AppendToLogLine(line, 0, "_KRV_[");
  used = AppendToLogLine(line, used, function);
  return AppendToLogLine(line, used, "]-");
}

// Hands a whole line on, under this source file's next number.
static inline void HandOnLogLine(LOG_LEV_EN level, const char* line) {
  static const std::uint32_t kOpcode = 0x1B1DC;  // low part of every opcode of this service
  static const int kCounterShift = 20;
  static std::uint32_t counter = 0;
  const std::uint32_t number = __atomic_fetch_add(&counter, 1U, __ATOMIC_RELAXED);
  slogf(static_cast<int>(kOpcode | (number << kCounterShift)), level, "%s", line);
}

// LOGBASE for a text that is not a format.
static inline void LogText(LOG_LEV_EN level, const char* function, const char* text) {
  char line[kLogLineSize];
  AppendToLogLine(line, StartLogLine(line, function), text);
  HandOnLogLine(level, line);
}

// Logs "_KRV_[function]-message" at `level`; the whole line is cut at 511 characters. May be called
// from any thread; two threads of one module at once may repeat an opcode, nothing else.
__attribute__((format(printf, 3, 4))) static inline void LOGBASE(LOG_LEV_EN level,
                                                                 const char* function,
                                                                 const char* format, ...) {
  if (std::strchr(format, '%') == nullptr) return LogText(level, function, format);
  char line[kLogLineSize];
  const std::size_t used = StartLogLine(line, function);
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line + used, sizeof(line) - used, format, arguments);
  va_end(arguments);
  HandOnLogLine(level, line);
}

#endif  // KORVANDIS_PLATFORM_LOGBASE_H
