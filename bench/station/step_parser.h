// The lines inside a step of a sequence. Inside this room only.
#ifndef KORVANDIS_STATION_STEP_PARSER_H
#define KORVANDIS_STATION_STEP_PARSER_H

#include <string>
#include <vector>

#include "station/sequence.h"

namespace station {

// True for the words that a line inside a step begins with.
bool IsStepWord(const std::string& word);

// Adds the line "WORD REST" at `place` to the step. Returns what is wrong, or nothing.
std::string ParseStepLine(const std::string& word, const std::string& rest, const Place& place,
                          Step* step);

// What can only be told once the whole step is there: gives the expectations their units and adds
// to *mistakes.
void FinishStepLines(Step* step, std::vector<Mistake>* mistakes);

}  // namespace station

#endif  // KORVANDIS_STATION_STEP_PARSER_H
