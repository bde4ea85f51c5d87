// Reading runs back.

#include "hex.h"
#include "query.h"

namespace records {
namespace {

Time FromText(const std::string& text) {
  Time time;
  ParseUtc(text, &time);
  return time;
}

double Optional(const soci::row& row, std::size_t column) {
  return row.get_indicator(column) == soci::i_null ? std::numeric_limits<double>::quiet_NaN()
                                                   : row.get<double>(column);
}

// Reads one run, table by table.
class Reader {
 public:
  Reader(soci::session& sql, long long number, Run* run) : sql_(sql), number_(number), run_(run) {}

  void Read() {
    ReadValues();
    ReadPhases();
    ReadSteps();
    ReadMeasurements();
    ReadTrace();
  }

 private:
  soci::rowset<soci::row> Rows(const std::string& query) {
    return (sql_.prepare << query, soci::use(number_));
  }

  void ReadValues() {
    for (const soci::row& row : Rows("SELECT name, value FROM run_value WHERE run = :run")) {
      run_->values[row.get<std::string>(0)] = row.get<std::string>(1);
    }
  }

  void ReadPhases() {
    for (const soci::row& row : Rows("SELECT name, outcome, started, seconds FROM phase WHERE run ="
                                     " :run ORDER BY position")) {
      Phase phase;
      phase.name = row.get<std::string>(0);
      phase.outcome = ParseOutcome(row.get<std::string>(1));
      phase.start = FromText(row.get<std::string>(2));
      phase.seconds = row.get<double>(3);
      run_->phases.push_back(phase);
    }
  }

  void ReadSteps() {
    for (const soci::row& row :
         Rows("SELECT step.phase, n.step, outcome, started, seconds, attempts, command, problem,"
              " expected, request, reply FROM step JOIN step_name n ON n.id = step.step_name WHERE"
              " run = :run ORDER BY position")) {
      const auto phase = static_cast<std::size_t>(row.get<int>(0));
      if (phase >= run_->phases.size()) continue;
      Step step;
      step.name = row.get<std::string>(1);
      step.outcome = ParseOutcome(row.get<std::string>(2));
      step.start = FromText(row.get<std::string>(3));
      step.seconds = row.get<double>(4);
      step.attempts = row.get<int>(5);
      step.command = row.get<std::string>(6);
      step.problem = row.get<std::string>(7);
      step.expected = row.get<std::string>(8);
      step.request = HexBytes(row.get<std::string>(9));
      step.reply = HexBytes(row.get<std::string>(10));
      steps_.emplace_back(phase, run_->phases[phase].steps.size());
      run_->phases[phase].steps.push_back(step);
    }
  }

  void ReadMeasurements() {
    for (const soci::row& row :
         Rows("SELECT m.step, n.name, n.unit, value, number, low, high, expected, outcome FROM"
              " measurement m JOIN measurement_name n ON n.id = m.measurement_name WHERE run = :run"
              " ORDER BY m.step, position")) {
      const auto step = static_cast<std::size_t>(row.get<int>(0));
      if (step >= steps_.size()) continue;
      Measurement measurement;
      measurement.name = row.get<std::string>(1);
      measurement.unit = row.get<std::string>(2);
      measurement.text = row.get<std::string>(3);
      measurement.number = Optional(row, 4);
      measurement.low = Optional(row, 5);
      measurement.high = Optional(row, 6);
      measurement.expected = row.get<std::string>(7);
      measurement.outcome = ParseOutcome(row.get<std::string>(8));
      run_->phases[steps_[step].first].steps[steps_[step].second].measurements.push_back(
          measurement);
    }
  }

