// `station run`.
#include <algorithm>

#include "builtin.h"
#include "files.h"
#include "run_listing.h"
#include "run_lock.h"
#include "run_session.h"
#include "sequence_files.h"
#include "sequence_text.h"

namespace station {
namespace {

// Takes values and phases from the options. Returns what is wrong, or nothing.
std::string ReadOptions(const Invocation& invocation, Values* given,
                        std::set<std::string>* phases) {
  if (!tools::IsUtf8(invocation.Get("--station"))) {
    return "--station needs text in UTF-8, not " + Quoted(invocation.Get("--station"));
  }
  for (const auto& [name, value] : invocation.options) {
    if (name == "--only") phases->insert(value);
    if (name != "--set") continue;
    const std::size_t equals = value.find('=');
    if (equals == std::string::npos || equals == 0) {
      return "--set needs NAME=VALUE, not " + Quoted(value);
    }
    (*given)[value.substr(0, equals)] = value.substr(equals + 1);
  }
  return "";
}

// Why the runs of a loop could not be told apart, "" when they can.
std::string LoopProblem(const Invocation& invocation, const Sequence& sequence, const Values& given,
                        const std::set<std::string>& phases) {
  const std::vector<std::string> required = RequiredValues(sequence, phases);
  const bool asks = std::any_of(required.begin(), required.end(),
                                [&](const std::string& name) { return given.count(name) == 0; });
  if (!asks) return "--loop needs a value to ask for: every value of the sequence is given";
  for (const char* option : {"--junit", "--json"}) {
    bool differs = !invocation.Has(option);
    ForEachValue(invocation.Get(option), [&](const std::string& name, std::size_t) {
      differs = differs || sequence.values.count(name) != 0;
    });
    if (!differs) {
      return std::string(option) +
             " with --loop needs a value in the file's name, such as {serial}: every unit has a "
             "file of its own";
    }
  }
  return "";
}

}  // namespace

int RunSequenceFile(Context& context) {
  const Invocation& invocation = context.invocation;
  Values given;
  std::set<std::string> phases;
  std::string wrong = ReadOptions(invocation, &given, &phases);
  if (!wrong.empty()) return UsageError(context, wrong);

  Sequence sequence;
  std::string path;
  std::string text;
  wrong = FindSequence(invocation.arguments[0], &path);
  if (wrong.empty()) wrong = ReadFile(path, &text);
  if (!wrong.empty()) return UsageError(context, wrong);
  std::vector<Mistake> mistakes = ReadSequence(path, ReadFile, &sequence);
  const bool loop = invocation.Has("--loop");
  const bool dry = invocation.Has("--dry-run");
  const bool asked = loop || (!dry && Operator::IsThere());
  if (!invocation.Has("--list")) {
    const std::vector<Mistake> more = CheckSequence(sequence, given, phases, asked);
    mistakes.insert(mistakes.end(), more.begin(), more.end());
  }
  ShowMistakes(context, sequence, mistakes);
  if (!mistakes.empty()) return tools::kExitUsage;
  if (invocation.Has("--list")) {
    ListSequence(sequence, phases, context.out);
    return tools::kExitRight;
  }
  if (dry) {
    ShowDryRun(sequence, phases, StartValues(sequence, given), context.out);
    return tools::kExitRight;
  }

  tools::Interrupt interrupt;
  Operator person(invocation.Get("--events") == "-" ? context.err : context.out, &interrupt);
  if (invocation.Has("--answers")) wrong = person.ReadAnswers(invocation.Get("--answers"));
  if (wrong.empty() && loop) wrong = LoopProblem(invocation, sequence, given, phases);
  RunSession session(context, sequence, phases, &person, &interrupt);
  if (wrong.empty()) wrong = session.Open();
  if (!wrong.empty()) return UsageError(context, wrong);
  RunLock lock;
  wrong = lock.Take();
  if (!wrong.empty()) return StationError(context, wrong);
  if (loop) return session.RunLoop(given);
  if (!session.AskValues(&given)) {
    if (interrupt.Pending()) return kExitInterrupted;
    return UsageError(context, "the input ended before every value was given");
  }
  mistakes = CheckSequence(sequence, given, phases);
  ShowMistakes(context, sequence, mistakes);
  return mistakes.empty() ? session.RunOnce(given) : tools::kExitUsage;
}

}  // namespace station
