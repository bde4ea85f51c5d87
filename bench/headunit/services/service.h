// The services that stand behind the objects of a unit. Each talks to the others through objects
// only.
#ifndef KORVANDIS_HEADUNIT_SERVICES_SERVICE_H
#define KORVANDIS_HEADUNIT_SERVICES_SERVICE_H

#include <string>
#include <vector>

#include "../event_loop.h"
#include "pps_client.h"

namespace headunit {

// A service that follows the changes of one object. Everything runs on the loop's thread.
class Service {
 public:
  // Follows the object at `path`.
  Service(EventLoop* loop, const char* path);
  virtual ~Service() = default;

  virtual void Start() { subscription_.Start(); }

 protected:
  // Attributes that a client wrote in one go.
  virtual void OnChange(const std::vector<PpsLine>& attributes) = 0;

  // One line on the log about what a client wrote wrong.
  void Complain(const PpsLine& attribute, const char* reason) const;

 private:
  const char* const path_;
  PpsSubscription subscription_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_SERVICE_H
