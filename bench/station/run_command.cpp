// `station run`.
#include <limits.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <random>

#include "builtin.h"
#include "files.h"
#include "run_keeper.h"
#include "run_listing.h"
#include "run_lock.h"
#include "run_report.h"
#include "sequence_text.h"
#include "station/link.h"
#include "station/progress.h"

namespace station {
namespace {

// Exit statuses of a run beside tools::kExitRight, kExitWrong (the unit failed) and kExitUsage.
const int kExitError = 3;
const int kExitInterrupted = 130;

int UsageError(Context& context, const std::string& reason) {
  context.err << "station: run: " << reason << "; see 'station run --help'\n";
  return tools::kExitUsage;
}

int StationError(Context& context, const std::string& reason) {
  context.err << "station: run: " << reason << '\n';
  return kExitError;
}

int ExitStatus(records::Outcome outcome) {
  switch (outcome) {
    case records::Outcome::kPassed:
      return tools::kExitRight;
    case records::Outcome::kFailed:
      return tools::kExitWrong;
    case records::Outcome::kAborted:
      return kExitInterrupted;
    default:
      return kExitError;
  }
}

// What the options say of the values and phases. Returns what is wrong, or nothing.
std::string ReadOptions(const Invocation& invocation, Values* given,
                        std::set<std::string>* phases) {
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

// Writes every mistake with its place.
void ShowMistakes(Context& context, const Sequence& sequence,
                  const std::vector<Mistake>& mistakes) {
  for (const Mistake& mistake : mistakes) {
    context.err << "station: " << tools::Escape(sequence.files[mistake.place.file]) << ':';
    if (mistake.place.line > 0) context.err << mistake.place.line << ':';
    context.err << ' ' << mistake.reason << '\n';
  }
}

// Opens the file of a report before anything is sent; a run is not lost to a wrong path. True when
// there is nothing to open.
bool OpenReport(Context& context, const std::string& option, std::ofstream* file) {
  if (!context.invocation.Has(option)) return true;
  const std::string path = context.invocation.Get(option);
  file->open(path);
  if (file->is_open()) return true;
  context.err << "station: run: " << tools::Escape(path) << " cannot be written\n";
  return false;
}

bool CloseReport(Context& context, const std::string& option, std::ofstream* file) {
  if (!file->is_open()) return true;
  file->close();
  if (file->good()) return true;
  context.err << "station: run: " << tools::Escape(context.invocation.Get(option))
              << " could not be written\n";
  return false;
}

std::string RandomId() {
  std::random_device random;
  Bytes bytes;
  for (int i = 0; i < 16; ++i) bytes.push_back(static_cast<std::uint8_t>(random()));
  std::string id;
  for (const char c : Hex(bytes)) {
    if (c != ' ') id += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return id;
}

std::string HostName() {
  char name[HOST_NAME_MAX + 1] = "";
  return ::gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

int RunOnce(Context& context, const Sequence& sequence, const Values& given,
            const std::set<std::string>& phases) {
  std::ofstream junit;
  std::ofstream json;
  if (!OpenReport(context, "--junit", &junit) || !OpenReport(context, "--json", &json)) {
    return tools::kExitUsage;
  }
  records::Run run;
  run.id = RandomId();
  run.station = context.invocation.Get("--station", HostName());
  run.program = KORVANDIS_VERSION;
  RunOptions options;
  options.phases = phases;
  options.timeout = context.timeout;
  options.allow_several = context.invocation.Has("--allow-several");
  Progress progress(context.out, &context.out == &std::cout ? StandardConsole() : Console{});
  options.observers.push_back(&progress);
  RunKeeper keeper(context);
  options.observers.push_back(&keeper);
  options.refuse = [&keeper](const Invocation& request, const records::Run& so_far) {
    return keeper.Refuse(request, so_far);
  };
  tools::Interrupt interrupt;
  RunSequence(sequence, given, options, &interrupt, &run);
  if (junit.is_open()) WriteJunit(run, junit);
  if (json.is_open()) WriteJson(run, json);
  const bool junit_written = CloseReport(context, "--junit", &junit);
  const bool json_written = CloseReport(context, "--json", &json);
  const int status = ExitStatus(run.outcome);
  const bool kept = keeper.Keep(&run);
  const bool lost = !junit_written || !json_written || !kept;
  return lost && status == tools::kExitRight ? kExitError : status;
}

}  // namespace

int RunSequenceFile(Context& context) {
  const Invocation& invocation = context.invocation;
  Values given;
  std::set<std::string> phases;
  const std::string wrong = ReadOptions(invocation, &given, &phases);
  if (!wrong.empty()) return UsageError(context, wrong);

  Sequence sequence;
  std::string text;
  const std::string& path = invocation.arguments[0];
  const std::string unreadable = ReadFile(path, &text);
  if (!unreadable.empty()) return UsageError(context, unreadable);
  std::vector<Mistake> mistakes = ReadSequence(path, ReadFile, &sequence);
  const bool list = invocation.Has("--list");
  if (!list) {
    const std::vector<Mistake> more = CheckSequence(sequence, given, phases);
    mistakes.insert(mistakes.end(), more.begin(), more.end());
  }
  SortMistakes(&mistakes);
  ShowMistakes(context, sequence, mistakes);
  if (!mistakes.empty()) return tools::kExitUsage;
  if (list) {
    ListSequence(sequence, phases, context.out);
    return tools::kExitRight;
  }
  if (invocation.Has("--dry-run")) {
    ShowDryRun(sequence, phases, StartValues(sequence, given), context.out);
    return tools::kExitRight;
  }

  RunLock lock;
  const std::string taken = lock.Take();
  if (!taken.empty()) return StationError(context, taken);
  const std::string several = invocation.Has("--allow-several") ? "" : SeveralServices();
  if (!several.empty()) {
    return StationError(context, several + ": end the others, or run with --allow-several");
  }
  return RunOnce(context, sequence, given, phases);
}

}  // namespace station
