// sloginfo: prints and follows the unit's log.
#include <sys/slog.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <string>
#include <vector>

#include "qnx/slog_ring.h"
#include "tools/program.h"

namespace {

using tools::kExitRight;
using tools::kExitUsage;
using tools::kExitWrong;

const char kHelp[] =
    R"(usage: sloginfo [-f] [-s SEVERITY] [-n LINES] [--root DIR]

Prints the unit's log: time, severity, opcode, process and text, a line an entry.

  -f            follow: print what is logged until interrupted, also after the unit restarts
  -s SEVERITY   only this severity and graver ones: a number 0 to 7 or one of shutdown, critical,
                error, warning, notice, info, debug1, debug2
  -n LINES      only the last LINES lines (0 with -f: only new ones)
  --root DIR    directory that stands for the unit's / (default: $HEADUNIT_ROOT)
  --help        this text

A line "... N lines lost" stands where entries were overwritten before they could be read.
Exit status: 0 printed, 1 there is no log, 2 wrong usage.
)";

const char* const kSeverities[] = {"shutdown", "critical", "error",  "warning",
                                   "notice",   "info",     "debug1", "debug2"};
const unsigned kSeverityCount = 8;
const int kFollowMilliseconds = 50;  // rings cannot be waited for

struct Options {
  bool follow = false;
  unsigned severity = kSeverityCount - 1;  // highest number shown
  bool limited = false;
  std::size_t lines = 0;  // when limited
};

int UsageError(const std::string& reason) {
  std::cerr << "sloginfo: " << reason << "; see 'sloginfo --help'\n";
  return kExitUsage;
}

std::string Format(const qnx::SlogLine& line) {
  const char* severity = line.severity < kSeverityCount ? kSeverities[line.severity] : "?";
  char head[64];
  std::snprintf(head, sizeof(head), " %-8s %08x %6u  ", severity, line.opcode, line.pid);
  std::string text = line.text;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return tools::ClockTime(line.nanoseconds) + head + tools::Escape(text) + "\n";
}

// Prints what has been logged since the last call.
class Printer {
 public:
  explicit Printer(const Options& options) : options_(options) {}

  // Without `last` every line as it comes; with it only the last lines of what is there.
  void Print(qnx::SlogReader* reader, bool last) {
    using Result = qnx::SlogReader::Result;
    std::deque<std::string> kept;
    qnx::SlogLine line;
    std::uint64_t lost = 0;
    Result result;
    while (std::cout.good() && (result = reader->Next(&line, &lost)) != Result::kNothing) {
      if (result == Result::kLine && line.severity > options_.severity) continue;
      if (result == Result::kLost && last) continue;  // older than what is asked for
      std::string text = result == Result::kLine ? Format(line) : Lost(lost);
      if (!last) {
        std::cout << text;
        continue;
      }
      kept.push_back(std::move(text));
      if (kept.size() > options_.lines) kept.pop_front();
    }
    for (const std::string& text : kept) std::cout << text;
    std::cout.flush();
  }

 private:
  static std::string Lost(std::uint64_t count) {
    return "... " + std::to_string(count) + (count == 1 ? " line lost\n" : " lines lost\n");
  }

  const Options& options_;
};

// Host path of the ring.
std::string RingPath() {
  const char* root = std::getenv("HEADUNIT_ROOT");
  return std::string(root != nullptr ? root : "") + qnx::kSlogPath;
}

int Show(const Options& options) {
  const std::string path = RingPath();
  tools::Interrupt interrupt;
  qnx::SlogReader reader;
  const int error = reader.Open(path);
  if (error != 0) {
    const char* reason = error == EINVAL ? "not a log ring" : std::strerror(error);
    std::cerr << "sloginfo: " << path << ": " << reason
              << (error == ENOENT ? ": is the unit running, and HEADUNIT_ROOT right?\n" : "\n");
    return kExitWrong;
  }
  Printer printer(options);
  printer.Print(&reader, options.limited);
  while (options.follow && std::cout.good()) {
    interrupt.Wait(-1, kFollowMilliseconds);
    if (interrupt.Pending()) break;
    printer.Print(&reader, false);
    // A unit that restarts lays down a new ring. While there is none the old one is kept.
    if (reader.Replaced()) reader.Open(path);
  }
  return kExitRight;
}

bool ParseNumber(const std::string& text, unsigned long limit, unsigned long* value) {
  if (text.empty() || text.size() > 9 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  *value = std::stoul(text);
  return *value <= limit;
}

bool ParseSeverity(const std::string& text, unsigned* severity) {
  unsigned long number = 0;
  if (ParseNumber(text, kSeverityCount - 1, &number)) {
    *severity = static_cast<unsigned>(number);
    return true;
  }
  for (unsigned i = 0; i < kSeverityCount; ++i) {
    if (text != kSeverities[i]) continue;
    *severity = i;
    return true;
  }
  return false;
}

int Run(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--help" || argument == "-h") {
      std::cout << kHelp;
      return kExitRight;
    }
    if (argument == "-f") {
      options.follow = true;
      continue;
    }
    if (argument != "-s" && argument != "-n" && argument != "--root") {
      return UsageError("unknown argument '" + tools::Escape(argument) + "'");
    }
    if (i + 1 == arguments.size()) return UsageError(argument + " needs a value");
    const std::string& value = arguments[++i];
    unsigned long number = 0;
    if (argument == "--root") {
      ::setenv("HEADUNIT_ROOT", value.c_str(), 1);
    } else if (argument == "-s" && !ParseSeverity(value, &options.severity)) {
      return UsageError("unknown severity '" + tools::Escape(value) + "'");
    } else if (argument == "-n") {
      if (!ParseNumber(value, 999999999, &number)) {
        return UsageError("'" + tools::Escape(value) + "' is not a number of lines");
      }
      options.limited = true;
      options.lines = number;
    }
  }
  return Show(options);
}

}  // namespace

int main(int argc, char** argv) {
  tools::PrepareProgram();
  const int status = Run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  return tools::FinishProgram(std::cout, status);
}
