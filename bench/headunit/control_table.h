// Everything of the unit that its control lines can look at or disturb from outside.
#ifndef KORVANDIS_HEADUNIT_CONTROL_TABLE_H
#define KORVANDIS_HEADUNIT_CONTROL_TABLE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "i2c_bus.h"
#include "mcu_device.h"
#include "pps_manager.h"
#include "resource_manager.h"
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
};

// The table of control lines, from which parsing and help are derived. Runs on the managers' loop.
class ControlTable {
 public:
  explicit ControlTable(const ControlledParts& parts);

  // Says who takes the positioning lines; null: nobody.
  void SetPositioning(PositioningFaults* positioning) { positioning_ = positioning; }

  // Carries out one line and returns "ok", "ok TEXT" or "error REASON".
  std::string Run(const std::string& line);

 private:
  using Words = std::vector<std::string>;

  // A row does what `words` (its name) and their arguments say and returns an answer.
  struct Row {
    const char* words;      // one or two, separated by a blank
    const char* arguments;  // as the help shows them
    std::size_t least;      // number of arguments
    std::size_t most;
    const char* help;
    std::string (ControlTable::*act)(const Words& arguments);
  };
  static const Row kRows[];

  std::string Help(const Words&);
  std::string Status(const Words&);
  std::string Memory(const Words&);
  std::string Save(const Words& arguments);
  std::string McuDown(const Words&);
  std::string McuUp(const Words&);
  std::string PpsDown(const Words&);
  std::string PpsUp(const Words&);
  std::string PpsStall(const Words&);
  std::string PpsUnstall(const Words&);
  std::string PpsStallAfterOpen(const Words&);
  std::string PpsSlow(const Words& arguments);
  std::string I2cFailSend(const Words& arguments);
  std::string I2cFailReceive(const Words& arguments);
  std::string I2cSpeed(const Words& arguments);
  std::string I2cIdentity(const Words& arguments);
  std::string I2cAbsent(const Words&);
  std::string I2cPresent(const Words&);
  std::string I2cShowCounters(const Words&);
  std::string I2cShowLog(const Words&);
  std::string I2cReset(const Words&);
  std::string SysInfoFail(const Words& arguments);
  std::string SysInfoOk(const Words&);
  std::string SysInfoShow(const Words&);
  std::string SysInfoLength(const Words& arguments);
  std::string GpsSuspend(const Words& arguments);
  std::string GpsResume(const Words&);
  std::string GpsRate(const Words& arguments);
  std::string GpsLose(const Words&);
  std::string GpsFind(const Words&);

  const ControlledParts parts_;
  PositioningFaults* positioning_ = nullptr;
};

// The connector at qnx::kControlPath: each message is one line.
class ControlConnector : public ResourceManager {
 public:
  ControlConnector(EventLoop* loop, std::string path, ControlTable* table);
  ~ControlConnector() override;

 protected:
  int OnOpen(const std::string& rest, std::uint32_t flags,
             std::unique_ptr<OpenFile>* file) override;
  void OnMessage(OpenFile* file, const std::string& message) override;

 private:
  ControlTable* const control_table_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_CONTROL_TABLE_H
