// The record of a line after 100 000 runs: how long a summary and storing one more run take.
//
// Usage: record_store [RUNS]. Exit status 1 when a goal is missed.
#include <sqlite3.h>

#include "records/spool.h"
#include "records/summary.h"
#include "setup.h"

namespace {

const int kSteps = 63;
const int kNumbers = 21;  // steps that measure a number; the others measure a text
const int kStored = 50;
const double kSummaryGoal = 5;   // seconds
const double kStoreGoal = 0.05;  // seconds

records::Run MakeRun(int number) {
  records::Run run;
  run.id = records::NewRunId();
  run.device = "SN" + std::to_string(number);
  run.title = "End of line";
  run.station = "station 1";
  run.program = "1.0.0";
  run.sequence = "end-of-line.seq";
  run.start = std::chrono::system_clock::from_time_t(1700000000) + std::chrono::minutes(number);
  run.seconds = 60;
  run.outcome = records::Outcome::kPassed;
  run.values = {{"serial", run.device}, {"uuid", "U" + run.device}};
  for (int i = 0; i < kSteps; ++i) {
    if (i % 8 == 0) {
      run.phases.emplace_back();
      run.phases.back().name = "Phase " + std::to_string(i / 8);
      run.phases.back().outcome = records::Outcome::kPassed;
      run.phases.back().start = run.start;
    }
    records::Step step;
    step.name = "Step " + std::to_string(i);
    step.outcome = records::Outcome::kPassed;
    step.command = "gps satellites";
    step.start = run.start;
    step.seconds = 0.9;
    step.attempts = 1;
    step.request.assign(38, 9);
    step.reply.assign(60, 5);
    records::Measurement measurement;
    measurement.name = i < kNumbers ? "strongest" : "version";
    measurement.text = "ZM-MPU-03.12.07";
    if (i < kNumbers) {
      measurement.number = i;
      measurement.low = i - 4.0;
      measurement.high = i + 4.0;
    }
    step.measurements.push_back(measurement);
    run.phases.back().steps.push_back(step);
  }
  return run;
}

// Makes `runs` runs of the first one, in one transaction.
void Multiply(const std::string& path, long runs) {
  const std::string script =
      "PRAGMA synchronous = OFF; BEGIN;"
      "WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE i < " +
      std::to_string(runs) +
      ") INSERT INTO run SELECT i, printf('%032x', i), 'SN' || (i * 9 / 10), title,"
      " 'station ' || (i % 4), program, sequence, sequence_crc,"
      " strftime('%Y-%m-%dT%H:%M:%S.000Z', 1700000000 + i * 120, 'unixepoch'), 60,"
      " 60 + abs(random() % 100) * 0.1,"
      " CASE WHEN abs(random()) % 20 = 0 THEN 'failed' ELSE 'passed' END FROM n, run WHERE id = 1;"
      "INSERT INTO step SELECT run.id, s.position, s.phase, s.step_name,"
      " CASE WHEN run.outcome = 'failed' AND abs(random()) % 63 = 0 THEN 'failed' ELSE 'passed' "
      "END,"
      " run.started, s.seconds, 1, s.command, '', '', s.request, s.reply"
      " FROM run CROSS JOIN step s WHERE s.run = 1 AND run.id > 1;"
      "INSERT INTO measurement SELECT run.id, m.step, m.position, m.measurement_name, m.value,"
      " m.number + (abs(random()) % 1000 + abs(random()) % 1000) * 0.001, m.low, m.high, '', "
      "'passed'"
      " FROM run CROSS JOIN measurement m WHERE m.run = 1 AND run.id > 1;"
      "COMMIT";
  sqlite3* database = nullptr;
  char* message = nullptr;
  const bool done = sqlite3_open(path.c_str(), &database) == SQLITE_OK &&
                    sqlite3_exec(database, script.c_str(), nullptr, nullptr, &message) == SQLITE_OK;
  const std::string reason = message == nullptr ? "no database" : message;
  sqlite3_free(message);
  sqlite3_close(database);
  if (!done) setup::Fail(reason);
}

void Store(const std::string& path, const records::Run& run) {
  if (!records::StoreRun(path, run).stored) setup::Fail("a run is not stored");
}

// "3.14 s", "24.0 ms".
std::string Time(double seconds) {
  return seconds < 1 ? setup::Number(seconds * 1000, 1) + " ms" : setup::Number(seconds, 2) + " s";
}

// Seconds that a summary takes, the median of three.
double SummarySeconds(const std::string& path, const records::Filter& filter, long long expected) {
  std::vector<double> times;
  for (int i = 0; i < 3; ++i) {
    const auto start = setup::Clock::now();
    records::Summary summary;
    const std::string problem = records::Summarise(path, filter, &summary);
    times.push_back(setup::Seconds(setup::Clock::now() - start));
    if (!problem.empty() || (expected != 0 && summary.runs != expected) ||
        summary.steps.size() != kSteps || summary.measurements.size() != kNumbers) {
      setup::Fail("a wrong summary " + problem);
    }
  }
  return setup::Median(std::move(times));
}

int Run(int argc, char** argv) {
  const long runs = setup::Argument(argc, argv, 1, 100000);
  const setup::TempRoot root;
  const std::string path = root.path() + "/line.db";
  Store(path, MakeRun(1));
  Multiply(path, runs);
  const std::string of = "records of " + std::to_string(runs) + " runs, " +
                         std::to_string(setup::fs::file_size(path) >> 20U) + " MiB: ";
  const double all = SummarySeconds(path, {}, runs);
  setup::Row(of + "a summary", Time(all), "under 5 s", all < kSummaryGoal);
  records::Filter station;
  station.station = "station 1";
  station.since = "2023-11-14T22:15:00.000Z";
  setup::Row(of + "a summary of one of four stations", Time(SummarySeconds(path, station, 0)), "",
             true);
  std::vector<double> times;
  for (int i = 0; i < kStored; ++i) {
    const records::Run run = MakeRun(static_cast<int>(runs) + i);
    const auto start = setup::Clock::now();
    Store(path, run);
    times.push_back(setup::Seconds(setup::Clock::now() - start));
  }
  const double store = setup::Median(std::move(times));
  setup::Row(of + "storing a run, median", Time(store), "under 50 ms", store < kStoreGoal);
  return all < kSummaryGoal && store < kStoreGoal ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
