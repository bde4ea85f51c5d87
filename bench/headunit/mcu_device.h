// The simulated microcontroller: the device that the service opens, and the connector where test
// stations and monitors plug in.
#ifndef KORVANDIS_HEADUNIT_MCU_DEVICE_H
#define KORVANDIS_HEADUNIT_MCU_DEVICE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "qnx/bench_link.h"
#include "resource_manager.h"

namespace headunit {

// Counters of the link, for a person to look at.
struct LinkCounters {
  std::uint64_t to_service = 0;
  std::uint64_t from_service = 0;
  std::uint64_t dropped = 0;  // station packets without a service that took them
  std::uint64_t unasked = 0;  // service packets that answer no request
};

// The device at wire::kMcuDevicePath. Each message, in either direction, is one packet.
class McuDevice : public ResourceManager {
 public:
  using Receiver = std::function<void(const std::string& packet)>;

  McuDevice(EventLoop* loop, std::string path);
  ~McuDevice() override;

  // Gets every packet that the service sends.
  void SetReceiver(Receiver receiver) { receiver_ = std::move(receiver); }

  // Called with the number of openers when it changes.
  void SetPresence(std::function<void(std::size_t openers)> presence) {
    presence_ = std::move(presence);
  }

  // Hands a packet to every opener. False when no opener took it.
  bool Deliver(const std::string& packet);

 protected:
  void OnOpened(OpenFile* file) override;
  void OnMessage(OpenFile* file, const std::string& message) override;
  void OnClosed(OpenFile* file) override;

 private:
  Receiver receiver_;
  std::function<void(std::size_t)> presence_;
};

// The connector at qnx::kStationPath. Relays between stations and the device, and tells the
// monitors.
class StationConnector : public ResourceManager {
 public:
  // Uses `device`, which must outlive the connector, and is its only receiver.
  StationConnector(EventLoop* loop, std::string path, McuDevice* device);
  ~StationConnector() override;

  const LinkCounters& counters() const { return counters_; }
  std::size_t stations() const { return stations_; }
  std::size_t monitors() const { return open_files() - stations_; }

  // The last service is gone: no open request gets a reply.
  void ForgetRequests() { requests_.clear(); }

 protected:
  int OnOpen(const std::string& rest, std::uint32_t flags,
             std::unique_ptr<OpenFile>* file) override;
  void OnMessage(OpenFile* file, const std::string& message) override;
  void OnClosed(OpenFile* file) override;

 private:
  class Plug;

  // A request that the service has got and not answered.
  struct Request {
    std::uint32_t station;  // 0: it left
    std::uint8_t command;
    std::uint8_t sub_command;
  };

  void OnServicePacket(const std::string& packet);
  std::uint32_t TakeAsker(const std::string& packet);
  void TellMonitors(qnx::Direction direction, std::uint32_t station, const std::string& packet);

  McuDevice* const device_;
  std::uint32_t last_station_ = 0;
  std::size_t stations_ = 0;
  std::deque<Request> requests_;
  LinkCounters counters_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_MCU_DEVICE_H
