// The records of a run for other programs: JUnit XML and JSON.
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <string_view>

#include "station/sequence_run.h"

namespace station {
namespace {

// UTC, "2025-03-01T12:00:00.250Z".
std::string Timestamp(std::chrono::system_clock::time_point time) {
  const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = static_cast<std::time_t>(since.count() / 1000);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[64];
  std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>(since.count() % 1000));
  return text;
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.15g", value);
  return text;
}

std::string Duration(double seconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f", seconds);
  return text;
}

// Calls `take` with each character of `text`, or with a byte that is none and its number.
template <typename Take>
void ForEachCharacter(std::string_view text, Take take) {
  while (!text.empty()) {
    const std::size_t length = tools::Utf8Length(text);
    const bool control = tools::IsControl(text[0]);
    const std::string_view character = text.substr(0, length == 0 ? 1 : length);
    take(character, length == 0 || control ? static_cast<unsigned char>(text[0]) : -1);
    text.remove_prefix(character.size());
  }
}

// Attribute or element text. Bytes of what XML cannot hold become \xNN.
std::string Xml(const std::string& text) {
  static const std::map<std::string_view, const char*> entities = {
      {"&", "&amp;"},
      {"<", "&lt;"},
      {">", "&gt;"},
      {"\"", "&quot;"},
      {"\xEF\xBF\xBE", "\\xEF\\xBF\\xBE"},  // U+FFFE and U+FFFF are no characters
      {"\xEF\xBF\xBF", "\\xEF\\xBF\\xBF"}};
  std::string safe;
  ForEachCharacter(text, [&](std::string_view character, int number) {
    const auto entity = entities.find(character);
    char code[8];
    std::snprintf(code, sizeof(code), "\\x%02X", number & 0xFF);
    if (number >= 0) {
      safe += code;
    } else if (entity != entities.end()) {
      safe += entity->second;
    } else {
      safe += character;
    }
  });
  return safe;
}

// A JSON string. A byte that is no UTF-8 becomes the character of its number.
std::string Json(const std::string& text) {
  std::string quoted = "\"";
  ForEachCharacter(text, [&](std::string_view character, int number) {
    char code[8];
    std::snprintf(code, sizeof(code), "\\u%04x", number & 0xFF);
    if (number < 0 && (character[0] == '"' || character[0] == '\\')) quoted += '\\';
    quoted += number >= 0 ? std::string_view(code) : character;
  });
  return quoted + "\"";
}

// Writes the members and elements of one JSON value with their commas and indentation.
class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out) {}

  void Open(const char* name, char bracket) {
    Begin(name);
    out_ << bracket;
    ++depth_;
    first_ = true;
  }
  void Close(char bracket) {
    --depth_;
    if (!first_) NewLine();
    out_ << bracket;
    first_ = false;
  }
  void Text(const char* name, const std::string& text) { Raw(name, Json(text)); }
  void Value(const char* name, double value) {
    if (!std::isnan(value)) Raw(name, Number(value));
  }
  void Raw(const char* name, const std::string& value) {
    Begin(name);
    out_ << value;
  }

 private:
  void Begin(const char* name) {
    if (depth_ > 0) {
      if (!first_) out_ << ',';
      NewLine();
    }
    first_ = false;
    if (name != nullptr) out_ << Json(name) << ": ";
  }
  void NewLine() { out_ << '\n' << std::string(static_cast<std::size_t>(depth_) * 2, ' '); }

  std::ostream& out_;
  int depth_ = 0;
  bool first_ = true;
};

void WriteMeasurement(const Measurement& measurement, JsonWriter* json) {
  json->Open(nullptr, '{');
  json->Text("name", measurement.field);
  json->Text("text", measurement.text);
  json->Value("value", measurement.number);
  if (!measurement.unit.empty()) json->Text("unit", measurement.unit);
  json->Text("expected", measurement.expected);
  json->Value("low", measurement.low);
  json->Value("high", measurement.high);
  json->Text("outcome", measurement.passed ? "passed" : "failed");
  json->Close('}');
}

