#include "station/answer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <locale>
#include <sstream>

#include "tools/program.h"

namespace station {
namespace {

const std::size_t kMacSize = 6;
const std::size_t kFixedTextSize = 78;  // speed and angle replies
const std::size_t kPositionSize = 16;
const std::size_t kSatelliteSize = 4;
const std::size_t kStoredSatellites = 24;
const std::size_t kSatellitesForFix = 4;
const std::uint8_t kHighestRegion = 6;

struct Satellite {
  unsigned id;
  int signal;  // dBHz
};

std::string Degrees(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.6f", value);
  return text;
}

Answer Wrong(const std::string& problem) { return Answer{problem, {}}; }

Answer WrongSize(const Bytes& data, const std::string& expected) {
  return Wrong("a reply of " + std::to_string(data.size()) + " bytes instead of " + expected);
}

// The answer whose fields have these texts.
Answer Right(const ReplyFormat& format, const std::vector<std::string>& texts) {
  Answer answer;
  for (std::size_t i = 0; i < format.fields.size() && i < texts.size(); ++i) {
    const double number =
        format.fields[i].numeric ? ParseNumber(texts[i]) : std::numeric_limits<double>::quiet_NaN();
    answer.fields.push_back(Field{&format.fields[i], texts[i], number});
  }
  return answer;
}

Answer DecodeText(const ReplyFormat& format, const Bytes& data) {
  Answer answer = Right(format, {std::string(data.begin(), data.end())});
  if (data.empty()) answer.problem = "empty: the unit has none";
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

Answer DecodeName(const ReplyFormat& format, const Bytes& data) {
  Answer answer = DecodeText(format, data);
  if (answer.fields[0].text == "error") answer.problem = "the unit has no name";
  return answer;
}

Answer DecodeMac(const ReplyFormat& format, const Bytes& data) {
  if (data.size() != kMacSize) return WrongSize(data, "6");
  std::string text = Hex(data);
  std::replace(text.begin(), text.end(), ' ', ':');
  Answer answer = Right(format, {text});
  if (std::all_of(data.begin(), data.end(), [](std::uint8_t byte) { return byte == 0; })) {
    answer.problem = "the unit has no address";
  }
  return answer;
}

// One byte that is 0 or 1, as one of two words.
Answer DecodeWord(const ReplyFormat& format, const Bytes& data, const char* zero, const char* one) {
  if (data.size() != 1) return WrongSize(data, "1");
  if (data[0] > 1) return Wrong("neither 0 nor 1: " + Hex(data));
  return Right(format, {data[0] == 1 ? one : zero});
}

Answer DecodeChip(const ReplyFormat& format, const Bytes& data) {
  Answer answer = DecodeWord(format, data, "fail", "pass");
  if (answer.problem.empty() && data[0] == 0) {
    answer.problem = "the chip is missing or not the expected one";
  }
  return answer;
}

Answer DecodePlaying(const ReplyFormat& format, const Bytes& data) {
  return DecodeWord(format, data, "stopped", "playing");
}

Answer DecodeYesNo(const ReplyFormat& format, const Bytes& data) {
  return DecodeWord(format, data, "no", "yes");
}

Answer DecodeByte(const ReplyFormat& format, const Bytes& data) {
  if (data.size() != 1) return WrongSize(data, "1");
  return Right(format, {std::to_string(data[0])});
}

Answer DecodeRegion(const ReplyFormat& format, const Bytes& data) {
  Answer answer = DecodeByte(format, data);
  if (answer.problem.empty() && data[0] > kHighestRegion) {
    answer.problem = "there are only regions 0 to 6";
  }
  return answer;
}

Answer DecodeMediaPosition(const ReplyFormat& format, const Bytes& data) {
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
    char row[64];
    std::snprintf(row, sizeof(row), "%9u  %3d dBHz  ", satellite.id, satellite.signal);
    table += row + std::string(static_cast<std::size_t>(length), '#') + "\n";
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
  if (data.size() != kFixedTextSize) {
    return "a reply of " + std::to_string(data.size()) + " bytes instead of 78";
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

const ReplyFormat kVersionReply = {{{"version", "", false}}, DecodeText, nullptr};
const ReplyFormat kIdentityReply = {{{"text", "", false}}, DecodeIdentity, nullptr};
const ReplyFormat kNameReply = {{{"name", "", false}}, DecodeName, nullptr};
const ReplyFormat kMacReply = {{{"mac", "", false}}, DecodeMac, nullptr};
const ReplyFormat kChipReply = {{{"verdict", "", false}}, DecodeChip, nullptr};
const ReplyFormat kMediaPositionReply = {
    {{"folder", "", true}, {"track", "", true}}, DecodeMediaPosition, nullptr};
const ReplyFormat kMediaStateReply = {{{"state", "", false}}, DecodePlaying, nullptr};
const ReplyFormat kMediaDeviceReply = {{{"device", "", true}}, DecodeByte, nullptr};
const ReplyFormat kMediaRegionReply = {{{"region", "", true}}, DecodeRegion, nullptr};
const ReplyFormat kPresenceReply = {{{"present", "", false}}, DecodeYesNo, nullptr};
const ReplyFormat kSynchronisationReply = {{{"synchronised", "", false}}, DecodeYesNo, nullptr};
const ReplyFormat kSatellitesReply = {
    {{"count", "", true}, {"strongest", "dBHz", true}, {"fourth", "dBHz", true}},
    DecodeSatellites,
    SatelliteTable};
const ReplyFormat kPositionReply = {
    {{"longitude", "deg", true}, {"latitude", "deg", true}}, DecodePosition, nullptr};
const ReplyFormat kSpeedReply = {{{"speed", "", true}}, DecodeSpeed, nullptr};
const ReplyFormat kAngleReply = {{{"angle", "", true}}, DecodeAngle, nullptr};

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
    line += tools::Escape(field.text);
    if (*field.info->unit != '\0') line += std::string(" ") + field.info->unit;
  }
  return line;
}

std::string Hex(const std::uint8_t* data, std::size_t size) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(size * 3);
  for (std::size_t i = 0; i < size; ++i) {
    if (i > 0) text += ' ';
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 15];
  }
  return text;
}

double ParseNumber(const std::string& text) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  double value = 0;
  if (text.empty() || !(stream >> std::noskipws >> value) || stream.peek() != EOF) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  return value;
}

}  // namespace station
