#include "run.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>

#include "fail.h"
#include "qnx/child_process.h"
#include "qnx/unit_root.h"

namespace headunit {
namespace {

namespace fs = std::filesystem;

const int kSignalBase = 128;  // of an exit status that stands for a signal

// The service finishes its command first, and each step of one has a time limit; a calibration ends
// with its script.
const std::chrono::milliseconds kServiceEnd{15000};

// Every connection is a descriptor, so as many as the host permits.
void RaiseDescriptorLimit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

bool IsProgram(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

// The program `name`: a path as it is, a name beside this program or else in PATH. Empty when there
// is none.
std::string FindProgram(const std::string& name) {
  std::error_code error;
  if (name.find('/') != std::string::npos) {
    return IsProgram(name) ? fs::absolute(name, error).string() : "";
  }
  const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / name;
  if (IsProgram(beside)) return beside.string();
  const char* const variable = std::getenv("PATH");
  std::istringstream folders(variable == nullptr ? "" : variable);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (IsProgram(fs::path(folder) / name)) return (fs::path(folder) / name).string();
  }
  return "";
}

std::string DescribeEnd(const std::string& name, int status) {
  if (status < kSignalBase) return name + " ended with status " + std::to_string(status);
  return name + " was ended by signal " + std::to_string(status - kSignalBase);
}

// The service as a child of the unit.
class ServiceProcess {
 public:
  ServiceProcess(const std::string& program, const std::string& root) {
    qnx::ChildOptions options;
    options.words = {program};
    options.directory = root;
    options.input = "/dev/null";
    options.signal_at_end = SIGTERM;
    child_.emplace(options);
    name_ = fs::path(program).filename().string();
  }

  // Says it once when the service has ended.
  void Look() {
    const std::optional<int> status = child_->Poll();
    if (!status || told_) return;
    told_ = true;
    failed_ = *status != 0;
    std::printf("%s\n", DescribeEnd(name_, *status).c_str());
    std::fflush(stdout);
  }

  // Ends it in order, or by force when it takes too long.
  void End() {
    child_->Terminate(kServiceEnd);
    Look();
  }

  bool failed() const { return failed_; }

 private:
  std::optional<qnx::ChildProcess> child_;
  std::string name_;
  bool told_ = false;
  bool failed_ = false;
};

}  // namespace

int Run(Arguments arguments) {
  // The root is made absolute first: the services find it through the environment.
  std::string* const root = &arguments.options.root;
  while (root->size() > 1 && root->back() == '/') root->pop_back();
  std::error_code error;
  if (root->front() != '/') *root = (fs::current_path(error) / *root).string();
  if (error) return Fail(error.message());
  setenv(qnx::kRootVariable, root->c_str(), 1);
  RaiseDescriptorLimit();
  const std::string program = FindProgram(arguments.service);
  if (!arguments.service.empty() && program.empty()) {
    return Fail("no program '" + arguments.service + "'");
  }

  signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a failed write, which is told
  signal(SIGCHLD, SIG_DFL);
  sigset_t awaited;
  sigemptyset(&awaited);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&awaited, number);
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);

  Unit unit(arguments.options);
  const std::string failure = unit.Start();
  if (!failure.empty()) return Fail(failure);
  std::printf("ready: root %s, profile %s\n", root->c_str(),
              arguments.options.profile.empty() ? "none" : arguments.options.profile.c_str());
  std::fflush(stdout);
  std::optional<ServiceProcess> service;
  if (!program.empty()) service.emplace(program, *root);

  for (int number = SIGCHLD; number == SIGCHLD;) {
    if (sigwait(&awaited, &number) != 0) number = SIGCHLD;
    if (service) service->Look();
  }
  int status = 0;
  if (service) {
    service->End();
    if (service->failed()) status = kFailed;
  }
  if (!arguments.save.empty()) {
    const std::string answer = unit.Control("save " + arguments.save);
    if (answer.compare(0, 2, "ok") != 0) status = Fail("save: " + answer);
  }
  unit.Stop();
  return status;
}

}  // namespace headunit
