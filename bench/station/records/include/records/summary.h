// The numbers of a line, counted by the database: yield, failing steps, spread of measurements.
#ifndef KORVANDIS_RECORDS_SUMMARY_H
#define KORVANDIS_RECORDS_SUMMARY_H

#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "records/database.h"

namespace records {

const double kUnknown = std::numeric_limits<double>::quiet_NaN();  // null in JSON

// Devices with a finished run (passed or failed), and how many of them passed the first and the
// last one. Runs without a device do not count here.
struct Yield {
  long long devices = 0;
  long long first_passed = 0;
  long long last_passed = 0;

  double First() const { return Share(first_passed); }
  double Final() const { return Share(last_passed); }

 private:
  double Share(long long passed) const {
    return devices == 0 ? kUnknown : static_cast<double>(passed) / static_cast<double>(devices);
  }
};

struct StationNumbers {
  std::string station;
  long long runs = 0;
  Yield yield;                // of the runs on this station
  double seconds = kUnknown;  // median
};

struct StepNumbers {
  std::string phase, step;
  long long runs = 0;  // in which it was not skipped
  long long failed = 0;
  long long errors = 0;
};

struct MeasurementNumbers {
  long long id = 0;  // in this record
  std::string phase, step, name, unit;
  long long count = 0;
  double mean = kUnknown;
  double stddev = kUnknown;  // of a sample (n - 1); unknown with one value
  double min = kUnknown, max = kUnknown;
  double low = kUnknown, high = kUnknown;  // limits of the newest run
  double cpk = kUnknown;
};

struct Summary {
  long long runs = 0, devices = 0;
  long long passed = 0, failed = 0, errors = 0, aborted = 0;
  Yield yield;
  std::vector<StationNumbers> stations;          // by name
  std::vector<StepNumbers> steps;                // in the order in which the line first ran them
  std::vector<MeasurementNumbers> measurements;  // likewise
};

// Counts what the filter selects. Opens the record as often as it has use for. Returns an empty
// text, or why not.
std::string Summarise(const std::string& address, const Filter& filter, Summary* summary);

// The summary as JSON; as comma separated values (a row a station, step and measurement); for a
// person at a terminal.
std::string SummaryJson(const Summary& summary);
void WriteSummaryCsv(const Summary& summary, std::ostream& out);
void WriteSummaryText(const Summary& summary, bool colour, std::ostream& out);

// A page that opens without a network: the summary, and figures of it over time. Returns an empty
// text, or why it is not whole.
std::string WriteSummaryPage(const std::string& address, const Filter& filter,
                             const Summary& summary, std::ostream& out);

}  // namespace records

#endif  // KORVANDIS_RECORDS_SUMMARY_H
