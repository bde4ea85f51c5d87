// `headunit import`: a dump of a real unit becomes a profile.
#ifndef KORVANDIS_HEADUNIT_PROGRAM_IMPORT_COMMAND_H
#define KORVANDIS_HEADUNIT_PROGRAM_IMPORT_COMMAND_H

#include <string>
#include <vector>

namespace headunit {

// Carries out "DIR --name NAME [--to DIR]". Returns the program's exit status.
int Import(const std::vector<std::string>& words);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PROGRAM_IMPORT_COMMAND_H
