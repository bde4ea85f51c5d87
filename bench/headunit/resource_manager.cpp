#include "resource_manager.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "log.h"
#include "qnx/manager_protocol.h"

namespace headunit {
namespace {

const std::chrono::milliseconds kRequestTimeout{
    2000};                                         // for a client that connects and says nothing
const std::chrono::milliseconds kAcceptPause{50};  // when the host has no descriptor left
const int kAcceptsPerTurn = 64;
// Of one open file, before the others have their turn.
const int kMessagesPerTurn = 64;
const std::size_t kBytesPerTurn = 64 * 1024;
const int kMessagesPerBarrier = 1 << 17;  // of one open file: more than a socket's buffer holds
const std::size_t kRequestHead = sizeof(qnx::ManagerRequest);
const std::size_t kLargestRequest = kRequestHead + PATH_MAX;

// A socket address for a path of any length. The descriptor of the directory is needed until the
// address has been used.
struct Address {
  sockaddr_un name;
  UniqueFd directory;
};

bool MakeAddress(const std::string& path, Address* address) {
  std::memset(&address->name, 0, sizeof(address->name));
  address->name.sun_family = AF_UNIX;
  std::string text = path;
  if (text.size() >= sizeof(address->name.sun_path)) {
    const std::filesystem::path whole(path);
    address->directory.Reset(open(whole.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!address->directory.valid()) return false;
    text = "/proc/self/fd/" + std::to_string(address->directory.get()) + "/" +
           whole.filename().string();
    if (text.size() >= sizeof(address->name.sun_path)) {
      errno = ENAMETOOLONG;
      return false;
    }
  }
  std::memcpy(address->name.sun_path, text.c_str(), text.size() + 1);
  return true;
}

const sockaddr* AsSockaddr(const Address& address) {
  return reinterpret_cast<const sockaddr*>(&address.name);
}

UniqueFd NewSocket() {
  return UniqueFd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool HungUp(int fd) {
  pollfd entry = {fd, POLLRDHUP, 0};
  return poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP)) != 0;
}

}  // namespace

ResourceManager::ResourceManager(EventLoop* loop, std::string path)
    : loop_(loop), path_(std::move(path)) {}

ResourceManager::~ResourceManager() = default;

std::string ResourceManager::Bind() {
  if (bound()) return "";
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), error);
  if (error) return path_ + ": " + error.message();

  const std::string failure = PrepareSocket();
  if (!failure.empty()) {
    listener_.Reset();
    return path_ + ": " + failure;
  }
  WatchListener();
  loop_->poller().Add(file_poller_.fd(), EPOLLIN,
                      [this](std::uint32_t) { file_poller_.Dispatch(0); });
  return "";
}

std::string ResourceManager::PrepareSocket() {
  Address address;
  if (!MakeAddress(path_, &address)) return std::strerror(errno);

  struct stat there;
  if (lstat(path_.c_str(), &there) == 0) {
    if (!S_ISSOCK(there.st_mode)) return "something else lies there";
    const UniqueFd probe = NewSocket();
    const int result = connect(probe.get(), AsSockaddr(address), sizeof(address.name));
    if (result == 0 || errno != ECONNREFUSED) return "a running unit serves it";
    unlink(path_.c_str());
  }

  listener_ = NewSocket();
  if (!listener_.valid() || bind(listener_.get(), AsSockaddr(address), sizeof(address.name)) != 0) {
    return std::strerror(errno);
  }
  if (listen(listener_.get(), SOMAXCONN) != 0) {
    std::string reason = std::strerror(errno);
    unlink(path_.c_str());
    return reason;
  }
  return "";
}

void ResourceManager::Close() {
  if (!bound()) return;
  unlink(path_.c_str());
  loop_->CancelTimer(accept_timer_);
  accept_timer_ = 0;
  loop_->poller().Remove(listener_.get());
  loop_->poller().Remove(file_poller_.fd());
  listener_.Reset();
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

void ResourceManager::OnOpened(OpenFile*) {}
int ResourceManager::OnAccess(const std::string& rest, std::uint32_t) {
  return rest.empty() ? 0 : ENOTDIR;
}
int ResourceManager::OnUnlink(const std::string&) { return ENOSYS; }
void ResourceManager::OnClosed(OpenFile*) {}
std::chrono::milliseconds ResourceManager::Delay(const std::string&) {
  return std::chrono::milliseconds::zero();
}
void ResourceManager::OnWritable(OpenFile* file) { file->outbox_.Flush(); }

// --- openings -----------------------------------------------------------------------------------

void ResourceManager::WatchListener() {
  accept_timer_ = 0;
  loop_->poller().Add(listener_.get(), EPOLLIN, [this](std::uint32_t) { Accept(); });
}

void ResourceManager::Accept() {
  for (int count = 0; count < kAcceptsPerTurn; ++count) {
    UniqueFd socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.valid()) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno == EAGAIN) return;
      // No descriptor or memory left: the clients wait in the listener's queue.
      loop_->poller().Remove(listener_.get());
      accept_timer_ = loop_->AddTimer(kAcceptPause, [this] { WatchListener(); });
      return;
    }
    const OpeningHandle opening = openings_.emplace(openings_.end());
    opening->socket = std::move(socket);
    if (TakeRequest(opening)) continue;
    opening->timer = loop_->AddTimer(kRequestTimeout, [this, opening] { Drop(opening); });
    if (!WatchOpening(opening, EPOLLIN | EPOLLRDHUP)) Drop(opening);
  }
}

