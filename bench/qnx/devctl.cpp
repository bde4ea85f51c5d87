#include <devctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "deadline.h"
#include "platform/io.h"
#include "qnx/manager_protocol.h"

namespace {

// Answers up to this size are received without allocation; every record of the unit's devices fits.
const std::size_t kInlineAnswer = 1024;

// Receives one answer: its error number, then up to `size` bytes at `data`. The number of data
// bytes goes to *received. Returns 0 or the reason why there is no answer.
int ReceiveAnswer(int fd, std::int64_t deadline, std::int32_t* error, void* data, std::size_t size,
                  std::size_t* received) {
  iovec parts[2] = {{error, sizeof(*error)}, {data, size}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  ssize_t count = ::recvmsg(fd, &message, 0);
  while (count < 0 && errno == EINTR && qnx::WaitAgain(fd, POLLIN, deadline)) {
    count = ::recvmsg(fd, &message, MSG_DONTWAIT);
  }
  if (count < static_cast<ssize_t>(sizeof(*error))) {
    // Late or garbled: what may still come must not be taken for the answer to a later request.
    ::shutdown(fd, SHUT_RDWR);
    return EIO;
  }
  *received = static_cast<std::size_t>(count) - sizeof(*error);
  return 0;
}

int Exchange(int fd, std::uint32_t dcmd, void* data, std::size_t size, char* answer) {
  const bool sends = (dcmd & DEVDIR_TO) != 0 && size > 0;
  qnx::DevctlRequest head{dcmd, static_cast<std::uint32_t>(size)};
  iovec parts[2] = {{&head, sizeof(head)}, {data, sends ? size : 0}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  const std::int64_t deadline = qnx::NowMs() + platform::kManagerTimeoutMs;
  ssize_t sent = ::sendmsg(fd, &message, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR && qnx::WaitAgain(fd, POLLOUT, deadline)) {
    sent = ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  }
  if (sent < 0) {
    if (errno == ENOTSOCK) return ENOTTY;
    return errno == EBADF ? EBADF : EIO;
  }

  const bool delivers = (dcmd & DEVDIR_FROM) != 0;
  std::int32_t error = 0;
  std::size_t received = 0;
  const int failure = ReceiveAnswer(fd, deadline, &error, answer, delivers ? size : 0, &received);
  if (failure != 0) return failure;
  if (error != 0 || !delivers) return error;
  if (received < size) return EIO;
  std::memcpy(data, answer, size);
  return 0;
}

}  // namespace

int devctl(int fd, int dcmd, void* data, std::size_t size, int* info) {
  const int saved = errno;
  if (info != nullptr) *info = 0;
  int result = ENOMEM;
  if (size <= kInlineAnswer) {
    char answer[kInlineAnswer];
    result = Exchange(fd, static_cast<std::uint32_t>(dcmd), data, size, answer);
  } else if (char* answer = new (std::nothrow) char[size]) {
    result = Exchange(fd, static_cast<std::uint32_t>(dcmd), data, size, answer);
    delete[] answer;
  }
  errno = saved;
  return result;
}
