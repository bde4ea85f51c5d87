#include "log.h"

#include <cstdarg>
#include <cstdio>

namespace headunit {
namespace {

const int kOpcode = 0x48550;   // marks every line of the unit and its services
const int kLongestLine = 600;  // a slot of the log ring holds a little more

}  // namespace

void Log(int severity, const char* format, ...) {
  char line[kLongestLine];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof(line), format, arguments);
  va_end(arguments);
  slogf(kOpcode, severity, "headunit: %s", line);
}

}  // namespace headunit
