// The program `headunit`: runs a simulated unit until SIGTERM or SIGINT, or speaks to a running
// one.
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "headunit/unit.h"
#include "platform/io.h"
#include "qnx/bench_link.h"
#include "qnx/text.h"
#include "qnx/unit_root.h"

namespace {

const int kFailed = 1;
const int kMisused = 2;
const std::size_t kLongestAnswer = 1 << 20;
const char kRootVariable[] = "HEADUNIT_ROOT";

const char kUsage[] =
    "Usage: headunit [options]\n"
    "       headunit ctl WORDS...\n"
    "\n"
    "Runs a simulated head unit below a directory until SIGTERM or SIGINT.\n"
    "\n"
    "  --root DIR       the directory that stands for the unit's '/' (default: $HEADUNIT_ROOT)\n"
    "  --profile DIR    what the unit is started from (default: the shipped profile)\n"
    "  --empty          start without objects, files and services\n"
    "  --no-services    start without the services behind the objects\n"
    "  --state DIR      what survives a restart (default: ROOT/var/headunit)\n"
    "  --log-lines N    lines of the system log, a power of two (default: 16384)\n"
    "  --save DIR       write all objects as a profile into DIR at the end\n"
    "  --help           this text\n"
    "\n"
    "ctl sends one line to the unit that runs below $HEADUNIT_ROOT and prints its answer;\n"
    "'headunit ctl help' lists what there is. The exit status is 1 when the unit refuses.\n";

struct Arguments {
  headunit::UnitOptions options;
  std::string save;
  bool help = false;
};

int Fail(const std::string& message) {
  std::fprintf(stderr, "headunit: %s\n", message.c_str());
  return kFailed;
}

bool ParseLines(const std::string& text, std::uint32_t* lines) {
  std::uint32_t value = 0;
  const bool number = qnx::ParseNumber(text, 1, std::numeric_limits<std::uint32_t>::max(), &value);
  if (!number || (value & (value - 1)) != 0) return false;  // only powers of two
  *lines = value;
  return true;
}

// Returns an empty text or what is wrong with the command line.
std::string ParseArguments(const std::vector<std::string>& words, Arguments* arguments) {
  headunit::UnitOptions* const options = &arguments->options;
  bool empty = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--help" || word == "-h") {
      arguments->help = true;
      return "";
    }
    if (word == "--empty") {
      empty = true;
      continue;
    }
    if (word == "--no-services") {
      options->services = false;
      continue;
    }
    std::string* text = nullptr;
    std::string lines;
    if (word == "--root") text = &options->root;
    if (word == "--profile") text = &options->profile;
    if (word == "--state") text = &options->state;
    if (word == "--save") text = &arguments->save;
    if (word == "--log-lines") text = &lines;
    if (text == nullptr) return "unknown argument '" + word + "'";
    if (i + 1 == words.size() || words[i + 1].empty()) return word + " needs a value";
    *text = words[++i];
    if (text == &lines && !ParseLines(lines, &options->log_lines)) {
      return "--log-lines needs a power of two, not '" + lines + "'";
    }
  }
  if (empty) {
    if (!options->profile.empty()) return "--empty and --profile exclude each other";
    options->services = false;
  } else if (options->profile.empty()) {
    options->profile = headunit::DefaultProfile();
    if (options->profile.empty())
      return "the shipped profile is not installed: give --profile or --empty";
  }
  const char* const variable = std::getenv(kRootVariable);
  if (options->root.empty() && variable != nullptr) options->root = variable;
  if (options->root.empty()) return "no root: give --root DIR or set HEADUNIT_ROOT";
  return "";
}

// Every connection is a descriptor, so as many as the host permits.
void RaiseDescriptorLimit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int Run(Arguments arguments) {
  // The root is made absolute first: the services find it through the environment.
  std::string* const root = &arguments.options.root;
  while (root->size() > 1 && root->back() == '/') root->pop_back();
  if (root->front() != '/') {
    char here[4096];
    if (getcwd(here, sizeof(here)) == nullptr) return Fail(std::strerror(errno));
    *root = std::string(here) + "/" + *root;
  }
  setenv(kRootVariable, root->c_str(), 1);
  RaiseDescriptorLimit();

  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  headunit::Unit unit(arguments.options);
  const std::string failure = unit.Start();
  if (!failure.empty()) return Fail(failure);
  std::printf("ready: root %s, profile %s\n", root->c_str(),
              arguments.options.profile.empty() ? "none" : arguments.options.profile.c_str());
  std::fflush(stdout);

  int number = 0;
  while (sigwait(&ends, &number) != 0) {
  }
  int status = 0;
  if (!arguments.save.empty()) {
    const std::string answer = unit.Control("save " + arguments.save);
    if (answer.compare(0, 2, "ok") != 0) status = Fail("save: " + answer);
  }
  unit.Stop();
  return status;
}

int Control(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  if (line.empty()) line = "help";
  const int fd = platform::open(qnx::kControlPath, O_RDWR);
  if (fd < 0) {
    const std::string error = std::strerror(errno);
    const std::string reason = qnx::WhyNoUnit();
    return Fail(reason.empty() ? error : reason);
  }
  std::string answer(kLongestAnswer, '\0');
  const ssize_t sent = platform::write(fd, line.data(), line.size());
  const ssize_t size = sent < 0 ? -1 : read(fd, &answer[0], answer.size());
  const int error = errno;
  close(fd);
  if (size <= 0)
    return Fail(std::string("no answer: ") + (size < 0 ? std::strerror(error) : "end"));
  answer.resize(static_cast<std::size_t>(size));
  if (answer.compare(0, 2, "ok") != 0) {
    return Fail(answer.compare(0, 6, "error ") == 0 ? answer.substr(6) : answer);
  }
  std::printf("%s\n", answer.size() > 3 ? answer.c_str() + 3 : "ok");
  if (std::fflush(stdout) == 0) return 0;
  return Fail(std::string("standard output: ") + std::strerror(errno));
}

}  // namespace

int main(int argc, char** argv) {
  // One heap for all threads: the host gets back the free end of the first one only, and a long
  // queue is to leave nothing behind.
  mallopt(M_ARENA_MAX, 1);
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (!words.empty() && words[0] == "ctl") {
    return Control(std::vector<std::string>(words.begin() + 1, words.end()));
  }
  Arguments arguments;
  const std::string wrong = ParseArguments(words, &arguments);
  if (!wrong.empty()) {
    std::fprintf(stderr, "headunit: %s\nTry 'headunit --help'.\n", wrong.c_str());
    return kMisused;
  }
  if (arguments.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  return Run(arguments);
}
