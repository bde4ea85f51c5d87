// Runs that could not be stored wait in a spool file: one line a run, JSON. Any number of processes
// may use one spool at the same time.
#ifndef KORVANDIS_RECORDS_SPOOL_H
#define KORVANDIS_RECORDS_SPOOL_H

#include <string>
#include <vector>

#include "records/patience.h"
#include "station/run_record.h"

namespace records {

// The run as one line of JSON, and back. False when the line is not a whole run.
std::string RunJson(const Run& run);
bool ParseRunJson(const std::string& line, Run* run);

// Where the runs of a record wait: beside an SQLite file ("line.db.spool"); for a server, or where
// nothing can be written beside the file, below $XDG_STATE_HOME or ~/.local/state. The first place
// that can be written is used.
std::vector<std::string> SpoolPaths(const std::string& address);

// The result of storing a run.
struct Stored {
  bool stored = false;
  long long number = 0;       // in the record, when it was stored
  std::size_t caught_up = 0;  // runs of the spool that were stored with it
  std::string problem;        // one or more sentences for the operator; empty when all is well
};

// Stores the runs that wait and then this one. What cannot be stored is kept in the spool,
// as are all when the record is locked for longer than the patience lasts.
Stored StoreRun(const std::string& address, const Run& run, Patience* patience = nullptr);

}  // namespace records

#endif  // KORVANDIS_RECORDS_SPOOL_H