void WriteStep(const StepRecord& step, JsonWriter* json) {
  json->Open(nullptr, '{');
  json->Text("name", step.step->name);
  json->Text("outcome", VerdictText(step.verdict));
  if (!step.command.empty()) json->Text("command", step.command);
  if (!step.message.empty()) json->Text("message", step.message);
  json->Raw("seconds", Duration(step.seconds));
  json->Raw("attempts", std::to_string(step.attempts));
  if (!step.request.empty()) json->Text("request", Hex(step.request));
  if (!step.reply.empty()) json->Text("reply", Hex(step.reply));
  json->Open("measurements", '[');
  for (const Measurement& measurement : step.measurements) WriteMeasurement(measurement, json);
  json->Close(']');
  json->Close('}');
}

void WriteCounts(const RunRecord& record, std::ostream& out) {
  const int failed = record.Count(Verdict::kFailed);
  const int skipped = record.Count(Verdict::kSkipped);
  out << "tests=\"" << record.Count(Verdict::kPassed) + failed + skipped << "\" failures=\""
      << failed << "\" skipped=\"" << skipped << "\" errors=\"0\" time=\""
      << Duration(record.seconds) << '"';
}

}  // namespace

void WriteJunit(const RunRecord& record, std::ostream& out) {
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"" << Xml(record.title)
      << "\" ";
  WriteCounts(record, out);
  out << ">\n";
  for (const PhaseRecord& phase : record.phases) {
    RunRecord only;
    only.phases.push_back(phase);
    only.seconds = phase.seconds;
    out << "  <testsuite name=\"" << Xml(phase.name) << "\" timestamp=\""
        << Timestamp(record.start).substr(0, 19) << "\" ";
    WriteCounts(only, out);
    out << ">\n";
    if (!record.device.empty()) {
      out << "    <properties><property name=\"device\" value=\"" << Xml(record.device)
          << "\"/></properties>\n";
    }
    for (const StepRecord& step : phase.steps) {
      out << "    <testcase classname=\"" << Xml(phase.name) << "\" name=\"" << Xml(step.step->name)
          << "\" time=\"" << Duration(step.seconds) << "\">\n";
      if (step.verdict == Verdict::kFailed) {
        out << "      <failure message=\"" << Xml(step.message) << "\"/>\n";
      } else if (step.verdict == Verdict::kSkipped) {
        out << "      <skipped message=\"" << Xml(step.message) << "\"/>\n";
      }
      out << "      <system-out>";
      if (!step.command.empty()) out << Xml(step.command) << '\n';
      for (const Measurement& measurement : step.measurements) {
        out << Xml(measurement.field) << ' ' << Xml(measurement.text)
            << (measurement.unit.empty() ? "" : " ") << measurement.unit << ", expected "
            << Xml(measurement.expected) << '\n';
      }
      out << "</system-out>\n    </testcase>\n";
    }
    out << "  </testsuite>\n";
  }
  out << "</testsuites>\n";
}

void WriteJson(const RunRecord& record, std::ostream& out) {
  JsonWriter json(out);
  json.Open(nullptr, '{');
  json.Text("record", "korvandis sequence run");
  json.Raw("version", "1");
  json.Text("sequence", record.title);
  json.Text("device", record.device);
  json.Text("start", Timestamp(record.start));
  json.Raw("seconds", Duration(record.seconds));
  json.Text("outcome", VerdictText(record.verdict));
  json.Open("values", '{');
  for (const auto& [name, text] : record.values) json.Text(name.c_str(), text);
  json.Close('}');
  json.Open("phases", '[');
  for (const PhaseRecord& phase : record.phases) {
    json.Open(nullptr, '{');
    json.Text("name", phase.name);
    json.Text("outcome", VerdictText(phase.verdict));
    json.Raw("seconds", Duration(phase.seconds));
    json.Open("steps", '[');
    for (const StepRecord& step : phase.steps) WriteStep(step, &json);
    json.Close(']');
    json.Close('}');
  }
  json.Close(']');
  json.Close('}');
  out << '\n';
}

}  // namespace station
