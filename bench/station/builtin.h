// The station's own commands: what a row of the command table with `run` does. Each returns the
// exit status.
#ifndef KORVANDIS_STATION_BUILTIN_H
#define KORVANDIS_STATION_BUILTIN_H

#include "station/command.h"

namespace station {

// Both say what is wrong, under the words of the command, and return the exit status: a wrong
// command line; anything else.
int UsageError(Context& context, const std::string& problem);
int Complain(Context& context, const std::string& problem);

int RunGroup(Context& context);  // every question of the group, as a table with verdicts
int RunRaw(Context& context);
int RunMonitor(Context& context);
int RunWait(Context& context);
int RunGpsWatch(Context& context);
int RunSequenceFile(Context& context);
int RecordTraffic(Context& context);
int ReplayTraffic(Context& context);
int RunRecords(Context& context);
int RunHistory(Context& context);
int RunSummary(Context& context);
int RunCompletion(Context& context);
int RunCommands(Context& context);  // the commands that a sequence may use

}  // namespace station

#endif  // KORVANDIS_STATION_BUILTIN_H
