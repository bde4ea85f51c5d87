#include "station/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "qnx/text.h"
#include "records/database.h"
#include "tools/program.h"

namespace station {
namespace {

using records::Outcome;

// The first `columns` characters of `text`.
std::string Cut(const std::string& text, std::size_t columns) {
  std::size_t end = 0;
  for (; columns > 0 && end < text.size(); --columns) {
    const std::size_t length = tools::Utf8Length(std::string_view(text).substr(end));
    end += length == 0 ? 1 : length;
  }
  return text.substr(0, end);
}

// "61 steps skipped: 'A' failed", every reason once.
std::string SkippedText(const records::Run& run) {
  const int count = CountSteps(run.phases, Outcome::kSkipped);
  if (count == 0) return "";
  std::string reasons;
  for (const records::Phase& phase : run.phases) {
    for (const records::Step& step : phase.steps) {
      if (step.outcome != Outcome::kSkipped) continue;
      const std::string reason = tools::Escape(step.problem);
      if (("; " + reasons + "; ").find("; " + reason + "; ") != std::string::npos) continue;
      reasons += (reasons.empty() ? "" : "; ") + reason;
    }
  }
  return qnx::Counted(count, "step", "steps") + " skipped: " + reasons;
}

const char* VerdictText(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed:
      return "PASSED";
    case Outcome::kFailed:
      return "FAILED";
    case Outcome::kAborted:
      return "ABORTED";
    default:
      return "ERROR";
  }
}

}  // namespace

Console ConsoleOf(const std::ostream& out) {
  Console console;
  if (&out != &std::cout && &out != &std::cerr) return console;
  const int fd = &out == &std::cout ? STDOUT_FILENO : STDERR_FILENO;
  const char* term = std::getenv("TERM");
  if (::isatty(fd) == 0) return console;
  winsize size{};
  if (::ioctl(fd, TIOCGWINSZ, &size) == 0) console.width = size.ws_col;
  if (term != nullptr && std::strcmp(term, "dumb") == 0) return console;
  const char* no_colour = std::getenv("NO_COLOR");
  console.colour = no_colour == nullptr || *no_colour == '\0';
  console.lines_change = console.colour;
  return console;
}

std::string Coloured(const Console& console, Outcome outcome, const std::string& text) {
  if (!console.colour) return text;
  const char* code = "33";
  if (outcome == Outcome::kPassed) code = "32";
  if (outcome == Outcome::kFailed) code = "31";
  if (outcome == Outcome::kError) code = "35";
  return std::string("\033[") + code + "m" + text + "\033[0m";
}

void Progress::BeginRun(const records::Run& run, std::size_t steps) {
  start_ = std::chrono::steady_clock::now();
  steps_ = steps;
  done_ = 0;
  out_ << (run.title.empty() ? "Sequence" : tools::Escape(run.title)) << ", "
       << qnx::Counted(static_cast<long long>(steps), "step", "steps") << std::endl;
}

void Progress::BeginPhase(const records::Phase& phase) { phase_ = phase.name; }

void Progress::BeginStep(const records::Step& step) {
  if (!phase_.empty()) out_ << '\n' << tools::Escape(phase_) << std::endl;
  phase_.clear();
  if (!console_.lines_change) return;
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
  std::string line = qnx::Formatted("  [%zu/%zu] %.1f s  ", done_ + 1, steps_, elapsed.count()) +
                     tools::Escape(step.name);
  if (step.attempts > 1) line += " (attempt " + std::to_string(step.attempts) + ")";
  if (console_.width > 1) line = Cut(line, console_.width - 1);
  out_ << "\r\033[K" << line << std::flush;
}

void Progress::BeginQuestion() {
  if (console_.lines_change) out_ << "\r\033[K" << std::flush;
}

void Progress::EndStep(const records::Step& step, const std::string& answer) {
  ++done_;
  if (step.outcome == Outcome::kSkipped) return;  // counted at the end
  if (console_.lines_change) out_ << "\r\033[K";
  const std::string verdict = records::OutcomeText(step.outcome);
  out_ << qnx::Formatted("%8.2f s  ", step.seconds) << Coloured(console_, step.outcome, verdict)
       << std::string(9 - verdict.size(), ' ') << tools::Escape(step.name);
  const std::string& detail = step.outcome == Outcome::kPassed ? answer : step.problem;
  if (!detail.empty()) out_ << ": " << detail;
  if (step.attempts > 1) out_ << " (" << step.attempts << " attempts)";
  out_ << std::endl;
}

void Progress::EndRun(const records::Run& run) {
  const auto count = [&](Outcome outcome) { return CountSteps(run.phases, outcome); };
  const std::string skipped = SkippedText(run);
  if (!skipped.empty()) out_ << '\n' << skipped << '\n';
  out_ << '\n'
       << count(Outcome::kPassed) << " passed, " << count(Outcome::kFailed) << " failed, "
       << qnx::Counted(count(Outcome::kError), "error", "errors") << ", ";
  if (count(Outcome::kAborted) > 0) out_ << count(Outcome::kAborted) << " aborted, ";
  out_ << count(Outcome::kSkipped) << " skipped in " << qnx::Formatted("%.1f s", run.seconds);
  if (!run.device.empty()) out_ << ", device " << tools::Escape(run.device);
  out_ << ": " << Coloured(console_, run.outcome, VerdictText(run.outcome)) << std::endl;
  ShowFailures(run);
}

void Progress::ShowFailures(const records::Run& run) {
  for (const records::Phase& phase : run.phases) {
    for (const records::Step& step : phase.steps) {
      if (step.outcome == Outcome::kPassed || step.outcome == Outcome::kSkipped) continue;
      const std::string verdict = records::OutcomeText(step.outcome);
      out_ << "  " << Coloured(console_, step.outcome, verdict)
           << std::string(9 - verdict.size(), ' ') << tools::Escape(phase.name) << " / "
           << tools::Escape(step.name) << ": " << step.problem << '\n';
      if (!step.expected.empty()) out_ << "           expected: " << step.expected << '\n';
    }
  }
  out_.flush();
}

}  // namespace station
