// Limits of a sequence's measurements: from its own lines and from limit files. Inside this room
// only.
#ifndef KORVANDIS_STATION_SEQUENCE_LIMITS_H
#define KORVANDIS_STATION_SEQUENCE_LIMITS_H

#include <string>
#include <vector>

#include "station/sequence.h"

namespace station {

// One line of a limit file: "PHASE, STEP, FIELD, LOW, HIGH".
struct Limit {
  Place place;
  std::string phase, step, field;
  std::string low, high;  // "" when there is none
};

// Reads the lines of a limit file, the sequence's file number `file`.
void ReadLimits(const std::string& text, std::size_t file, std::vector<Limit>* limits,
                std::vector<Mistake>* mistakes);

// Puts the limit into its step, in place of those that the field has from other files. Returns what
// is wrong, or nothing.
std::string ApplyLimit(const Limit& limit, Sequence* sequence);

// The field of that name in the command's answer; null when there is none.
const FieldInfo* FindInfo(const Command& command, const std::string& field);

// "the answer to 'chip' has no 'x', only: verdict".
std::string NoField(const Command& command, const std::string& field);

// Checks field and unit of an expectation and gives it the field's unit. Returns what is wrong, or
// nothing.
std::string CheckField(const Command& command, Expectation* expectation);

}  // namespace station

#endif  // KORVANDIS_STATION_SEQUENCE_LIMITS_H
