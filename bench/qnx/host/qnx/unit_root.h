// The directory that stands for the unit's '/', and why no unit can be reached below it.
#ifndef KORVANDIS_QNX_UNIT_ROOT_H
#define KORVANDIS_QNX_UNIT_ROOT_H

#include <string>

namespace qnx {

const char kRootVariable[] = "HEADUNIT_ROOT";

// The directory that the variable names, as it stands there; empty when it names none.
std::string UnitRoot();

// The reason why no unit can be reached: the directory that HEADUNIT_ROOT names is missing or is
// not a directory, or no unit answers below it. Names the absolute path, and says when
// HEADUNIT_ROOT is not set or is relative. Empty when a unit answers. Asks the unit, so it may take
// 2 s.
std::string WhyNoUnit();

}  // namespace qnx

#endif  // KORVANDIS_QNX_UNIT_ROOT_H
