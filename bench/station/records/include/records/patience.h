// How long the station waits for the other programs that use a record.
#ifndef KORVANDIS_RECORDS_PATIENCE_H
#define KORVANDIS_RECORDS_PATIENCE_H

#include <chrono>
#include <functional>
#include <string>

namespace tools {
class Interrupt;
}

namespace records {

// The waits of one operation on a record, such as storing a run: all of them together take at most
// kLongestWait, and a signal ends them. One thread only.
class Patience {
 public:
  // `interrupt`, unless null, collects the signals. `tell`, unless empty, is called once in an
  // operation, when it has waited for a second.
  explicit Patience(tools::Interrupt* interrupt = nullptr, std::function<void()> tell = nullptr);

  // A new operation: nothing has been waited so far.
  void Begin();

  // Waits. False when the operation must give up, before the wait or during it.
  bool Pause(std::chrono::milliseconds pause);

  // Counts a wait that took place elsewhere.
  void Count(std::chrono::steady_clock::duration wait) { waited_ += wait; }

  // True when the operation must give up: at the limit, and on a signal.
  bool IsOver() const;

  // Why the operation gave up on a record that another program has locked.
  std::string Reason() const;

 private:
  bool Interrupted() const;

  tools::Interrupt* interrupt_;
  const std::function<void()> tell_;
  std::chrono::steady_clock::duration waited_{0};
  bool told_ = false;
};

}  // namespace records

#endif  // KORVANDIS_RECORDS_PATIENCE_H
