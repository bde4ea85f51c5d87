// Common to the bench's command line programs: exit statuses, orderly ends, times of day.
#ifndef KORVANDIS_TOOLS_PROGRAM_H
#define KORVANDIS_TOOLS_PROGRAM_H

#include <cstdint>
#include <memory>
#include <string>

#include "platform/descriptor.h"
#include "qnx/manager_socket.h"
#include "qnx/text.h"

namespace tools {

const int kExitRight = 0;
const int kExitWrong = 1;  // an answer is missing or wrong, or no unit answers
const int kExitUsage = 2;  // the command line is wrong

// Called first in main: descriptors 0 to 2 are open afterwards, so that a socket never takes their
// place; a closed pipe is an error of the stream instead of a signal; std::cout keeps the reason
// why it could not be written. A terminal gets each line at once.
void PrepareProgram();

// Ends main: flushes std::cout. An output that could not be written is reported with its reason on
// standard error under the name `program`, and turns `status` into kExitWrong.
int FinishProgram(const char* program, int status);

// Collects SIGINT and SIGTERM while it lives, so that a loop can end in order. The calling thread's
// mask is restored at the end. One at a time a process.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  // True once a signal came that is not tolerated.
  bool Pending();

  // From now on the first `signals` signals, counted from the beginning, have no effect on Pending
  // and Wait; one more has.
  void Tolerate(int signals) { tolerated_ = signals; }

  // Waits up to `milliseconds` (-1: no limit) for `fd` (-1: none) to become readable or to be hung
  // up. Returns true when it did; false at the end of the time or on a signal.
  bool Wait(int fd, int milliseconds);

 private:
  platform::Descriptor signals_;
  int count_ = 0;
  int tolerated_ = 0;
  struct Mask;
  std::unique_ptr<Mask> saved_;
};

using qnx::ReadMessage;

using qnx::Escape;
using qnx::IsControl;
using qnx::IsUtf8;
using qnx::Quoted;
using qnx::Utf8Length;

// "12:34:56.789" in local time.
std::string ClockTime(std::uint64_t nanoseconds);

// "2026-11-23 12:34:56.789012" in local time.
std::string DateTime(std::uint64_t nanoseconds);

}  // namespace tools

#endif  // KORVANDIS_TOOLS_PROGRAM_H
