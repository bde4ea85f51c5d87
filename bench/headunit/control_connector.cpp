#include "control_connector.h"

#include <cerrno>
#include <utility>

namespace headunit {
namespace {

const std::size_t kLongestQueue = 1 << 20;  // answers to a client that asks and never reads

}  // namespace

ControlConnector::ControlConnector(EventLoop* loop, std::string path, ControlTable* table)
    : ResourceManager(loop, std::move(path)), control_table_(table) {}

ControlConnector::~ControlConnector() { Close(); }

void ControlConnector::OnMessage(OpenFile* file, const std::string& message) {
  file->SendWithin(control_table_->Run(message), kLongestQueue);
}

}  // namespace headunit
