// Common to the benchmark programs: a unit below a temporary root, programs started on it, a
// station, and the rows of the result table.
//
// A benchmark that cannot be carried out says why and ends with status 2; one whose goal is missed
// prints its row all the same.
#ifndef KORVANDIS_BENCHMARKS_SETUP_H
#define KORVANDIS_BENCHMARKS_SETUP_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/descriptor.h"
#include "platform/io.h"
#include "qnx/bench_link.h"
#include "qnx/child_process.h"
#include "qnx/text.h"
#include "support/temp_root.h"
#include "wire/at_packet.h"

namespace setup {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;
using support::TempRoot;

const int kCannotMeasure = 2;
const std::size_t kAnswerSize = 4096;  // more than the unit answers to a control line
const int kPatienceMs = 10000;         // for what takes milliseconds when all is well
const int kMomentMs = 200;             // for an answer of a service that may not have started yet

const std::uint8_t kVersionCommand = 7;
const std::uint8_t kMpuVersion = 1;
const std::uint8_t kNoVersion = 255;  // a sub-command without a source

inline const Bytes kVersionQuery = wire::BuildRequest(kVersionCommand, kMpuVersion, {});

// Answered at once with an empty reply, so everything that was sent before it is done.
inline const Bytes kQuestion = wire::BuildRequest(kVersionCommand, kNoVersion, {});

// Ends the program through Main, with everything released that it started.
[[noreturn]] inline void Fail(const std::string& reason) { throw std::runtime_error(reason); }

inline double Seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

inline double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

inline std::string Number(double value, int digits) {
  return qnx::Formatted("%.*f", digits, value);
}

// One line of the table that benchmarks/run collects. `goal` may be empty.
inline void Row(const std::string& what, const std::string& figure, const std::string& goal,
                bool reached) {
  const char* const verdict = goal.empty() ? "" : reached ? "reached" : "missed";
  std::printf("| %s | %s | %s | %s |\n", what.c_str(), figure.c_str(), goal.c_str(), verdict);
  std::fflush(stdout);
}

// A number on the command line, or `otherwise` when there is none.
inline long Argument(int argc, char** argv, int index, long otherwise) {
  if (index >= argc) return otherwise;
  long value = 0;
  if (!qnx::ParseNumber(argv[index], 1, LONG_MAX, &value)) {
    Fail(qnx::Quoted(argv[index]) + " is not a number above 0");
  }
  return value;
}

// A program that runs in `directory`, with its output and errors in files or devices. Ended with
// the object.
class Process {
 public:
  Process(const std::string& directory, std::vector<std::string> words,
          const std::string& output = "/dev/null", const std::string& errors = "/dev/null") {
    qnx::ChildOptions options;
    options.words = std::move(words);
    options.directory = directory;
    options.input = "/dev/null";
    options.output = output;
    options.errors = errors;
    options.signal_at_end = SIGTERM;
    child_.emplace(options);
  }
  ~Process() { Terminate(); }

  pid_t pid() const { return child_->pid(); }

  void Terminate() { child_->Terminate(std::chrono::milliseconds(kPatienceMs)); }

  // A sum over /proc/PID/smaps in KiB, such as "Rss", without the log ring, which is a file of the
  // unit. Counted page by page: /proc/PID/status is quicker, and some hundred KiB off.
  long Memory(const std::string& name) const {
    std::ifstream file(Directory() + "/smaps");
    const std::string ring = "/dev/slog";
    bool counts = true;
    long sum = 0;
    for (std::string line; std::getline(file, line);) {
      const std::string word = line.substr(0, line.find(' '));
      if (word.back() != ':') {  // the range of the next mapping, its path at the end
        counts = line.size() < ring.size() ||
                 line.compare(line.size() - ring.size(), ring.size(), ring) != 0;
      } else if (counts && word == name + ":") {
        sum += std::stol(line.substr(word.size()));
      }
    }
    if (sum == 0) Fail("the process is gone");
    return sum;
  }

  int Descriptors() const { return Entries("/fd"); }
  int Threads() const { return Entries("/task"); }

  // The sum over all threads of the number that `take` finds in a line of the thread's `file`.
  template <typename Take>
  double SumOverThreads(const char* file, Take take) const {
    double sum = 0;
    for (const auto& thread : fs::directory_iterator(Directory() + "/task")) {
      std::ifstream lines(thread.path() / file);
      for (std::string line; std::getline(lines, line);) sum += take(line);
    }
    return sum;
  }

  // Processor time of all threads that live, in seconds.
  double ProcessorTime() const {
    return SumOverThreads("schedstat", [](const std::string& line) {
      return std::strtod(line.c_str(), nullptr) / 1e9;
    });
  }

