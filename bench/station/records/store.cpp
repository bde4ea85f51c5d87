// Storing a run, and claiming an identity.
#include <cmath>

#include "hex.h"
#include "qnx/text.h"
#include "session.h"

namespace records {
namespace {

// Two stations that bring new names in another order can stop each other on a server: it ends one
// of them, which begins again.
const int kAttempts = 4;
const std::chrono::milliseconds kPause(50);

struct Number {
  explicit Number(double number)
      : value(std::isfinite(number) ? number : 0),
        indicator(std::isfinite(number) ? soci::i_ok : soci::i_null) {}
  double value;
  soci::indicator indicator;
};

// Writes one run into an open transaction.
class Writer {
 public:
  Writer(Database::Inside& inside, const Run& run) : sql_(inside.sql), run_(run) {}

  // False when the run is there already. Sets number() in both cases.
  bool Write() {
    if (!WriteRun()) return false;
    for (const auto& [name, value] : run_.values) {
      const std::string safe_name = Storable(name);
      const std::string safe_value = Storable(value);
      sql_ << "INSERT INTO run_value VALUES (:run, :name, :value)", soci::use(number_),
          soci::use(safe_name), soci::use(safe_value);
    }
    WritePhases();
    WriteTrace();
    return true;
  }

  long long number() const { return number_; }

 private:
  bool WriteRun() {
    const std::string id = run_.id;
    sql_ << "SELECT id FROM run WHERE uid = :uid", soci::use(id), soci::into(number_);
    if (sql_.got_data()) return false;
    const std::string device = Storable(run_.device);
    const std::string title = Storable(run_.title);
    const std::string station = Storable(run_.station);
    const std::string program = Storable(run_.program);
    const std::string sequence = Storable(run_.sequence);
    const std::string crc = qnx::Formatted("%08X", run_.sequence_crc);
    const std::string started = UtcText(run_.start);
    const std::string outcome = OutcomeText(run_.outcome);
    sql_
        << "INSERT INTO run (uid, device, title, station, program, sequence, sequence_crc, started,"
           " zone_minutes, seconds, outcome) VALUES (:uid, :device, :title, :station, :program,"
           " :sequence, :crc, :started, :zone, :seconds, :outcome) RETURNING id",
        soci::use(id), soci::use(device), soci::use(title), soci::use(station), soci::use(program),
        soci::use(sequence), soci::use(crc), soci::use(started), soci::use(run_.zone_minutes),
        soci::use(run_.seconds), soci::use(outcome), soci::into(number_);
    return true;
  }

  void WritePhases() {
    int phase_position = 0;
    int position = 0;
    for (const Phase& phase : run_.phases) {
      const std::string name = Storable(phase.name);
      const std::string outcome = OutcomeText(phase.outcome);
      const std::string started = UtcText(phase.start);
      sql_ << "INSERT INTO phase VALUES (:run, :position, :name, :outcome, :started, :seconds)",
          soci::use(number_), soci::use(phase_position), soci::use(name), soci::use(outcome),
          soci::use(started), soci::use(phase.seconds);
      for (const Step& step : phase.steps) WriteStep(step, name, phase_position, position++);
      ++phase_position;
    }
  }

  void WriteStep(const Step& step, const std::string& phase, int phase_position, int position) {
    const long long name = StepName(phase, Storable(step.name));
    const std::string outcome = OutcomeText(step.outcome);
    const std::string started = UtcText(step.start);
    const std::string command = Storable(step.command);
    const std::string problem = Storable(step.problem);
    const std::string expected = Storable(step.expected);
    const std::string request = HexText(step.request);
    const std::string reply = HexText(step.reply);
    sql_ << "INSERT INTO step VALUES (:run, :position, :phase, :name, :outcome, :started, :seconds,"
            " :attempts, :command, :problem, :expected, :request, :reply)",
        soci::use(number_), soci::use(position), soci::use(phase_position), soci::use(name),
        soci::use(outcome), soci::use(started), soci::use(step.seconds), soci::use(step.attempts),
        soci::use(command), soci::use(problem), soci::use(expected), soci::use(request),
        soci::use(reply);
    int index = 0;
    for (const Measurement& measurement : step.measurements) {
      WriteMeasurement(measurement, name, position, index++);
    }
  }

  void WriteMeasurement(const Measurement& measurement, long long step_name, int step,
                        int position) {
    const long long name =
        MeasurementName(step_name, Storable(measurement.name), Storable(measurement.unit));
    const std::string text = Storable(measurement.text);
    Number number(measurement.number);
    Number low(measurement.low);
    Number high(measurement.high);
    const std::string expected = Storable(measurement.expected);
    const std::string outcome = OutcomeText(measurement.outcome);
    sql_ << "INSERT INTO measurement VALUES (:run, :step, :position, :name, :value, :number, :low,"
            " :high, :expected, :outcome)",
        soci::use(number_), soci::use(step), soci::use(position), soci::use(name), soci::use(text),
        soci::use(number.value, number.indicator), soci::use(low.value, low.indicator),
        soci::use(high.value, high.indicator), soci::use(expected), soci::use(outcome);
  }

