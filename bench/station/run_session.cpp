#include "run_session.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>

#include "banner.h"
#include "builtin.h"
#include "records/database.h"
#include "run_keeper.h"
#include "run_report.h"
#include "sequence_text.h"

namespace station {
namespace {

using records::Outcome;

int ExitStatus(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed:
      return tools::kExitRight;
    case Outcome::kFailed:
      return tools::kExitWrong;
    case Outcome::kAborted:
      return kExitInterrupted;
    default:
      return kExitError;
  }
}

std::string HostName() {
  char name[HOST_NAME_MAX + 1] = "";
  return ::gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

// Events on the standard output leave it to the program that reads them.
bool EventsOnOutput(const Invocation& invocation) { return invocation.Get("--events") == "-"; }

}  // namespace

int StationError(Context& context, const std::string& reason) {
  Complain(context, reason);
  return kExitError;
}

void ShowMistakes(Context& context, const Sequence& sequence, std::vector<Mistake> mistakes) {
  SortMistakes(&mistakes);
  for (const Mistake& mistake : mistakes) {
    context.err << "station: " << tools::Escape(sequence.files[mistake.place.file]) << ':';
    if (mistake.place.line > 0) context.err << mistake.place.line << ':';
    context.err << ' ' << mistake.reason << '\n';
  }
}

RunSession::RunSession(Context& context, const Sequence& sequence,
                       const std::set<std::string>& phases, Operator* person,
                       tools::Interrupt* interrupt)
    : context_(context),
      sequence_(sequence),
      phases_(phases),
      person_(person),
      interrupt_(interrupt),
      out_(EventsOnOutput(context.invocation) ? context.err : context.out),
      console_(ConsoleOf(out_)) {}

std::string RunSession::Open() {
  if (!context_.invocation.Has("--events")) return "";
  const std::string path = context_.invocation.Get("--events");
  if (path != "-") event_file_.open(path);
  if (path != "-" && !event_file_.is_open()) return tools::Escape(path) + " cannot be written";
  std::ostream& events = event_file_.is_open() ? event_file_ : context_.out;
  events_ = std::make_unique<Events>(events);
  return "";
}

bool RunSession::AskValues(Values* values) {
  for (const std::string& name : RequiredValues(sequence_, phases_)) {
    if (values->count(name) != 0) continue;
    std::string text;
    if (!person_->AskValue(name, sequence_.values.at(name), &text)) return false;
    values->emplace(name, text);
  }
  return true;
}

int RunSession::RunOnce(const Values& values) {
  Reports reports;
  const std::string unwritable = OpenReports(values, &reports);
  if (!unwritable.empty()) return UsageError(context_, unwritable);
  records::Run run;
  run.id = records::NewRunId();
  run.station = context_.invocation.Get("--station", HostName());
  run.program = KORVANDIS_VERSION;
  RunOptions options;
  options.phases = phases_;
  options.timeout = context_.timeout;
  options.allow_several = context_.invocation.Has("--allow-several");
  options.person = person_;
  Progress progress(out_, console_);
  options.observers.push_back(&progress);
  if (events_ != nullptr) options.observers.push_back(events_.get());
  RunKeeper keeper(context_, out_, interrupt_);
  options.observers.push_back(&keeper);
  options.refuse = [&keeper](const Invocation& request, const records::Run& so_far) {
    return keeper.Refuse(request, so_far);
  };
  RunSequence(sequence_, values, options, interrupt_, &run);
  std::string lost = WriteReports(run, &reports);
  if (event_file_.is_open() && !event_file_.good()) lost = context_.invocation.Get("--events");
  if (!lost.empty()) StationError(context_, tools::Escape(lost) + " could not be written");
  // A passed run that is not kept, or whose verdict cannot be shown, is an error of the station.
  const bool kept = keeper.Keep(&run);
  Outcome outcome = run.outcome;
  if (outcome == Outcome::kPassed && (!kept || !lost.empty())) outcome = Outcome::kError;
  if (!kept && interrupt_->Pending()) outcome = Outcome::kAborted;
  last_ = outcome;
  if (context_.invocation.Has("--loop")) ShowBanner(outcome, run.device);
  const bool told = out_.flush().good() && context_.out.flush().good();
  if (outcome == Outcome::kPassed && !told) outcome = Outcome::kError;
  return ExitStatus(outcome);
}

std::string RunSession::OpenReports(const Values& values, Reports* reports) const {
  const auto open = [&](const char* option, std::string* path, std::ofstream* file) {
    std::string missing;
    FillValues(context_.invocation.Get(option), values, path, &missing);
    if (!path->empty()) file->open(*path);
    return path->empty() || file->is_open() ? "" : tools::Escape(*path) + " cannot be written";
  };
  const std::string problem = open("--junit", &reports->junit_path, &reports->junit);
  return problem.empty() ? open("--json", &reports->json_path, &reports->json) : problem;
}

std::string RunSession::WriteReports(const records::Run& run, Reports* reports) {
  std::string lost;
  if (reports->junit.is_open()) WriteJunit(run, reports->junit);
  if (reports->json.is_open()) WriteJson(run, reports->json);
  reports->junit.close();
  if (!reports->junit_path.empty() && !reports->junit.good()) lost = reports->junit_path;
  reports->json.close();
  if (!reports->json_path.empty() && !reports->json.good()) lost = reports->json_path;
  return lost;
}

void RunSession::ShowBanner(Outcome outcome, const std::string& device) {
  if (outcome == Outcome::kAborted) return;
  const char* word = "ERROR";
  if (outcome == Outcome::kPassed) word = "PASS";
  if (outcome == Outcome::kFailed) word = "FAIL";
  ++(outcome == Outcome::kPassed ? passed_ : outcome == Outcome::kFailed ? failed_ : errors_);
  const int units = passed_ + failed_ + errors_;
  out_ << '\n' << Coloured(console_, outcome, Banner(word)) << '\n' << word;
  if (!device.empty()) out_ << ", device " << tools::Escape(device);
  out_ << "\nThis shift: " << units << (units == 1 ? " unit, " : " units, ") << passed_
       << " passed, " << failed_ << " failed, " << errors_
       << (errors_ == 1 ? " error\n" : " errors\n") << std::endl;
}

int RunSession::RunLoop(const Values& given) {
  // The better status in front.
  const int order[] = {tools::kExitRight, kExitError, tools::kExitWrong, tools::kExitUsage,
                       kExitInterrupted};
  const auto rank = [&](int status) {
    return std::find(std::begin(order), std::end(order), status) - std::begin(order);
  };
  int worst = tools::kExitRight;
  while (true) {
    Values values = given;
    if (!AskValues(&values)) return worst;
    const std::vector<Mistake> mistakes = CheckSequence(sequence_, values, phases_);
    ShowMistakes(context_, sequence_, mistakes);
    if (!mistakes.empty()) continue;  // a typing error: ask again
    const int status = RunOnce(values);
    if (rank(status) > rank(worst)) worst = status;
    if (status == tools::kExitUsage || last_ == Outcome::kAborted) return worst;
  }
}

}  // namespace station
