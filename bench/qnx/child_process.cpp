#include "qnx/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace qnx {
namespace {

const int kNotStarted = 127;   // as a shell says it
const int kSignalBase = 128;   // the same, for a signal
const int kDescriptors = 256;  // closed in the child, as far as a program of the bench has them
const mode_t kFileMode = 0644;
const std::chrono::milliseconds kPause{1};  // between two looks at a child

// Puts the file at `path` in the place of the standard stream `stream`.
void Redirect(const std::string& path, int flags, int stream) {
  if (!path.empty()) ::dup2(::open(path.c_str(), flags, kFileMode), stream);
}

int ToStatus(int waited) {
  return WIFEXITED(waited) ? WEXITSTATUS(waited) : kSignalBase + WTERMSIG(waited);
}

void ResetSignals() {
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

// In the child. What `argv` points to was made before the fork.
[[noreturn]] void Become(const ChildOptions& options, char* const argv[]) {
  if (options.signal_at_end != 0) ::prctl(PR_SET_PDEATHSIG, options.signal_at_end);
  ResetSignals();
  Redirect(options.input, O_RDONLY, STDIN_FILENO);
  Redirect(options.output, O_WRONLY | O_CREAT | O_APPEND, STDOUT_FILENO);
  Redirect(options.errors, O_WRONLY | O_CREAT | O_APPEND, STDERR_FILENO);
  for (int fd = STDERR_FILENO + 1; fd < kDescriptors; ++fd) ::close(fd);
  if (options.directory.empty() || ::chdir(options.directory.c_str()) == 0) {
    if (options.before_exec) options.before_exec();
    ::execvp(argv[0], argv);
  }
  ::_exit(kNotStarted);
}

// In the child. What it throws must not unwind the parent's frames.
[[noreturn]] void CarryOut(const std::function<int()>& work) noexcept {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::_exit(work());
}

}  // namespace

ChildProcess::ChildProcess(const ChildOptions& options) {
  std::vector<char*> argv;
  for (const std::string& word : options.words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) Become(options, argv.data());
  if (pid_ < 0) status_ = kNotStarted;
}

ChildProcess::ChildProcess(const std::function<int()>& work) : pid_(::fork()) {
  if (pid_ == 0) CarryOut(work);
  if (pid_ < 0) status_ = kNotStarted;
}

ChildProcess::~ChildProcess() {
  if (!Poll()) Collect();
}

void ChildProcess::Signal(int number) const {
  if (!status_) ::kill(pid_, number);
}

std::optional<int> ChildProcess::Poll() {
  int status = 0;
  if (!status_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    status_ = ToStatus(status);
  }
  return status_;
}

std::optional<int> ChildProcess::Wait(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!Poll() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kPause);
  }
  return status_;
}

int ChildProcess::Terminate(std::chrono::milliseconds limit) {
  Signal(SIGTERM);
  const std::optional<int> status = Wait(limit);
  return status ? *status : Collect();
}

// Ends it by force.
int ChildProcess::Collect() {
  int status = 0;
  Signal(SIGKILL);
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) continue;
  status_ = ToStatus(status);
  return *status_;
}

}  // namespace qnx