  void ReadTrace() {
    // Numbers are asked for as text where the databases differ in how wide they declare them.
    for (const soci::row& row :
         Rows("SELECT CAST(nanoseconds AS TEXT), from_service, bytes FROM packet WHERE run = :run"
              " ORDER BY position")) {
      run_->packets.push_back(Packet{FromNanoseconds(WholeAt(row, 0)), row.get<int>(1) != 0,
                                     HexBytes(row.get<std::string>(2))});
    }
    for (const soci::row& row :
         Rows("SELECT CAST(nanoseconds AS TEXT), CAST(code AS TEXT), severity, CAST(process AS"
              " TEXT), line FROM log_line WHERE run = :run ORDER BY position")) {
      LogLine line;
      line.time = FromNanoseconds(WholeAt(row, 0));
      line.code = static_cast<std::uint32_t>(WholeAt(row, 1));
      line.severity = row.get<int>(2);
      line.process = static_cast<std::uint32_t>(WholeAt(row, 3));
      line.text = row.get<std::string>(4);
      run_->log.push_back(line);
    }
  }

  soci::session& sql_;
  long long number_;
  Run* run_;
  std::vector<std::pair<std::size_t, std::size_t>> steps_;  // phase and place in it, by position
};

// The columns of a run in a list, in the order in which ReadRow takes them.
const char kColumns[] =
    "CAST(run.id AS TEXT), uid, device, title, station, program, sequence, sequence_crc, started,"
    " zone_minutes, seconds, outcome";

RunRow ReadRow(const soci::row& row) {
  RunRow run;
  run.number = WholeAt(row, 0);
  run.id = row.get<std::string>(1);
  run.device = row.get<std::string>(2);
  run.title = row.get<std::string>(3);
  run.station = row.get<std::string>(4);
  run.program = row.get<std::string>(5);
  run.sequence = row.get<std::string>(6);
  run.sequence_crc = row.get<std::string>(7);
  run.started = row.get<std::string>(8);
  run.zone_minutes = row.get<int>(9);
  run.seconds = row.get<double>(10);
  run.outcome = row.get<std::string>(11);
  return run;
}

void AddFailures(soci::session& sql, RunRow* run) {
  const soci::rowset<soci::row> rows =
      (sql.prepare << "SELECT n.phase, n.step, problem FROM step JOIN step_name n ON n.id ="
                      " step.step_name WHERE run = :run AND outcome IN ('failed', 'error',"
                      " 'aborted') ORDER BY position",
       soci::use(run->number));
  for (const soci::row& row : rows) {
    if (!run->failed.empty()) run->failed += '\n';
    run->failed +=
        row.get<std::string>(0) + " / " + row.get<std::string>(1) + ": " + row.get<std::string>(2);
  }
}

}  // namespace

std::string Database::List(const Filter& filter, std::size_t most, std::vector<RunRow>* rows) {
  soci::session& sql = inside_->sql;
  try {
    Query(sql, filter)
        .Run("SELECT " + std::string(kColumns) + " FROM run WHERE 1 = 1" + Condition(filter) +
                 " ORDER BY started DESC, id DESC LIMIT " + std::to_string(most),
             [rows](const soci::row& row) { rows->push_back(ReadRow(row)); });
    for (RunRow& run : *rows) {
      if (run.outcome != "passed") AddFailures(sql, &run);
    }
    return "";
  } catch (const std::exception& error) {
    return Reason(error);
  }
}

bool Database::Load(const std::string& number_or_id, Run* run, std::string* problem) {
  problem->clear();
  const std::string by_number = number_or_id.size() < 19 ? number_or_id : "";
  try {
    soci::row row;
    inside_->sql << "SELECT " << kColumns
                 << " FROM run WHERE uid = :uid OR CAST(id AS TEXT) = :number",
        soci::use(number_or_id), soci::use(by_number), soci::into(row);
    if (!inside_->sql.got_data()) return false;
    const RunRow head = ReadRow(row);
    run->id = head.id;
    run->device = head.device;
    run->title = head.title;
    run->station = head.station;
    run->program = head.program;
    run->sequence = head.sequence;
    qnx::ParseNumber(head.sequence_crc, 0, UINT32_MAX, &run->sequence_crc, 16);
    run->start = FromText(head.started);
    run->zone_minutes = head.zone_minutes;
    run->seconds = head.seconds;
    run->outcome = ParseOutcome(head.outcome);
    Reader(inside_->sql, head.number, run).Read();
    return true;
  } catch (const std::exception& error) {
    *problem = Reason(error);
    return false;
  }
}

}  // namespace records
