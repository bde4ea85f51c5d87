#include "tools/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace tools {

struct Interrupt::Mask {
  sigset_t set;
};

void PrepareProgram() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest free number is this one. Opened the wrong way round, so that writing still fails.
    if (::open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY) < 0) return;
  }
  ::signal(SIGPIPE, SIG_IGN);
}

int FinishProgram(std::ostream& out, int status) {
  out.flush();
  if (out.good()) return status;
  return status == kExitRight ? kExitWrong : status;
}

Interrupt::Interrupt() : saved_(new Mask) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &set, &saved_->set);
  signals_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

Interrupt::~Interrupt() {
  Pending();  // a signal that was asked for is not delivered a second time
  if (signals_ >= 0) ::close(signals_);
  ::pthread_sigmask(SIG_SETMASK, &saved_->set, nullptr);
}

bool Interrupt::Pending() {
  signalfd_siginfo info;
  while (::read(signals_, &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
    pending_ = true;
  }
  return pending_;
}

bool Interrupt::Wait(int fd, int milliseconds) {
  if (Pending()) return false;
  const auto start = std::chrono::steady_clock::now();
  pollfd files[2] = {{signals_, POLLIN, 0}, {fd, POLLIN, 0}};
  while (true) {
    int rest = -1;
    if (milliseconds >= 0) {
      const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now() - start);
      rest = passed.count() >= milliseconds ? 0 : milliseconds - static_cast<int>(passed.count());
    }
    const int ready = ::poll(files, 2, rest);
    if (Pending()) return false;
    if (ready > 0) return files[1].revents != 0;
    if (ready == 0) return false;
    if (errno != EINTR) return false;
  }
}

void Descriptor::Reset(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

int ReadMessage(int fd, std::string* message) {
  const std::size_t kPart = 65536;
  // The size of the waiting message; for a plain file, which has none, one part.
  ssize_t size = ::recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
  // Reported once when the other side closed with unread messages; what it sent is still there.
  if (size < 0 && errno == ECONNRESET) size = ::recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
  if (size < 0) {
    if (errno != ENOTSOCK) return -1;
    size = static_cast<ssize_t>(kPart);
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

std::string ClockTime(std::uint64_t nanoseconds) {
  const auto seconds = static_cast<std::time_t>(nanoseconds / 1000000000U);
  std::tm parts{};
  if (::localtime_r(&seconds, &parts) == nullptr) return "??:??:??.???";
  char text[32];
  std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%03u", parts.tm_hour, parts.tm_min,
                parts.tm_sec, static_cast<unsigned>(nanoseconds / 1000000U % 1000U));
  return text;
}

}  // namespace tools
