// The unit's own lines in the system log.
#ifndef KORVANDIS_HEADUNIT_LOG_H
#define KORVANDIS_HEADUNIT_LOG_H

#include <sys/slog.h>

namespace headunit {

// Logs "headunit: MESSAGE" with a severity of <sys/slog.h>. Any thread.
void Log(int severity, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_LOG_H
