// The station's connections to a unit. The classes are not thread-safe.
#ifndef KORVANDIS_STATION_LINK_H
#define KORVANDIS_STATION_LINK_H

#include <chrono>
#include <string>
#include <vector>

#include "qnx/bench_link.h"
#include "station/answer.h"
#include "tools/program.h"
#include "wire/at_packet.h"

namespace station {

using Clock = std::chrono::steady_clock;

// The duration of `seconds`, at least 0; the seconds since `start`.
Clock::duration Seconds(double seconds);
double SecondsSince(Clock::time_point start);

// The test connector: requests out, replies in. Opened with the first request, and again after the
// unit was away.
class Link {
 public:
  // `interrupt` ends waits early; may be null.
  explicit Link(tools::Interrupt* interrupt) : interrupt_(interrupt) {}

  // Sends one packet. Replies received so far are discarded.
  // Returns an empty text, or why it could not be sent.
  std::string Send(const Bytes& packet);

  enum class Result {
    kReply,      // *reply holds it, *packet its bytes
    kNone,       // the deadline passed, the service is gone, or the wait was interrupted
    kMalformed,  // a reply to this command that is not well-formed: *packet holds it
    kGone,       // the unit hung up
  };
  // Waits for the reply to a command. Replies to others are discarded. A packet too short
  // for its numbers counts as malformed when nothing better comes.
  Result Receive(std::uint8_t command, std::uint8_t sub_command, Clock::time_point deadline,
                 wire::Reply* reply, Bytes* packet);

  // Discards what comes in within the time.
  void Collect(int milliseconds);

  // The packets that were discarded since the last call; at most the first kMostDiscarded.
  std::vector<Bytes> TakeDiscarded();

 private:
  static const std::size_t kMostDiscarded = 100;

  bool Wait(Clock::time_point deadline);
  void PassOver(const Bytes& packet);

  tools::Interrupt* interrupt_;
  platform::Descriptor connection_;
  std::vector<Bytes> discarded_;
};

// Sends one line to the unit's control connector. Returns true with the answer behind "ok", false
// with the reason.
bool Control(const std::string& line, std::string* answer);

// True when the unit says that the service is connected; false with the reason when it is not or
// there is no unit.
bool ServiceConnected(std::string* reason);

// Number of services that are connected to the unit; -1 with the reason when there is no unit.
int CountServices(std::string* reason);

// Why a test would not know which service answers it: several are connected. Empty when not.
std::string SeveralServices();

// Follows every packet on the MCU link.
class Monitor {
 public:
  // Returns an empty text, or why there is nothing to follow.
  std::string Open();

  // Readable when a packet waits or the unit is gone.
  int fd() const { return connection_.Get(); }

  // Waits for a packet, whatever signal comes. Also true when the unit is gone.
  bool HasPacket(int milliseconds);

  // Takes the next packet. False when the unit is gone.
  bool Read(qnx::MonitorHead* head, Bytes* packet);

 private:
  platform::Descriptor connection_;
};

}  // namespace station

#endif  // KORVANDIS_STATION_LINK_H
