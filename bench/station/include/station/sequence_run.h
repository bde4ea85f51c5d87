// Runs a sequence and keeps a record of it.
#ifndef KORVANDIS_STATION_SEQUENCE_RUN_H
#define KORVANDIS_STATION_SEQUENCE_RUN_H

#include <chrono>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "station/requester.h"
#include "station/sequence.h"

namespace station {

enum class Verdict { kPassed, kFailed, kSkipped };

// "passed", "failed", "skipped".
const char* VerdictText(Verdict verdict);

// One value that came back, with what was expected of it.
struct Measurement {
  std::string field;
  std::string text;
  double number = 0;  // NaN when the text is no number
  std::string unit;
  const Expectation* expectation = nullptr;
  std::string expected;      // as a person reads it
  double low = 0, high = 0;  // limits, NaN when there is none
  bool passed = false;
};

struct StepRecord {
  const Step* step = nullptr;
  Verdict verdict = Verdict::kSkipped;
  std::string command;   // as typed, values filled in
  std::string message;   // why it failed or was skipped
  std::string answer;    // as a person reads it
  Bytes request, reply;  // of the last attempt
  int attempts = 0;
  double seconds = 0;
  std::vector<Measurement> measurements;  // of the last attempt
};

struct PhaseRecord {
  std::string name;
  Verdict verdict = Verdict::kSkipped;
  double seconds = 0;
  std::vector<StepRecord> steps;
};

// Refers to the sequence, which has to outlive it.
struct RunRecord {
  std::string title;
  std::string device;
  Values values;  // at the end
  std::chrono::system_clock::time_point start;
  double seconds = 0;
  Verdict verdict = Verdict::kSkipped;
  std::vector<PhaseRecord> phases;

  int Count(Verdict counted) const;
};

// Shows how a run goes: a line a step; on a terminal also the step that is under way, and colours.
class Progress {
 public:
  Progress(std::ostream& out, bool terminal, bool colour)
      : out_(out), terminal_(terminal), colour_(colour) {}

  void Begin(const std::string& title, std::size_t steps);
  void BeginPhase(const std::string& name);
  void BeginStep(const std::string& name, int attempt, double elapsed);
  void EndStep(const StepRecord& record, double elapsed);
  void End(const RunRecord& record);

 private:
  std::string Coloured(Verdict verdict, const std::string& text) const;

  std::ostream& out_;
  const bool terminal_;
  const bool colour_;
  std::size_t steps_ = 0;
  std::size_t done_ = 0;
};

// Runs the phases named in `phases`, none: all. The sequence has been checked. A signal that
// `interrupt` collects ends the run after the current step.
RunRecord RunSequence(const Sequence& sequence, const Values& given,
                      const std::set<std::string>& phases, double timeout,
                      tools::Interrupt* interrupt, Progress* progress);

// The record as JUnit XML: a test suite a phase, a test case a step.
void WriteJunit(const RunRecord& record, std::ostream& out);

// The record as JSON: device under test, phases, steps, measurements with limits and outcome,
// times.
void WriteJson(const RunRecord& record, std::ostream& out);

}  // namespace station

#endif  // KORVANDIS_STATION_SEQUENCE_RUN_H
