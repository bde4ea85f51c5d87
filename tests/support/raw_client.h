// A client of the unit's resource managers on bare sockets, so that tests see and say every byte.
#ifndef KORVANDIS_TESTS_SUPPORT_RAW_CLIENT_H
#define KORVANDIS_TESTS_SUPPORT_RAW_CLIENT_H

#include <fcntl.h>

#include "headunit/unit.h"
#include "support/fake_manager.h"

namespace support {

// One connection to a manager. Nothing here waits longer than its limit.
class RawClient : public Connection {
 public:
  // Connects to the manager whose socket lies at `socket_path` below the root. Asks nothing yet.
  explicit RawClient(const std::string& socket_path);
  // Connects, asks and takes the answer: open unless `kind` says otherwise.
  RawClient(const std::string& socket_path, const std::string& rest, int flags,
            std::uint32_t kind = 1);

  bool connected() const { return fd() >= 0; }

  // The manager's answer, -1 when it hung up or gave none.
  int answer() const { return answer_; }
  // Reads the answer to a request that was sent byte by byte.
  int TakeAnswer(milliseconds limit = kSoon);

  // One message. False with errno when it cannot be sent at once.
  bool Send(const std::string& message) const;

  // The next message: nothing when none comes within the limit, an empty one at end of file.
  std::optional<std::string> Receive(milliseconds limit = kSoon) const;

  // What is there already, without waiting.
  std::optional<std::string> ReceiveNow() const { return Receive(milliseconds(0)); }

  // True when the manager ended the stream.
  bool AtEnd(milliseconds limit = kSoon) const;

 private:
  int answer_ = -1;
};

// The opening request as it travels.
std::string OpeningRequest(std::uint32_t kind, std::uint32_t flags, const std::string& rest);

// Shorthands for the PPS manager, with paths behind "/pps".
RawClient OpenPps(const std::string& rest, int flags);
int AccessPps(const std::string& rest);
int UnlinkPps(const std::string& rest);

// A unit alone, without profile, services and service.
class UnitTest : public ::testing::Test {
 protected:
  UnitTest();
  ~UnitTest() override;
  void SetUp() override;

  // Sends a control line and returns the whole answer.
  std::string Control(const std::string& line) { return unit_->Control(line); }

  TempRoot root_;
  headunit::UnitOptions options_;  // changes count until SetUp
  std::unique_ptr<headunit::Unit> unit_;
};

// The text of an object, "error N" when it cannot be opened.
std::string PpsText(const std::string& rest);

}  // namespace support

#endif  // KORVANDIS_TESTS_SUPPORT_RAW_CLIENT_H
