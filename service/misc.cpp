#include "misc.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/io.h"

std::uint32_t GetTimeTick() {
  static timespec stmv = {0, 0};
  if (stmv.tv_sec == 0) {
    ::clock_gettime(CLOCK_REALTIME, &stmv);
    return 0;
  }
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  const long long kNanosecondsPerTick = 10000000;
  const long long ticks =
      100LL * (now.tv_sec - stmv.tv_sec) + (now.tv_nsec - stmv.tv_nsec) / kNanosecondsPerTick;
  return static_cast<std::uint32_t>(ticks);
}

bool CopyText(char* buffer, std::size_t size, const char* text) {
  std::size_t const length = ::strnlen(text, size);
  std::size_t const kept = length < size ? length : size - 1;
  std::memcpy(buffer, text, kept);
  std::memset(buffer + kept, 0, size - kept);
  return kept == length;
}

void ReportOpenFailure(const char* path) {
  std::fprintf(stderr, "open('%s') failed: %s\n", path, std::strerror(errno));
}

bool ReadText(const char* path, char* buffer, std::size_t size) {
  const int fd = platform::open(path, O_RDONLY);
  if (fd < 0) {
    ReportOpenFailure(path);
    return false;
  }
  const ssize_t count = ::read(fd, buffer, size - 1);
  std::size_t const used = count > 0 ? static_cast<std::size_t>(count) : 0;
  std::memset(buffer + used, 0, size - used);
  ::close(fd);
  return true;
}

void ReportText(const char* text) { std::fprintf(stderr, "read buf is('%s') \n", text); }
