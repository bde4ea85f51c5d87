// The runs of one `station run`: one, or one after the other with --loop. Inside this room only.
#ifndef KORVANDIS_STATION_RUN_SESSION_H
#define KORVANDIS_STATION_RUN_SESSION_H

#include <fstream>
#include <memory>
#include <set>
#include <string>

#include "events.h"
#include "operator.h"
#include "station/command.h"
#include "station/progress.h"
#include "station/sequence.h"

namespace station {

// Exit statuses of a run beside tools::kExitRight, kExitWrong (the unit failed) and kExitUsage.
const int kExitError = 3;
const int kExitInterrupted = 130;

// The unit, the service or the station did not do its part: says so and returns its exit status.
int StationError(Context& context, const std::string& reason);

// Writes every mistake with its place.
void ShowMistakes(Context& context, const Sequence& sequence, std::vector<Mistake> mistakes);

class RunSession {
 public:
  // `sequence` has no mistakes; all of them outlive the session.
  RunSession(Context& context, const Sequence& sequence, const std::set<std::string>& phases,
             Operator* person, tools::Interrupt* interrupt);

  // Opens what all runs write to. Returns what is wrong, or nothing.
  std::string Open();

  // Asks for the values that `values` lack, in the order of the sequence. False at the end of the
  // input and on an interrupt.
  bool AskValues(Values* values);

  // Runs once with these values, which have been checked. Returns the exit status.
  int RunOnce(const Values& values);

  // Asks for the next unit's values and runs, until the input ends or a run is aborted. Returns the
  // exit status of the worst run.
  int RunLoop(const Values& given);

 private:
  // The records of one run for other programs.
  struct Reports {
    std::string junit_path, json_path;  // "" when not asked for
    std::ofstream junit, json;
  };
  // Opens the reports before anything is sent: a run is not lost to a wrong path. {NAME} in a path
  // is the value. Returns what is wrong, or nothing.
  std::string OpenReports(const Values& values, Reports* reports) const;
  // Returns what could not be written, or nothing.
  static std::string WriteReports(const records::Run& run, Reports* reports);

  // The verdict of one unit of the shift, in large letters, and the counts so far.
  void ShowBanner(records::Outcome outcome, const std::string& device);

  Context& context_;
  const Sequence& sequence_;
  const std::set<std::string>& phases_;
  Operator* person_;
  tools::Interrupt* interrupt_;
  std::ostream& out_;  // for the person
  const Console console_;
  std::ofstream event_file_;
  std::unique_ptr<Events> events_;
  records::Outcome last_ = records::Outcome::kError;
  int passed_ = 0, failed_ = 0, errors_ = 0;  // units of this shift
};

}  // namespace station

#endif  // KORVANDIS_STATION_RUN_SESSION_H
