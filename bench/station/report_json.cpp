// The record of a run as JSON.
#include <rapidjson/prettywriter.h>

#include <ctime>

#include "json_writer.h"
#include "run_report.h"
#include "station/answer.h"
#include "station/sequence_run.h"

namespace station {
namespace {

const int kRecordVersion = 2;

using Writer = Json<rapidjson::PrettyWriter<rapidjson::OStreamWrapper>>;

void WriteStep(const records::Step& step, int zone_minutes, Writer* json) {
  json->Text("name", step.name);
  json->Text("outcome", records::OutcomeText(step.outcome));
  json->TextUnlessEmpty("command", step.command);
  json->TextUnlessEmpty("message", step.problem);
  json->TextUnlessEmpty("expected", step.expected);
  json->Text("start", TimeText(step.start, zone_minutes));
  json->Seconds(step.seconds);
  json->Number("attempts", step.attempts);
  json->TextUnlessEmpty("request", Hex(step.request));
  json->TextUnlessEmpty("reply", Hex(step.reply));
  WriteMeasurements(step.measurements, json);
}

}  // namespace

std::string TimeText(records::Time time, int zone_minutes) {
  const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = static_cast<std::time_t>(since.count() / 1000 + zone_minutes * 60);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  const int zone = std::abs(zone_minutes);
  return qnx::Formatted("%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02d:%02d", parts.tm_year + 1900,
                        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                        static_cast<int>(since.count() % 1000), zone_minutes < 0 ? '-' : '+',
                        zone / 60, zone % 60);
}

void WriteJson(const records::Run& run, std::ostream& out) {
  Writer json(out);
  json.writer().SetIndent(' ', 2);
  json.Open();
  json.Text("record", "korvandis sequence run");
  json.Number("version", kRecordVersion);
  json.Text("id", run.id);
  json.Text("sequence", run.title);
  json.Text("device", run.device);
  json.Text("station", run.station);
  json.Text("program", run.program);
  json.Text("file", run.sequence);
  json.Text("file_crc32", qnx::Formatted("%08x", run.sequence_crc));
  json.Text("start", TimeText(run.start, run.zone_minutes));
  json.Seconds(run.seconds);
  json.Text("outcome", records::OutcomeText(run.outcome));
  json.Key("values");
  json.Open();
  for (const auto& [name, text] : run.values) json.Text(name.c_str(), text);
  json.Close();
  json.List("phases", run.phases, [&](const records::Phase& phase) {
    json.Text("name", phase.name);
    json.Text("outcome", records::OutcomeText(phase.outcome));
    json.Text("start", TimeText(phase.start, run.zone_minutes));
    json.Seconds(phase.seconds);
    json.List("steps", phase.steps,
              [&](const records::Step& step) { WriteStep(step, run.zone_minutes, &json); });
  });
  json.Close();
  out << '\n';
}

}  // namespace station
