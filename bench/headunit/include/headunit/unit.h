// A simulated head unit below a directory: resource managers, the MCU, the log ring and the
// services behind the PPS objects, started from a profile.
#ifndef KORVANDIS_HEADUNIT_UNIT_H
#define KORVANDIS_HEADUNIT_UNIT_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "headunit/profiles.h"

namespace headunit {

struct UnitOptions {
  std::string root;      // directory that stands for the unit's '/'; created when missing
  std::string profile;   // profile folder; empty: an empty unit (no objects, no services' data)
  std::string state;     // folder for what survives a restart; empty: <root>/var/headunit
  bool services = true;  // false: only the managers, so that objects hold what a test wrote
  bool starts_service = false;      // the unit is ready only when its own service is connected
  std::uint32_t log_lines = 16384;  // slots of the log ring, a power of two: a whole sequence's
};

// One running unit. Start and Stop are called by one thread; everything else may be called from
// any.
class Unit {
 public:
  explicit Unit(UnitOptions options);
  ~Unit();  // stops
  Unit(const Unit&) = delete;
  Unit& operator=(const Unit&) = delete;

  // Lays out the root, binds the managers and starts the threads. Returns an empty text, or the
  // reason why the unit cannot run, with everything released again. The services find the unit as
  // every other program does: HEADUNIT_ROOT must name the root when they are wanted.
  std::string Start();

  // Ends the services, then the managers; removes their sockets. May be repeated.
  void Stop();

  // Carries out one control line ("i2c fail-send 3", "status", "help" ...) and returns the answer:
  // "ok", "ok TEXT" or "error REASON". The same lines that the control connector takes.
  std::string Control(const std::string& line);

  // True when the service holds the MCU device open. Waits up to `timeout` for it.
  bool WaitForService(std::chrono::milliseconds timeout);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_UNIT_H
