// Any bytes where the station reads what others wrote: packets of the link, recordings, command
// lines, sequences.
// Input: a byte that chooses the reader, then what it reads.
#include <algorithm>
#include <vector>

#include "input.h"
#include "station/answer.h"
#include "station/command.h"
#include "station/expectation.h"
#include "station/packet_text.h"
#include "station/recording.h"
#include "station/sequence.h"
#include "tools/program.h"
#include "wire/at_packet.h"

namespace {

using station::Bytes;

const std::string kValue = "7";

// Nothing that came from a unit reaches a terminal as a control character.
void RequirePrintable(const std::string& text) {
  for (const char c : text) {
    fuzz::Require(static_cast<unsigned char>(c) >= 32 && c != 127,
                  "a shown text is one plain line");
  }
}

void ReadPacket(const std::string& bytes) {
  const Bytes packet(bytes.begin(), bytes.end());
  RequirePrintable(station::DescribePacket(qnx::Direction::kToService, packet));
  RequirePrintable(station::DescribePacket(qnx::Direction::kFromService, packet));
  fuzz::Require(station::LinkOffset(packet) <= packet.size(), "an offset lies in the packet");
}

// A request's bytes: a command that they stand for gives the same bytes again.
void ReadRequest(fuzz::Input input) {
  const std::uint8_t number = input.Byte();
  const std::uint8_t sub_command = input.Byte();
  const std::string text = input.Take(wire::kMaxParameters);
  const Bytes parameters(text.begin(), text.end());
  station::Invocation invocation;
  if (!station::DecodeRequest(number, sub_command, parameters, &invocation)) return;
  fuzz::Require(station::EncodeParameters(invocation) == parameters,
                "a decoded request has the same parameters");
  RequirePrintable(station::CommandLine(invocation));
}

void ReadReply(fuzz::Input input) {
  const std::uint8_t number = input.Byte();
  const std::uint8_t sub_command = input.Byte();
  const station::Command* const command = station::FindReplyCommand(number, sub_command);
  if (command == nullptr) return;
  const std::string text = input.Take(wire::kMaxReplyData);
  const Bytes data(text.begin(), text.end());
  const station::Answer answer = command->reply->decode(*command->reply, data);
  fuzz::Require(answer.fields.empty() || answer.fields.size() == command->reply->fields.size(),
                "an answer has all fields or none");
  RequirePrintable(station::Describe(answer));
  if (command->reply->table != nullptr) command->reply->table(data);
}

// A pcap file has 32 bits for the seconds.
std::string Written(station::RecordingFormat format,
                    const std::vector<station::RecordedPacket>& packets) {
  std::string written = station::RecordingHead(format);
  for (const auto& packet : packets) written += station::RecordingEntry(format, packet);
  return written;
}

bool FitsPcap(const std::vector<station::RecordedPacket>& packets) {
  return std::all_of(packets.begin(), packets.end(), [](const station::RecordedPacket& packet) {
    return packet.nanoseconds / 1000000000 <= UINT32_MAX;
  });
}

// A recording that can be read can be written and read again.
void ReadRecording(const std::string& text) {
  std::vector<station::RecordedPacket> packets;
  std::string cut;
  if (!station::ParseRecording(text, &packets, &cut).empty()) return;
  station::PairExchanges(packets);
  for (const auto format : {station::RecordingFormat::kText, station::RecordingFormat::kPcap}) {
    if (format == station::RecordingFormat::kPcap && !FitsPcap(packets)) continue;
    const std::string written = Written(format, packets);
    std::vector<station::RecordedPacket> again;
    fuzz::Require(station::ParseRecording(written, &again, &cut).empty() && cut.empty(),
                  "a recording can be read");
    fuzz::Require(Written(format, again) == written, "a recording keeps its packets");
  }
}

// True for bytes that can be typed.
bool IsTypable(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return tools::Escape(text) == text;
}

// A command line that is right is, as the station writes it, the same command.
void ReadCommandLine(const std::string& line) {
  std::vector<std::string> words;
  if (!station::SplitWords(line, &words).empty()) return;
  station::Invocation invocation;
  if (!station::ParseInvocation(words, &invocation).empty() || !IsTypable(line)) return;
  const std::string written = station::CommandLine(invocation);
  std::vector<std::string> again;
  fuzz::Require(station::SplitWords(written, &again).empty(), "a written line can be split");
  station::Invocation same;
  fuzz::Require(station::ParseInvocation(again, &same).empty(), "a written line is a command");
  fuzz::Require(same.command == invocation.command && same.arguments == invocation.arguments,
                "a written line is the same command");
}

// Holds an expectation against a field.
void Judge(const station::Expectation& expectation, const station::Values& values) {
  station::DescribeExpectation(expectation, values);
  const station::FieldInfo info = {"field", "", true};
  std::string problem;
  for (const char* text : {"", "3", "text"}) {
    station::Holds(expectation, station::Field{&info, text, qnx::ParseReal(text)}, values,
                   &problem);
  }
}

void ReadSequence(const std::string& text) {
  station::Sequence sequence;
  // Every other file, of steps or of limits, holds what follows a form feed.
  const std::size_t end = std::min(text.find('\f'), text.size());
  const auto read = [&](const std::string& path, std::string* content) {
    *content = path == "fuzzed" ? text.substr(0, end) : text.substr(std::min(end + 1, text.size()));
    return std::string();
  };
  const bool whole = station::ReadSequence("fuzzed", read, &sequence).empty();
  station::Values given;
  for (const auto& [name, value] : sequence.values) {
    if (value.required) given[name] = kValue;
  }
  if (!station::CheckSequence(sequence, given, {}).empty() || !whole) return;
  const station::Values values = station::StartValues(sequence, given);
  for (const station::Phase& phase : sequence.phases) {
    for (const station::Step& step : phase.steps) {
      fuzz::Require(step.words.empty() == (step.command == nullptr), "a step's command is known");
      for (const auto& expectation : step.expectations) Judge(expectation, values);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t reader = input.Byte();
  switch (reader % 6) {
    case 0:
      ReadPacket(input.Take(size));
      break;
    case 1:
      ReadRequest(input);
      break;
    case 2:
      ReadReply(input);
      break;
    case 3:
      ReadRecording(input.Take(size));
      break;
    case 4:
      ReadCommandLine(input.Take(size));
      break;
    default:
      ReadSequence(input.Take(size));
      break;
  }
  return 0;
}
