// The record of a run as JUnit XML.
#include <pugixml.hpp>

#include "qnx/text.h"
#include "run_report.h"
#include "station/sequence_run.h"

namespace station {
namespace {

using records::Outcome;

// A text as XML can hold it: bytes that are no characters of XML become \xNN.
std::string XmlText(const std::string& text) {
  std::string safe;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t length = tools::Utf8Length(rest);
    const std::string_view character = rest.substr(0, length == 0 ? 1 : length);
    const bool none = length == 0 || tools::IsControl(rest[0]) || character == "\xEF\xBF\xBE" ||
                      character == "\xEF\xBF\xBF";  // U+FFFE and U+FFFF are no characters
    if (none) {
      for (const char c : character) safe += qnx::EscapeByte(c);
    } else {
      safe += character;
    }
    rest.remove_prefix(character.size());
  }
  return safe;
}

pugi::xml_attribute Add(pugi::xml_node node, const char* name, const std::string& text) {
  pugi::xml_attribute attribute = node.append_attribute(name);
  attribute.set_value(XmlText(text).c_str());
  return attribute;
}

void AddTime(pugi::xml_node node, double seconds) {
  node.append_attribute("time").set_value(qnx::Formatted("%.3f", seconds).c_str());
}

// An aborted step is counted as an error: it is neither skipped nor failed.
void AddCounts(pugi::xml_node node, const std::vector<records::Phase>& phases) {
  std::size_t tests = 0;
  for (const records::Phase& phase : phases) tests += phase.steps.size();
  node.append_attribute("tests").set_value(tests);
  node.append_attribute("failures").set_value(CountSteps(phases, Outcome::kFailed));
  node.append_attribute("errors").set_value(CountSteps(phases, Outcome::kError) +
                                            CountSteps(phases, Outcome::kAborted));
  node.append_attribute("skipped").set_value(CountSteps(phases, Outcome::kSkipped));
}

void AddVerdict(pugi::xml_node test, const records::Step& step) {
  const char* element = "";
  if (step.outcome == Outcome::kPassed) return;
  if (step.outcome == Outcome::kFailed) element = "failure";
  if (step.outcome == Outcome::kError || step.outcome == Outcome::kAborted) element = "error";
  if (step.outcome == Outcome::kSkipped) element = "skipped";
  pugi::xml_node verdict = test.append_child(element);
  Add(verdict, "message", step.problem);
  if (step.outcome == Outcome::kAborted) Add(verdict, "type", "aborted");
  if (!step.expected.empty()) {
    verdict.text().set(("expected: " + XmlText(step.expected)).c_str());
  }
}

void AddStep(pugi::xml_node suite, const std::string& class_name, const records::Step& step) {
  pugi::xml_node test = suite.append_child("testcase");
  Add(test, "classname", class_name);
  Add(test, "name", step.name);
  AddTime(test, step.seconds);
  AddVerdict(test, step);
  std::string lines;
  if (!step.command.empty()) lines += XmlText(step.command) + "\n";
  for (const records::Measurement& measurement : step.measurements) {
    lines += XmlText(measurement.name) + " " + XmlText(measurement.text);
    if (!measurement.unit.empty()) lines += " " + measurement.unit;
    if (!measurement.expected.empty()) lines += ", expected " + XmlText(measurement.expected);
    lines += "\n";
  }
  if (!lines.empty()) test.append_child("system-out").text().set(lines.c_str());
}

void AddProperty(pugi::xml_node properties, const char* name, const std::string& value) {
  if (value.empty()) return;
  pugi::xml_node property = properties.append_child("property");
  Add(property, "name", name);
  Add(property, "value", value);
}

}  // namespace

void WriteJunit(const records::Run& run, std::ostream& out) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  Add(declaration, "version", "1.0");
  Add(declaration, "encoding", "UTF-8");
  pugi::xml_node suites = document.append_child("testsuites");
  Add(suites, "name", run.title);
  AddCounts(suites, run.phases);
  AddTime(suites, run.seconds);
  for (const records::Phase& phase : run.phases) {
    pugi::xml_node suite = suites.append_child("testsuite");
    Add(suite, "name", phase.name);
    Add(suite, "timestamp", TimeText(phase.start, run.zone_minutes));
    if (!run.station.empty()) Add(suite, "hostname", run.station);
    AddCounts(suite, {phase});
    AddTime(suite, phase.seconds);
    pugi::xml_node properties = suite.append_child("properties");
    AddProperty(properties, "device", run.device);
    AddProperty(properties, "run", run.id);
    AddProperty(properties, "program", run.program);
    AddProperty(properties, "sequence", run.sequence);
    const std::string class_name = run.title.empty() ? phase.name : run.title + "." + phase.name;
    for (const records::Step& step : phase.steps) AddStep(suite, class_name, step);
  }
  document.save(out, "  ");
}

}  // namespace station
