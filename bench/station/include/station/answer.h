// What a reply's bytes mean: named fields, and whether they are right.
#ifndef KORVANDIS_STATION_ANSWER_H
#define KORVANDIS_STATION_ANSWER_H

#include <cstdint>
#include <string>
#include <vector>

namespace station {

using Bytes = std::vector<std::uint8_t>;

struct FieldInfo {
  const char* name;
  const char* unit;  // "" when there is none
  bool numeric;      // can be held against limits
};

struct Field {
  const FieldInfo* info;
  std::string text;  // as received; escape it before it is shown
  double number;     // NaN when the text is no number
};

struct Answer {
  std::string problem;        // why the reply is missing or wrong; empty: it is right
  std::vector<Field> fields;  // all fields of the format, in order; none when they cannot be read
};

// One kind of reply. `decode` takes any bytes. `table` gives several lines for the console where a
// line of fields is not enough; null otherwise.
struct ReplyFormat {
  std::vector<FieldInfo> fields;
  Answer (*decode)(const ReplyFormat& format, const Bytes& data);
  std::string (*table)(const Bytes& data);
};

// The replies of the service.
extern const ReplyFormat kVersionReply;
extern const ReplyFormat kIdentityReply;
extern const ReplyFormat kNameReply;
extern const ReplyFormat kMacReply;
extern const ReplyFormat kChipReply;
extern const ReplyFormat kMediaPositionReply;
extern const ReplyFormat kMediaStateReply;
extern const ReplyFormat kMediaDeviceReply;
extern const ReplyFormat kMediaRegionReply;
extern const ReplyFormat kPresenceReply;
extern const ReplyFormat kSynchronisationReply;
extern const ReplyFormat kSatellitesReply;
extern const ReplyFormat kPositionReply;
extern const ReplyFormat kSpeedReply;
extern const ReplyFormat kAngleReply;

// The field of that name, null when the answer has none.
const Field* FindField(const Answer& answer, const std::string& name);

// One line for a person: the value of a single field, otherwise "folder 3, track 10". Units behind,
// control characters escaped.
std::string Describe(const Answer& answer);

// "2A A2 00".
std::string Hex(const std::uint8_t* data, std::size_t size);
inline std::string Hex(const Bytes& bytes) { return Hex(bytes.data(), bytes.size()); }

// The number that the whole of `text` is, as C writes it; NaN otherwise.
double ParseNumber(const std::string& text);

}  // namespace station

#endif  // KORVANDIS_STATION_ANSWER_H
