// The record of a run for other programs. Inside this room only.
#ifndef KORVANDIS_STATION_RUN_REPORT_H
#define KORVANDIS_STATION_RUN_REPORT_H

#include <ostream>
#include <string>

#include "station/run_record.h"

namespace station {

// "2026-03-01T13:00:00.250+01:00": local time that far east of UTC.
std::string TimeText(records::Time time, int zone_minutes);

// The run as JUnit XML: a test suite a phase, a test case a step.
void WriteJunit(const records::Run& run, std::ostream& out);

// The run as JSON: where it comes from, phases, steps, measurements with limits and outcome, times.
void WriteJson(const records::Run& run, std::ostream& out);

}  // namespace station

#endif  // KORVANDIS_STATION_RUN_REPORT_H
