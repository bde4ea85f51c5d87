// All services of a unit, on a thread of their own.
#ifndef KORVANDIS_HEADUNIT_SERVICES_SERVICE_SET_H
#define KORVANDIS_HEADUNIT_SERVICES_SERVICE_SET_H

#include <memory>
#include <string>
#include <vector>

#include "../event_loop.h"
#include "drive.h"
#include "geolocation.h"
#include "service.h"

namespace headunit {

class ServiceSet {
 public:
  explicit ServiceSet(Drive drive);
  ~ServiceSet();  // stops

  // The managers must run: returns when every service has its object open, or waits for it to
  // appear. Returns an empty text or why the services cannot run.
  std::string Start();
  void Stop();

  PositioningFaults* positioning() { return &geolocation_; }

 private:
  EventLoop loop_;  // last to go: the services use it
  std::vector<std::unique_ptr<Service>> services_;
  Geolocation geolocation_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_SERVICE_SET_H
