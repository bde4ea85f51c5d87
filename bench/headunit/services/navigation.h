// The navigation service: numbered commands in, the gyro's angle out.
#ifndef KORVANDIS_HEADUNIT_SERVICES_NAVIGATION_H
#define KORVANDIS_HEADUNIT_SERVICES_NAVIGATION_H

#include <vector>

#include "service.h"

namespace headunit {

// Command 1 publishes the angle that "/pps/zelmar/navigation/gyro" holds, where a person can set
// it.
class Navigation : public Service {
 public:
  explicit Navigation(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_NAVIGATION_H
