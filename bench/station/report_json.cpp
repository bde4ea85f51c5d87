// The record of a run as JSON.
#include <rapidjson/prettywriter.h>

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
  std::string text = records::UtcText(time + std::chrono::minutes(zone_minutes));
  text.pop_back();  // the Z
  return text + records::ZoneOffset(zone_minutes);
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
