#include "station/sequence_run.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace station {
namespace {

const int kServicePause = 100;  // milliseconds between two looks for the service

double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

int Milliseconds(double seconds) { return static_cast<int>(std::lround(seconds * 1000)); }

double LimitValue(const std::string& text, const Values& values) {
  std::string filled;
  std::string missing;
  if (text.empty() || !FillValues(text, values, &filled, &missing)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  return ParseNumber(filled);
}

// One run over the phases.
class Runner {
 public:
  Runner(const Values& values, double timeout, tools::Interrupt* interrupt, Progress* progress)
      : values_(values),
        timeout_(timeout),
        interrupt_(interrupt),
        progress_(progress),
        requester_(timeout, interrupt) {}

  PhaseRecord RunPhase(const Phase& phase) {
    const auto start = Clock::now();
    PhaseRecord record;
    record.name = phase.name;
    progress_->BeginPhase(phase.name);
    for (const Step& step : phase.steps) {
      record.steps.push_back(RunStep(step));
      progress_->EndStep(record.steps.back(), Since(start_));
      const Verdict verdict = record.steps.back().verdict;
      if (verdict == Verdict::kFailed) record.verdict = Verdict::kFailed;
      if (verdict == Verdict::kPassed && record.verdict == Verdict::kSkipped) {
        record.verdict = Verdict::kPassed;
      }
    }
    record.seconds = Since(start);
    return record;
  }

  const Values& values() const { return values_; }

 private:
  StepRecord RunStep(const Step& step) {
    StepRecord record;
    record.step = &step;
    if (!stopped_.empty()) {
      record.message = stopped_;
      return record;
    }
    const auto start = Clock::now();
    record.verdict = Verdict::kFailed;
    const bool waited = RunWaits(step, &record);
    if (waited && step.command == nullptr) record.verdict = Verdict::kPassed;
    if (waited && step.command != nullptr) RunAttempts(step, &record);
    record.seconds = Since(start);
    if (record.verdict == Verdict::kFailed && step.stop_on_failure && stopped_.empty()) {
      stopped_ = "'" + step.name + "' failed";
    }
    if (interrupt_->Pending()) {
      stopped_ = "interrupted";
      if (record.verdict == Verdict::kFailed) record.message = "interrupted";
    }
    return record;
  }

  bool RunWaits(const Step& step, StepRecord* record) {
    progress_->BeginStep(step.name, 1, Since(start_));
    for (const Wait& wait : step.waits) {
      if (!wait.for_service) {
        interrupt_->Wait(-1, Milliseconds(wait.seconds));
        if (interrupt_->Pending()) return false;
        continue;
      }
      const auto deadline = Clock::now() + Seconds(wait.seconds);
      while (!ServiceConnected(&record->message)) {
        if (Clock::now() >= deadline) return false;
        interrupt_->Wait(-1, kServicePause);
        if (interrupt_->Pending()) return false;
      }
      record->message.clear();
    }
    return true;
  }

  void RunAttempts(const Step& step, StepRecord* record) {
    std::vector<std::string> words;
    for (const std::string& word : step.words) {
      std::string filled;
      std::string missing;
      if (!FillValues(word, values_, &filled, &missing)) {
        record->message = "there is no value '" + missing + "': the step that keeps it failed";
        return;
      }
      words.push_back(filled);
    }
    Invocation invocation;
    record->message = ParseInvocation(words, &invocation);
    if (!record->message.empty()) return;
    record->command = CommandLine(invocation);
    requester_.set_timeout(step.timeout > 0 ? step.timeout : timeout_);
    for (int attempt = 1; attempt <= step.retries + 1; ++attempt) {
      if (attempt > 1) {
        interrupt_->Wait(-1, Milliseconds(step.retry_pause));
        if (interrupt_->Pending()) return;
        progress_->BeginStep(step.name, attempt, Since(start_));
      }
      record->attempts = attempt;
      if (RunAttempt(step, invocation, record)) {
        record->verdict = Verdict::kPassed;
        return;
      }
      if (interrupt_->Pending()) return;
    }
  }

  bool RunAttempt(const Step& step, const Invocation& invocation, StepRecord* record) {
    const Exchange exchange = requester_.Perform(invocation, step.verify);
    record->message = exchange.problem;
    record->request = exchange.request;
    record->reply = exchange.reply;
    record->answer = exchange.proof.empty() ? Describe(exchange.answer) : "verified";
    record->measurements.clear();
    bool passed = exchange.right();
    for (const Expectation& expectation : step.expectations) {
      const Field* field = FindField(exchange.answer, expectation.field);
      if (field == nullptr) continue;  // the reply is wrong as a whole
      const Measurement measurement = Measure(expectation, *field, record);
      passed = passed && measurement.passed;
      record->measurements.push_back(measurement);
    }
    for (const Keep& keep : step.keeps) {
      const Field* field = FindField(exchange.answer, keep.field);
      if (passed && field != nullptr) values_[keep.name] = field->text;
    }
    // Without a unit every later step would only wait for nothing.
    if (exchange.outcome == Exchange::Outcome::kUnreachable && step.retries == 0) {
      stopped_ = "there is no unit";
    }
    return passed;
  }

  Measurement Measure(const Expectation& expectation, const Field& field, StepRecord* record) {
    Measurement measurement;
    measurement.field = expectation.field;
    measurement.text = field.text;
    measurement.number = ParseNumber(field.text);
    measurement.unit = field.info->unit;
    measurement.expectation = &expectation;
    measurement.expected = DescribeExpectation(expectation, values_);
    measurement.low = LimitValue(expectation.low, values_);
    measurement.high = LimitValue(expectation.high, values_);
    std::string problem;
    measurement.passed = Holds(expectation, field, values_, &problem);
    if (!measurement.passed && record->message.empty()) {
      record->message =
          expectation.field + " is '" + tools::Escape(field.text) + "', not " +
          (problem.empty() ? tools::Escape(measurement.expected) : "decidable: " + problem);
    }
    return measurement;
  }

  Values values_;
  const double timeout_;
  tools::Interrupt* interrupt_;
  Progress* progress_;
  Requester requester_;
  std::string stopped_;  // why everything behind is skipped
  const Clock::time_point start_ = Clock::now();
};

}  // namespace

const char* VerdictText(Verdict verdict) {
  if (verdict == Verdict::kPassed) return "passed";
  return verdict == Verdict::kFailed ? "failed" : "skipped";
}

int RunRecord::Count(Verdict counted) const {
  long count = 0;
  for (const PhaseRecord& phase : phases) {
    count += std::count_if(phase.steps.begin(), phase.steps.end(),
                           [&](const StepRecord& step) { return step.verdict == counted; });
  }
  return static_cast<int>(count);
}

RunRecord RunSequence(const Sequence& sequence, const Values& given,
                      const std::set<std::string>& phases, double timeout,
                      tools::Interrupt* interrupt, Progress* progress) {
  RunRecord record;
  record.title = sequence.title;
  record.start = std::chrono::system_clock::now();
  const auto start = Clock::now();
  const auto chosen = [&](const Phase& phase) {
    return phases.empty() || phases.count(phase.name) != 0;
  };
  std::size_t steps = 0;
  for (const Phase& phase : sequence.phases) steps += chosen(phase) ? phase.steps.size() : 0;
  progress->Begin(sequence.title, steps);
  Runner runner(StartValues(sequence, given), timeout, interrupt, progress);
  for (const Phase& phase : sequence.phases) {
    if (chosen(phase)) record.phases.push_back(runner.RunPhase(phase));
  }
  record.values = runner.values();
  std::string missing;
  FillValues(sequence.device, record.values, &record.device, &missing);
  const bool all = record.Count(Verdict::kFailed) == 0 && record.Count(Verdict::kSkipped) == 0;
  record.verdict = all ? Verdict::kPassed : Verdict::kFailed;
  record.seconds = Since(start);
  progress->End(record);
  return record;
}

void Progress::Begin(const std::string& title, std::size_t steps) {
  steps_ = steps;
  out_ << (title.empty() ? "Sequence" : tools::Escape(title)) << ", " << steps << " steps"
       << std::endl;
}

void Progress::BeginPhase(const std::string& name) {
  out_ << '\n' << tools::Escape(name) << std::endl;
}

void Progress::BeginStep(const std::string& name, int attempt, double elapsed) {
  if (!terminal_) return;
  char head[64];
  std::snprintf(head, sizeof(head), "\r\033[K  [%zu/%zu] %.1f s  ", done_ + 1, steps_, elapsed);
  out_ << head << tools::Escape(name);
  if (attempt > 1) out_ << " (attempt " << attempt << ')';
  out_ << std::flush;
}

void Progress::EndStep(const StepRecord& record, double elapsed) {
  ++done_;
  char time[32];
  std::snprintf(time, sizeof(time), "%7.1f s  ", elapsed);
  if (terminal_) out_ << "\r\033[K";
  out_ << time << Coloured(record.verdict, VerdictText(record.verdict))
       << (record.verdict == Verdict::kSkipped ? "  " : "   ") << tools::Escape(record.step->name);
  const std::string& detail = record.verdict == Verdict::kPassed ? record.answer : record.message;
  if (!detail.empty()) out_ << ": " << detail;
  if (record.attempts > 1) out_ << " (" << record.attempts << " attempts)";
  out_ << std::endl;
}

void Progress::End(const RunRecord& record) {
  char time[32];
  std::snprintf(time, sizeof(time), "%.1f s", record.seconds);
  out_ << '\n'
       << record.Count(Verdict::kPassed) << " passed, " << record.Count(Verdict::kFailed)
       << " failed, " << record.Count(Verdict::kSkipped) << " skipped in " << time;
  if (!record.device.empty()) out_ << ", device " << tools::Escape(record.device);
  out_ << ": " << Coloured(record.verdict, record.verdict == Verdict::kPassed ? "PASSED" : "FAILED")
       << std::endl;
}

std::string Progress::Coloured(Verdict verdict, const std::string& text) const {
  if (!colour_) return text;
  const char* code = verdict == Verdict::kPassed ? "32" : verdict == Verdict::kFailed ? "31" : "33";
  return std::string("\033[") + code + "m" + text + "\033[0m";
}

}  // namespace station
