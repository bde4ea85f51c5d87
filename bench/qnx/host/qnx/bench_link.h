// How the bench's own programs reach the simulated unit, besides the unit's devices.
//
// kStationPath: the test connector of the simulated MCU, a resource manager like any other.
//   Open with the empty rest: each message written is one packet for the service; each message read
//   is the reply packet to one of this station's requests. Open with the rest kMonitorRest:
//   read-only; each message is a MonitorHead and a packet, for every packet that crosses the MCU
//   link in either direction.
// kControlPath: the bench's control connector. Each message written is one line of words; each is
//   answered by one message: "ok" or "ok " and text, or "error " and the reason.
#ifndef KORVANDIS_QNX_BENCH_LINK_H
#define KORVANDIS_QNX_BENCH_LINK_H

#include <cstdint>

namespace qnx {

const char kStationPath[] = "/dev/teststation";
const char kMonitorRest[] = "/monitor";
const char kControlPath[] = "/dev/headunit";

enum class Direction : std::uint32_t {
  kToService = 0,
  kFromService = 1,
};

// In place of a direction, without a packet: packets lost here, as the monitor fell behind.
const std::uint32_t kMonitorLost = 2;

struct MonitorHead {
  std::uint64_t nanoseconds;  // since the epoch, when the MCU passed the packet on
  std::uint32_t direction;    // Direction, or kMonitorLost
  std::uint32_t station;      // number of the station that asked, 0 when none is known
};
static_assert(sizeof(MonitorHead) == 16, "the packet follows at offset 16");

}  // namespace qnx

#endif  // KORVANDIS_QNX_BENCH_LINK_H