bool ResourceManager::WatchOpening(OpeningHandle opening, std::uint32_t events) {
  const int fd = opening->socket.get();
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
  const int error = ReadRequest(&*opening);
  if (error == EAGAIN) return false;
  if (error == EPIPE) {
    Drop(opening);
    return true;
  }
  if (error != 0) {
    Answer(opening, error, nullptr);
    return true;
  }
  const std::chrono::milliseconds delay = Delay(opening->rest);
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

int ResourceManager::ReadRequest(Opening* opening) {
  char message[kLargestRequest];
  const ssize_t size =
      recv(opening->socket.get(), message, sizeof(message), MSG_DONTWAIT | MSG_TRUNC);
  if (size < 0) return errno == EAGAIN || errno == EINTR ? EAGAIN : EPIPE;
  if (size == 0 && HungUp(opening->socket.get())) return EPIPE;
  const std::size_t length = static_cast<std::size_t>(size);
  if (length < kRequestHead) return EINVAL;
  if (length >= sizeof(message)) return ENAMETOOLONG;

  qnx::ManagerRequest request;
  std::memcpy(&request, message, sizeof(request));
  opening->kind = request.kind;
  opening->flags = request.flags;
  opening->rest.assign(message + kRequestHead, length - kRequestHead);
  return opening->rest.find('\0') == std::string::npos ? 0 : EINVAL;
}

void ResourceManager::Serve(OpeningHandle opening) {
  Barrier();
  std::unique_ptr<OpenFile> file;
  int error = EINVAL;
  switch (static_cast<qnx::RequestKind>(opening->kind)) {
    case qnx::RequestKind::kOpen:
      error = OnOpen(opening->rest, opening->flags, &file);
      break;
    case qnx::RequestKind::kAccess:
      error = OnAccess(opening->rest, opening->flags);
      break;
    case qnx::RequestKind::kUnlink:
      error = OnUnlink(opening->rest);
      break;
  }
  Answer(opening, error, std::move(file));
}

void ResourceManager::Answer(OpeningHandle opening, int error, std::unique_ptr<OpenFile> file) {
  UniqueFd socket = TakeSocket(opening);
  const std::int32_t answer = error;
  const bool sent = send(socket.get(), &answer, sizeof(answer), MSG_NOSIGNAL | MSG_DONTWAIT) ==
                    static_cast<ssize_t>(sizeof(answer));
  if (!file) return;

  OpenFile* const opened = file.get();
  const int fd = socket.get();
  opened->Attach(std::move(socket), &file_poller_);
  files_.emplace(opened, std::move(file));
  const bool watched =
      sent && file_poller_.Add(fd, EPOLLIN | EPOLLRDHUP, [this, opened](std::uint32_t events) {
        OnFileEvent(opened, events);
      });
  OnOpened(opened);
  if (!watched) CloseFile(opened);
}

UniqueFd ResourceManager::TakeSocket(OpeningHandle opening) {
  loop_->CancelTimer(opening->timer);
  loop_->poller().Remove(opening->socket.get());
  UniqueFd socket = std::move(opening->socket);
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
    OnWritable(file);
    file->WatchQueue();
  }
  if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) == 0) return;
  bool open = true;
  if (!in_barrier_) {
    open = ReadFile(file, kBytesPerTurn, kMessagesPerTurn);
  } else if (file->barrier_ == barrier_) {
    // The poller goes through what is ready in turn, so it is once around.
    barrier_complete_ = true;
    WatchAgain(file);
  } else {
    file->barrier_ = barrier_;
    int waiting = 0;
    ioctl(file->socket_.get(), SIOCINQ, &waiting);
    open = ReadFile(file, static_cast<std::size_t>(waiting), kMessagesPerBarrier);
  }
  if (open) return;
  // What others sent before this end is taken in before it.
  file_poller_.Remove(file->socket_.get());
  ended_.push_back(file);
  if (!in_barrier_) Barrier();
}

bool ResourceManager::ReadFile(OpenFile* file, std::size_t bytes, int messages) {
  const int fd = file->socket_.get();
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
    if (taken == 0 && HungUp(fd)) {
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
