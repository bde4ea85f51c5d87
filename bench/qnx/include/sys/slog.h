// The system log.
#ifndef KORVANDIS_SYS_SLOG_H
#define KORVANDIS_SYS_SLOG_H

#define _SLOG_SHUTDOWN 0
#define _SLOG_CRITICAL 1
#define _SLOG_ERROR 2
#define _SLOG_WARNING 3
#define _SLOG_NOTICE 4
#define _SLOG_INFO 5
#define _SLOG_DEBUG1 6
#define _SLOG_DEBUG2 7

// Logs one line under `opcode` with `severity` (0 to 7), formatted as printf does and cut at 608
// bytes. The line goes to the log ring <root>/dev/slog when that is one (looked for again once a
// second, so a unit that comes back finds its lines), otherwise to the host's system log, which is
// waited for 100 ms at most when it is not read, and then not again until it is. It never allocates
// or fails; any thread may call it. Returns the number of bytes logged.
int slogf(int opcode, int severity, const char* format, ...) __attribute__((format(printf, 3, 4)));

#endif  // KORVANDIS_SYS_SLOG_H
