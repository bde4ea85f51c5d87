#include "qnx/manager_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <climits>
#include <cstdio>
#include <cstring>

namespace qnx {
namespace {

const std::size_t kRequestHead = sizeof(ManagerRequest);
const std::size_t kLargestRequest = kRequestHead + PATH_MAX;
const std::size_t kFilePart = 65536;  // of a plain file, which has no messages

// Puts `path`, seen from the directory or socket `at` when it is too long itself, into *address.
bool FormAddress(const char* path, const platform::Descriptor& at, const char* name,
                 sockaddr_un* address) {
  std::memset(address, 0, sizeof(*address));
  address->sun_family = AF_UNIX;
  const std::size_t room = sizeof(address->sun_path);
  const int length =
      at.IsOpen() ? std::snprintf(address->sun_path, room, "/proc/self/fd/%d%s", at.Get(), name)
                  : std::snprintf(address->sun_path, room, "%s", path);
  if (length >= 0 && static_cast<std::size_t>(length) < room) return true;
  errno = ENAMETOOLONG;
  return false;
}

bool FitsAnAddress(const char* path) { return std::strlen(path) < sizeof(sockaddr_un::sun_path); }

const sockaddr* AsSockaddr(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

platform::Descriptor NewManagerSocket(int flags) {
  return platform::Descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

int ConnectToManager(int fd, const char* path) {
  platform::Descriptor target;
  if (!FitsAnAddress(path)) {
    target.Reset(::open(path, O_PATH | O_CLOEXEC));
    if (!target.IsOpen()) return -1;
  }
  sockaddr_un address;
  if (!FormAddress(path, target, "", &address)) return -1;
  return ::connect(fd, AsSockaddr(address), sizeof(address));
}

bool SendRequest(int fd, RequestKind kind, std::uint32_t flags, std::uint32_t mode,
                 std::string_view rest) {
  ManagerRequest request{static_cast<std::uint32_t>(kind), flags, mode};
  iovec parts[2] = {{&request, sizeof(request)}, {const_cast<char*>(rest.data()), rest.size()}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  return ::sendmsg(fd, &message, MSG_NOSIGNAL) >= 0;
}

int ReceiveAnswer(int fd, int flags) {
  std::int32_t answer = 0;
  const ssize_t received = ::recv(fd, &answer, sizeof(answer), MSG_TRUNC | flags);
  if (received == static_cast<ssize_t>(sizeof(answer)) && answer >= 0) return answer;
  if (received >= 0) errno = 0;
  return -1;
}

int ListenAt(int fd, const char* path, int backlog) {
  platform::Descriptor directory;
  const char* const name = std::strrchr(path, '/');
  if (!FitsAnAddress(path) && name != nullptr) {
    directory.Reset(::open(std::string(path, name).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory.IsOpen()) return -1;
  }
  sockaddr_un address;
  if (!FormAddress(path, directory, name, &address)) return -1;
  if (::bind(fd, AsSockaddr(address), sizeof(address)) != 0) return -1;
  if (::listen(fd, backlog) == 0) return 0;
  const int saved = errno;
  ::unlink(path);
  errno = saved;
  return -1;
}

int ReceiveRequest(int fd, OpeningRequest* request) {
  char message[kLargestRequest];
  const ssize_t size = ::recv(fd, message, sizeof(message), MSG_DONTWAIT | MSG_TRUNC);
  if (size < 0) return errno == EAGAIN || errno == EINTR ? EAGAIN : EPIPE;
  if (size == 0 && HungUp(fd)) return EPIPE;
  const auto length = static_cast<std::size_t>(size);
  if (length < kRequestHead) return EINVAL;
  if (length >= sizeof(message)) return ENAMETOOLONG;

  ManagerRequest head;
  std::memcpy(&head, message, sizeof(head));
  request->kind = static_cast<RequestKind>(head.kind);
  request->flags = head.flags;
  request->mode = head.mode;
  request->rest.assign(message + kRequestHead, length - kRequestHead);
  return request->rest.find('\0') == std::string::npos ? 0 : EINVAL;
}

bool SendAnswer(int fd, int error) {
  const std::int32_t answer = error;
  return ::send(fd, &answer, sizeof(answer), MSG_NOSIGNAL | MSG_DONTWAIT) ==
         static_cast<ssize_t>(sizeof(answer));
}

int ReadMessage(int fd, std::string* message) {
  ssize_t size = ::recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
  // Reported once when the other side closed with unread messages; what it sent is still there.
  if (size < 0 && errno == ECONNRESET) size = ::recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
  if (size < 0) {
    if (errno != ENOTSOCK) return -1;
    size = static_cast<ssize_t>(kFilePart);
  }
  message->resize(size > 0 ? static_cast<std::size_t>(size) : 1);
  ssize_t taken;
  do {
    taken = ::read(fd, message->data(), message->size());
  } while (taken < 0 && errno == EINTR);
  if (taken < 0) return -1;
  message->resize(static_cast<std::size_t>(taken));
  return taken > 0 ? 1 : 0;
}

bool HungUp(int fd) {
  pollfd entry = {fd, POLLRDHUP, 0};
  return ::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP)) != 0;
}

}  // namespace qnx