  // How often a thread gave the processor up to wait, which is how often it will be woken.
  double Waits() const {
    static const std::string kName = "voluntary_ctxt_switches:";
    return SumOverThreads("status", [](const std::string& line) {
      const bool found = line.compare(0, kName.size(), kName) == 0;
      return found ? std::strtod(line.c_str() + kName.size(), nullptr) : 0.0;
    });
  }

 private:
  int Entries(const char* folder) const {
    return static_cast<int>(std::distance(fs::directory_iterator(Directory() + folder), {}));
  }

  std::string Directory() const { return "/proc/" + std::to_string(pid()); }

  std::optional<qnx::ChildProcess> child_;
};

inline std::string BinaryPath(const std::string& name) {
  return std::string(KORVANDIS_BIN_DIR) + "/" + name;
}

// A running unit with the shipped profile. `options` are those of the program.
class Unit {
 public:
  explicit Unit(std::vector<std::string> options = {})
      : process_(root_.path(), Words(std::move(options))), control_(Connect(qnx::kControlPath)) {}

  const std::string& root() const { return root_.path(); }
  const Process& process() const { return process_; }

  // A started service has the MCU device open and answers: what arrives before its start is lost.
  void WaitForService(bool present) const {
    const std::string expected = present ? "ok service 1" : "ok service 0";
    const auto deadline = Clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (Ask("status").compare(0, expected.size(), expected) != 0 || (present && !Answers())) {
      if (Clock::now() > deadline) Fail("the service does not connect");
    }
  }

  // True when the service answers a question within a moment.
  static bool Answers() {
    const platform::Descriptor station = Connect(qnx::kStationPath);
    pollfd answer = {station.Get(), POLLIN, 0};
    return platform::write(station.Get(), kVersionQuery.data(), kVersionQuery.size()) > 0 &&
           ::poll(&answer, 1, kMomentMs) > 0;
  }

  // The answer to a control line.
  std::string Ask(const char* line) const {
    char answer[kAnswerSize];
    const ssize_t sent = platform::write(control_.Get(), line, std::strlen(line));
    const ssize_t size = sent < 0 ? -1 : ::read(control_.Get(), answer, sizeof(answer));
    if (size <= 0) Fail("the unit's control connector does not answer");
    return std::string(answer, static_cast<std::size_t>(size));
  }

  // Opens a manager's path as soon as it is there.
  static platform::Descriptor Connect(const char* path) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(kPatienceMs);
    for (;;) {
      platform::Descriptor file(platform::open(path, O_RDWR));
      if (file.IsOpen()) return file;
      if (Clock::now() > deadline) Fail(std::string("no unit answers at ") + path);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  static std::vector<std::string> Words(std::vector<std::string> options) {
    options.insert(options.begin(), BinaryPath("headunit"));
    return options;
  }

  TempRoot root_;
  Process process_;
  platform::Descriptor control_;
};

// One connection to the unit's test connector.
class Station {
 public:
  Station() : file_(Unit::Connect(qnx::kStationPath)), packet_(wire::kMaxPacket) {}

  void Send(const Bytes& packet) const {
    const ssize_t sent = platform::write(file_.Get(), packet.data(), packet.size());
    if (sent != static_cast<ssize_t>(packet.size())) Fail("the unit takes no packet");
  }

  // The next packet from the service.
  Bytes Receive() {
    const auto deadline = Clock::now() + std::chrono::milliseconds(kPatienceMs);
    for (;;) {
      const ssize_t count = ::read(file_.Get(), packet_.data(), packet_.size());
      if (count > 0) return Bytes(packet_.begin(), packet_.begin() + count);
      if (count == 0 || errno != EAGAIN) Fail("the unit has hung up");
      if (Clock::now() > deadline) Fail("no reply within the time");
      std::fprintf(stderr, "no reply for %d s\n", platform::kManagerTimeoutMs / 1000);
    }
  }

  // Returns when the service has done everything that was sent before.
  void Settle() {
    Send(kQuestion);
    for (wire::Reply reply{};
         reply.command != kVersionCommand || reply.sub_command != kNoVersion;) {
      if (!wire::ParseReply(Receive(), &reply)) Fail("a malformed reply");
    }
  }

  Bytes Ask(const Bytes& packet) {
    Send(packet);
    return Receive();
  }

 private:
  platform::Descriptor file_;
  Bytes packet_;
};

// Runs `body` as main does; a failure is said and becomes the exit status.
template <typename Body>
int Main(Body body) {
  try {
    return body();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "cannot measure: %s\n", failure.what());
    return kCannotMeasure;
  }
}

}  // namespace setup

#endif  // KORVANDIS_BENCHMARKS_SETUP_H
