// The program: from the command line to the exit status.
#ifndef KORVANDIS_STATION_COMMAND_LINE_H
#define KORVANDIS_STATION_COMMAND_LINE_H

#include <ostream>
#include <string>
#include <vector>

namespace station {

// Longest wait for a reply, in seconds, unless a command line says otherwise: longer than the
// service takes for any answer, also when what it asks is silent.
const double kDefaultTimeout = 7;

// Runs `station` with the arguments behind its name. Returns the exit status: 0 right, 1 an answer
// is missing or wrong, 2 wrong usage. `--root` changes HEADUNIT_ROOT of the process.
int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace station

#endif  // KORVANDIS_STATION_COMMAND_LINE_H
