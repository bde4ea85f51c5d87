#include "station/recording.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <utility>

#include "station/packet_text.h"
#include "wire/at_packet.h"
#include "wire/hex.h"

namespace station {
namespace {

const std::uint64_t kSecond = 1000000000;

const char kTextHead[] =
    "# korvandis recording 1\n"
    "# seconds since 1970, > to the service or < from it, the packet\n";

// pcap file header and packet header, little-endian words.
const std::uint32_t kNanosecondMagic = 0xA1B23C4D;
const std::uint32_t kMicrosecondMagic = 0xA1B2C3D4;
const std::uint32_t kVersion = 4U << 16 | 2U;  // 2.4: two 16-bit words
const std::uint32_t kSnapLength = 262144;
const std::uint32_t kLinkType = 147;  // LINKTYPE_USER0
const std::size_t kFileHead = 24;
const std::size_t kLinkTypeOffset = 20;
const std::size_t kPacketHead = 16;

void AppendWord(std::uint32_t word, std::string* bytes) {
  std::uint8_t raw[4];
  wire::StoreLe32(raw, word);
  bytes->append(raw, raw + sizeof(raw));
}

std::uint32_t WordAt(const std::string& bytes, std::size_t offset) {
  std::uint8_t raw[4];
  std::memcpy(raw, bytes.data() + offset, sizeof(raw));
  return wire::LoadLe32(raw);
}

// The name of a kind of capture file that cannot be read here; empty when the first word is
// unknown.
const char* OtherCapture(std::uint32_t magic) {
  switch (magic) {
    case 0x0A0D0D0A:
      return "a pcapng file, not pcap: convert it with 'editcap -F nsecpcap'";
    case 0x4D3CB2A1:
    case 0xD4C3B2A1:
      return "a pcap file in big-endian order: convert it with 'editcap -F nsecpcap'";
    case 0xA1B2CD34:
    case 0x34CDB2A1:
      return "a modified pcap file, not pcap: convert it with 'editcap -F nsecpcap'";
    default:
      return "";
  }
}

std::string ParsePcap(const std::string& bytes, std::vector<RecordedPacket>* packets,
                      std::string* cut) {
  const std::uint64_t unit = WordAt(bytes, 0) == kNanosecondMagic ? 1 : 1000;
  if (bytes.size() < kFileHead) return "the pcap file's head is cut";
  const std::uint32_t link_type = WordAt(bytes, kLinkTypeOffset);
  if (link_type != kLinkType) {
    return "a pcap file of link type " + std::to_string(link_type) + ", not " +
           std::to_string(kLinkType) + " as 'station record --pcap' writes";
  }
  std::size_t at = kFileHead;
  while (at < bytes.size()) {
    const std::string place =
        "packet " + std::to_string(packets->size() + 1) + " at byte " + std::to_string(at);
    const std::size_t left = bytes.size() - at;
    const std::size_t size = left < kPacketHead ? 0 : WordAt(bytes, at + 8);
    if (left >= kPacketHead) {
      if (size < 1 || size > 1 + wire::kMaxPacket) {
        return place + ": a length of " + std::to_string(size) + " bytes";
      }
      if (WordAt(bytes, at + 12) != size) return place + ": cut by a snap length";
    }
    if (left < kPacketHead || left - kPacketHead < size) {
      *cut = "the file is cut in " + place + "; played up to there";
      return "";
    }
    const std::uint64_t seconds = WordAt(bytes, at);
    const std::uint64_t fraction = WordAt(bytes, at + 4);
    at += kPacketHead;
    const auto direction = static_cast<unsigned char>(bytes[at]);
    if (direction > 1) return place + ": no direction";
    packets->push_back(RecordedPacket{seconds * kSecond + fraction * unit,
                                      static_cast<qnx::Direction>(direction),
                                      Bytes(bytes.begin() + static_cast<long>(at) + 1,
                                            bytes.begin() + static_cast<long>(at + size))});
    at += size;
  }
  return "";
}

// Takes "SECONDS.NNNNNNNNN" off the line.
bool TakeTime(const char** at, std::uint64_t* nanoseconds) {
  std::uint64_t values[2] = {0, 0};
  int digits[2] = {0, 0};
  for (int part = 0; part < 2; ++part) {
    while (**at >= '0' && **at <= '9' && digits[part] < 10) {
      values[part] = values[part] * 10 + static_cast<std::uint64_t>(**at - '0');
      ++digits[part];
      ++*at;
    }
    if (part == 0 && *(*at)++ != '.') return false;
  }
  *nanoseconds = values[0] * kSecond + values[1];
  return digits[0] > 0 && digits[1] == 9;
}

// One line of a text recording, without its comment. Returns what is wrong, or nothing.
std::string ParseLine(const std::string& line, RecordedPacket* packet) {
  const char* at = line.c_str();
  if (!TakeTime(&at, &packet->nanoseconds)) return "a line begins with SECONDS.NANOSECONDS";
  while (*at == ' ') ++at;
  if (*at != '>' && *at != '<') return "> or < is missing";
  packet->direction = *at++ == '>' ? qnx::Direction::kToService : qnx::Direction::kFromService;
  while (true) {
    while (*at == ' ') ++at;
    if (at == line.c_str() + line.size()) break;
    const int byte = wire::HexByteValue(at);
    if (byte < 0) return "bytes are two hexadecimal digits each";
    packet->packet.push_back(static_cast<std::uint8_t>(byte));
    at += 2;
  }
  if (packet->packet.empty() || packet->packet.size() > wire::kMaxPacket) {
    return "a packet has 1 to " + std::to_string(wire::kMaxPacket) + " bytes";
  }
  return "";
}

// The command and sub-command of a packet; false when it is too short for them.
bool TakeNumbers(const Bytes& packet, std::pair<int, int>* numbers) {
  const std::size_t record = wire::kHeaderSize + wire::kLinkSize;
  const std::size_t sub_command = record + wire::kRecordSubCommandOffset;
  if (packet.size() <= sub_command) return false;
  *numbers = {packet[record + wire::kRecordCommandOffset], packet[sub_command]};
  return true;
}

}  // namespace

std::string RecordingHead(RecordingFormat format) {
  if (format == RecordingFormat::kText) return kTextHead;
  std::string head;
  for (const std::uint32_t word : {kNanosecondMagic, kVersion, 0U, 0U, kSnapLength, kLinkType}) {
    AppendWord(word, &head);
  }
  return head;
}

std::string RecordingEntry(RecordingFormat format, const RecordedPacket& packet) {
  if (format == RecordingFormat::kText) {
    return qnx::Formatted("%llu.%09llu",
                          static_cast<unsigned long long>(packet.nanoseconds / kSecond),
                          static_cast<unsigned long long>(packet.nanoseconds % kSecond)) +
           (packet.direction == qnx::Direction::kToService ? " > " : " < ") + Hex(packet.packet) +
           "  # " + DescribePacket(packet.direction, packet.packet) + "\n";
  }
  std::string entry;
  const auto size = static_cast<std::uint32_t>(packet.packet.size() + 1);
  for (const std::uint64_t word : {packet.nanoseconds / kSecond, packet.nanoseconds % kSecond,
                                   std::uint64_t{size}, std::uint64_t{size}}) {
    AppendWord(static_cast<std::uint32_t>(word), &entry);
  }
  entry += packet.direction == qnx::Direction::kToService ? '\0' : '\1';
  entry.append(packet.packet.begin(), packet.packet.end());
  return entry;
}

std::string ParseRecording(const std::string& text, std::vector<RecordedPacket>* packets,
                           std::string* cut) {
  cut->clear();
  const std::uint32_t magic = text.size() >= 4 ? WordAt(text, 0) : 0;
  if (magic == kNanosecondMagic || magic == kMicrosecondMagic) return ParsePcap(text, packets, cut);
  if (*OtherCapture(magic) != '\0') return OtherCapture(magic);
  int number = 0;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::string line = text.substr(start, end - start);
    start = end + 1;
    ++number;
    // A line that was written ends its bytes with a comment, so one without may be cut in them.
    const bool last = end == text.size() && line.find('#') == std::string::npos;
    line.erase(std::min(line.find('#'), line.size()));
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty()) continue;
    RecordedPacket packet{};
    const std::string problem = ParseLine(line, &packet);
    const std::string place = "line " + std::to_string(number);
    if (last && (problem.empty() || !packets->empty())) {
      *cut = "the file is cut in " + place + "; played up to there";
      return "";
    }
    if (!problem.empty()) return place + ": " + problem;
    packets->push_back(std::move(packet));
  }
  return "";
}

std::vector<RecordedExchange> PairExchanges(const std::vector<RecordedPacket>& packets) {
  std::vector<RecordedExchange> exchanges;
  // The exchanges that wait for a reply with these numbers, first come first.
  std::map<std::pair<int, int>, std::deque<std::size_t>> waiting;
  for (const RecordedPacket& packet : packets) {
    const bool request = packet.direction == qnx::Direction::kToService;
    std::pair<int, int> numbers;
    const bool numbered = TakeNumbers(packet.packet, &numbers);
    if (request) {
      numbers.first |= wire::kReplyBit;
      if (numbered) waiting[numbers].push_back(exchanges.size());
      exchanges.push_back(RecordedExchange{packet.nanoseconds, packet.packet, {}});
    } else if (numbered && !waiting[numbers].empty()) {
      exchanges[waiting[numbers].front()].reply = packet.packet;
      waiting[numbers].pop_front();
    }
  }
  return exchanges;
}

}  // namespace station
