// The meaning of a reply's bytes: named fields, and whether they are right.
#ifndef KORVANDIS_STATION_ANSWER_H
#define KORVANDIS_STATION_ANSWER_H

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "qnx/text.h"
#include "wire/command_table.h"

namespace station {

using Bytes = std::vector<std::uint8_t>;

struct FieldInfo {
  const char* name;
  const char* unit;  // "" when there is none
  bool numeric;      // can be held against limits
  // Where the field cannot be everything: its words, or its range.
  const wire::Choice* choices = nullptr;
  double lowest = -std::numeric_limits<double>::infinity();
  double highest = std::numeric_limits<double>::infinity();
};

struct Field {
  const FieldInfo* info;
  std::string text;  // as received; escape it before it is shown
  double number;     // NaN when the text is not a number
};

struct Answer {
  std::string problem;        // why the reply is missing or wrong; empty: it is right
  std::vector<Field> fields;  // all fields of the format, in order; none when they cannot be read
};

// One kind of reply, for its row of the table of commands. `decode` takes any bytes. `table` gives
// several lines for the console where a line of fields is not enough; null otherwise.
struct ReplyFormat {
  std::vector<FieldInfo> fields;
  Answer (*decode)(const ReplyFormat& format, const Bytes& data);
  std::string (*table)(const Bytes& data);
  const wire::ReplySpec* spec;
};

// The format of a reply; `spec` is not of the kind kNone and outlives it.
ReplyFormat FormatOf(const wire::ReplySpec& spec);

// The field of that name, null when the answer has none.
const Field* FindField(const Answer& answer, const std::string& name);

// One line for a person: the value of a single field, otherwise "folder 3, track 10". Units behind,
// control characters escaped.
std::string Describe(const Answer& answer);

using qnx::Hex;

}  // namespace station

#endif  // KORVANDIS_STATION_ANSWER_H