  void WriteTrace() {
    int position = 0;
    for (const Packet& packet : run_.packets) {
      const long long time = Nanoseconds(packet.time);
      const int from_service = packet.from_service ? 1 : 0;
      const std::string bytes = HexText(packet.bytes);
      sql_ << "INSERT INTO packet VALUES (:run, :position, :time, :from, :bytes)",
          soci::use(number_), soci::use(position), soci::use(time), soci::use(from_service),
          soci::use(bytes);
      ++position;
    }
    position = 0;
    for (const LogLine& line : run_.log) {
      const long long time = Nanoseconds(line.time);
      const long long code = line.code;
      const long long process = line.process;
      const std::string text = Storable(line.text);
      sql_ << "INSERT INTO log_line VALUES (:run, :position, :time, :code, :severity, :process,"
              " :line)",
          soci::use(number_), soci::use(position), soci::use(time), soci::use(code),
          soci::use(line.severity), soci::use(process), soci::use(text);
      ++position;
    }
  }

  // The number of a name, which is new the first time a line sees it.
  long long StepName(const std::string& phase, const std::string& step) {
    const char* const look = "SELECT id FROM step_name WHERE phase = :phase AND step = :step";
    long long id = 0;
    sql_ << look, soci::use(phase), soci::use(step), soci::into(id);
    if (sql_.got_data()) return id;
    sql_ << "INSERT INTO step_name (phase, step) VALUES (:phase, :step) ON CONFLICT DO NOTHING",
        soci::use(phase), soci::use(step);
    sql_ << look, soci::use(phase), soci::use(step), soci::into(id);
    return id;
  }

  long long MeasurementName(long long step_name, const std::string& name, const std::string& unit) {
    const char* const look =
        "SELECT id FROM measurement_name WHERE step_name = :step AND name = :name AND unit = :unit";
    long long id = 0;
    sql_ << look, soci::use(step_name), soci::use(name), soci::use(unit), soci::into(id);
    if (sql_.got_data()) return id;
    sql_ << "INSERT INTO measurement_name (step_name, name, unit) VALUES (:step, :name, :unit)"
            " ON CONFLICT DO NOTHING",
        soci::use(step_name), soci::use(name), soci::use(unit);
    sql_ << look, soci::use(step_name), soci::use(name), soci::use(unit), soci::into(id);
    return id;
  }

  soci::session& sql_;
  const Run& run_;
  long long number_ = 0;
};

// The spelling under which an identity is compared: "00:1A" and "001a" are one address.
std::string Comparable(const std::string& kind, const std::string& value) {
  if (kind == "serial") return Storable(value);
  std::string text;
  for (const char c : value) {
    if (c == ':' || c == '-') continue;
    text += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  }
  return Storable(text);
}

}  // namespace

std::string Database::Store(const Run& run, long long* number) {
  std::string problem;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (attempt > 0 && !inside_->patience->Pause(kPause * attempt)) break;
    const auto start = std::chrono::steady_clock::now();
    try {
      Writing writing(*inside_);
      Writer writer(*inside_, run);
      writer.Write();
      writing.Commit();
      if (number != nullptr) *number = writer.number();
      return "";
    } catch (const std::exception& error) {
      problem = Reason(*inside_, error);
      // Which part of it was a wait for a lock only the server knows.
      if (inside_->server) inside_->patience->Count(std::chrono::steady_clock::now() - start);
    }
  }
  return problem;
}

std::string Database::Claim(const std::string& kind, const std::string& value,
                            const std::string& device, bool allow) {
  const std::string compared = Comparable(kind, value);
  const std::string safe_device = Storable(device);
  const std::string now = UtcText(std::chrono::system_clock::now());
  try {
    Writing writing(*inside_);
    if (inside_->server) inside_->sql << "LOCK TABLE identity IN SHARE ROW EXCLUSIVE MODE";
    std::string other;
    std::string since;
    inside_->sql << "SELECT device, claimed FROM identity WHERE kind = :kind AND value = :value AND"
                    " device <> :device ORDER BY claimed LIMIT 1",
        soci::use(kind), soci::use(compared), soci::use(safe_device), soci::into(other),
        soci::into(since);
    if (inside_->sql.got_data() && !allow) {
      return kind + " '" + qnx::Escape(value) + "' belongs to device '" + qnx::Escape(other) +
             "' since " + since;
    }
    inside_->sql << "INSERT INTO identity VALUES (:kind, :value, :device, :now) ON CONFLICT DO"
                    " NOTHING",
        soci::use(kind), soci::use(compared), soci::use(safe_device), soci::use(now);
    writing.Commit();
    return "";
  } catch (const std::exception& error) {
    return "the record cannot be asked whether another device has this " + kind + ": " +
           Reason(*inside_, error);
  }
}

}  // namespace records
