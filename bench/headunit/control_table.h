// Everything of the unit that its control lines can look at or disturb from outside.
#ifndef KORVANDIS_HEADUNIT_CONTROL_TABLE_H
#define KORVANDIS_HEADUNIT_CONTROL_TABLE_H

#include <string>

#include "i2c_bus.h"
#include "mcu_device.h"
#include "pps_manager.h"
#include "services/positioning_faults.h"
#include "sysinfo_device.h"

namespace headunit {

// The parts that control lines act on. All outlive the table.
struct ControlledParts {
  PpsManager* pps;
  McuDevice* mcu;
  StationConnector* stations;
  SysInfoDevice* sysinfo;
  I2cBus* i2c;
  bool starts_service;             // the unit starts one itself
  PositioningFaults* positioning;  // null without services
};

// Carries out control lines; parsing and help come from one table. Runs on the managers' loop.
class ControlTable {
 public:
  explicit ControlTable(const ControlledParts& parts) : parts_(parts) {}

  // Sets the receiver of the positioning lines; null: they are refused.
  void SetPositioning(PositioningFaults* positioning) { parts_.positioning = positioning; }

  // Carries out one line and returns "ok", "ok TEXT" or "error REASON".
  std::string Run(const std::string& line);

 private:
  ControlledParts parts_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_CONTROL_TABLE_H
