// `station run --events`: a JSON line for each start and end. Inside this room only.
#ifndef KORVANDIS_STATION_EVENTS_H
#define KORVANDIS_STATION_EVENTS_H

#include <ostream>
#include <string>

#include "station/sequence_run.h"

namespace station {

// Writes each line when it happens and passes it on at once. docs/sequences.md describes the lines.
class Events : public RunObserver {
 public:
  explicit Events(std::ostream& out) : out_(out) {}

  void BeginRun(const records::Run& run, std::size_t steps) override;
  void BeginPhase(const records::Phase& phase) override;
  void BeginStep(const records::Step& step) override;
  void EndStep(const records::Step& step, const std::string& answer) override;
  void EndPhase(const records::Phase& phase) override;
  void EndRun(const records::Run& run) override;

 private:
  // Writes one line: what all have, then what `more` adds.
  template <typename More>
  void Write(const char* event, More more);

  std::ostream& out_;
  std::string run_;  // id
  int zone_minutes_ = 0;
  std::string phase_;
  bool in_step_ = false;
};

}  // namespace station

#endif  // KORVANDIS_STATION_EVENTS_H
