#include "listener.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "qnx/manager_socket.h"

namespace headunit {
namespace {

const std::chrono::milliseconds kAcceptPause{50};  // when the host has no descriptor left
const int kAcceptsPerTurn = 64;

}  // namespace

Listener::Listener(EventLoop* loop, std::string path, Taker take)
    : loop_(loop), path_(std::move(path)), take_(std::move(take)) {}

std::string Listener::Bind() {
  if (bound()) return "";
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), error);
  if (error) return path_ + ": " + error.message();
  const std::string failure = Prepare();
  if (!failure.empty()) {
    socket_.Reset();
    return path_ + ": " + failure;
  }
  Watch();
  return "";
}

std::string Listener::Prepare() {
  struct stat there;
  if (lstat(path_.c_str(), &there) == 0) {
    if (!S_ISSOCK(there.st_mode)) return "something else lies there";
    const platform::Descriptor probe = qnx::NewManagerSocket(SOCK_NONBLOCK);
    const int result = qnx::ConnectToManager(probe.Get(), path_.c_str());
    if (result == 0 || errno != ECONNREFUSED) return "a running unit serves it";
    unlink(path_.c_str());
  }
  socket_ = qnx::NewManagerSocket(SOCK_NONBLOCK);
  if (!socket_.IsOpen() || qnx::ListenAt(socket_.Get(), path_.c_str(), SOMAXCONN) != 0) {
    return std::strerror(errno);
  }
  return "";
}

void Listener::Close() {
  if (!bound()) return;
  unlink(path_.c_str());
  loop_->CancelTimer(timer_);
  timer_ = 0;
  loop_->poller().Remove(socket_.Get());
  socket_.Reset();
}

void Listener::Watch() {
  timer_ = 0;
  loop_->poller().Add(socket_.Get(), EPOLLIN, [this](std::uint32_t) { Accept(); });
}

void Listener::Accept() {
  for (int count = 0; count < kAcceptsPerTurn; ++count) {
    platform::Descriptor connection(
        accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (connection.IsOpen()) {
      take_(std::move(connection));
      continue;
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    if (errno == EAGAIN) return;
    // No descriptor or memory left: the clients wait in the socket's queue.
    loop_->poller().Remove(socket_.Get());
    timer_ = loop_->AddTimer(kAcceptPause, [this] { Watch(); });
    return;
  }
}

}  // namespace headunit
