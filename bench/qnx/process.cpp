#include <process.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "resolve.h"

namespace {

// Start conditions of a child: default signals, none blocked, nothing open but the standard
// streams.
class CleanStart {
 public:
  CleanStart() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes_);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    // Every bit: sigfillset leaves out the C library's own two signals, which the child would then
    // start with ignored.
    std::memset(&all, 0xFF, sizeof(all));
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~CleanStart() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  CleanStart(const CleanStart&) = delete;
  CleanStart& operator=(const CleanStart&) = delete;

  posix_spawn_file_actions_t* actions() { return &actions_; }
  posix_spawnattr_t* attributes() { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

}  // namespace

int spawnv(int mode, const char* path, char* const argv[]) {
  if (mode != P_NOWAIT) {
    errno = EINVAL;
    return -1;
  }
  char host[PATH_MAX];
  if (!qnx::HostPath(path, host, sizeof(host))) return -1;
  // An emulator that forks where the C library asks for vfork cannot report this from the child.
  if (::access(host, X_OK) != 0) return -1;
  CleanStart start;
  pid_t pid = -1;
  const int error = posix_spawn(&pid, host, start.actions(), start.attributes(), argv, environ);
  if (error != 0) {
    errno = error;
    return -1;
  }
  return pid;
}
