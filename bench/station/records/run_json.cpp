// A run as one line of JSON, for the spool.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>

#include "hex.h"
#include "records/database.h"
#include "records/spool.h"

namespace records {
namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;
using Json = rapidjson::Value;

std::string Nanoseconds(Time time) {
  return std::to_string(
      std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count());
}

// Texts are written as they are, also bytes that are no UTF-8: the reader below takes them back.
class RunWriter {
 public:
  explicit RunWriter(Writer& out) : out_(out) {}

  void Text(const char* name, const std::string& text) {
    out_.Key(name);
    out_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  }
  void Number(const char* name, double number) {
    if (!std::isfinite(number)) return;
    out_.Key(name);
    out_.Double(number);
  }
  void Whole(const char* name, long long number) {
    out_.Key(name);
    out_.Int64(number);
  }
  template <typename Items, typename Write>
  void List(const char* name, const Items& items, Write write) {
    out_.Key(name);
    out_.StartArray();
    for (const auto& item : items) {
      out_.StartObject();
      write(item);
      out_.EndObject();
    }
    out_.EndArray();
  }

  void Run(const records::Run& run) {
    out_.StartObject();
    Text("id", run.id);
    Text("device", run.device);
    Text("title", run.title);
    Text("station", run.station);
    Text("program", run.program);
    Text("sequence", run.sequence);
    Whole("sequence_crc", run.sequence_crc);
    Text("start", Nanoseconds(run.start));
    Whole("zone_minutes", run.zone_minutes);
    Number("seconds", run.seconds);
    Text("outcome", OutcomeText(run.outcome));
    List("values", run.values, [this](const auto& value) {
      Text("name", value.first);
      Text("value", value.second);
    });
    List("phases", run.phases, [this](const records::Phase& phase) { Phase(phase); });
    List("packets", run.packets, [this](const Packet& packet) {
      Text("time", Nanoseconds(packet.time));
      Whole("from_service", packet.from_service ? 1 : 0);
      Text("bytes", HexText(packet.bytes));
    });
    List("log", run.log, [this](const LogLine& line) {
      Text("time", Nanoseconds(line.time));
      Whole("code", line.code);
      Whole("severity", line.severity);
      Whole("process", line.process);
      Text("text", line.text);
    });
    out_.EndObject();
  }

 private:
  void Phase(const records::Phase& phase) {
    Text("name", phase.name);
    Text("outcome", OutcomeText(phase.outcome));
    Text("start", Nanoseconds(phase.start));
    Number("seconds", phase.seconds);
    List("steps", phase.steps, [this](const records::Step& step) { Step(step); });
  }

  void Step(const records::Step& step) {
    Text("name", step.name);
    Text("outcome", OutcomeText(step.outcome));
    Text("command", step.command);
    Text("problem", step.problem);
    Text("expected", step.expected);
    Text("start", Nanoseconds(step.start));
    Number("seconds", step.seconds);
    Whole("attempts", step.attempts);
    Text("request", HexText(step.request));
    Text("reply", HexText(step.reply));
    List("measurements", step.measurements, [this](const Measurement& measurement) {
      Text("name", measurement.name);
      Text("unit", measurement.unit);
      Text("text", measurement.text);
      Number("number", measurement.number);
      Number("low", measurement.low);
      Number("high", measurement.high);
      Text("expected", measurement.expected);
      Text("outcome", OutcomeText(measurement.outcome));
    });
  }

  Writer& out_;
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
  const long long nanoseconds = std::strtoll(TextOf(object, name).c_str(), nullptr, 10);
  return Time(std::chrono::duration_cast<Time::duration>(std::chrono::nanoseconds(nanoseconds)));
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
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  RunWriter(writer).Run(run);
  return {buffer.GetString(), buffer.GetSize()};
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
