// Shows on a console how a run goes.
#ifndef KORVANDIS_STATION_PROGRESS_H
#define KORVANDIS_STATION_PROGRESS_H

#include <chrono>
#include <ostream>
#include <string>

#include "station/sequence_run.h"

namespace station {

// The abilities of a console.
struct Console {
  bool lines_change = false;  // a line can be written again: progress is shown
  bool colour = false;
  std::size_t width = 0;  // columns, 0: unknown
};

// The abilities of `out`: none unless it is the standard output or error and a terminal; neither
// colour nor progress with TERM=dumb or NO_COLOR.
Console ConsoleOf(const std::ostream& out);

// `text` in the colour of the outcome, where there are colours.
std::string Coloured(const Console& console, records::Outcome outcome, const std::string& text);

// A line a step, and at the end the verdict with everything that did not pass. Where lines can
// change, also the step that is under way.
class Progress : public RunObserver {
 public:
  Progress(std::ostream& out, const Console& console) : out_(out), console_(console) {}

  void BeginRun(const records::Run& run, std::size_t steps) override;
  void BeginPhase(const records::Phase& phase) override;
  void BeginStep(const records::Step& step) override;
  void BeginQuestion() override;
  void EndStep(const records::Step& step, const std::string& answer) override;
  void EndRun(const records::Run& run) override;

 private:
  void ShowFailures(const records::Run& run);

  std::ostream& out_;
  const Console console_;
  std::chrono::steady_clock::time_point start_;
  std::string phase_;  // whose name is not written yet
  std::size_t steps_ = 0;
  std::size_t done_ = 0;
};

}  // namespace station

#endif  // KORVANDIS_STATION_PROGRESS_H
