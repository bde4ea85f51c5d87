#include "resource_manager.h"

#include <linux/sockios.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace headunit {
namespace {

// For a client that connects and says nothing.
const std::chrono::milliseconds kRequestTimeout{2000};
// Of one open file, before the others have their turn.
const int kMessagesPerTurn = 64;
const std::size_t kBytesPerTurn = 64 * 1024;
const int kMessagesPerBarrier = 1 << 17;  // of one open file: more than a socket's buffer holds

}  // namespace

ResourceManager::ResourceManager(EventLoop* loop, std::string path)
    : loop_(loop), listener_(loop, std::move(path), [this](platform::Descriptor socket) {
        TakeConnection(std::move(socket));
      }) {}

ResourceManager::~ResourceManager() = default;

std::string ResourceManager::Bind() {
  if (bound()) return "";
  std::string failure = listener_.Bind();
  if (failure.empty()) {
    loop_->poller().Add(file_poller_.fd(), EPOLLIN,
                        [this](std::uint32_t) { file_poller_.Dispatch(0); });
  }
  return failure;
}

void ResourceManager::Close() {
  if (!bound()) return;
  listener_.Close();
  loop_->poller().Remove(file_poller_.fd());
  while (!openings_.empty()) Drop(openings_.begin());
  while (!files_.empty()) CloseFile(files_.begin()->first);
}

void ResourceManager::SetStalled(bool stalled) {
  stalled_ = stalled;
  if (stalled_) return;
  for (auto opening = openings_.begin(); opening != openings_.end();) {
    const OpeningHandle current = opening++;
    if (current->answered_later && current->timer == 0) Drop(current);
  }
}

int ResourceManager::OnOpen(const std::string& rest, std::uint32_t flags,
                            std::unique_ptr<OpenFile>* file) {
  if (!rest.empty()) return ENOTDIR;
  *file = std::make_unique<OpenFile>(flags);
  return 0;
}

void ResourceManager::OnOpened(OpenFile*) {}
int ResourceManager::OnAccess(const std::string& rest, std::uint32_t) {
  return rest.empty() ? 0 : ENOTDIR;
}
int ResourceManager::OnUnlink(const std::string&) { return ENOSYS; }
void ResourceManager::OnClosed(OpenFile*) {}
std::chrono::milliseconds ResourceManager::Delay(const std::string&) {
  return std::chrono::milliseconds::zero();
}

// --- openings -----------------------------------------------------------------------------------

void ResourceManager::TakeConnection(platform::Descriptor socket) {
  const OpeningHandle opening = openings_.emplace(openings_.end());
  opening->socket = std::move(socket);
  if (TakeRequest(opening)) return;
  opening->timer = loop_->AddTimer(kRequestTimeout, [this, opening] { Drop(opening); });
  if (!WatchOpening(opening, EPOLLIN | EPOLLRDHUP)) Drop(opening);
}

bool ResourceManager::WatchOpening(OpeningHandle opening, std::uint32_t events) {
  const int fd = opening->socket.Get();
  loop_->poller().Remove(fd);
  return loop_->poller().Add(fd, events, [this, opening](std::uint32_t) {
    // Once the request was read, only the client's end is watched for.
    if (opening->answered_later) {
      Drop(opening);
    } else {
      TakeRequest(opening);
    }
  });
}

bool ResourceManager::TakeRequest(OpeningHandle opening) {
  const int error = qnx::ReceiveRequest(opening->socket.Get(), &opening->request);
  if (error == EAGAIN) return false;
  if (error == EPIPE) {
    Drop(opening);
    return true;
  }
  if (error != 0) {
    Answer(opening, error, nullptr);
    return true;
  }
  const std::chrono::milliseconds delay = Delay(opening->request.rest);
  if (!stalled_ && delay <= std::chrono::milliseconds::zero()) {
    Serve(opening);
    return true;
  }
  opening->answered_later = true;
  loop_->CancelTimer(opening->timer);
  opening->timer = stalled_ ? 0 : loop_->AddTimer(delay, [this, opening] { Serve(opening); });
  if (!WatchOpening(opening, EPOLLRDHUP)) Drop(opening);
  return true;
}

