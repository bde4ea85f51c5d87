// Owner of one descriptor.
#ifndef KORVANDIS_HEADUNIT_UNIQUE_FD_H
#define KORVANDIS_HEADUNIT_UNIQUE_FD_H

#include <unistd.h>

namespace headunit {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { Reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    Reset(other.Release());
    return *this;
  }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

  void Reset(int fd = -1) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_UNIQUE_FD_H
