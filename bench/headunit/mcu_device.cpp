#include "mcu_device.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "log.h"
#include "wire/at_packet.h"

namespace headunit {
namespace {

const std::size_t kServiceQueue = 4 << 20;  // bytes that wait for a service that is busy or stopped
const std::size_t kStationQueue = 1 << 20;  // and for a station or monitor that does not read
const std::size_t kMostRequests = 4096;     // unanswered: most commands have no answer

// Command and sub-command of an AT packet, at the same place in both directions. False when
// `packet` ends before them.
bool ReadNumbers(const std::string& packet, std::uint8_t* command, std::uint8_t* sub_command) {
  const std::size_t record = wire::kHeaderSize + wire::kLinkSize;
  if (packet.size() < record + wire::kRecordHeadSize) return false;
  *command = static_cast<std::uint8_t>(packet[record + wire::kRecordCommandOffset]);
  *sub_command = static_cast<std::uint8_t>(packet[record + wire::kRecordSubCommandOffset]);
  return true;
}

// True for a packet that the service treats as a request. `packet` has its numbers. Other packets
// get no reply, so they are not kept as open requests.
bool IsRequest(const std::string& packet) {
  std::uint8_t header[wire::kHeaderSize];
  std::memcpy(header, packet.data(), sizeof(header));
  const std::size_t record = wire::kHeaderSize + wire::kLinkSize;
  const auto length = static_cast<std::uint8_t>(packet[record + wire::kRecordLengthOffset]);
  const std::size_t arrived = packet.size() - wire::kHeaderSize;
  const std::size_t claimed = wire::LoadLe32(header + wire::kPayloadLengthOffset);
  return wire::LoadLe32(header + wire::kPacketTypeOffset) == wire::kAtPacketType && length != 0 &&
         std::min(arrived, claimed) >= wire::kReplyOverhead + length - 1;
}

// A reply's numbers; the rest of the packet is the station's to check.
bool ReadReply(const std::string& packet, std::uint8_t* command, std::uint8_t* sub_command) {
  if (!ReadNumbers(packet, command, sub_command)) return false;
  const std::size_t record = wire::kHeaderSize + wire::kLinkSize;
  if (static_cast<std::uint8_t>(packet[record]) != wire::kRecordStart ||
      (*command & wire::kReplyBit) == 0) {
    return false;
  }
  *command = static_cast<std::uint8_t>(*command & ~wire::kReplyBit);
  return true;
}

}  // namespace

// --- the device ---------------------------------------------------------------------------------

McuDevice::McuDevice(EventLoop* loop, std::string path) : ResourceManager(loop, std::move(path)) {}

McuDevice::~McuDevice() { Close(); }

bool McuDevice::Deliver(const std::string& packet) {
  bool taken = false;
  ForEachFile([&](OpenFile* file) {
    if (!file->CanRead()) return;
    if (file->SendWithin(packet, kServiceQueue)) {
      taken = true;
    } else {
      Log(_SLOG_WARNING, "mcu: the service does not read, a packet of %zu bytes is lost",
          packet.size());
    }
  });
  return taken;
}

void McuDevice::OnOpened(OpenFile*) {
  if (open_files() > 1) {
    Log(_SLOG_WARNING, "mcu: %zu services have the device open, each carries out every command",
        open_files());
  }
  if (presence_) presence_(open_files());
}

void McuDevice::OnClosed(OpenFile*) {
  if (presence_) presence_(open_files());
}

void McuDevice::OnMessage(OpenFile* file, const std::string& message) {
  if (file->CanWrite() && !message.empty() && receiver_) receiver_(message);
}

// --- the connector ------------------------------------------------------------------------------

// A station, or a monitor, which has no number.
class StationConnector::Plug : public OpenFile {
 public:
  Plug(std::uint32_t flags, std::uint32_t station) : OpenFile(flags), station_(station) {}
  std::uint32_t station() const { return station_; }

  // Passes `message` to a monitor. One that lags too far behind loses it, and is told that once.
  void Tell(const std::string& message) {
    const bool lost = !SendWithin(message, kStationQueue);
    if (lost && !losing_) {
      const qnx::MonitorHead head = {0, qnx::kMonitorLost, 0};
      Send(std::string(reinterpret_cast<const char*>(&head), sizeof(head)));
    }
    losing_ = lost;
  }

