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

// Logs "_KRV_[function]-message" at `level`; the whole line is cut at 511 characters. May be called
// from any thread; two threads of one module at once may repeat an opcode, nothing else.
__attribute__((format(printf, 3, 4))) static inline void LOGBASE(LOG_LEV_EN level,
                                                                 const char* function,
                                                                 const char* format, ...) {
  static const char kTag[] = "_KRV_";
  static const std::uint32_t kOpcode = 0x1B1DC;  // low part of every opcode of this service
  static const int kCounterShift = 20;
  static std::uint32_t counter = 0;

  char line[512];
  const int prefix = std::snprintf(line, sizeof(line), "%s[%s]-", kTag, function);
  const std::size_t used = prefix < 0 ? 0
                                      : (static_cast<std::size_t>(prefix) < sizeof(line)
                                             ? static_cast<std::size_t>(prefix)
                                             : sizeof(line) - 1);
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line + used, sizeof(line) - used, format, arguments);
  va_end(arguments);
  const std::uint32_t number = __atomic_fetch_add(&counter, 1U, __ATOMIC_RELAXED);
  slogf(static_cast<int>(kOpcode | (number << kCounterShift)), level, "%s", line);
}

#endif  // KORVANDIS_PLATFORM_LOGBASE_H
