#include "station/sequence_run.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <utility>

#include "sequence_text.h"
#include "station/expectation.h"
#include "station/requester.h"
#include "step_judge.h"

namespace station {
namespace {

using records::Outcome;

const int kServicePause = 100;  // milliseconds between two looks for the service
const char kInterrupted[] = "interrupted";

int Milliseconds(double seconds) { return static_cast<int>(std::lround(seconds * 1000)); }

// The worst outcome of what belongs together. A unit that failed has failed, whatever else went
// wrong; nothing is known about what was only skipped.
Outcome Worst(const std::vector<Outcome>& outcomes) {
  for (const Outcome worst :
       {Outcome::kAborted, Outcome::kFailed, Outcome::kError, Outcome::kPassed}) {
    if (std::find(outcomes.begin(), outcomes.end(), worst) != outcomes.end()) return worst;
  }
  return Outcome::kSkipped;
}

int ZoneMinutes(records::Time time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  return ::localtime_r(&seconds, &parts) == nullptr ? 0 : static_cast<int>(parts.tm_gmtoff / 60);
}

// One run over the phases.
class Runner {
 public:
  Runner(const Values& values, const RunOptions& options, tools::Interrupt* interrupt,
         records::Run* run)
      : values_(values),
        options_(options),
        interrupt_(interrupt),
        run_(run),
        requester_(options.timeout, interrupt) {}

  void RunPhase(const Phase& phase) {
    // The signal that interrupted the run does not end its teardown; a second one does.
    interrupt_->Tolerate(phase.always ? 1 : 0);
    teardown_ = phase.always;
    stopped_in_teardown_.clear();
    const auto start = Clock::now();
    run_->phases.emplace_back();
    records::Phase& record = run_->phases.back();
    record.name = phase.name;
    record.start = std::chrono::system_clock::now();
    Tell([&](RunObserver* observer) { observer->BeginPhase(record); });
    std::vector<Outcome> outcomes;
    for (const Step& step : phase.steps) {
      record.steps.emplace_back();
      const std::string answer = RunStep(step, &record.steps.back());
      outcomes.push_back(record.steps.back().outcome);
      Tell([&](RunObserver* observer) { observer->EndStep(record.steps.back(), answer); });
    }
    record.outcome = Worst(outcomes);
    record.seconds = SecondsSince(start);
    Tell([&](RunObserver* observer) { observer->EndPhase(record); });
    interrupt_->Tolerate(0);
  }

  const Values& values() const { return values_; }
  bool interrupted() const { return interrupted_; }

  template <typename Call>
  void Tell(Call call) const {
    for (RunObserver* observer : options_.observers) call(observer);
  }

 private:
  // Why steps are skipped, empty when they are not.
  std::string& stopped() { return teardown_ ? stopped_in_teardown_ : stopped_; }

  // Returns the answer as a person reads it.
  std::string RunStep(const Step& step, records::Step* record) {
    record->name = step.name;
    record->start = std::chrono::system_clock::now();
    LookForObstacle();
    record->problem = obstacle_.empty() ? stopped() : obstacle_;
    if (record->problem.empty()) record->problem = MissingValues(step);
    // One step is the error that keeps the rest from being sent.
    if (!obstacle_.empty() && !std::exchange(hindered_, true)) {
      record->outcome = Outcome::kError;
      Tell([&](RunObserver* observer) { observer->BeginStep(*record); });
    }
    if (!record->problem.empty()) return "";
    const auto start = Clock::now();
    record->outcome = Outcome::kPassed;
    std::string answer;
    RunWaits(step, record);
    if (record->outcome == Outcome::kPassed && step.command != nullptr) {
      answer = RunAttempts(step, record);
    }
    if (record->outcome == Outcome::kPassed && !step.question.empty()) AskPerson(step, record);
    record->seconds = SecondsSince(start);
    if (interrupt_->Pending()) {
      interrupted_ = true;
      stopped() = kInterrupted;
      if (record->outcome != Outcome::kPassed) {
        record->outcome = Outcome::kAborted;
        record->problem = kInterrupted;
        record->expected.clear();
        record->measurements.clear();
      }
    } else if (record->outcome != Outcome::kPassed && step.stop_on_failure && stopped().empty()) {
      stopped() = "'" + step.name + "' " +
                  (record->outcome == Outcome::kFailed ? "failed" : "ended with an error");
    }
    return answer;
  }

  // A second service may come at any time; from then on nothing is sent.
  void LookForObstacle() {
    if (options_.allow_several || !obstacle_.empty()) return;
    obstacle_ = SeveralServices();
    if (!obstacle_.empty()) obstacle_ += ": end the others, or run with --allow-several";
  }

  // The step that keeps a value did not pass: this one cannot run, and it is not to blame.
  std::string MissingValues(const Step& step) const {
    std::string filled;
    std::string missing;
    for (const std::string& word : step.words) {
      if (missing.empty()) FillValues(word, values_, &filled, &missing);
    }
    for (const Expectation& expectation : step.expectations) {
      if (missing.empty()) missing = MissingValue(expectation, values_);
    }
    return missing.empty() ? "" : NoValue(missing);
  }

  static std::string NoValue(const std::string& name) {
    return "there is no value '" + name + "', the step that keeps it did not pass";
  }

  void RunWaits(const Step& step, records::Step* record) {
    Tell([&](RunObserver* observer) { observer->BeginStep(*record); });
    for (const Wait& wait : step.waits) {
      if (!wait.for_service) {
        interrupt_->Wait(-1, Milliseconds(wait.seconds));
      } else {
        AwaitService(Clock::now() + Seconds(wait.seconds), record);
      }
      if (interrupt_->Pending()) record->outcome = Outcome::kAborted;
      if (record->outcome != Outcome::kPassed) return;
    }
  }

