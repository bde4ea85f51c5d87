#include "support/recording_pps.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sstream>
#include <utility>

#include "platform/io.h"

namespace bench {
namespace {

const char kBarrier[] = "/barrier";

const TempRoot& WithoutPps(const TempRoot& root) {
  std::filesystem::remove_all(root.path() + "/pps");
  return root;
}

std::string Describe(const wire::ManagerRequest& request, const std::string& path) {
  if (request.kind != static_cast<std::uint32_t>(wire::RequestKind::kOpen)) return "access " + path;
  static const char* const kAccess[] = {"r", "w", "rw", "?"};
  std::ostringstream text;
  text << kAccess[request.flags & O_ACCMODE];
  if ((request.flags & O_CREAT) != 0) text << 'c';
  if ((request.flags & O_TRUNC) != 0) text << 't';
  const std::uint32_t other = request.flags & ~std::uint32_t{O_ACCMODE | O_CREAT | O_TRUNC};
  if (other != 0) text << '+' << other;
  text << ' ' << std::oct << request.mode << ' ' << path;
  return text.str();
}

}  // namespace

RecordingPps::RecordingPps(const TempRoot& root)
    : manager_(WithoutPps(root), "/pps"), thread_([this] { Run(); }) {}

RecordingPps::~RecordingPps() {
  stop_ = true;
  thread_.join();
}

void RecordingPps::Hold(const std::string& path, const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  texts_[path] = text;
}

void RecordingPps::Drop(const std::string& path) {
  const std::lock_guard<std::mutex> lock(mutex_);
  texts_.erase(path);
}

void RecordingPps::Refuse(const std::string& path, int error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  errors_[path] = error;
}

Lines RecordingPps::Take() {
  // Requests are taken in order: once this one is answered, those before it are done with.
  platform::access((std::string("/pps") + kBarrier).c_str(), F_OK);
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(events_, {});
}

void RecordingPps::Run() {
  while (!stop_) {
    if (auto opening = manager_.Accept(milliseconds(20))) Serve(std::move(*opening));
  }
}

void RecordingPps::Serve(FakeManager::Opening opening) {
  const wire::ManagerRequest& request = opening.request;
  const bool is_open = request.kind == static_cast<std::uint32_t>(wire::RequestKind::kOpen);
  std::string event = Describe(request, opening.rest);
  std::string text;
  int error = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto held = texts_.find(opening.rest);
    if (held != texts_.end()) text = held->second;
    if (is_open && held == texts_.end() && (request.flags & O_CREAT) == 0) error = ENOENT;
    const auto refused = errors_.find(opening.rest);
    if (refused != errors_.end() && refused->second != 0) error = refused->second;
  }
  // Sent before the answer it would be taken for the answer; the client reads only after it.
  opening.connection.Answer(error);
  if (is_open && error == 0) {
    if ((request.flags & O_ACCMODE) == O_RDONLY) {
      if (!text.empty()) opening.connection.Send(text);
      ::shutdown(opening.connection.fd(), SHUT_WR);
    }
    while (const auto message = opening.connection.Receive()) {
      event += " " + std::string(message->begin(), message->end());
    }
  }
  if (opening.rest == kBarrier) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  events_.push_back(event);
}

void RecordedBench::SetUp() {
  headunit::UnitOptions options = Empty();
  options.root = root_.path();
  unit_ = std::make_unique<headunit::Unit>(options);
  ASSERT_EQ(unit_->Start(), "");
  pps_ = std::make_unique<RecordingPps>(root_);
  pps_->Refuse(kGeolocation, ENOENT);
  log_ = std::make_unique<Log>(root_);
  StartService();
  station_ = std::make_unique<Station>();
  pps_->Take();
  Mark();
}

void RecordedBench::TearDown() { EXPECT_EQ(StopService(), 0) << service_->Errors(); }

void RecordedBench::Do(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters) {
  Ask(command, sub_command, parameters, false);
}

Bytes RecordedBench::Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters) {
  return Ask(command, sub_command, parameters, true);
}

Bytes RecordedBench::Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters,
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
  EXPECT_TRUE(told.size() >= own.size() && told.substr(told.size() - own.size()) == own) << told;
  told.resize(told.size() - std::min(told.size(), own.size()));
  return reply;
}

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text);
  for (unsigned byte; words >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
  return bytes;
}

}  // namespace bench
