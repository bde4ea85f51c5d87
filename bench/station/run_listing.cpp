#include "run_listing.h"

#include "sequence_text.h"
#include "station/expectation.h"
#include "station/requester.h"

namespace station {
namespace {

void ShowRequest(const Step& step, const Values& values, std::ostream& out) {
  std::vector<std::string> words;
  std::string missing;
  for (const std::string& word : step.words) {
    std::string absent;
    words.emplace_back();
    if (!FillValues(word, values, &words.back(), &absent)) missing = absent;
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
}

}  // namespace

void ListSequence(const Sequence& sequence, const std::set<std::string>& phases,
                  std::ostream& out) {
  if (!sequence.title.empty()) out << tools::Escape(sequence.title) << '\n';
  for (const std::string& name : sequence.value_names) {
    const Value& value = sequence.values.at(name);
    out << "value " << name;
    if (!value.required) out << " = " << tools::Escape(value.text);
    if (value.required) out << ", to be given";
    if (!value.pattern.empty()) out << ", matching " << AsWritten(value.pattern);
    out << '\n';
  }
  for (const Phase& phase : sequence.phases) {
    if (!phases.empty() && phases.count(phase.name) == 0) continue;
    out << '\n' << tools::Escape(phase.name) << (phase.always ? ", always" : "") << '\n';
    for (const Step& step : phase.steps) {
      out << "  " << tools::Escape(step.name);
      std::string command;
      for (const std::string& word : step.words) command += (command.empty() ? ": " : " ") + word;
      out << AsWritten(command) << '\n';
    }
  }
}

void ShowDryRun(const Sequence& sequence, const std::set<std::string>& phases, const Values& values,
                std::ostream& out) {
  for (const Phase& phase : sequence.phases) {
    if (!phases.empty() && phases.count(phase.name) == 0) continue;
    out << tools::Escape(phase.name) << '\n';
    for (const Step& step : phase.steps) {
      out << "  " << tools::Escape(step.name) << '\n';
      if (step.command != nullptr) ShowRequest(step, values, out);
      for (const Expectation& expectation : step.expectations) {
        out << "    expects " << expectation.field << ' '
            << DescribeExpectation(expectation, values) << '\n';
      }
      std::string question;
      std::string missing;
      FillValues(step.question, values, &question, &missing);
      if (!question.empty()) out << "    asks " << Quoted(question) << '\n';
    }
  }
}

}  // namespace station
