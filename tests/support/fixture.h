// What tests run on: a temporary root, a unit below it, the service as a process of its
// own, and a station on the unit's test connector.
#ifndef KORVANDIS_TESTS_SUPPORT_FIXTURE_H
#define KORVANDIS_TESTS_SUPPORT_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "headunit/unit.h"
#include "qnx/child_process.h"
#include "qnx/slog_ring.h"
#include "support/temp_root.h"
#include "wire/at_packet.h"

namespace support {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

// "43 e1" for a failure's message.
std::string Hex(const Bytes& bytes);

// The bytes of a text, without terminator.
Bytes Text(const std::string& text);

// Whether `text` holds `part`, for EXPECT_PRED2, which shows both.
bool Contains(const std::string& text, const std::string& part);

// A reply packet as the service frames it: it differs from a request in the command's bit and in
// what its length byte counts.
Bytes Reply(std::uint8_t command, std::uint8_t sub_command, const Bytes& data);

// The words of a command line without quotes.
std::vector<std::string> Arguments(const std::string& line);

// So many times longer may everything take here: under emulation, or with a sanitizer.
const int kPatience = KORVANDIS_PATIENCE;
// ThreadSanitizer runs a thread of its own in every process, and the emulator uses a thread's
// signals: what is said of all threads does not hold there.
#ifdef __SANITIZE_THREAD__
const bool kOwnThreadsOnly = false;
#else
const bool kOwnThreadsOnly = KORVANDIS_EMULATOR[0] == '\0';
#endif
// How long to wait for what must come.
const milliseconds kSoon = milliseconds(5000) * kPatience;

// Waits until `condition` holds; false when it does not within `limit` times kPatience.
bool Eventually(const std::function<bool()>& condition, milliseconds limit = milliseconds(5000));

std::string ReadFile(const std::string& path);

// Where the project lies, and where its programs were built.
std::string SourceDir();
std::string BinDir();

// Number of open descriptors of a process.
int CountDescriptors(pid_t pid);

// Waits until `fd` has something to read; false when it has nothing within `limit`.
bool WaitReadable(int fd, milliseconds limit);

// What bash completes with the script at `script` loaded. `words` is a command line that ends with
// the word to complete, which '' leaves empty. Its files lie below `root`.
std::string Completed(const TempRoot& root, const std::string& script, const std::string& words);

// A program of the build as a child process, in the root, with its output in files there. Killed
// when the object goes.
class Program {
 public:
  // Starts `name` of the build's bin directory with `arguments`. `before_exec` runs in the child.
  Program(const TempRoot& root, const std::string& name,
          const std::vector<std::string>& arguments = {},
          const std::function<void()>& before_exec = nullptr);

  pid_t pid() const { return child_->pid(); }
  bool IsRunning() { return !child_->Poll(); }
  void Signal(int number) const { child_->Signal(number); }
  // Waits for the end: the exit status, 128 + the signal that killed it, or -1 when it still runs
  // after `limit`.
  int Wait(milliseconds limit = milliseconds(10000));
  // SIGTERM, SIGKILL when it still runs after `limit`, and the status.
  int Terminate(milliseconds limit = milliseconds(10000));

  // What it wrote so far.
  std::string Output() const;
  std::string Errors() const;

 private:
  std::string output_path_;
  std::string error_path_;
  std::optional<qnx::ChildProcess> child_;
};

// The lines of the unit's log ring, from the moment of construction on.
class Log {
 public:
  explicit Log(const TempRoot& root);

  struct Line {
    std::uint32_t severity;
    std::uint32_t opcode;
    std::string text;
  };
  // Takes in what was logged since and returns all lines seen so far.
  const std::vector<Line>& Lines();
  // The texts of the lines with `severity`.
  std::vector<std::string> Texts(std::uint32_t severity);
  bool Has(std::uint32_t severity, const std::string& text);
  void Clear();

 private:
  qnx::SlogReader reader_;
  std::vector<Line> lines_;
};

// One connection to the unit's test connector.
class Station {
 public:
  Station();
  ~Station();
  Station(const Station&) = delete;
  Station& operator=(const Station&) = delete;

  // Sends any bytes as one packet.
  void SendRaw(const Bytes& packet) const;
  void Send(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters = {}) const;
  // The next packet from the service, nothing when none comes within `limit`.
  std::optional<Bytes> Receive(milliseconds limit = kSoon) const;

  // Sends a request and returns the data of its reply; fails the test when none comes or when it is
  // not a whole reply to this request.
  Bytes Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters = {}) const;
  // Sends a request that is not answered and returns when it has been carried out: the service
  // answers in order, so the reply to a question behind it tells. Fails the test when the request
  // is answered.
  void Do(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters = {}) const;

 private:
  int fd_;
};

// Waits until the service answers: what arrives before its start is lost.
bool ServiceAnswers();

// What an object holds: its text, or nothing when there is no such object.
std::optional<std::string> ReadObject(const std::string& path);
// One attribute's line without its name ("n:6"), nothing when the object or it is missing.
std::optional<std::string> Attribute(const std::string& path, const std::string& name);
// Writes lines to an object, which is created when missing.
void WriteObject(const std::string& path, const std::string& lines);

// Of a unit with the shipped profile and all services.
headunit::UnitOptions WholeUnit();

// A unit without profile and services, and the service connected to it.
class ServiceOnUnit : public ::testing::Test {
 protected:
  explicit ServiceOnUnit(headunit::UnitOptions options = Empty());
  ~ServiceOnUnit() override;
  void SetUp() override;

  static headunit::UnitOptions Empty();

  // Starts the service and waits until it has the MCU device.
  void StartService(const std::function<void()>& before_exec = nullptr);
  // What the service wrote to standard error since the last Mark.
  std::string Errors() const;
  std::string Output() const;
  void Mark();
  // Ends the service; its exit status.
  int StopService();

  TempRoot root_;
  std::unique_ptr<headunit::Unit> unit_;
  std::unique_ptr<Program> service_;
  std::unique_ptr<Log> log_;
  std::unique_ptr<Station> station_;

 private:
  headunit::UnitOptions options_;
  std::size_t errors_seen_ = 0;
  std::size_t output_seen_ = 0;
};

}  // namespace support

#endif  // KORVANDIS_TESTS_SUPPORT_FIXTURE_H
