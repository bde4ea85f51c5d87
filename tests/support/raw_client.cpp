#include "support/raw_client.h"

#include <sys/socket.h>

#include <cstdlib>
#include <cstring>

namespace support {
namespace {

const char kPps[] = "/pps";
const std::uint32_t kMode = 0666;  // of objects that an open creates

}  // namespace

RawClient::RawClient(const std::string& socket_path)
    : Connection(qnx::NewManagerSocket().Release()) {
  const std::string path = std::getenv("HEADUNIT_ROOT") + socket_path;
  if (qnx::ConnectToManager(fd(), path.c_str()) != 0) Close();
}

RawClient::RawClient(const std::string& socket_path, const std::string& rest, int flags,
                     std::uint32_t kind)
    : RawClient(socket_path) {
  qnx::SendRequest(fd(), static_cast<qnx::RequestKind>(kind), static_cast<std::uint32_t>(flags),
                   kMode, rest);
  TakeAnswer();
}

int RawClient::TakeAnswer(milliseconds limit) {
  return answer_ = connected() && WaitReadable(fd(), limit) ? qnx::ReceiveAnswer(fd()) : -1;
}

bool RawClient::Send(const std::string& message) const {
  return send(fd(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
         static_cast<ssize_t>(message.size());
}

std::optional<std::string> RawClient::Receive(milliseconds limit) const {
  std::string message;
  if (!connected() || !WaitReadable(fd(), limit) || qnx::ReadMessage(fd(), &message) < 0) {
    return std::nullopt;
  }
  return message;
}

bool RawClient::AtEnd(milliseconds limit) const {
  const std::optional<std::string> message = Receive(limit);
  return message && message->empty();
}

std::string OpeningRequest(std::uint32_t kind, std::uint32_t flags, const std::string& rest) {
  const qnx::ManagerRequest request = {kind, flags, kMode};
  std::string message(sizeof(request), '\0');
  std::memcpy(&message[0], &request, sizeof(request));
  return message + rest;
}

RawClient OpenPps(const std::string& rest, int flags) { return RawClient(kPps, rest, flags); }
int AccessPps(const std::string& rest) { return RawClient(kPps, rest, F_OK, 2).answer(); }
int UnlinkPps(const std::string& rest) { return RawClient(kPps, rest, 0, 3).answer(); }

std::string PpsText(const std::string& rest) {
  const RawClient client = OpenPps(rest, O_RDONLY);
  if (client.answer() != 0) return "error " + std::to_string(client.answer());
  return client.Receive().value_or("nothing");
}

UnitTest::UnitTest() {
  options_.root = root_.path();
  options_.services = false;
}

UnitTest::~UnitTest() = default;

void UnitTest::SetUp() {
  unit_ = std::make_unique<headunit::Unit>(options_);
  ASSERT_EQ("", unit_->Start());
}

}  // namespace support
