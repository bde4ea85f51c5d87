// Help texts, made from the commands.
#ifndef KORVANDIS_STATION_HELP_H
#define KORVANDIS_STATION_HELP_H

#include <ostream>
#include <string>
#include <vector>

namespace station {

// Help on everything under `words`; on the whole program when there are none.
void PrintHelp(std::ostream& out, const std::string& words);

// The longest beginning of `words` that is a command or a group.
std::string HelpWords(const std::vector<std::string>& words);

}  // namespace station

#endif  // KORVANDIS_STATION_HELP_H
