#include "support/recorder.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "platform/io.h"

namespace support {
namespace {

// Asked for by Take: requests are taken in order, so an answered one finds all earlier files
// closed.
const char kBarrier[] = "/barrier-of-recorder";

bool IsOpen(const qnx::OpeningRequest& request) { return request.kind == qnx::RequestKind::kOpen; }

std::string Describe(const qnx::OpeningRequest& request) {
  const std::string& object = request.rest;
  if (!IsOpen(request)) return "access " + object;
  static const char* const kAccess[] = {"r", "w", "rw", "?"};
  std::ostringstream text;
  text << kAccess[request.flags & O_ACCMODE];
  if ((request.flags & O_CREAT) != 0) text << 'c';
  if ((request.flags & O_TRUNC) != 0) text << 't';
  const std::uint32_t other = request.flags & ~std::uint32_t{O_ACCMODE | O_CREAT | O_TRUNC};
  if (other != 0) text << '+' << other;
  text << ' ' << std::oct << request.mode << (object.empty() ? "" : " ") << object;
  return text.str();
}

// True when the file is neither written nor closed within the time, which fails the test: nothing
// else is served meanwhile.
bool IsAbandoned(const FakeManager::Opening& opening) {
  if (WaitReadable(opening.connection.fd(), kSoon)) return false;
  ADD_FAILURE() << "not closed: " << Describe(opening.request);
  return true;
}

}  // namespace

Bytes Words(const std::vector<std::uint32_t>& values) {
  Bytes bytes(values.size() * sizeof(std::uint32_t));
  std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

Bytes Join(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes Padded(Bytes bytes, std::size_t size) {
  bytes.resize(size);
  return bytes;
}

std::string Shown(const Bytes& message) {
  const bool is_text = std::count(message.begin(), message.end(), 0) == 0;
  return is_text ? std::string(message.begin(), message.end()) : "[" + Hex(message) + "]";
}

std::string Unopened(const std::string& object, int error) {
  return "open('/pps" + object + "') failed: " + std::strerror(error) + "\n";
}

Lines Logged(Log* log, const Lines& functions) {
  Lines texts;
  for (const Log::Line& line : log->Lines()) {
    for (const std::string& function : functions) {
      if (line.text.rfind("_KRV_[" + function + "]-", 0) != 0) continue;
      texts.push_back(std::to_string(line.severity) + line.text.substr(5));
    }
  }
  return texts;
}

Recorder::Recorder(const TempRoot& root, const std::string& path)
    : path_(path), manager_(root, path), thread_([this] {
        while (!stopping_) {
          if (auto opening = manager_.Accept(milliseconds(10))) Serve(std::move(*opening));
        }
      }) {}

Recorder::~Recorder() {
  stopping_ = true;
  thread_.join();
}

void Recorder::Put(const std::string& name, const Object& object) {
  const std::lock_guard<std::mutex> lock(mutex_);
  objects_[name] = object;
}

Lines Recorder::Take() {
  EXPECT_EQ(platform::access((path_ + kBarrier).c_str(), F_OK), 0) << std::strerror(errno);
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(events_, {});
}

void Recorder::Serve(FakeManager::Opening opening) {
  const qnx::OpeningRequest& request = opening.request;
  const bool is_there = request.rest.empty() || (request.flags & O_CREAT) != 0;
  std::string event = Describe(request);
  Object object = {"", IsOpen(request) && !is_there ? ENOENT : 0};
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto held = objects_.find(request.rest);
    if (held != objects_.end()) object = held->second;
  }
  // Sent before the answer it would be taken for the answer; the client reads only after it.
  opening.connection.Answer(object.error);
  if (IsOpen(request) && object.error == 0) {
    if ((request.flags & O_ACCMODE) == O_RDONLY) {
      if (!object.text.empty()) opening.connection.Send(object.text);
      ::shutdown(opening.connection.fd(), SHUT_WR);
    }
    while (!IsAbandoned(opening)) {
      const auto message = opening.connection.Receive();
      if (!message) break;
      event += " " + Shown(*message);
      const std::optional<Bytes> reply = answer ? answer(*message) : std::nullopt;
      if (reply && reply->empty()) break;
      if (reply) opening.connection.Send(*reply);
    }
  }
  if (request.rest == kBarrier) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  events_.push_back(event);
}

void RecordedService::SetUp() {
  ServiceOnUnit::SetUp();
  EXPECT_EQ(StopService(), 0);
  pps_ = std::make_unique<Recorder>(root_, "/pps");
  pps_->Refuse(kGeolocation, ENOENT);
  StartService();
  pps_->Take();
  Mark();
  descriptors_ = CountDescriptors(service_->pid());
}

void RecordedService::TearDown() {
  EXPECT_EQ(CountDescriptors(service_->pid()), descriptors_);
  EXPECT_EQ(StopService(), 0) << service_->Errors();
}

Bytes RecordedService::Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters,
                           bool answered) {
  // The question behind an unanswered request writes this line after its reply, perhaps late.
  static const std::string kLate = "VER_SUB_CMD is not define!('255') \n";
  pps_->Take();
  Mark();
  Bytes reply;
  if (answered) {
    reply = station_->Ask(command, sub_command, parameters);
  } else {
    station_->Do(command, sub_command, parameters);
  }
  asked = pps_->Take();
  told = Errors();
  for (std::size_t at; (at = told.find(kLate)) != std::string::npos;) told.erase(at, kLate.size());
  const std::string text(reply.begin(), std::find(reply.begin(), reply.end(), 0));
  const std::string own = "inBuf('" + text + "') \n";
  const std::size_t at = told.rfind(own);
  EXPECT_TRUE(at != std::string::npos && at + own.size() == told.size()) << told;
  told.resize(std::min(at, told.size()));
  return reply;
}

}  // namespace support
