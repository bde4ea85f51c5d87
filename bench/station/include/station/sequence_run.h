// Runs a sequence and keeps a record of it.
#ifndef KORVANDIS_STATION_SEQUENCE_RUN_H
#define KORVANDIS_STATION_SEQUENCE_RUN_H

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "station/run_record.h"
#include "station/sequence.h"
#include "tools/program.h"

namespace station {

// Number of steps with this outcome.
int CountSteps(const std::vector<records::Phase>& phases, records::Outcome outcome);

// Follows a run as it happens. All calls come from the thread that runs it. What a call is given is
// as far as it is known by then.
class RunObserver {
 public:
  virtual ~RunObserver() = default;
  virtual void BeginRun(const records::Run& /*run*/, std::size_t /*steps*/) {}
  virtual void BeginPhase(const records::Phase& /*phase*/) {}
  // Once for each attempt; the step has its name and start.
  virtual void BeginStep(const records::Step& /*step*/) {}
  // The step waits for a person.
  virtual void BeginQuestion() {}
  // `answer`: what came back, as a person reads it.
  virtual void EndStep(const records::Step& /*step*/, const std::string& /*answer*/) {}
  virtual void EndPhase(const records::Phase& /*phase*/) {}
  virtual void EndRun(const records::Run& /*run*/) {}
};

// Answers the questions of `confirm`.
class Person {
 public:
  enum class Reply { kYes, kNo, kNone };
  virtual ~Person() = default;
  // kNone with *problem when there is no answer: no person to ask, no more answers, an interrupt.
  virtual Reply Ask(const std::string& question, std::string* problem) = 0;
};

struct RunOptions {
  std::set<std::string> phases;         // names of those that are run; none: all
  double timeout = 2;                   // seconds, longest wait for a reply
  bool allow_several = false;           // run although several services are connected
  Person* person = nullptr;             // null: every question is an error
  std::vector<RunObserver*> observers;  // called in this order
  // Asked before each request is sent: why it must not be, or nothing. A reason is an error of the
  // step. May be empty.
  std::function<std::string(const Invocation& request, const records::Run& run)> refuse;
};

// Runs a sequence that has been checked. `record` holds what is known before the run (id, station,
// program) and takes the rest. A signal that `interrupt` collects aborts the step under way and
// skips the others, except in phases that always run; a second signal ends those too.
void RunSequence(const Sequence& sequence, const Values& given, const RunOptions& options,
                 tools::Interrupt* interrupt, records::Run* record);

}  // namespace station

#endif  // KORVANDIS_STATION_SEQUENCE_RUN_H
