// Packets of the MCU link as text.
#ifndef KORVANDIS_STATION_PACKET_TEXT_H
#define KORVANDIS_STATION_PACKET_TEXT_H

#include <string>

#include "qnx/bench_link.h"
#include "station/answer.h"

namespace station {

// Puts a request apart: its numbers and parameter bytes. False when it is not a whole, well-formed
// request.
bool ParseRequest(const Bytes& packet, std::uint8_t* number, std::uint8_t* sub_command,
                  Bytes* parameters);

// Where the part of a packet begins that is worth showing: behind the header, or at the start when
// there is nothing behind it.
std::size_t LinkOffset(const Bytes& packet);

// One line that says what a packet means: "bt name 'Car 7'", "version mpu: 1.4.2"; for packets that
// are not commands, what they are instead.
std::string DescribePacket(qnx::Direction direction, const Bytes& packet);

}  // namespace station

#endif  // KORVANDIS_STATION_PACKET_TEXT_H
