// The command `pps watch`.
#ifndef KORVANDIS_TOOLS_PPS_WATCH_H
#define KORVANDIS_TOOLS_PPS_WATCH_H

#include <string>
#include <vector>

namespace tools {

// Prints the objects at `paths`, then what changes, until a signal. A directory stands for every
// object below it, also for those that come later. With more than one object or with `times`, a
// line with the path, and with `times` the time of day in front of it, stands above each text.
// Returns the exit status; errors are reported under "pps: ".
int WatchObjects(const std::vector<std::string>& paths, bool times);

// Reports that `path` cannot be opened or read. Returns kExitWrong.
int ReportFailure(const std::string& path, int error);

}  // namespace tools

#endif  // KORVANDIS_TOOLS_PPS_WATCH_H
