#include "ATCmdKey.h"

#include <process.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "misc.h"
#include "platform/logbase.h"

namespace {

unsigned char const KEY_CALIBRATION = 4;

char const kScript[] = "/zmapps/etc/calib-recalibrate.sh";
int const kScriptArgument = 1;
int const kScriptLimit = 60000;  // seconds

std::uint32_t const kTicksPerSecond = 100;
useconds_t const kPollInterval = 100000;  // microseconds

}  // namespace

bool CmdKey::Work(pkg* record) {
  if (!GetHead(record)) return false;
  if (m_subCmd != KEY_CALIBRATION) return false;
  LOGBASE(LOG_LEV_DEBUG, "Work", "KEY_CALIBRATION [%d]!\n", m_subCmd);
  char argument[8] = {0};
  std::snprintf(argument, sizeof(argument), "%d", kScriptArgument);
  return ExcuteShell(kScript, argument, kScriptLimit);
}

bool CmdKey::ExcuteShell(char const* path, char const* argument, int limit) {
  LOGBASE(LOG_LEV_DEBUG, "ExcuteShell", "script:%s", path);
  char* const arguments[] = {const_cast<char*>(path), const_cast<char*>(argument), nullptr};
  pid_t const script = ::spawnv(P_NOWAIT, path, arguments);
  LOGBASE(LOG_LEV_DEBUG, "ExcuteShell", "@@@@@@ pid = %d\n", script);
  if (script <= 0) return false;

  std::uint32_t const deadline =
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
