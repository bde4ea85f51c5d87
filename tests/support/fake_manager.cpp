#include "support/fake_manager.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace support {
namespace {

const int kQueue = 8;  // connections that wait to be accepted

}  // namespace

std::optional<Bytes> Connection::Receive(milliseconds limit) const {
  std::string message;
  if (!WaitReadable(fd(), limit) || qnx::ReadMessage(fd(), &message) <= 0) return std::nullopt;
  return Text(message);
}

void Connection::Send(const Bytes& message) const {
  EXPECT_EQ(::send(fd(), message.data(), message.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(message.size()))
      << std::strerror(errno);
}

void Connection::Answer(std::int32_t error) const {
  EXPECT_TRUE(qnx::SendAnswer(fd(), error)) << std::strerror(errno);
}

FakeManager::FakeManager(const TempRoot& root, const std::string& path)
    : path_(root.path() + path), socket_(qnx::NewManagerSocket()) {
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
  ::unlink(path_.c_str());
  if (qnx::ListenAt(socket_.Get(), path_.c_str(), kQueue) != 0) {
    ADD_FAILURE() << path_ << ": " << std::strerror(errno);
  }
}

FakeManager::~FakeManager() { ::unlink(path_.c_str()); }

std::optional<FakeManager::Opening> FakeManager::Accept(milliseconds limit) {
  if (!WaitReadable(socket_.Get(), limit)) return std::nullopt;
  Opening opening{{}, Connection(::accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC))};
  // The limit is for a connection: a client that has connected sends its request soon.
  if (!WaitReadable(opening.connection.fd(), kSoon)) return std::nullopt;
  if (qnx::ReceiveRequest(opening.connection.fd(), &opening.request) != 0) return std::nullopt;
  return opening;
}

Connection FakeManager::Grant(milliseconds limit) {
  std::optional<Opening> opening = Accept(limit);
  if (!opening) {
    ADD_FAILURE() << "no client opened " << path_;
    return Connection();
  }
  opening->connection.Answer(0);
  return std::move(opening->connection);
}

}  // namespace support
