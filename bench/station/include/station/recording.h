// Recorded traffic of the MCU link, as text or as pcap.
//
// Text: lines of the form
//   SECONDS.NANOSECONDS > 09 00 00 00 ...  # what it means
// with '>' for packets to the service and '<' for packets from it; '#' begins a comment.
// pcap: nanosecond timestamps, link type 147 (LINKTYPE_USER0); each packet is one byte with the
// direction (0 to the service, 1 from it) and the packet of the MCU link.
#ifndef KORVANDIS_STATION_RECORDING_H
#define KORVANDIS_STATION_RECORDING_H

#include <cstdint>
#include <string>
#include <vector>

#include "qnx/bench_link.h"
#include "station/answer.h"

namespace station {

enum class RecordingFormat { kText, kPcap };

struct RecordedPacket {
  std::uint64_t nanoseconds;  // since the epoch
  qnx::Direction direction;
  Bytes packet;
};

// The beginning of a recording; one packet of it.
std::string RecordingHead(RecordingFormat format);
std::string RecordingEntry(RecordingFormat format, const RecordedPacket& packet);

// Reads a recording of either format. Returns an empty text, or what is wrong and where. A file
// that ends within a packet is read up to there, and *cut then says so.
std::string ParseRecording(const std::string& text, std::vector<RecordedPacket>* packets,
                           std::string* cut);

// A recorded request and its reply.
struct RecordedExchange {
  std::uint64_t nanoseconds;
  Bytes request;
  Bytes reply;  // empty: none was recorded
};

// Pairs requests with replies: the service answers in order, so a reply belongs to the first
// request with its numbers that has none yet.
std::vector<RecordedExchange> PairExchanges(const std::vector<RecordedPacket>& packets);

}  // namespace station

#endif  // KORVANDIS_STATION_RECORDING_H
