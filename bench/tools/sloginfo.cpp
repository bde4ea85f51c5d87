// sloginfo: prints and follows the unit's log.
#include <getopt.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <limits>
#include <set>
#include <string>

#include "qnx/slog_ring.h"
#include "qnx/unit_root.h"
#include "tools/program.h"

namespace {

using tools::kExitRight;
using tools::kExitUsage;
using tools::kExitWrong;

const char kHelp[] =
    R"(usage: sloginfo [OPTION...]

Prints the unit's log: time, severity, opcode, process and text, a line an entry.

  -s SEVERITY    a name: this severity and graver ones; digits: exactly these (-s 2, -s 0123)
                   0 shutdown  1 critical  2 error   3 warning
                   4 notice    5 info      6 debug1  7 debug2
  -m CODE        only this opcode: decimal, 0x and hexadecimal, or 8 digits as they are printed
  --process PID  only this process
  --text TEXT    only lines that hold TEXT
  -n LINES       only the last LINES lines (0 with -w: only new ones)
  -w, -f         wait for more: print what is logged until interrupted, also after the unit restarts
  -t             date and time to the microsecond
  -h             a first line that names the columns
  -c             clear the log after printing it
  --root DIR     directory that stands for the unit's / (default: $HEADUNIT_ROOT)
  --help         this text

-s, -m and --process may be repeated: a line of any of them is printed. A line "... N lines lost"
stands where entries were overwritten before they could be read.
Exit status: 0 printed, 1 there is no log or it cannot be printed, 2 wrong usage.
)";

const char* const kSeverities[] = {"shutdown", "critical", "error",  "warning",
                                   "notice",   "info",     "debug1", "debug2"};
const unsigned kSeverityCount = 8;
const int kFollowMilliseconds = 50;  // rings cannot be waited for

struct Options {
  bool follow = false;
  bool clear = false;
  bool headline = false;
  bool dates = false;
  std::set<std::uint32_t> severities;  // empty: all, as below
  std::set<std::uint32_t> opcodes;
  std::set<std::uint32_t> processes;
  std::string text;
  bool limited = false;
  std::size_t lines = 0;  // when limited
};

int UsageError(const std::string& reason) {
  std::cerr << "sloginfo: " << reason << "; see 'sloginfo --help'\n";
  return kExitUsage;
}

std::string Columns(const char* severity, const char* opcode, const char* process) {
  return qnx::Formatted(" %-8s %-8s %6s  ", severity, opcode, process);
}

std::string Headline(const Options& options) {
  std::string line = options.dates ? "date and time" : "time";
  line.resize(options.dates ? 26 : 12, ' ');
  return line + Columns("severity", "opcode", "pid") + "text\n";
}

std::string Format(const Options& options, const qnx::SlogLine& line) {
  std::string text = line.text;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  const std::string time =
      options.dates ? tools::DateTime(line.nanoseconds) : tools::ClockTime(line.nanoseconds);
  return time +
         Columns(line.severity < kSeverityCount ? kSeverities[line.severity] : "?",
                 qnx::Formatted("%08x", line.opcode).c_str(), std::to_string(line.pid).c_str()) +
         tools::Escape(text) + "\n";
}

bool Wants(const std::set<std::uint32_t>& wanted, std::uint32_t value) {
  return wanted.empty() || wanted.count(value) != 0;
}

