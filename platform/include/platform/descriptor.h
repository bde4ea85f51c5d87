// The owner of one descriptor.
#ifndef KORVANDIS_PLATFORM_DESCRIPTOR_H
#define KORVANDIS_PLATFORM_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>

namespace platform {

// Closes its descriptor when it goes; errno keeps its value. For one thread at a time.
class Descriptor {
 public:
  Descriptor() : m_fd(-1) {}
  // Takes `fd` over; a negative number stands for no descriptor.
  explicit Descriptor(int fd) : m_fd(fd) {}
  ~Descriptor() { Reset(); }
  Descriptor(Descriptor&& other) noexcept : m_fd(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Reset(other.Release());
    return *this;
  }

  bool IsOpen() const { return m_fd >= 0; }
  int Get() const { return m_fd; }

  // Hands the descriptor to the caller, who closes it.
  int Release() {
    const int fd = m_fd;
    m_fd = -1;
    return fd;
  }

  // Closes the descriptor and takes `fd` over in its place.
  void Reset(int fd = -1) {
    if (m_fd >= 0) {
      const int saved = errno;
      ::close(m_fd);
      errno = saved;
    }
    m_fd = fd;
  }

 private:
  int m_fd;
};

}  // namespace platform

#endif  // KORVANDIS_PLATFORM_DESCRIPTOR_H
