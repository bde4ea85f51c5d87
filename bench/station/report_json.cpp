// The record of a run as JSON.
#include <rapidjson/ostreamwrapper.h>
#include <rapidjson/prettywriter.h>

#include <cmath>
#include <cstdio>
#include <ctime>

#include "json_text.h"
#include "run_report.h"
#include "station/answer.h"
#include "station/sequence_run.h"

namespace station {
namespace {

const int kRecordVersion = 2;
const int kDecimals = 3;  // of a duration in seconds

// Writes members of JSON objects.
class Json {
 public:
  explicit Json(std::ostream& out) : stream_(out), writer_(stream_) { writer_.SetIndent(' ', 2); }

  void Key(const char* name) { writer_.Key(name); }
  void Text(const char* name, const std::string& text) {
    Key(name);
    const std::string valid = JsonText(text);
    writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
  }
  void TextUnlessEmpty(const char* name, const std::string& text) {
    if (!text.empty()) Text(name, text);
  }
  void Number(const char* name, double number) {
    if (!std::isfinite(number)) return;
    Key(name);
    char text[32];
    const int size = std::snprintf(text, sizeof(text), "%.15g", number);
    writer_.RawValue(text, static_cast<std::size_t>(size), rapidjson::kNumberType);
  }
  void Seconds(double seconds) {
    Key("seconds");
    char text[32];
    const int size = std::snprintf(text, sizeof(text), "%.*f", kDecimals, seconds);
    writer_.RawValue(text, static_cast<std::size_t>(size), rapidjson::kNumberType);
  }
  void Open() { writer_.StartObject(); }
  void Close() { writer_.EndObject(); }

  template <typename Items, typename Write>
  void List(const char* name, const Items& items, Write write) {
    Key(name);
    writer_.StartArray();
    for (const auto& item : items) {
      Open();
      write(item);
      Close();
    }
    writer_.EndArray();
  }

 private:
  rapidjson::OStreamWrapper stream_;
  rapidjson::PrettyWriter<rapidjson::OStreamWrapper> writer_;
};

void WriteMeasurement(const records::Measurement& measurement, Json* json) {
  json->Text("name", measurement.name);
  json->Text("text", measurement.text);
  json->Number("value", measurement.number);
  json->TextUnlessEmpty("unit", measurement.unit);
  json->TextUnlessEmpty("expected", measurement.expected);
  json->Number("low", measurement.low);
  json->Number("high", measurement.high);
  json->Text("outcome", OutcomeText(measurement.outcome));
}

void WriteStep(const records::Step& step, int zone_minutes, Json* json) {
  json->Text("name", step.name);
  json->Text("outcome", OutcomeText(step.outcome));
  json->TextUnlessEmpty("command", step.command);
  json->TextUnlessEmpty("message", step.problem);
  json->TextUnlessEmpty("expected", step.expected);
  json->Text("start", TimeText(step.start, zone_minutes));
  json->Seconds(step.seconds);
  json->Number("attempts", step.attempts);
  json->TextUnlessEmpty("request", Hex(step.request));
  json->TextUnlessEmpty("reply", Hex(step.reply));
  json->List("measurements", step.measurements,
             [&](const records::Measurement& one) { WriteMeasurement(one, json); });
}

}  // namespace

std::string TimeText(records::Time time, int zone_minutes) {
  const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = static_cast<std::time_t>(since.count() / 1000 + zone_minutes * 60);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  const int zone = std::abs(zone_minutes);
  char text[96];
  std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02d:%02d",
                parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                parts.tm_sec, static_cast<int>(since.count() % 1000), zone_minutes < 0 ? '-' : '+',
                zone / 60, zone % 60);
  return text;
}

void WriteJson(const records::Run& run, std::ostream& out) {
  char crc[16];
  std::snprintf(crc, sizeof(crc), "%08x", static_cast<unsigned>(run.sequence_crc));
  Json json(out);
  json.Open();
  json.Text("record", "korvandis sequence run");
  json.Number("version", kRecordVersion);
  json.Text("id", run.id);
  json.Text("sequence", run.title);
  json.Text("device", run.device);
  json.Text("station", run.station);
  json.Text("program", run.program);
  json.Text("file", run.sequence);
  json.Text("file_crc32", crc);
  json.Text("start", TimeText(run.start, run.zone_minutes));
  json.Seconds(run.seconds);
  json.Text("outcome", OutcomeText(run.outcome));
  json.Key("values");
  json.Open();
  for (const auto& [name, text] : run.values) json.Text(name.c_str(), text);
  json.Close();
  json.List("phases", run.phases, [&](const records::Phase& phase) {
    json.Text("name", phase.name);
    json.Text("outcome", OutcomeText(phase.outcome));
    json.Text("start", TimeText(phase.start, run.zone_minutes));
    json.Seconds(phase.seconds);
    json.List("steps", phase.steps,
              [&](const records::Step& step) { WriteStep(step, run.zone_minutes, &json); });
  });
  json.Close();
  out << '\n';
}

}  // namespace station
