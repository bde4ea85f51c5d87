#include "object_changes.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>

#include "platform/io.h"
#include "tools/pps_object.h"
#include "tools/program.h"

namespace station {

ObjectChanges::ObjectChanges(const std::string& path)
    : path_(path), follower_(platform::open((path + "?wait,delta").c_str(), O_RDONLY)) {
  missing_ = !follower_.IsOpen() && errno == ENOENT;
  std::string before;
  if (follower_.IsOpen() && tools::ReadMessage(follower_.Get(), &before) <= 0) follower_.Reset();
}

bool ObjectChanges::Find(const std::string& attribute, std::string* value) {
  if (missing_) {
    lines_.clear();
    return tools::ReadObject(path_, O_RDONLY, &lines_) == 0 &&
           tools::FindAttribute(lines_, attribute, value);
  }
  std::string message;
  pollfd ready{follower_.Get(), POLLIN, 0};
  while (follower_.IsOpen() && ::poll(&ready, 1, 0) > 0) {
    if (tools::ReadMessage(follower_.Get(), &message) <= 0) {
      follower_.Reset();
    } else {
      lines_.insert(0, message);
    }
  }
  return tools::FindAttribute(lines_, attribute, value);
}

}  // namespace station
