#include "navigation.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace headunit {
namespace {

const char kCommand[] = "/pps/zelmar/navigation/command";
const char kStatus[] = "/pps/zelmar/navigation/status";
const char kGyro[] = "/pps/zelmar/navigation/gyro";

const int kAskAngle = 1;
const int kCommands[] = {kAskAngle, 2, 3, 5, 10};

}  // namespace

Navigation::Navigation(EventLoop* loop) : Service(loop, kCommand) {}

void Navigation::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    int command = 0;
    if (attribute.name != "msg" || attribute.encoding != "json" ||
        !ParseJson(attribute.value, {{"cmd", &command}}, {}) ||
        std::find(std::begin(kCommands), std::end(kCommands), command) == std::end(kCommands)) {
      Complain(attribute, "malformed or unknown command");
      continue;
    }
    std::string lines = "lastcmd:n:" + std::to_string(command) + "\n";
    if (command == kAskAngle) {
      lines +=
          "msgres:json:{\"msg\":1,\"dat\":\"angle=" + ReadAttribute(kGyro, "angle", "n", "0.0") +
          "\"}\n";
    }
    Publish(kStatus, lines);
  }
}

}  // namespace headunit
