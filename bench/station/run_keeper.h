// Keeps a run in the record that --record or KORVANDIS_RECORD names.
#ifndef KORVANDIS_STATION_RUN_KEEPER_H
#define KORVANDIS_STATION_RUN_KEEPER_H

#include <memory>
#include <string>

#include "qnx/slog_ring.h"
#include "records/database.h"
#include "station/command.h"
#include "station/link.h"
#include "station/sequence_run.h"

namespace station {

// Without a record it does nothing. It follows the packets and the unit's log during the run: what
// was said is of use when a step did not pass.
class RunKeeper : public RunObserver {
 public:
  // `out`: where the person is told that a run is kept.
  // A signal that `interrupt` collects ends the waits for the record.
  RunKeeper(Context& context, std::ostream& out, tools::Interrupt* interrupt);

  // Why a request must not be sent, or nothing: it burns in an identity that another device has, or
  // the record cannot be asked whether one has it.
  std::string Refuse(const Invocation& request, const records::Run& run);

  // Stores the run. False when it is not in the record; the operator has been told. The signal that
  // aborted the run does not end a wait for the record, a second one does.
  bool Keep(records::Run* run);

  void BeginRun(const records::Run& run, std::size_t steps) override;
  void BeginStep(const records::Step& step) override;
  void EndStep(const records::Step& step, const std::string& answer) override;

 private:
  void TellWait() const;
  void TakePackets(int milliseconds);
  std::vector<records::LogLine> TakeLog();

  Context& context_;
  std::ostream& out_;
  const std::string address_;
  tools::Interrupt* interrupt_;
  records::Patience patience_;  // for all questions of the run, then again for storing it
  std::unique_ptr<records::Database> database_;
  Monitor monitor_;
  bool monitors_ = false;
  std::vector<records::Packet> packets_;
  qnx::SlogReader log_;
  bool logs_ = false;
};

// The record that a command line names, else KORVANDIS_RECORD; empty when there is none.
std::string RecordAddress(const Invocation& invocation);

}  // namespace station

#endif  // KORVANDIS_STATION_RUN_KEEPER_H
