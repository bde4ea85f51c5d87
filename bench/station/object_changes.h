// The writes to an object of the unit from one moment on. Inside this room only.
#ifndef KORVANDIS_STATION_OBJECT_CHANGES_H
#define KORVANDIS_STATION_OBJECT_CHANGES_H

#include <string>

#include "platform/descriptor.h"

namespace station {

class ObjectChanges {
 public:
  // Follows the object at `path`, which may be missing, from now on.
  explicit ObjectChanges(const std::string& path);

  // Puts the value that was written to the attribute last into *value. False when none was.
  bool Find(const std::string& attribute, std::string* value);

 private:
  std::string path_;
  bool missing_;                   // at the start: everything in it is written later
  platform::Descriptor follower_;  // not open when the object cannot be read
  std::string lines_;              // the newest first
};

}  // namespace station

#endif  // KORVANDIS_STATION_OBJECT_CHANGES_H
