// The geolocation service: answers each client with fixes of a recorded drive at the period it
// asked for.
#ifndef KORVANDIS_HEADUNIT_SERVICES_GEOLOCATION_H
#define KORVANDIS_HEADUNIT_SERVICES_GEOLOCATION_H

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "drive.h"
#include "positioning_faults.h"
#include "pps_client.h"

namespace headunit {

// Serves "/pps/services/geolocation/control" as a server object. A client writes "msg::location",
// "id" and "dat" with its "period" in seconds; it gets the same "msg" and "id" with each "dat". A
// first request is answered at once; a repeated one keeps the pace. An empty drive never has a fix.
class Geolocation : public PositioningFaults {
 public:
  Geolocation(EventLoop* loop, Drive drive);
  ~Geolocation() override;

  void Start() { server_.Start(); }

  void Suspend(bool once) override;
  void Resume() override;
  void SetRate(std::chrono::milliseconds period) override;
  void SetLost(bool lost) override;

 private:
  struct Client {
    bool asked = false;
    std::string id;  // of its request
    std::chrono::milliseconds period{};
    std::size_t next = 0;  // its place in the drive
    EventLoop::TimerId timer = 0;
  };

  void OnMessage(const std::string& text);
  void OnRequest(const std::string& address, const std::vector<PpsLine>& attributes);
  void Forget(const std::string& address);
  void ForgetAll();
  void Pause(Client* client);
  void Serve(const std::string& address);
  std::string FormatFix(const std::string& address, Client* client);

  EventLoop* const loop_;
  const Drive drive_;
  PpsSubscription server_;
  std::map<std::string, Client> clients_;  // by "control.ID"
  bool suspended_ = false;
  bool lost_ = false;
  std::chrono::milliseconds rate_{0};
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_GEOLOCATION_H
