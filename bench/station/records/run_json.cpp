// A run as one line of JSON, for the spool.
#include <rapidjson/document.h>

#include <climits>
#include <cmath>

#include "hex.h"
#include "json.h"
#include "records/database.h"
#include "records/spool.h"

namespace records {
namespace {

using Json = rapidjson::Value;

// As a text: not every reader of JSON takes numbers of 19 digits.
std::string TimeText(Time time) { return std::to_string(Nanoseconds(time)); }

// The reader below takes back what is no UTF-8, and leaves a number that is missing unknown.
class RunWriter {
 public:
  std::string text() const { return json_.text(); }

  void Run(const records::Run& run) {
    json_.Open();
    json_.Text("id", run.id);
    json_.Text("device", run.device);
    json_.Text("title", run.title);
    json_.Text("station", run.station);
    json_.Text("program", run.program);
    json_.Text("sequence", run.sequence);
    json_.Whole("sequence_crc", run.sequence_crc);
    json_.Text("start", TimeText(run.start));
    json_.Whole("zone_minutes", run.zone_minutes);
    Known("seconds", run.seconds);
    json_.Text("outcome", OutcomeText(run.outcome));
    json_.List("values", run.values, [this](const auto& value) {
      json_.Text("name", value.first);
      json_.Text("value", value.second);
    });
    json_.List("phases", run.phases, [this](const records::Phase& phase) { Phase(phase); });
    json_.List("packets", run.packets, [this](const Packet& packet) {
      json_.Text("time", TimeText(packet.time));
      json_.Whole("from_service", packet.from_service ? 1 : 0);
      json_.Text("bytes", HexText(packet.bytes));
    });
    json_.List("log", run.log, [this](const LogLine& line) {
      json_.Text("time", TimeText(line.time));
      json_.Whole("code", line.code);
      json_.Whole("severity", line.severity);
      json_.Whole("process", line.process);
      json_.Text("text", line.text);
    });
    json_.Close();
  }

 private:
  void Known(const char* name, double number) {
    if (std::isfinite(number)) json_.Number(name, number);
  }

  void Phase(const records::Phase& phase) {
    json_.Text("name", phase.name);
    json_.Text("outcome", OutcomeText(phase.outcome));
    json_.Text("start", TimeText(phase.start));
    Known("seconds", phase.seconds);
    json_.List("steps", phase.steps, [this](const records::Step& step) { Step(step); });
  }

  void Step(const records::Step& step) {
    json_.Text("name", step.name);
    json_.Text("outcome", OutcomeText(step.outcome));
    json_.Text("command", step.command);
    json_.Text("problem", step.problem);
    json_.Text("expected", step.expected);
    json_.Text("start", TimeText(step.start));
    Known("seconds", step.seconds);
    json_.Whole("attempts", step.attempts);
    json_.Text("request", HexText(step.request));
    json_.Text("reply", HexText(step.reply));
    json_.List("measurements", step.measurements, [this](const Measurement& measurement) {
      json_.Text("name", measurement.name);
      json_.Text("unit", measurement.unit);
      json_.Text("text", measurement.text);
      Known("number", measurement.number);
      Known("low", measurement.low);
      Known("high", measurement.high);
      json_.Text("expected", measurement.expected);
      json_.Text("outcome", OutcomeText(measurement.outcome));
    });
  }

