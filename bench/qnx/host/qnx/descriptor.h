// Owner of one descriptor.
#ifndef KORVANDIS_QNX_DESCRIPTOR_H
#define KORVANDIS_QNX_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>

namespace qnx {

// Closing keeps errno.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { Reset(); }
  Descriptor(Descriptor&& other) noexcept : fd_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Reset(other.Release());
    return *this;
  }

  int get() const { return fd_; }
  bool is_open() const { return fd_ >= 0; }

  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

  void Reset(int fd = -1) {
    const int saved = errno;
    if (fd_ >= 0) ::close(fd_);
    errno = saved;
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace qnx

#endif  // KORVANDIS_QNX_DESCRIPTOR_H
