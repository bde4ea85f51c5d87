#include "open_file.h"

#include <sys/epoll.h>

namespace headunit {
namespace {

const std::uint32_t kReadEvents = EPOLLIN | EPOLLRDHUP;

// By edges, because the socket may well have room while the outbox's window does not.
const std::uint32_t kQueueEvents = kReadEvents | EPOLLOUT | EPOLLET;

}  // namespace

void OpenFile::Send(const std::string& message) {
  outbox_.Push(message);
  WatchQueue();
}

void OpenFile::Send(const SharedText& message) {
  outbox_.Push(message);
  WatchQueue();
}

bool OpenFile::SendWithin(const std::string& message, std::size_t limit) {
  if (outbox_.Queued() > limit) return false;
  Send(message);
  return true;
}

void OpenFile::WatchQueue() {
  if (poller_ == nullptr || watching_ != outbox_.idle()) return;
  watching_ = !watching_;
  poller_->Modify(socket_.Get(), watching_ ? kQueueEvents : kReadEvents);
}

void OpenFile::Attach(platform::Descriptor socket, Poller* poller) {
  socket_ = std::move(socket);
  poller_ = poller;
  outbox_.Attach(socket_.Get());
}

void OpenFile::Detach() {
  if (poller_ != nullptr) poller_->Remove(socket_.Get());
  poller_ = nullptr;
  socket_.Reset();
}

}  // namespace headunit
