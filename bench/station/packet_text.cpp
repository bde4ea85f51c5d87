#include "station/packet_text.h"

#include "station/command.h"
#include "wire/at_packet.h"

namespace station {
namespace {

std::string Numbers(std::uint8_t number, std::uint8_t sub_command) {
  return "command " + std::to_string(number) + ", sub-command " + std::to_string(sub_command);
}

std::string DescribeRequest(const Bytes& packet) {
  std::uint8_t number = 0;
  std::uint8_t sub_command = 0;
  Bytes parameters;
  if (!ParseRequest(packet, &number, &sub_command, &parameters)) return "not a well-formed request";
  Invocation invocation;
  if (DecodeRequest(number, sub_command, parameters, &invocation)) return CommandLine(invocation);
  std::string text = Numbers(number, sub_command);
  if (!parameters.empty()) text += ", parameters " + Hex(parameters);
  return text;
}

std::string DescribeReply(const Bytes& packet) {
  wire::Reply reply;
  if (!wire::ParseReply(packet, &reply)) return "not a well-formed reply";
  const Command* command = FindReplyCommand(reply.command, reply.sub_command);
  if (command == nullptr) {
    return "reply to " + Numbers(reply.command, reply.sub_command) +
           (reply.data.empty() ? "" : ": " + Hex(reply.data));
  }
  const Answer answer = command->reply->decode(*command->reply, reply.data);
  std::string text = command->words + ": " + Describe(answer);
  if (!answer.problem.empty()) text += (answer.fields.empty() ? "" : " - ") + answer.problem;
  return text;
}

}  // namespace

bool ParseRequest(const Bytes& packet, std::uint8_t* number, std::uint8_t* sub_command,
                  Bytes* parameters) {
  const std::size_t head = wire::kHeaderSize + wire::kReplyOverhead;
  if (packet.size() < head) return false;
  const std::uint8_t* record = packet.data() + wire::kHeaderSize + wire::kLinkSize;
  const std::size_t length = record[wire::kRecordLengthOffset];
  if (wire::LoadLe32(packet.data() + wire::kPacketTypeOffset) != wire::kAtPacketType ||
      wire::LoadLe32(packet.data() + wire::kPayloadLengthOffset) !=
          packet.size() - wire::kHeaderSize ||
      length == 0 || packet.size() != head + length - 1) {
    return false;
  }
  *number = record[wire::kRecordCommandOffset];
  *sub_command = record[wire::kRecordSubCommandOffset];
  parameters->assign(packet.begin() + static_cast<long>(head), packet.end());
  return true;
}

std::size_t LinkOffset(const Bytes& packet) {
  return packet.size() > wire::kHeaderSize ? wire::kHeaderSize : 0;
}

std::string DescribePacket(qnx::Direction direction, const Bytes& packet) {
  return direction == qnx::Direction::kToService ? DescribeRequest(packet) : DescribeReply(packet);
}

}  // namespace station
