#include "qnx/syslog_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "deadline.h"

namespace qnx {
namespace {

const long kPatienceMs = 100;
const long kRetryMs = 1000;
const std::size_t kLongestLine = 1024;  // with what stands in front of the text
const std::size_t kTimeSize = 32;       // "Nov 23 14:26:38" with its end, and room
const std::size_t kNoteSize = 64;       // a number of 20 digits and 38 characters, with its end

}  // namespace

void SyslogClient::Send(int priority, const char* text, std::size_t length) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!socket_.IsOpen() && !Connect()) {
    ++dropped_;
    return;
  }
  if (dropped_ > 0) {
    char note[kNoteSize];
    const int size = std::snprintf(note, sizeof(note), "%llu lines lost: the log did not take them",
                                   static_cast<unsigned long long>(dropped_));
    if (Put(LOG_ERR, note, static_cast<std::size_t>(size))) dropped_ = 0;
  }
  if (dropped_ > 0 || !Put(priority, text, length)) ++dropped_;
}

bool SyslogClient::Connect() {
  const std::int64_t now = NowMs();
  if (now < next_attempt_) return false;
  next_attempt_ = now + kRetryMs;
  stuck_ = false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t length = std::strlen(path_);
  if (length >= sizeof(address.sun_path)) return false;
  std::memcpy(address.sun_path, path_, length + 1);
  platform::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    return false;
  }
  socket_ = std::move(socket);
  return true;
}

// False when the line was not taken.
bool SyslogClient::Put(int priority, const char* text, std::size_t length) {
  if (!socket_.IsOpen()) return false;
  char line[kLongestLine];
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  char when[kTimeSize] = "";
  std::strftime(when, sizeof(when), "%b %e %T", &parts);
  const int wanted =
      std::snprintf(line, sizeof(line), "<%d>%s %s[%d]: %.*s", priority | LOG_USER, when,
                    program_invocation_short_name, ::getpid(), static_cast<int>(length), text);
  const std::size_t size = static_cast<std::size_t>(wanted) < sizeof(line)
                               ? static_cast<std::size_t>(wanted)
                               : sizeof(line) - 1;
  ssize_t sent = ::send(socket_.Get(), line, size, MSG_NOSIGNAL);
  if (sent < 0 && errno == EAGAIN && !stuck_) {
    stuck_ = true;
    if (WaitAgain(socket_.Get(), POLLOUT, NowMs() + kPatienceMs)) {
      sent = ::send(socket_.Get(), line, size, MSG_NOSIGNAL);
    }
  }
  if (sent >= 0) {
    stuck_ = false;
    return true;
  }
  if (errno != EAGAIN) socket_.Reset();  // the daemon is gone
  return false;
}

}  // namespace qnx
