// platform/io.h on the unit: POSIX does it. The bench is built with bench/qnx/io.cpp instead.
#include "platform/io.h"

#include <cerrno>

namespace platform {

int open(const char* path, int oflag, mode_t mode) {
  int fd;
  do {
    fd = ::open(path, oflag | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

int access(const char* path, int mode) { return ::access(path, mode); }

ssize_t read(int fd, void* data, std::size_t size) {
  ssize_t count;
  do {
    count = ::read(fd, data, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

ssize_t write(int fd, const void* data, std::size_t size) {
  ssize_t count;
  do {
    count = ::write(fd, data, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace platform
