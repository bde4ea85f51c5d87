#include "station/link.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "platform/io.h"
#include "qnx/unit_root.h"

namespace station {
namespace {

const int kControlMilliseconds = 2000;
const std::chrono::milliseconds kServiceLook(500);  // between two looks whether a service is there

// Why a connector could not be opened.
std::string OpenProblem(const char* path, int error) {
  const std::string reason = qnx::WhyNoUnit();
  return reason.empty() ? std::string(path) + ": " + std::strerror(error) : reason;
}

int RestMilliseconds(Clock::time_point deadline) {
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(rest, 0, 1000000000));
}

// True when `fd` is readable or hung up within the time.
bool PollFor(int fd, int milliseconds) {
  pollfd file{fd, POLLIN, 0};
  int ready;
  do {
    ready = ::poll(&file, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

// True when the numbers of a packet are those of a reply to this command, as far as it goes.
bool IsReplyTo(const Bytes& packet, std::uint8_t command, std::uint8_t sub_command) {
  const std::size_t record = wire::kHeaderSize + wire::kLinkSize;
  return packet.size() > record + wire::kRecordSubCommandOffset &&
         packet[record + wire::kRecordCommandOffset] == (command | wire::kReplyBit) &&
         packet[record + wire::kRecordSubCommandOffset] == sub_command;
}

bool TakePacket(int fd, Bytes* packet) {
  std::string message;
  if (tools::ReadMessage(fd, &message) <= 0) return false;
  packet->assign(message.begin(), message.end());
  return true;
}

}  // namespace

Clock::duration Seconds(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(std::clamp(seconds, 0.0, 1e6)));
}

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string Link::Send(const Bytes& packet) {
  Collect(0);
  if (!connection_.IsOpen()) {
    connection_.Reset(platform::open(qnx::kStationPath, O_RDWR));
    if (!connection_.IsOpen()) return OpenProblem(qnx::kStationPath, errno);
  }
  if (platform::write(connection_.Get(), packet.data(), packet.size()) < 0) {
    const std::string reason = std::strerror(errno);
    connection_.Reset(-1);
    return "the unit takes no request: " + reason;
  }
  return "";
}

void Link::Collect(int milliseconds) {
  Bytes packet;
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (connection_.IsOpen() && PollFor(connection_.Get(), RestMilliseconds(deadline))) {
    if (TakePacket(connection_.Get(), &packet)) {
      PassOver(packet);
    } else {
      connection_.Reset(-1);
    }
  }
}

std::vector<Bytes> Link::TakeDiscarded() {
  std::vector<Bytes> taken;
  taken.swap(discarded_);
  return taken;
}

void Link::PassOver(const Bytes& packet) {
  if (discarded_.size() < kMostDiscarded) discarded_.push_back(packet);
}

bool Link::Wait(Clock::time_point deadline) {
  const int rest = RestMilliseconds(deadline);
  if (interrupt_ != nullptr) return interrupt_->Wait(connection_.Get(), rest);
  return PollFor(connection_.Get(), rest);
}

Link::Result Link::Receive(std::uint8_t command, std::uint8_t sub_command,
                           Clock::time_point deadline, wire::Reply* reply, Bytes* packet) {
  Bytes fragment;
  bool looks = true;
  while (Clock::now() < deadline) {
    if (!Wait(looks ? std::min(deadline, Clock::now() + kServiceLook) : deadline)) {
      std::string reason;
      if (Clock::now() >= deadline || (interrupt_ != nullptr && interrupt_->Pending())) break;
      // Without a service no reply will come: the next one starts with nothing to answer.
      const int services = CountServices(&reason);
      if (services == 0) break;
      looks = services > 0;
      continue;
    }
    if (!TakePacket(connection_.Get(), packet)) {
      connection_.Reset(-1);
      return Result::kGone;
    }
    if (wire::ParseReply(*packet, reply)) {
      if (reply->command == command && reply->sub_command == sub_command) return Result::kReply;
      PassOver(*packet);
      continue;
    }
    if (IsReplyTo(*packet, command, sub_command)) return Result::kMalformed;
    if (packet->size() < wire::kHeaderSize + wire::kReplyOverhead) fragment = *packet;
  }
  if (fragment.empty()) return Result::kNone;
  *packet = fragment;
  return Result::kMalformed;
}

bool Control(const std::string& line, std::string* answer) {
  const platform::Descriptor connection(platform::open(qnx::kControlPath, O_RDWR));
  if (!connection.IsOpen()) {
    *answer = OpenProblem(qnx::kControlPath, errno);
    return false;
  }
  std::string message;
  if (platform::write(connection.Get(), line.data(), line.size()) < 0 ||
      !PollFor(connection.Get(), kControlMilliseconds) ||
      tools::ReadMessage(connection.Get(), &message) <= 0) {
    *answer = "the unit's control connector does not answer";
    return false;
  }
  const bool good = message == "ok" || message.rfind("ok ", 0) == 0;
  const std::size_t blank = message.find(' ');
  *answer = blank == std::string::npos ? "" : message.substr(blank + 1);
  return good;
}

int CountServices(std::string* reason) {
  std::string answer;
  if (!Control("status", &answer)) {
    *reason = answer;
    return -1;
  }
  // "service" tells whether there is any, "services" how many; a unit may tell only the first.
  std::istringstream words(answer);
  int count = -1;
  for (std::string word; words >> word;) {
    int number = 0;
    if (word == "services" && words >> number) return number;
    if (word == "service" && words >> number) count = number;
  }
  if (count < 0) *reason = "the unit does not say whether the service is connected";
  return count;
}

bool ServiceConnected(std::string* reason) {
  const int count = CountServices(reason);
  if (count == 0) *reason = "the unit is up, but the service is not connected";
  return count > 0;
}

std::string SeveralServices() {
  std::string reason;
  const int count = CountServices(&reason);
  return count > 1 ? std::to_string(count) + " services are connected to the unit" : "";
}

std::string Monitor::Open() {
  const std::string path = std::string(qnx::kStationPath) + qnx::kMonitorRest;
  connection_.Reset(platform::open(path.c_str(), O_RDONLY));
  return connection_.IsOpen() ? "" : OpenProblem(path.c_str(), errno);
}

bool Monitor::HasPacket(int milliseconds) { return PollFor(connection_.Get(), milliseconds); }

bool Monitor::Read(qnx::MonitorHead* head, Bytes* packet) {
  Bytes message;
  while (TakePacket(connection_.Get(), &message)) {
    if (message.size() < sizeof(*head)) continue;  // not from this connector
    std::memcpy(head, message.data(), sizeof(*head));
    packet->assign(message.begin() + sizeof(*head), message.end());
    return true;
  }
  return false;
}

}  // namespace station
