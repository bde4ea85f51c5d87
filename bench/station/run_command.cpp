// `station run`.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "builtin.h"
#include "files.h"
#include "station/sequence_run.h"

namespace station {
namespace {

int UsageError(Context& context, const std::string& reason) {
  context.err << "station: run: " << reason << "; see 'station run --help'\n";
  return tools::kExitUsage;
}

void List(const Sequence& sequence, const std::set<std::string>& phases, std::ostream& out) {
  if (!sequence.title.empty()) out << tools::Escape(sequence.title) << '\n';
  for (const auto& [name, value] : sequence.values) {
    out << "value " << name
        << (value.required ? ", to be given" : " = " + tools::Escape(value.text)) << '\n';
  }
  for (const Phase& phase : sequence.phases) {
    if (!phases.empty() && phases.count(phase.name) == 0) continue;
    out << '\n' << tools::Escape(phase.name) << '\n';
    for (const Step& step : phase.steps) {
      out << "  " << tools::Escape(step.name);
      std::string command;
      for (const std::string& word : step.words) command += (command.empty() ? ": " : " ") + word;
      out << tools::Escape(command) << '\n';
    }
  }
}

// What a run would send and expect, as far as it is known beforehand.
void DryRun(const Sequence& sequence, const std::set<std::string>& phases, const Values& values,
            std::ostream& out) {
  for (const Phase& phase : sequence.phases) {
    if (!phases.empty() && phases.count(phase.name) == 0) continue;
    out << tools::Escape(phase.name) << '\n';
    for (const Step& step : phase.steps) {
      out << "  " << tools::Escape(step.name) << '\n';
      if (step.command == nullptr) continue;
      std::vector<std::string> words;
      std::string missing;
      for (const std::string& word : step.words) {
        std::string filled;
        std::string absent;
        if (!FillValues(word, values, &filled, &absent)) missing = absent;
        words.push_back(filled);
      }
      Invocation invocation;
      if (!missing.empty()) {
        out << "    sends " << step.command->words << " with the value {" << missing << "}\n";
      } else if (ParseInvocation(words, &invocation).empty()) {
        const Bytes packet = wire::BuildRequest(step.command->number, step.command->sub_command,
                                                EncodeParameters(invocation));
        out << "    sends " << CommandLine(invocation) << ": "
            << Hex(packet.data() + wire::kHeaderSize, packet.size() - wire::kHeaderSize) << '\n';
      }
      for (const Expectation& expectation : step.expectations) {
        out << "    expects " << expectation.field << ' '
            << tools::Escape(DescribeExpectation(expectation, values)) << '\n';
      }
    }
  }
}

// Opens the file of a record before anything is sent; a run is not lost to a wrong path. True when
// there is nothing to open.
bool OpenRecord(Context& context, const std::string& option, std::ofstream* file) {
  if (!context.invocation.Has(option)) return true;
  const std::string path = context.invocation.Get(option);
  file->open(path);
  if (file->is_open()) return true;
  context.err << "station: run: " << tools::Escape(path) << " cannot be written\n";
  return false;
}

bool CloseRecord(Context& context, const std::string& option, std::ofstream* file) {
  if (!file->is_open()) return true;
  file->close();
  if (file->good()) return true;
  context.err << "station: run: " << tools::Escape(context.invocation.Get(option))
              << " could not be written\n";
  return false;
}

}  // namespace

int RunSequenceFile(Context& context) {
  const Invocation& invocation = context.invocation;
  const std::string& path = invocation.arguments[0];
  std::string text;
  const std::string problem = ReadFile(path, &text);
  if (!problem.empty()) return UsageError(context, problem);

  Values given;
  std::set<std::string> phases;
  for (const auto& [name, value] : invocation.options) {
    if (name == "--only") phases.insert(value);
    if (name != "--set") continue;
    const std::size_t equals = value.find('=');
    if (equals == std::string::npos || equals == 0) {
      return UsageError(context, "--set needs NAME=VALUE, not '" + tools::Escape(value) + "'");
    }
    given[value.substr(0, equals)] = value.substr(equals + 1);
  }

  Sequence sequence;
  std::vector<std::string> errors = ParseSequence(text, &sequence);
  const bool list = invocation.Has("--list");
  if (errors.empty() && !list) errors = CheckSequence(sequence, given, phases);
  for (const std::string& error : errors) {
    const bool in_file = error[0] >= '0' && error[0] <= '9';
    context.err << "station: " << tools::Escape(path) << (in_file ? ":" : ": ") << error << '\n';
  }
  if (!errors.empty()) return tools::kExitUsage;
  if (list) {
    List(sequence, phases, context.out);
    return tools::kExitRight;
  }
  if (invocation.Has("--dry-run")) {
    DryRun(sequence, phases, StartValues(sequence, given), context.out);
    return tools::kExitRight;
  }

  std::ofstream junit;
  std::ofstream json;
  if (!OpenRecord(context, "--junit", &junit) || !OpenRecord(context, "--json", &json)) {
    return tools::kExitUsage;
  }
  const bool terminal = &context.out == &std::cout && ::isatty(STDOUT_FILENO) != 0;
  const char* no_colour = std::getenv("NO_COLOR");
  const bool colour = terminal && (no_colour == nullptr || *no_colour == '\0');
  tools::Interrupt interrupt;
  Progress progress(context.out, terminal, colour);
  const RunRecord record =
      RunSequence(sequence, given, phases, context.timeout, &interrupt, &progress);
  if (junit.is_open()) WriteJunit(record, junit);
  if (json.is_open()) WriteJson(record, json);
  const bool junit_written = CloseRecord(context, "--junit", &junit);
  const bool json_written = CloseRecord(context, "--json", &json);
  const bool written = junit_written && json_written;
  return record.verdict == Verdict::kPassed && written ? tools::kExitRight : tools::kExitWrong;
}

}  // namespace station