 private:
  const std::uint32_t station_;
  bool losing_ = false;
};

StationConnector::StationConnector(EventLoop* loop, std::string path, McuDevice* device)
    : ResourceManager(loop, std::move(path)), device_(device) {
  device_->SetReceiver([this](const std::string& packet) { OnServicePacket(packet); });
}

StationConnector::~StationConnector() { Close(); }

int StationConnector::OnOpen(const std::string& rest, std::uint32_t flags,
                             std::unique_ptr<OpenFile>* file) {
  if (rest == qnx::kMonitorRest) {
    *file = std::make_unique<Plug>(flags, 0);
    return 0;
  }
  if (!rest.empty()) return ENOENT;
  *file = std::make_unique<Plug>(flags, ++last_station_);
  ++stations_;
  return 0;
}

void StationConnector::OnClosed(OpenFile* file) {
  const std::uint32_t station = static_cast<Plug*>(file)->station();
  if (station == 0) return;
  --stations_;
  for (Request& request : requests_) {
    if (request.station == station) request.station = 0;
  }
}

void StationConnector::OnMessage(OpenFile* file, const std::string& message) {
  const std::uint32_t station = static_cast<Plug*>(file)->station();
  if (station == 0 || message.empty()) return;
  if (message.size() > wire::kMaxPacket) {
    ++counters_.dropped;
    Log(_SLOG_WARNING, "mcu: a packet of %zu bytes is longer than the link takes", message.size());
    return;
  }
  TellMonitors(qnx::Direction::kToService, station, message);
  Request request = {station, 0, 0};
  const bool countable =
      ReadNumbers(message, &request.command, &request.sub_command) && IsRequest(message);
  if (!device_->Deliver(message)) {
    ++counters_.dropped;
    return;
  }
  ++counters_.to_service;
  if (!countable) return;
  if (requests_.size() >= kMostRequests) requests_.pop_front();
  requests_.push_back(request);
}

void StationConnector::OnServicePacket(const std::string& packet) {
  ++counters_.from_service;
  const std::uint32_t asker = TakeAsker(packet);
  if (asker == 0) ++counters_.unasked;
  TellMonitors(qnx::Direction::kFromService, asker, packet);
  if (asker == 0) return;
  ForEachFile([&](OpenFile* file) {
    if (static_cast<Plug*>(file)->station() == asker) file->SendWithin(packet, kStationQueue);
  });
}

// The station whose oldest request `packet` answers, 0 when there is none, or only one that left.
// A station mostly leaves because it got no answer, so a station that is still there and asked the
// same is preferred. The service answers in order, so the requests before that one, of any station,
// get no reply and are dropped.
std::uint32_t StationConnector::TakeAsker(const std::string& packet) {
  std::uint8_t command = 0;
  std::uint8_t sub_command = 0;
  if (!ReadReply(packet, &command, &sub_command)) return 0;
  auto answered = requests_.end();
  for (auto request = requests_.begin(); request != requests_.end(); ++request) {
    if (request->command != command || request->sub_command != sub_command) continue;
    if (answered == requests_.end() || request->station != 0) answered = request;
    if (request->station != 0) break;
  }
  if (answered == requests_.end()) return 0;
  const std::uint32_t station = answered->station;
  requests_.erase(requests_.begin(), answered + 1);
  return station;
}

void StationConnector::TellMonitors(qnx::Direction direction, std::uint32_t station,
                                    const std::string& packet) {
  if (monitors() == 0) return;
  qnx::MonitorHead head;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  head.nanoseconds =
      static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
  head.direction = static_cast<std::uint32_t>(direction);
  head.station = station;
  std::string message(sizeof(head) + packet.size(), '\0');
  std::memcpy(&message[0], &head, sizeof(head));
  message.replace(sizeof(head), packet.size(), packet);
  ForEachFile([&](OpenFile* file) {
    auto* const plug = static_cast<Plug*>(file);
    if (plug->station() == 0) plug->Tell(message);
  });
}

}  // namespace headunit
