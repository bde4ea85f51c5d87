#include "tools/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <iostream>
#include <streambuf>

namespace tools {

struct Interrupt::Mask {
  sigset_t set;
};

namespace {

int g_signals = -1;  // descriptor of the Interrupt that lives, -1 when there is none

// Waits until standard output takes a part of kPart bytes. False when a signal came instead that an
// Interrupt collects: it would not end the write.
bool AwaitOutput() {
  pollfd files[2] = {{STDOUT_FILENO, POLLOUT, 0}, {g_signals, POLLIN, 0}};
  while (::poll(files, 2, -1) < 0 && errno == EINTR) {
  }
  return files[0].revents != 0;
}

// Standard output, which keeps the error number of the first write that failed.
class OutputBuffer : public std::streambuf {
 public:
  int error() const { return error_; }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
  }

  std::streamsize xsputn(const char* text, std::streamsize size) override {
    pending_.append(text, static_cast<std::size_t>(size));
    const bool line = is_terminal_ && std::memchr(text, '\n', static_cast<std::size_t>(size));
    return (!line && pending_.size() < kMostPending) || sync() == 0 ? size : 0;
  }

  int sync() override {
    std::size_t written = 0;
    while (error_ == 0 && written < pending_.size()) {
      if (g_signals >= 0 && !AwaitOutput()) {
        error_ = EINTR;
        break;
      }
      const std::size_t part = std::min(kPart, pending_.size() - written);
      const ssize_t count = ::write(STDOUT_FILENO, pending_.data() + written, part);
      if (count >= 0) written += static_cast<std::size_t>(count);
      if (count < 0 && errno != EINTR) error_ = errno;
    }
    pending_.clear();
    return error_ == 0 ? 0 : -1;
  }

 private:
  static const std::size_t kMostPending = 65536;
  static constexpr std::size_t kPart = 4096;  // a pipe that is ready takes as much at once
  const bool is_terminal_ = ::isatty(STDOUT_FILENO) == 1;
  std::string pending_;
  int error_ = 0;
};

OutputBuffer* g_output = nullptr;  // lives as long as std::cout

}  // namespace

void PrepareProgram() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest free number is this one. Opened the wrong way round, so that writing still fails.
    if (::open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY) < 0) return;
  }
  ::signal(SIGPIPE, SIG_IGN);
  g_output = new OutputBuffer;
  std::cout.rdbuf(g_output);
}

int FinishProgram(const char* program, int status) {
  std::cout.flush();
  if (g_output->error() == 0) return status;
  std::cerr << program << ": standard output: " << std::strerror(g_output->error()) << '\n';
  return status == kExitRight ? kExitWrong : status;
}

Interrupt::Interrupt() : saved_(new Mask) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &set, &saved_->set);
  signals_.Reset(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  g_signals = signals_.Get();
}

Interrupt::~Interrupt() {
  Pending();  // a signal that was asked for is not delivered a second time
  g_signals = -1;
  ::pthread_sigmask(SIG_SETMASK, &saved_->set, nullptr);
}

bool Interrupt::Pending() {
  signalfd_siginfo info;
  while (::read(signals_.Get(), &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
    ++count_;
  }
  return count_ > tolerated_;
}

bool Interrupt::Wait(int fd, int milliseconds) {
  if (Pending()) return false;
  const auto start = std::chrono::steady_clock::now();
  pollfd files[2] = {{signals_.Get(), POLLIN, 0}, {fd, POLLIN, 0}};
  while (true) {
    int rest = -1;
    if (milliseconds >= 0) {
      const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now() - start);
      rest = passed.count() >= milliseconds ? 0 : milliseconds - static_cast<int>(passed.count());
    }
    const int ready = ::poll(files, 2, rest);
    if (Pending()) return false;
    if (ready > 0 && files[1].revents != 0) return true;
    if (ready == 0) return false;
    if (ready < 0 && errno != EINTR) return false;
  }
}

std::string DateTime(std::uint64_t nanoseconds) {
  const auto seconds = static_cast<std::time_t>(nanoseconds / 1000000000U);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);  // a time that it cannot tell is all zero
  return qnx::Formatted("%04d-%02d-%02d %02d:%02d:%02d.%06u", parts.tm_year + 1900,
                        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                        static_cast<unsigned>(nanoseconds / 1000U % 1000000U));
}

std::string ClockTime(std::uint64_t nanoseconds) {
  return DateTime(nanoseconds).substr(std::strlen("2026-11-23 "), std::strlen("12:34:56.789"));
}

}  // namespace tools
