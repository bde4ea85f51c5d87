#include "ATCmdKey.h"

#include <process.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "misc.h"
#include "platform/logbase.h"

namespace {

enum KEY_SUB_CMD {
  KEY_CALIBRATION = 4,
};

const char kScript[] = "/zmapps/etc/calib-recalibrate.sh";
const int kScriptArgument = 1;
const std::size_t kArgumentSize = 8;  // of the argument as text
const int kScriptLimit = 60000;       // seconds

const std::uint32_t kTicksPerSecond = 100;
const useconds_t kPollInterval = 100000;  // microseconds

}  // namespace

bool CmdKey::Work(pkg* record) {
  if (!GetHead(record)) return false;
  if (m_subCmd != KEY_CALIBRATION) return false;
  LOGBASE(LOG_LEV_DEBUG, "Work", "KEY_CALIBRATION [%d]!\n", m_subCmd);
  char argument[kArgumentSize] = {0};
  std::snprintf(argument, sizeof(argument), "%d", kScriptArgument);
  return ExcuteShell(kScript, argument, kScriptLimit);
}

bool CmdKey::ExcuteShell(const char* path, const char* argument, int limit) {
  LOGBASE(LOG_LEV_DEBUG, "ExcuteShell", "script:%s", path);
  char* const arguments[] = {const_cast<char*>(path), const_cast<char*>(argument), nullptr};
  const pid_t script = ::spawnv(P_NOWAIT, path, arguments);
  LOGBASE(LOG_LEV_DEBUG, "ExcuteShell", "@@@@@@ pid = %d\n", script);
  if (script <= 0) return false;

  const std::uint32_t deadline =
      GetTimeTick() + kTicksPerSecond * static_cast<std::uint32_t>(limit);
  int status = 0;
  pid_t collected = 0;
  while (GetTimeTick() <= deadline) {
    ::usleep(kPollInterval);
    // Collects also a script that outlived an earlier limit; only this one's end counts.
    collected = ::waitpid(collected > 0 ? -1 : collected, &status, WNOHANG);
    if (collected == script) break;
    if (collected > 0) status = 0;
  }
  if ((status & 0xFF) != 0) return false;  // did not end by exit
  return ((status >> 8) & 0xFF) == 0;
}
