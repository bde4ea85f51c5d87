// Faults of positioning, for control lines.
#ifndef KORVANDIS_HEADUNIT_SERVICES_POSITIONING_FAULTS_H
#define KORVANDIS_HEADUNIT_SERVICES_POSITIONING_FAULTS_H

#include <chrono>

namespace headunit {

// All may be called from any thread, take effect a little later, and never wait.
class PositioningFaults {
 public:
  virtual ~PositioningFaults() = default;

  // Tells every client that its request is suspended and sends no more fixes: until Resume or, with
  // `once`, only until the client asks again.
  virtual void Suspend(bool once) = 0;

  // Serves the clients that asked since.
  virtual void Resume() = 0;

  // Sends a fix every `period` instead of the period asked for; zero ends it.
  virtual void SetRate(std::chrono::milliseconds period) = 0;

  // While lost, fixes carry neither satellites nor a position.
  virtual void SetLost(bool lost) = 0;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_POSITIONING_FAULTS_H