  JsonWriter json_;
};

std::string TextOf(const Json& object, const char* name) {
  const auto member = object.FindMember(name);
  if (member == object.MemberEnd() || !member->value.IsString()) return "";
  return {member->value.GetString(), member->value.GetStringLength()};
}

double NumberOf(const Json& object, const char* name) {
  const auto member = object.FindMember(name);
  const bool there = member != object.MemberEnd() && member->value.IsNumber();
  return there ? member->value.GetDouble() : std::numeric_limits<double>::quiet_NaN();
}

long long WholeOf(const Json& object, const char* name) {
  const auto member = object.FindMember(name);
  return member != object.MemberEnd() && member->value.IsInt64() ? member->value.GetInt64() : 0;
}

Time TimeOf(const Json& object, const char* name) {
  long long nanoseconds = 0;
  qnx::ParseNumber(TextOf(object, name), LLONG_MIN, LLONG_MAX, &nanoseconds);
  return FromNanoseconds(nanoseconds);
}

Outcome OutcomeOf(const Json& object) { return ParseOutcome(TextOf(object, "outcome")); }

template <typename Take>
void ForEach(const Json& object, const char* name, Take take) {
  const auto member = object.FindMember(name);
  if (member == object.MemberEnd() || !member->value.IsArray()) return;
  for (const Json& item : member->value.GetArray()) {
    if (item.IsObject()) take(item);
  }
}

Step StepOf(const Json& json) {
  Step step;
  step.name = TextOf(json, "name");
  step.outcome = OutcomeOf(json);
  step.command = TextOf(json, "command");
  step.problem = TextOf(json, "problem");
  step.expected = TextOf(json, "expected");
  step.start = TimeOf(json, "start");
  step.seconds = NumberOf(json, "seconds");
  step.attempts = static_cast<int>(WholeOf(json, "attempts"));
  step.request = HexBytes(TextOf(json, "request"));
  step.reply = HexBytes(TextOf(json, "reply"));
  ForEach(json, "measurements", [&step](const Json& item) {
    step.measurements.push_back(Measurement{
        TextOf(item, "name"), TextOf(item, "unit"), TextOf(item, "text"), NumberOf(item, "number"),
        NumberOf(item, "low"), NumberOf(item, "high"), TextOf(item, "expected"), OutcomeOf(item)});
  });
  return step;
}

}  // namespace

std::string RunJson(const Run& run) {
  RunWriter writer;
  writer.Run(run);
  return writer.text();
}

bool ParseRunJson(const std::string& text, Run* run) {
  rapidjson::Document json;
  json.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  if (json.HasParseError() || !json.IsObject() || TextOf(json, "id").empty()) return false;
  run->id = TextOf(json, "id");
  run->device = TextOf(json, "device");
  run->title = TextOf(json, "title");
  run->station = TextOf(json, "station");
  run->program = TextOf(json, "program");
  run->sequence = TextOf(json, "sequence");
  run->sequence_crc = static_cast<std::uint32_t>(WholeOf(json, "sequence_crc"));
  run->start = TimeOf(json, "start");
  run->zone_minutes = static_cast<int>(WholeOf(json, "zone_minutes"));
  run->seconds = NumberOf(json, "seconds");
  run->outcome = OutcomeOf(json);
  ForEach(json, "values",
          [run](const Json& item) { run->values[TextOf(item, "name")] = TextOf(item, "value"); });
  ForEach(json, "phases", [run](const Json& item) {
    Phase phase;
    phase.name = TextOf(item, "name");
    phase.outcome = OutcomeOf(item);
    phase.start = TimeOf(item, "start");
    phase.seconds = NumberOf(item, "seconds");
    ForEach(item, "steps", [&phase](const Json& step) { phase.steps.push_back(StepOf(step)); });
    run->phases.push_back(phase);
  });
  ForEach(json, "packets", [run](const Json& item) {
    run->packets.push_back(Packet{TimeOf(item, "time"), WholeOf(item, "from_service") != 0,
                                  HexBytes(TextOf(item, "bytes"))});
  });
  ForEach(json, "log", [run](const Json& item) {
    LogLine line;
    line.time = TimeOf(item, "time");
    line.code = static_cast<std::uint32_t>(WholeOf(item, "code"));
    line.severity = static_cast<int>(WholeOf(item, "severity"));
    line.process = static_cast<std::uint32_t>(WholeOf(item, "process"));
    line.text = TextOf(item, "text");
    run->log.push_back(line);
  });
  return true;
}

}  // namespace records
