#include "outbox.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>

#include "log.h"

namespace headunit {
namespace {

const std::size_t kSocketOverhead = 64;       // what the host takes of a buffer beside the message
const std::size_t kLargestBuffer = 1U << 30;  // the host's size is an int and gets doubled

// Makes room for a message of `size` bytes in the socket's buffer, as far as the host permits.
void GrowBuffer(int fd, std::size_t size) {
  const int wanted = static_cast<int>(std::min(size + kSocketOverhead, kLargestBuffer));
  if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof(wanted)) == 0) return;
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted));
}

void ComplainOnce(std::size_t size, std::size_t sent) {
  static std::atomic_flag complained = ATOMIC_FLAG_INIT;
  if (complained.test_and_set()) return;
  Log(_SLOG_ERROR, "a text of %zu bytes does not fit a message of this host: cut to %zu", size,
      sent);
}

ssize_t SendNow(int fd, const char* data, std::size_t size) {
  ssize_t result;
  do {
    result = send(fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (result < 0 && errno == EINTR);
  return result;
}

}  // namespace

void Outbox::Push(const std::string& message) {
  if (!SendFirst(message)) Enqueue(Share(message));
}

void Outbox::Push(const SharedText& message) {
  if (!SendFirst(*message)) Enqueue(message);
}

// True when `message` needs no place in the queue.
bool Outbox::SendFirst(const std::string& message) {
  return broken_ || ending_ || (queue_.empty() && Send(message));
}

void Outbox::Enqueue(SharedText message) {
  queued_ += message->size();
  queue_.push_back(std::move(message));
}

void Outbox::Supersede(Maker make) {
  DropQueue();
  if (broken_ || ending_) return;
  make_ = std::move(make);
  Flush();
}

void Outbox::DropQueue() {
  queue_.clear();
  queued_ = 0;
  make_ = nullptr;
}

void Outbox::Flush() {
  if (superseded() && Unread() == 0 && Send(make_())) make_ = nullptr;
  while (!queue_.empty() && Send(*queue_.front())) {
    if (queue_.empty()) break;  // a reader that left has emptied it
    queued_ -= queue_.front()->size();
    queue_.pop_front();
  }
  if (idle() && ending_) shutdown(fd_, SHUT_WR);
}

void Outbox::End() {
  ending_ = true;
  Flush();
}

std::size_t Outbox::Waiting() { return Unread() + queued_; }

std::size_t Outbox::Unread() {
  int held = 0;  // the host's own count, which includes its overhead
  if (ioctl(fd_, SIOCOUTQ, &held) != 0 || held <= 0) sent_ = 0;
  return std::min(sent_, static_cast<std::size_t>(std::max(held, 0)));
}

bool Outbox::Send(const std::string& message) {
  const std::size_t unread = Unread();
  if (unread != 0 && unread + message.size() > window_) return false;

  ssize_t result = SendNow(fd_, message.data(), message.size());
  if (result < 0 && errno == EMSGSIZE) {
    GrowBuffer(fd_, message.size());
    result = SendNow(fd_, message.data(), message.size());
  }
  if (result >= 0) {
    sent_ += message.size();
    return true;
  }
  if (errno == EAGAIN) return false;
  if (errno == EMSGSIZE || errno == ENOBUFS || errno == ENOMEM) return SendCut(message);
  Break();
  return true;
}

bool Outbox::SendCut(const std::string& message) {
  int buffer = 0;
  socklen_t length = sizeof(buffer);
  getsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &buffer, &length);
  std::size_t size = std::min(message.size() - 1, static_cast<std::size_t>(std::max(buffer, 0)));
  for (; size > 0; size /= 2) {
    const std::size_t line_end = message.rfind('\n', size - 1);
    if (line_end == std::string::npos) break;
    if (SendNow(fd_, message.data(), line_end + 1) >= 0) {
      sent_ += line_end + 1;
      ComplainOnce(message.size(), line_end + 1);
      return true;
    }
    if (errno == EAGAIN) return false;
    if (errno == EPIPE || errno == ECONNRESET) {
      Break();
      return true;
    }
  }
  ComplainOnce(message.size(), 0);
  return true;
}

// The socket stays open: messages of the reader from before its end can still be read.
void Outbox::Break() {
  broken_ = true;
  DropQueue();
}

}  // namespace headunit