bool Wants(const Options& options, const qnx::SlogLine& line) {
  return Wants(options.severities, line.severity) && Wants(options.opcodes, line.opcode) &&
         Wants(options.processes, line.pid) && line.text.find(options.text) != std::string::npos;
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
      if (result == Result::kLine && !Wants(options_, line)) continue;
      if (result == Result::kLost && last) continue;  // older than what is asked for
      std::string text = result == Result::kLine   ? Format(options_, line)
                         : result == Result::kLost ? Lost(lost)
                                                   : "... a line that its writer did not finish\n";
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

int NoLog(const std::string& path, int error) {
  std::string reason = path + ": " + (error == EINVAL ? "not a log ring" : std::strerror(error));
  const std::string no_unit = error == EINVAL ? "" : qnx::WhyNoUnit();
  std::cerr << "sloginfo: " << (no_unit.empty() ? reason : no_unit) << '\n';
  return kExitWrong;
}

int Show(const Options& options) {
  const std::string path = qnx::UnitRoot() + qnx::kSlogPath;
  tools::Interrupt interrupt;
  qnx::SlogReader reader;
  int error = reader.Open(path);
  if (error != 0) return NoLog(path, error);
  if (options.headline) std::cout << Headline(options);
  Printer printer(options);
  printer.Print(&reader, options.limited);
  if (options.clear && std::cout.good()) error = qnx::ClearSlogRing(path);
  if (error != 0) return NoLog(path, error);
  while (options.follow && std::cout.good()) {
    interrupt.Wait(-1, kFollowMilliseconds);
    if (interrupt.Pending()) break;
    printer.Print(&reader, false);
    // A unit that restarts lays down a new ring. While there is none the old one is kept.
    if (reader.Replaced()) reader.Open(path);
  }
  return kExitRight;
}

bool ParseSeverity(const std::string& text, std::set<std::uint32_t>* severities) {
  if (!text.empty() && text.find_first_not_of("01234567") == std::string::npos) {
    for (const char digit : text) severities->insert(static_cast<std::uint32_t>(digit - '0'));
    return true;
  }
  for (std::uint32_t i = 0; i < kSeverityCount; ++i) {
    if (text != kSeverities[i]) continue;
    for (std::uint32_t graver = 0; graver <= i; ++graver) severities->insert(graver);
    return true;
  }
  return false;
}

bool ParseOpcode(const std::string& text, unsigned long* opcode) {
  const unsigned long limit = std::numeric_limits<std::uint32_t>::max();
  if (text.compare(0, 2, "0x") == 0) return qnx::ParseNumber(text.substr(2), 0, limit, opcode, 16);
  return qnx::ParseNumber(text, 0, limit, opcode, text.size() == 8 ? 16 : 10);
}

// Takes one option with its value. Returns what is wrong with it, or nothing.
std::string TakeOption(int option, const std::string& value, Options* options) {
  const std::string shown = tools::Quoted(value) + " ";
  unsigned long number = 0;
  switch (option) {
    case 'c':
      options->clear = true;
      break;
    case 'f':
    case 'w':
      options->follow = true;
      break;
    case 'h':
      options->headline = true;
      break;
    case 't':
      options->dates = true;
      break;
    case 's':
      if (!ParseSeverity(value, &options->severities)) return shown + "is not a severity";
      break;
    case 'm':
      if (!ParseOpcode(value, &number)) return shown + "is not an opcode";
      options->opcodes.insert(static_cast<std::uint32_t>(number));
      break;
    case 'n':
      if (!qnx::ParseNumber(value, 0, 999999999, &number))
        return shown + "is not a number of lines";
      options->limited = true;
      options->lines = number;
      break;
    case 'p':
      if (!qnx::ParseNumber(value, 0, 999999999, &number)) return shown + "is not a process number";
      options->processes.insert(static_cast<std::uint32_t>(number));
      break;
    case 'e':
      options->text = value;
      break;
    case 'r':
      ::setenv(qnx::kRootVariable, value.c_str(), 1);
      break;
    default:
      break;
  }
  return "";
}

int Run(int argc, char** argv) {
  static const option kLong[] = {{"help", no_argument, nullptr, 'H'},
                                 {"process", required_argument, nullptr, 'p'},
                                 {"root", required_argument, nullptr, 'r'},
                                 {"text", required_argument, nullptr, 'e'},
                                 {nullptr, 0, nullptr, 0}};
  Options options;
  ::opterr = 0;
  int found;
  while ((found = ::getopt_long(argc, argv, ":cfhm:n:s:tw", kLong, nullptr)) != -1) {
    const std::string word = tools::Escape(argv[::optind - 1]);
    if (found == ':') return UsageError(word + " needs a value");
    if (found == '?') return UsageError("unknown option '" + word + "'");
    if (found == 'H') {
      std::cout << kHelp;
      return kExitRight;
    }
    const std::string problem = TakeOption(found, ::optarg != nullptr ? ::optarg : "", &options);
    if (!problem.empty()) return UsageError(problem);
  }
  if (::optind < argc) {
    return UsageError("unexpected argument '" + tools::Escape(argv[::optind]) + "'");
  }
  return Show(options);
}

}  // namespace

int main(int argc, char** argv) {
  tools::PrepareProgram();
  return tools::FinishProgram("sloginfo", Run(argc, argv));
}
