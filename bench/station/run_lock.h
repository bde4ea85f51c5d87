// One run at a time on a unit. Inside this room only.
#ifndef KORVANDIS_STATION_RUN_LOCK_H
#define KORVANDIS_STATION_RUN_LOCK_H

#include <string>

#include "tools/program.h"

namespace station {

// Holds the unit for one run while it lives. The lock is the kernel's: it ends with the process,
// however that ends. A file below the unit's root carries it and names process and start.
class RunLock {
 public:
  ~RunLock();

  // Takes the unit below HEADUNIT_ROOT. Returns an empty text, or why not: which process has it.
  // Without that directory there is no unit, and nothing to take.
  std::string Take();

 private:
  platform::Descriptor file_;
};

}  // namespace station

#endif  // KORVANDIS_STATION_RUN_LOCK_H
