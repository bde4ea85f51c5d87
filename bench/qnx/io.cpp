#include "platform/io.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>

#include "deadline.h"
#include "qnx/manager_socket.h"
#include "qnx/remove.h"
#include "resolve.h"

namespace platform {
namespace {

using qnx::NowMs;
using qnx::WaitAgain;

// Connecting may take so long before it is counted against the wait for the answer.
const int kLatenessMs = 50;

bool LimitWait(int fd, int option, long ms) {
  const timeval limit = {ms / 1000, (ms % 1000) * 1000};
  return ::setsockopt(fd, SOL_SOCKET, option, &limit, sizeof(limit)) == 0;
}

bool LimitWaits(int fd) {
  return LimitWait(fd, SO_RCVTIMEO, kManagerTimeoutMs) &&
         LimitWait(fd, SO_SNDTIMEO, kManagerTimeoutMs);
}

// For a call that was interrupted: limits its next wait to the time left until `deadline`; false
// when none is left.
bool LimitWaitUntil(int fd, int option, std::int64_t deadline) {
  const long left = static_cast<long>(deadline - NowMs());
  return left > 0 && LimitWait(fd, option, left);
}

// The manager's answer, an error number, until `deadline` of NowMs; EIO when it gives none.
int TakeAnswer(int fd, std::int64_t deadline) {
  const long left = static_cast<long>(deadline - NowMs());
  // The connection's own limit does unless connecting took its time.
  const bool late = left < kManagerTimeoutMs - kLatenessMs;
  if (late && (left <= 0 || !LimitWait(fd, SO_RCVTIMEO, left))) return EIO;
  int answer = qnx::ReceiveAnswer(fd);
  while (answer < 0 && errno == EINTR && WaitAgain(fd, POLLIN, deadline)) {
    answer = qnx::ReceiveAnswer(fd, MSG_DONTWAIT);
  }
  if (late && !LimitWaits(fd)) return EIO;
  return answer >= 0 ? answer : EIO;
}

// Asks the manager of `target` for the rest of the path. Returns the connection when it is granted,
// -1 with errno otherwise.
int Ask(const qnx::ResolvedPath& target, qnx::RequestKind kind, int flags, mode_t mode) {
  const std::int64_t deadline = NowMs() + kManagerTimeoutMs;
  platform::Descriptor connection = qnx::NewManagerSocket();
  if (!connection.IsOpen() || !LimitWaits(connection.Get())) return -1;
  bool interrupted = false;
  while (qnx::ConnectToManager(connection.Get(), target.path) != 0) {
    if (errno == EINTR && LimitWaitUntil(connection.Get(), SO_SNDTIMEO, deadline)) {
      interrupted = true;
      continue;
    }
    // The manager does not listen, or does not accept.
    if (errno == ECONNREFUSED || errno == EAGAIN || errno == EINPROGRESS || errno == EINTR) {
      errno = EIO;
    }
    return -1;
  }
  if (interrupted && !LimitWaits(connection.Get())) return -1;

  // Into an empty queue, so it never waits.
  if (!qnx::SendRequest(connection.Get(), kind, static_cast<std::uint32_t>(flags),
                        static_cast<std::uint32_t>(mode), target.rest)) {
    errno = EIO;
    return -1;
  }
  const int error = TakeAnswer(connection.Get(), deadline);
  if (error != 0) {
    errno = error;
    return -1;
  }
  return connection.Release();
}

// Asks and closes the connection: for requests that end with their answer.
int AskOnly(const qnx::ResolvedPath& target, qnx::RequestKind kind, int flags) {
  const platform::Descriptor connection(Ask(target, kind, flags, 0));
  return connection.IsOpen() ? 0 : -1;
}

}  // namespace

int open(const char* path, int oflag, mode_t mode) {
  qnx::ResolvedPath target;
  if (!qnx::Resolve(path, &target)) return -1;
  if (target.rest != nullptr) return Ask(target, qnx::RequestKind::kOpen, oflag, mode);
  return ::open(target.path, oflag | O_CLOEXEC, mode);
}

int access(const char* path, int mode) {
  qnx::ResolvedPath target;
  if (!qnx::Resolve(path, &target)) return -1;
  if (target.rest != nullptr) return AskOnly(target, qnx::RequestKind::kAccess, mode);
  return ::access(target.path, mode);
}

ssize_t read(int fd, void* data, std::size_t size) {
  const std::int64_t deadline = NowMs() + kManagerTimeoutMs;
  ssize_t received = ::recv(fd, data, size, MSG_TRUNC);
  while (received < 0 && errno == EINTR && WaitAgain(fd, POLLIN, deadline)) {
    received = ::recv(fd, data, size, MSG_TRUNC | MSG_DONTWAIT);
  }
  if (received < 0 && errno == ENOTSOCK) return ::read(fd, data, size);
  return received;
}

ssize_t write(int fd, const void* data, std::size_t size) {
  const std::int64_t deadline = NowMs() + kManagerTimeoutMs;
  ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR && WaitAgain(fd, POLLOUT, deadline)) {
    sent = ::send(fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
  }
  if (sent < 0 && errno == ENOTSOCK) return ::write(fd, data, size);
  return sent;
}

}  // namespace platform

namespace qnx {

int Remove(const char* path) {
  ResolvedPath target;
  if (!Resolve(path, &target)) return -1;
  if (target.rest != nullptr) return platform::AskOnly(target, RequestKind::kUnlink, 0);
  return ::unlink(target.path);
}

}  // namespace qnx
