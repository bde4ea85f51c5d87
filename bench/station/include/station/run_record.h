// One run of a sequence, complete and without references: what the record store keeps, what the
// spool file holds and what the reports are written from. The runner fills it.
#ifndef KORVANDIS_STATION_RUN_RECORD_H
#define KORVANDIS_STATION_RUN_RECORD_H

#include <chrono>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace records {

using Time = std::chrono::system_clock::time_point;

// The words in a database and in JSON: "passed", "failed", "error", "aborted", "skipped". A run is
// never skipped.
enum class Outcome { kPassed, kFailed, kError, kAborted, kSkipped };

// One field of an answer.
struct Measurement {
  std::string name;                                          // of the field
  std::string unit;                                          // "" when it has none
  std::string text;                                          // as received
  double number = std::numeric_limits<double>::quiet_NaN();  // NaN: the field is not numeric
  double low = std::numeric_limits<double>::quiet_NaN();     // NaN: no lower limit
  double high = std::numeric_limits<double>::quiet_NaN();    // NaN: no upper limit
  std::string expected;                                      // for a person; "" when nothing is
  Outcome outcome = Outcome::kPassed;                        // passed or failed
};

struct Step {
  std::string name;
  Outcome outcome = Outcome::kSkipped;
  std::string command;   // as typed, values filled in; "" for a step that only waits
  std::string problem;   // why it did not pass; "" when it did
  std::string expected;  // what was expected when it failed, for a person
  Time start;
  double seconds = 0;
  int attempts = 0;
  std::vector<std::uint8_t> request, reply;  // of the last attempt
  std::vector<Measurement> measurements;     // of the last attempt
};

struct Phase {
  std::string name;
  Outcome outcome = Outcome::kSkipped;
  Time start;
  double seconds = 0;
  std::vector<Step> steps;
};

// One packet of the test connection, kept when a step did not pass.
struct Packet {
  Time time;
  bool from_service = false;
  std::vector<std::uint8_t> bytes;
};

// One line of the unit's log, kept when a step did not pass.
struct LogLine {
  Time time;
  std::uint32_t code = 0;
  int severity = 0;
  std::uint32_t process = 0;
  std::string text;
};

struct Run {
  std::string id;        // 32 hex digits, different for each run
  std::string device;    // what `device` of the sequence gives; "" when the sequence names none
  std::string title;     // of the sequence
  std::string station;   // --station, else the host's name
  std::string program;   // version of the station program
  std::string sequence;  // path of the sequence file
  std::uint32_t sequence_crc = 0;             // CRC-32 of its bytes
  std::map<std::string, std::string> values;  // at the end of the run
  Time start;
  int zone_minutes = 0;  // east of UTC, at the start
  double seconds = 0;
  Outcome outcome = Outcome::kError;
  std::vector<Phase> phases;
  std::vector<Packet> packets;
  std::vector<LogLine> log;
};

}  // namespace records

#endif  // KORVANDIS_STATION_RUN_RECORD_H
