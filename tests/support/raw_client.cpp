#include "support/raw_client.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "qnx/manager_protocol.h"

namespace support {
const char kPps[] = "/pps";

RawClient::RawClient(const std::string& socket_path)
    : Connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
  const std::string path = std::getenv("HEADUNIT_ROOT") + socket_path;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const int target = open(path.c_str(), O_PATH | O_CLOEXEC);
  const std::string short_path = "/proc/self/fd/" + std::to_string(target);
  std::strcpy(address.sun_path, short_path.c_str());
  const int result = connect(fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  if (target >= 0) close(target);
  if (result != 0) Close();
}

RawClient::RawClient(const std::string& socket_path, const std::string& rest, int flags,
                     std::uint32_t kind)
    : RawClient(socket_path) {
  Send(OpeningRequest(kind, static_cast<std::uint32_t>(flags), rest));
  TakeAnswer();
}

int RawClient::TakeAnswer(milliseconds limit) {
  std::int32_t error = 0;
  const std::optional<std::string> message = Receive(limit);
  if (!message || message->size() != sizeof(error)) return answer_ = -1;
  std::memcpy(&error, message->data(), sizeof(error));
  return answer_ = error;
}

bool RawClient::Send(const std::string& message) const {
  return send(fd(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
         static_cast<ssize_t>(message.size());
}

std::optional<std::string> RawClient::Receive(milliseconds limit) const {
  if (!connected() || !WaitReadable(fd(), limit)) return std::nullopt;
  const ssize_t size = recv(fd(), nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
  if (size < 0) return std::nullopt;
  std::string message(static_cast<std::size_t>(size), '\0');
  if (recv(fd(), &message[0], message.size(), MSG_DONTWAIT) != size) return std::nullopt;
  return message;
}

bool RawClient::AtEnd(milliseconds limit) const {
  const std::optional<std::string> message = Receive(limit);
  return message && message->empty();
}

std::string OpeningRequest(std::uint32_t kind, std::uint32_t flags, const std::string& rest) {
  const qnx::ManagerRequest request = {kind, flags, 0666};
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
