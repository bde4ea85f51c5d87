// The expectation of a step about one field.
#ifndef KORVANDIS_STATION_EXPECTATION_H
#define KORVANDIS_STATION_EXPECTATION_H

#include <string>

#include "station/sequence.h"

namespace station {

// "from 3 to 5 deg", "one of 'a', 'b'", "matching 6\.6\..*"; values filled in where they are known,
// control characters escaped, everything else as written.
std::string DescribeExpectation(const Expectation& expectation, const Values& values);

// The name of a value that the expectation needs and `values` lack; empty when there is none.
std::string MissingValue(const Expectation& expectation, const Values& values);

// The number that a limit is; NaN when it is empty, not a number or lacks a value.
double LimitNumber(const std::string& limit, const Values& values);

// True when `field` is as expected. *problem says why it cannot be told (a wrong pattern, a
// limit that is not a number, a value that is missing).
bool Holds(const Expectation& expectation, const Field& field, const Values& values,
           std::string* problem);

// Why no field of this kind can ever be as expected ("'verdict' is never 'passs', only: fail,
// pass"); empty when one can be, or when a value is not known yet.
std::string Impossible(const Expectation& expectation, const FieldInfo& info, const Values& values);

}  // namespace station

#endif  // KORVANDIS_STATION_EXPECTATION_H
