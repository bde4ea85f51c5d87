// The record of a line: every run of every station, in an SQLite file or on a PostgreSQL server
// with the same tables. The classes are not thread-safe; any number of processes may use one
// record at the same time.
#ifndef KORVANDIS_RECORDS_DATABASE_H
#define KORVANDIS_RECORDS_DATABASE_H

#include <memory>
#include <string>
#include <vector>

#include "records/patience.h"
#include "station/run_record.h"

namespace records {

// Which runs are looked at; an empty text selects all.
struct Filter {
  std::string title;
  std::string station;
  std::string since;  // UTC, as UtcText writes it; the run began then or later
  std::string until;  // the run began earlier
  std::string device;

  bool empty() const {
    return title.empty() && station.empty() && since.empty() && until.empty() && device.empty();
  }
};

// A run without its steps, for lists.
struct RunRow {
  long long number = 0;  // in this record
  std::string id, device, title, station, program, sequence, sequence_crc;
  std::string started;  // UTC, as UtcText writes it
  int zone_minutes = 0;
  double seconds = 0;
  std::string outcome;
  std::string failed;  // the steps that did not pass: "phase / step: problem", one a line
};

class Database {
 public:
  enum class Mode { kRead, kWrite };

  // Opens the record: `address` is the path of an SQLite file, or postgresql://... . kWrite creates
  // the file and the tables when they are missing. Null, with the reason in *problem. `patience`,
  // unless null, outlives the Database; it is how long this and all later calls wait for others.
  static std::unique_ptr<Database> Open(const std::string& address, Mode mode, std::string* problem,
                                        Patience* patience = nullptr);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Stores the run in one transaction; a run that is there already is left as it is. Returns an
  // empty text, or why it is not stored. *number, if not null, is its number in this record.
  std::string Store(const Run& run, long long* number);

  // Notes that `device` is about to get the identity `value` of a kind ("serial", "uuid", "mac").
  // Returns an empty text, or why not: another device has it (with which and since when), unless
  // `allow`. Of two stations that ask at the same time, one gets it.
  std::string Claim(const std::string& kind, const std::string& value, const std::string& device,
                    bool allow);

  // The runs that the filter selects, newest first, at most `most`.
  std::string List(const Filter& filter, std::size_t most, std::vector<RunRow>* rows);

  // The run with that number, or with that id. False with *problem empty when there is none.
  bool Load(const std::string& number_or_id, Run* run, std::string* problem);

  struct Inside;
  Inside& inside() { return *inside_; }

 private:
  Database();
  std::unique_ptr<Inside> inside_;
};

// True for addresses of a server; all others are paths.
bool IsServer(const std::string& address);

// The address without the password that it may hold, for messages.
std::string WithoutPassword(const std::string& address);

// A new id of a run: 32 random hex digits.
std::string NewRunId();

// "passed", "failed", "error", "aborted", "skipped", and back; an unknown text is an error.
const char* OutcomeText(Outcome outcome);
Outcome ParseOutcome(const std::string& text);

// Nanoseconds since the epoch, and back.
long long Nanoseconds(Time time);
Time FromNanoseconds(long long nanoseconds);

// "2026-11-23T11:28:17.250Z" and back; false for any other form. Milliseconds.
std::string UtcText(Time time);
bool ParseUtc(const std::string& text, Time* time);

// How far east of UTC a zone is: "+01:00".
std::string ZoneOffset(int zone_minutes);

// The same moment in a zone: "2026-11-23 12:28:17 +01:00".
std::string ZoneText(const std::string& utc, int zone_minutes);

// The time that a person gives, "2026-11-23", "2026-11-23 12:00" or "2026-11-23T12:00:00Z", as
// UtcText writes it; local time unless Z or an offset stands behind. False when it is none.
bool ParseMoment(const std::string& text, std::string* utc);

}  // namespace records

#endif  // KORVANDIS_RECORDS_DATABASE_H
