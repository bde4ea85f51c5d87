// Where programs send their control lines to.
#ifndef KORVANDIS_HEADUNIT_CONTROL_CONNECTOR_H
#define KORVANDIS_HEADUNIT_CONTROL_CONNECTOR_H

#include <memory>
#include <string>

#include "control_table.h"
#include "resource_manager.h"

namespace headunit {

// The connector at qnx::kControlPath: each message is one line, and is answered by one message.
class ControlConnector : public ResourceManager {
 public:
  ControlConnector(EventLoop* loop, std::string path, ControlTable* table);
  ~ControlConnector() override;

 protected:
  void OnMessage(OpenFile* file, const std::string& message) override;

 private:
  ControlTable* const control_table_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_CONTROL_CONNECTOR_H
