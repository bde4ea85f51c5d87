// Runs a unit, and the service on it, until the program is told to end.
#ifndef KORVANDIS_HEADUNIT_PROGRAM_RUN_H
#define KORVANDIS_HEADUNIT_PROGRAM_RUN_H

#include "arguments.h"

namespace headunit {

// Returns the program's exit status. The calling thread is the only one.
int Run(Arguments arguments);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PROGRAM_RUN_H