  void AwaitService(Clock::time_point deadline, records::Step* record) {
    while (!ServiceAnswers(interrupt_, &record->problem)) {
      if (Clock::now() >= deadline) {
        record->outcome = Outcome::kError;
        return;
      }
      interrupt_->Wait(-1, kServicePause);
      if (interrupt_->Pending()) return;
    }
    record->problem.clear();
  }

  // Returns the answer as a person reads it.
  std::string RunAttempts(const Step& step, records::Step* record) {
    std::vector<std::string> words;
    std::string missing;
    for (const std::string& word : step.words) {
      words.emplace_back();
      FillValues(word, values_, &words.back(), &missing);
    }
    Invocation invocation;
    // A value that an earlier answer gave may not fit.
    record->problem = ParseInvocation(words, &invocation);
    record->outcome = Outcome::kFailed;
    if (!record->problem.empty()) return "";
    record->command = CommandLine(invocation);
    if (options_.refuse != nullptr) record->problem = options_.refuse(invocation, *run_);
    record->outcome = Outcome::kError;
    if (!record->problem.empty()) return "";
    requester_.set_timeout(step.timeout > 0 ? step.timeout : options_.timeout);
    for (int attempt = 1;; ++attempt) {
      record->attempts = attempt;
      if (attempt > 1) Tell([&](RunObserver* observer) { observer->BeginStep(*record); });
      const Exchange exchange = requester_.Perform(invocation, step.verify);
      JudgeStep(step, exchange, values_, record);
      if (record->outcome == Outcome::kPassed) {
        for (const Keep& keep : step.keeps) {
          const Field* field = FindField(exchange.answer, keep.field);
          if (field != nullptr) values_[keep.name] = field->text;
        }
        return exchange.proof.empty() ? Describe(exchange.answer) : "verified";
      }
      // Without a unit every later step would only wait for nothing.
      if (exchange.outcome == Exchange::Outcome::kUnreachable && step.retries == 0) {
        stopped_ = "there is no unit";
      }
      if (attempt > step.retries || interrupt_->Pending()) return "";
      interrupt_->Wait(-1, Milliseconds(step.retry_pause));
      if (interrupt_->Pending()) return "";
    }
  }

  void AskPerson(const Step& step, records::Step* record) {
    std::string question;
    std::string missing;
    if (!FillValues(step.question, values_, &question, &missing)) {
      record->outcome = Outcome::kSkipped;
      record->problem = NoValue(missing);
      return;
    }
    Tell([](RunObserver* observer) { observer->BeginQuestion(); });
    Person::Reply reply = Person::Reply::kNone;
    record->problem = "no person to ask: " + Quoted(question);
    if (options_.person != nullptr) reply = options_.person->Ask(question, &record->problem);
    records::Measurement measurement;
    measurement.name = "answer";
    measurement.text = reply == Person::Reply::kYes ? "yes" : "no";
    measurement.expected = "'yes'";
    if (reply == Person::Reply::kNone) {
      record->outcome = Outcome::kError;
      return;
    }
    if (record->command.empty()) record->command = "confirm " + question;
    record->problem.clear();
    if (reply == Person::Reply::kNo) {
      measurement.outcome = Outcome::kFailed;
      record->outcome = Outcome::kFailed;
      record->problem = "answered with no: " + Quoted(question);
      record->expected = "answer 'yes'";
    }
    record->measurements.push_back(measurement);
  }

  Values values_;
  const RunOptions& options_;
  tools::Interrupt* interrupt_;
  records::Run* run_;
  Requester requester_;
  std::string stopped_;
  std::string stopped_in_teardown_;
  bool teardown_ = false;
  bool interrupted_ = false;
  std::string obstacle_;  // why nothing can be sent, "" when it can
  bool hindered_ = false;
};

}  // namespace

int CountSteps(const std::vector<records::Phase>& phases, Outcome outcome) {
  long count = 0;
  for (const records::Phase& phase : phases) {
    count += std::count_if(phase.steps.begin(), phase.steps.end(),
                           [&](const records::Step& step) { return step.outcome == outcome; });
  }
  return static_cast<int>(count);
}

void RunSequence(const Sequence& sequence, const Values& given, const RunOptions& options,
                 tools::Interrupt* interrupt, records::Run* record) {
  const auto start = Clock::now();
  const Values values = StartValues(sequence, given);
  std::string missing;
  record->title = sequence.title;
  record->values = values;
  FillValues(sequence.device, values, &record->device, &missing);
  record->sequence = sequence.files.empty() ? "" : sequence.files[0];
  record->sequence_crc = sequence.crc;
  record->start = std::chrono::system_clock::now();
  record->zone_minutes = ZoneMinutes(record->start);
  const auto chosen = [&](const Phase& phase) {
    return options.phases.empty() || options.phases.count(phase.name) != 0;
  };
  std::size_t steps = 0;
  for (const Phase& phase : sequence.phases) steps += chosen(phase) ? phase.steps.size() : 0;
  Runner runner(values, options, interrupt, record);
  runner.Tell([&](RunObserver* observer) { observer->BeginRun(*record, steps); });
  for (const Phase& phase : sequence.phases) {
    if (chosen(phase)) runner.RunPhase(phase);
  }
  record->values = runner.values();
  FillValues(sequence.device, record->values, &record->device, &missing);
  std::vector<Outcome> outcomes;
  for (const records::Phase& phase : record->phases) outcomes.push_back(phase.outcome);
  if (runner.interrupted()) outcomes.push_back(Outcome::kAborted);
  record->outcome = Worst(outcomes);
  record->seconds = SecondsSince(start);
  runner.Tell([&](RunObserver* observer) { observer->EndRun(*record); });
}

}  // namespace station