void ResourceManager::Serve(OpeningHandle opening) {
  Barrier();
  const qnx::OpeningRequest& request = opening->request;
  std::unique_ptr<OpenFile> file;
  int error = EINVAL;
  switch (request.kind) {
    case qnx::RequestKind::kOpen:
      error = OnOpen(request.rest, request.flags, &file);
      break;
    case qnx::RequestKind::kAccess:
      error = OnAccess(request.rest, request.flags);
      break;
    case qnx::RequestKind::kUnlink:
      error = OnUnlink(request.rest);
      break;
  }
  Answer(opening, error, std::move(file));
}

void ResourceManager::Answer(OpeningHandle opening, int error, std::unique_ptr<OpenFile> file) {
  platform::Descriptor socket = TakeSocket(opening);
  const bool sent = qnx::SendAnswer(socket.Get(), error);
  if (!file) return;

  OpenFile* const opened = file.get();
  const int fd = socket.Get();
  opened->Attach(std::move(socket), &file_poller_);
  files_.emplace(opened, std::move(file));
  const bool watched =
      sent && file_poller_.Add(fd, EPOLLIN | EPOLLRDHUP, [this, opened](std::uint32_t events) {
        OnFileEvent(opened, events);
      });
  OnOpened(opened);
  if (!watched) CloseFile(opened);
}

platform::Descriptor ResourceManager::TakeSocket(OpeningHandle opening) {
  loop_->CancelTimer(opening->timer);
  loop_->poller().Remove(opening->socket.Get());
  platform::Descriptor socket = std::move(opening->socket);
  openings_.erase(opening);
  return socket;
}

void ResourceManager::Drop(OpeningHandle opening) { TakeSocket(opening); }

// --- open files ---------------------------------------------------------------------------------

void ResourceManager::Barrier() {
  ++barrier_;
  in_barrier_ = true;
  barrier_complete_ = false;
  while (!barrier_complete_ && file_poller_.Dispatch(0) > 0) {
  }
  in_barrier_ = false;
  std::vector<OpenFile*> ended;
  ended.swap(ended_);
  for (OpenFile* const file : ended) CloseFile(file);
}

void ResourceManager::OnFileEvent(OpenFile* file, std::uint32_t events) {
  if ((events & EPOLLOUT) != 0) {
    file->outbox_.Flush();
    file->WatchQueue();
  }
  if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) == 0) return;
  bool open = true;
  if (!in_barrier_) {
    open = ReadFile(file, kBytesPerTurn, kMessagesPerTurn);
  } else if (file->barrier_ == barrier_) {
    // The poller takes the ready files in turn, so every ready file has been seen once.
    barrier_complete_ = true;
    WatchAgain(file);
  } else {
    file->barrier_ = barrier_;
    int waiting = 0;
    ioctl(file->socket_.Get(), SIOCINQ, &waiting);
    open = ReadFile(file, static_cast<std::size_t>(waiting), kMessagesPerBarrier);
  }
  if (open) return;
  // Messages that others sent before this end are taken in first.
  file_poller_.Remove(file->socket_.Get());
  ended_.push_back(file);
  if (!in_barrier_) Barrier();
}

bool ResourceManager::ReadFile(OpenFile* file, std::size_t bytes, int messages) {
  const int fd = file->socket_.Get();
  std::size_t taken_bytes = 0;
  for (int count = 0; count < messages && taken_bytes <= bytes; ++count) {
    const ssize_t size = recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    if (size < 0) {
      if (errno == EAGAIN) return true;
      // The client left with text unread; what it wrote before comes behind this.
      if (errno == ECONNRESET || errno == EINTR) continue;
      return false;
    }
    buffer_.resize(static_cast<std::size_t>(size));
    const ssize_t taken = recv(fd, &buffer_[0], buffer_.size(), MSG_DONTWAIT);
    if (taken == 0 && qnx::HungUp(fd)) {
      int left = 0;
      if (ioctl(fd, SIOCINQ, &left) != 0 || left == 0) return false;
      continue;  // an empty message in front of others
    }
    if (taken < 0) continue;
    taken_bytes += buffer_.size();
    OnMessage(file, buffer_);
  }
  WatchAgain(file);
  return true;
}

// More may wait, and the edge for it may have been taken already.
void ResourceManager::WatchAgain(OpenFile* file) {
  if (!file->watching_) return;
  file->watching_ = false;
  file->WatchQueue();
}

void ResourceManager::CloseFile(OpenFile* file) {
  const auto entry = files_.find(file);
  if (entry == files_.end()) return;
  const std::unique_ptr<OpenFile> owned = std::move(entry->second);
  files_.erase(entry);
  OnClosed(owned.get());
}

}  // namespace headunit
