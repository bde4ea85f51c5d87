#include "support/fake_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace support {
namespace {

const int kWaitingClients = 8;

}  // namespace

std::optional<Bytes> Connection::Receive(milliseconds limit) const {
  if (!WaitReadable(fd_, limit)) return std::nullopt;
  Bytes message(2 * wire::kMaxPacket);
  const ssize_t count = ::recv(fd_, message.data(), message.size(), 0);
  if (count <= 0) return std::nullopt;
  message.resize(static_cast<std::size_t>(count));
  return message;
}

void Connection::Send(const Bytes& message) const {
  EXPECT_EQ(::send(fd_, message.data(), message.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(message.size()))
      << std::strerror(errno);
}

void Connection::Answer(std::int32_t error) const {
  Send(std::string(reinterpret_cast<const char*>(&error), sizeof(error)));
}

void Connection::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

FakeManager::FakeManager(const TempRoot& root, const std::string& path)
    : path_(root.path() + path), fd_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
  const std::filesystem::path host = path_;
  std::filesystem::create_directories(host.parent_path());
  const int directory = ::open(host.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  const std::string name =
      "/proc/self/fd/" + std::to_string(directory) + "/" + host.filename().string();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ::unlink(path_.c_str());
  std::strncpy(address.sun_path, name.c_str(), sizeof(address.sun_path) - 1);
  if (::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      ::listen(fd_, kWaitingClients) != 0) {
    ADD_FAILURE() << path_ << ": " << std::strerror(errno);
  }
  ::close(directory);
}

FakeManager::~FakeManager() {
  ::close(fd_);
  ::unlink(path_.c_str());
}

std::optional<FakeManager::Opening> FakeManager::Accept(milliseconds limit) {
  if (!WaitReadable(fd_, limit)) return std::nullopt;
  Connection connection(::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
  const std::optional<Bytes> message = connection.Receive();
  if (!message || message->size() < sizeof(qnx::ManagerRequest)) return std::nullopt;
  qnx::ManagerRequest request;
  std::memcpy(&request, message->data(), sizeof(request));
  return Opening{request, std::string(message->begin() + sizeof(request), message->end()),
                 std::move(connection)};
}

Connection FakeManager::Grant(milliseconds limit) {
  std::optional<Opening> opening = Accept(limit);
  if (!opening) {
    ADD_FAILURE() << "nobody opened " << path_;
    return Connection(-1);
  }
  opening->connection.Answer(0);
  return std::move(opening->connection);
}

}  // namespace support
