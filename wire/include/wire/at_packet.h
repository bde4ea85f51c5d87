// The AT test packet on the MCU link: offsets, constants and the two words every reader needs.
//
//   packet  = header (28 bytes: seven little-endian words) | payload
//   payload = link bytes (3) | AT record
//   record  = start | id | reserved | length | command | sub-command | parameters or reply data
#ifndef KORVANDIS_WIRE_AT_PACKET_H
#define KORVANDIS_WIRE_AT_PACKET_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wire {

const char kMcuDevicePath[] = "/dev/name/local/zelmar/resmgr/mcucom/ext3";

// Header.
const std::size_t kHeaderSize = 28;
const std::size_t kPayloadLengthOffset = 0;
const std::size_t kPacketTypeOffset = 4;
const std::uint32_t kAtPacketType = 0xB3;

// Link bytes in front of the record.
const std::size_t kLinkSize = 3;
const std::uint8_t kLinkType = 0x34;
const std::uint8_t kLinkByte = 2;

// Record.
const std::size_t kRecordHeadSize = 6;
const std::size_t kRecordLengthOffset = 3;
const std::size_t kRecordCommandOffset = 4;
const std::size_t kRecordSubCommandOffset = 5;
const std::uint8_t kRecordStart = 0x2A;
const std::uint8_t kRecordId = 0xA2;
const std::uint8_t kReplyBit = 0x80;  // set in the command number of a reply

const std::size_t kReplyOverhead =
    kLinkSize + kRecordHeadSize;  // payload bytes in front of the data
const std::size_t kMaxReplyData = 243;
const std::size_t kMaxParameters = 254;
const std::size_t kMaxPacket = 65536;  // one read of the MCU device

inline std::uint32_t LoadLe32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

inline void StoreLe32(std::uint8_t* bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// A request as a test station sends it: `parameters` holds at most kMaxParameters bytes, further
// ones are dropped. `sequence` fills the link's sequence byte, which the service does not read.
inline std::vector<std::uint8_t> BuildRequest(std::uint8_t command, std::uint8_t sub_command,
                                              const std::vector<std::uint8_t>& parameters,
                                              std::uint8_t sequence = 0) {
  const std::size_t count = parameters.size() < kMaxParameters ? parameters.size() : kMaxParameters;
  std::vector<std::uint8_t> packet(kHeaderSize + kReplyOverhead + count);
  StoreLe32(&packet[kPayloadLengthOffset], static_cast<std::uint32_t>(kReplyOverhead + count));
  StoreLe32(&packet[kPacketTypeOffset], kAtPacketType);
  std::uint8_t* const payload = &packet[kHeaderSize];
  payload[0] = kLinkType;
  payload[1] = sequence;
  payload[2] = kLinkByte;
  std::uint8_t* const record = payload + kLinkSize;
  record[0] = kRecordStart;
  record[1] = kRecordId;
  record[kRecordLengthOffset] = static_cast<std::uint8_t>(count + 1);
  record[kRecordCommandOffset] = command;
  record[kRecordSubCommandOffset] = sub_command;
  for (std::size_t i = 0; i < count; ++i) record[kRecordHeadSize + i] = parameters[i];
  return packet;
}

// One reply of the service.
struct Reply {
  std::uint8_t sequence;
  std::uint8_t command;  // without kReplyBit
  std::uint8_t sub_command;
  std::vector<std::uint8_t> data;
};

// Takes `packet` apart. False when it is not a whole, well-formed reply; *reply is then unchanged.
inline bool ParseReply(const std::vector<std::uint8_t>& packet, Reply* reply) {
  if (packet.size() < kHeaderSize + kReplyOverhead) return false;
  const std::uint8_t* payload = packet.data() + kHeaderSize;
  const std::uint8_t* record = payload + kLinkSize;
  const std::size_t length = record[kRecordLengthOffset];
  if (LoadLe32(packet.data() + kPayloadLengthOffset) != packet.size() - kHeaderSize) return false;
  if (packet.size() != kHeaderSize + kReplyOverhead + length) return false;
  if (payload[0] != kLinkType || payload[2] != kLinkByte) return false;
  if (record[0] != kRecordStart || record[1] != kRecordId) return false;
  if ((record[kRecordCommandOffset] & kReplyBit) == 0) return false;
  reply->sequence = payload[1];
  reply->command = static_cast<std::uint8_t>(record[kRecordCommandOffset] & ~kReplyBit);
  reply->sub_command = record[kRecordSubCommandOffset];
  reply->data.assign(record + kRecordHeadSize, record + kRecordHeadSize + length);
  return true;
}

}  // namespace wire

#endif  // KORVANDIS_WIRE_AT_PACKET_H
