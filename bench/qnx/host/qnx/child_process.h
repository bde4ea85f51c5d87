// Programs that the bench starts: the unit its service, the tests and benchmarks all that they run.
#ifndef KORVANDIS_QNX_CHILD_PROCESS_H
#define KORVANDIS_QNX_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qnx {

struct ChildOptions {
  std::vector<std::string> words;     // the program, looked up in PATH, and its arguments
  std::string directory;              // in which it starts; empty: the parent's
  std::string input;                  // file for standard input; empty: the parent's
  std::string output;                 // file to append standard output to; empty: the parent's
  std::string errors;                 // the same for standard error
  int signal_at_end = 0;              // sent to it when the thread that starts it ends; 0: none
  std::function<void()> before_exec;  // runs in the child
};

// A child process, killed when the object goes. One thread only.
class ChildProcess {
 public:
  // Starts a program with default signals, none of them blocked, and nothing open but the standard
  // streams. A child that cannot become the program ends with status 127.
  explicit ChildProcess(const ChildOptions& options);
  // A copy of this process that ends with the status `work` returns, and with the thread that makes
  // it.
  explicit ChildProcess(const std::function<int()>& work);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // -1 when the host has no process left. The number stays after the end.
  pid_t pid() const { return pid_; }

  // Sends a signal; has no effect once the end was seen.
  void Signal(int number) const;

  // The exit status, or 128 + the signal that ended it; nothing while it runs.
  std::optional<int> Poll();

  // Waits up to `limit` for that.
  std::optional<int> Wait(std::chrono::milliseconds limit);

  // SIGTERM, SIGKILL when it still runs after `limit`, and the status.
  int Terminate(std::chrono::milliseconds limit);

 private:
  int Collect();

  pid_t pid_ = -1;
  std::optional<int> status_;
};

}  // namespace qnx

#endif  // KORVANDIS_QNX_CHILD_PROCESS_H
