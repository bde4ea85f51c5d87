#include "station/answer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "qnx/text.h"

namespace station {
namespace {

const std::size_t kPositionSize = 16;
const std::size_t kSatelliteSize = 4;
const std::size_t kStoredSatellites = 24;
const double kHighestPair = 65535;  // each number of a pair
const std::size_t kSatellitesForFix = 4;

struct Satellite {
  unsigned id;
  int signal;  // dBHz
};

std::string Degrees(double value) { return qnx::Formatted("%.6f", value); }

Answer Wrong(const std::string& problem) { return Answer{problem, {}}; }

Answer WrongSize(const Bytes& data, const std::string& expected) {
  return Wrong("a reply of " + std::to_string(data.size()) + " bytes instead of " + expected);
}

// The answer whose fields have these texts.
Answer Right(const ReplyFormat& format, const std::vector<std::string>& texts) {
  Answer answer;
  for (std::size_t i = 0; i < format.fields.size() && i < texts.size(); ++i) {
    const double number = format.fields[i].numeric ? qnx::ParseReal(texts[i])
                                                   : std::numeric_limits<double>::quiet_NaN();
    answer.fields.push_back(Field{&format.fields[i], texts[i], number});
  }
  return answer;
}

Answer DecodeText(const ReplyFormat& format, const Bytes& data) {
  Answer answer = Right(format, {std::string(data.begin(), data.end())});
  if (data.empty()) answer.problem = "empty: the unit has none";
  const char* const unreadable = format.spec->unreadable;
  if (unreadable != nullptr && answer.fields[0].text == unreadable) {
    answer.problem = std::string("the unit has no ") + format.spec->field;
  }
  return answer;
}

// The driver's identity field is filled up with zero bytes.
Answer DecodeIdentity(const ReplyFormat& format, const Bytes& data) {
  const auto end = std::find(data.begin(), data.end(), std::uint8_t{0});
  if (std::any_of(end, data.end(), [](std::uint8_t byte) { return byte != 0; })) {
    return Wrong("bytes behind the end of the text: " + Hex(data));
  }
  Answer answer = Right(format, {std::string(data.begin(), end)});
  if (end == data.begin()) answer.problem = "empty: nothing burnt in, or not readable";
  return answer;
}

Answer DecodeMac(const ReplyFormat& format, const Bytes& data) {
  if (data.size() != wire::kMacSize) return WrongSize(data, "6");
  Answer answer = Right(format, {Hex(data, ':')});
  if (std::all_of(data.begin(), data.end(), [](std::uint8_t byte) { return byte == 0; })) {
    answer.problem = "the unit has no address";
  }
  return answer;
}

// One byte that is one of some words.
Answer DecodeChoice(const ReplyFormat& format, const Bytes& data) {
  if (data.size() != 1) return WrongSize(data, "1");
  std::string words;
  for (const wire::Choice* choice = format.spec->choices; choice->word != nullptr; ++choice) {
    if (choice->value == data[0]) return Right(format, {choice->word});
    words += (words.empty() ? "" : ", ") + std::to_string(choice->value);
  }
  return Wrong("not one of " + words + ": " + Hex(data));
}

Answer DecodeVerdict(const ReplyFormat& format, const Bytes& data) {
  Answer answer = DecodeChoice(format, data);
  if (answer.problem.empty() && data[0] == 0) {
    answer.problem = "the chip is missing or not the expected one";
  }
  return answer;
}

Answer DecodeByte(const ReplyFormat& format, const Bytes& data) {
  if (data.size() != 1) return WrongSize(data, "1");
  Answer answer = Right(format, {std::to_string(data[0])});
  if (data[0] > format.spec->high) {
    answer.problem = "not a number from 0 to " + std::to_string(format.spec->high);
  }
  return answer;
}

Answer DecodeNumberPair(const ReplyFormat& format, const Bytes& data) {
  if (data.size() != 4) return WrongSize(data, "4");
  return Right(format,
               {std::to_string(data[0] << 8 | data[1]), std::to_string(data[2] << 8 | data[3])});
}

// Returns what is wrong with the list, or nothing.
std::string ReadSatellites(const Bytes& data, std::vector<Satellite>* satellites) {
  if (data.empty()) return "an empty reply";
  const std::size_t count = data[0];
  if (count > kStoredSatellites || data.size() != 1 + kSatelliteSize * count) {
    return "a reply of " + std::to_string(data.size()) + " bytes for " + std::to_string(count) +
           " satellites";
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t* entry = data.data() + 1 + kSatelliteSize * i;
    int signal = entry[1] << 16 | entry[2] << 8 | entry[3];
    if ((signal & 0x800000) != 0) signal -= 0x1000000;  // the 24 low bits of a negative number
    satellites->push_back(Satellite{entry[0], signal});
  }
  return "";
}

Answer DecodeSatellites(const ReplyFormat& format, const Bytes& data) {
  std::vector<Satellite> satellites;
  const std::string problem = ReadSatellites(data, &satellites);
  if (!problem.empty()) return Wrong(problem);
  std::sort(satellites.begin(), satellites.end(),
            [](const Satellite& a, const Satellite& b) { return a.signal > b.signal; });
  const auto signal = [&](std::size_t rank) {
    return std::to_string(satellites.size() >= rank ? satellites[rank - 1].signal : 0);
  };
  return Right(format, {std::to_string(satellites.size()), signal(1), signal(kSatellitesForFix)});
}

std::string SatelliteTable(const Bytes& data) {
  const int kBarWidth = 30;
  const int kBarFull = 60;  // dBHz; the strongest signals reach about 55
  std::vector<Satellite> satellites;
  if (!ReadSatellites(data, &satellites).empty()) return "";
  std::string table = "satellite  C/N0\n";
  for (const Satellite& satellite : satellites) {
    const int length = std::clamp(satellite.signal, 0, kBarFull) * kBarWidth / kBarFull;
    table += qnx::Formatted("%9u  %3d dBHz  ", satellite.id, satellite.signal) +
             std::string(static_cast<std::size_t>(length), '#') + "\n";
  }
  return table + std::to_string(satellites.size()) + " satellites\n";
}

Answer DecodePosition(const ReplyFormat& format, const Bytes& data) {
  if (data.size() != kPositionSize) return WrongSize(data, "16");
  double degrees[2];
  for (std::size_t i = 0; i < 2; ++i) {
    std::uint64_t bits = 0;
    for (std::size_t j = 0; j < 8; ++j) bits |= std::uint64_t{data[8 * i + j]} << (8 * j);
    std::memcpy(&degrees[i], &bits, sizeof(bits));
  }
  if (!(std::fabs(degrees[0]) <= 180) || !(std::fabs(degrees[1]) <= 90)) {
    return Wrong("no place on earth: " + Hex(data));
  }
  Answer answer = Right(format, {Degrees(degrees[0]), Degrees(degrees[1])});
  if (degrees[0] == 0 && degrees[1] == 0) answer.problem = "no fix yet";
  return answer;
}

// A text in the fixed reply buffer, zero bytes behind it. Returns what is wrong, or nothing.
std::string ReadFixedText(const Bytes& data, std::string* text) {
  if (data.size() != wire::kFixedTextSize) {
    return "a reply of " + std::to_string(data.size()) + " bytes instead of " +
           std::to_string(wire::kFixedTextSize);
  }
  const auto end = std::find(data.begin(), data.end(), std::uint8_t{0});
  if (end == data.end() || std::any_of(end, data.end(), [](std::uint8_t b) { return b != 0; })) {
    return "no text with zero bytes behind it";
  }
  text->assign(data.begin(), end);
  return "";
}

Answer DecodeSpeed(const ReplyFormat& format, const Bytes& data) {
  std::string text;
  const std::string problem = ReadFixedText(data, &text);
  if (!problem.empty()) return Wrong(problem);
  Answer answer = Right(format, {text});
  if (std::isnan(answer.fields[0].number)) answer.problem = "not a number";
  return answer;
}

Answer DecodeAngle(const ReplyFormat& format, const Bytes& data) {
  std::string text;
  const std::string problem = ReadFixedText(data, &text);
  if (!problem.empty()) return Wrong(problem);
  Answer answer = Right(format, {text});
  if (text.empty()) answer.problem = "empty: the navigation service gave none";
  if (text == "    ") answer.problem = "the navigation service's text has no value";
  return answer;
}

}  // namespace

ReplyFormat FormatOf(const wire::ReplySpec& spec) {
  const std::vector<FieldInfo> text = {{spec.field, "", false, spec.choices}};
  const std::vector<FieldInfo> number = {{spec.field, "", true}};
  switch (spec.kind) {
    case wire::ReplyKind::kNone:
    case wire::ReplyKind::kText:
      break;
    case wire::ReplyKind::kIdentity:
      return {text, DecodeIdentity, nullptr, &spec};
    case wire::ReplyKind::kMac:
      return {text, DecodeMac, nullptr, &spec};
    case wire::ReplyKind::kChoice:
      return {text, DecodeChoice, nullptr, &spec};
    case wire::ReplyKind::kVerdict:
      return {text, DecodeVerdict, nullptr, &spec};
    case wire::ReplyKind::kByte:
      return {{{spec.field, "", true, nullptr, 0, static_cast<double>(spec.high)}},
              DecodeByte,
              nullptr,
              &spec};
    case wire::ReplyKind::kNumberPair:
      return {{{"folder", "", true, nullptr, 0, kHighestPair},
               {"track", "", true, nullptr, 0, kHighestPair}},
              DecodeNumberPair,
              nullptr,
              &spec};
    case wire::ReplyKind::kSatellites:
      return {{{"count", "", true, nullptr, 0, kStoredSatellites},
               {"strongest", "dBHz", true},
               {"fourth", "dBHz", true}},
              DecodeSatellites,
              SatelliteTable,
              &spec};
    case wire::ReplyKind::kPosition:
      return {{{"longitude", "deg", true, nullptr, -180, 180},
               {"latitude", "deg", true, nullptr, -90, 90}},
              DecodePosition,
              nullptr,
              &spec};
    case wire::ReplyKind::kSpeed:
      return {number, DecodeSpeed, nullptr, &spec};
    case wire::ReplyKind::kAngle:
      return {number, DecodeAngle, nullptr, &spec};
  }
  return {text, DecodeText, nullptr, &spec};
}

const Field* FindField(const Answer& answer, const std::string& name) {
  for (const Field& field : answer.fields) {
    if (name == field.info->name) return &field;
  }
  return nullptr;
}

std::string Describe(const Answer& answer) {
  std::string line;
  for (const Field& field : answer.fields) {
    if (!line.empty()) line += ", ";
    if (answer.fields.size() > 1) line += std::string(field.info->name) + " ";
    line += qnx::Escape(field.text);
    if (*field.info->unit != '\0') line += std::string(" ") + field.info->unit;
  }
  return line;
}

}  // namespace station
