// The wake-up of a waiting thread. Inside the framework only.
#ifndef KORVANDIS_FRAMEWORK_WAKEUP_H
#define KORVANDIS_FRAMEWORK_WAKEUP_H

#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "platform/descriptor.h"

namespace NXQ {
namespace ZMCAR {

// A pipe that ends a poll. Wake may be called from any thread; the rest belongs to the waiting one.
class Wakeup {
 public:
  // Null when there are no descriptors left.
  static std::shared_ptr<Wakeup> Create() {
    int ends[2];
    if (::pipe(ends) != 0) return std::shared_ptr<Wakeup>();
    for (int i = 0; i < 2; ++i) {
      ::fcntl(ends[i], F_SETFD, FD_CLOEXEC);
      ::fcntl(ends[i], F_SETFL, O_NONBLOCK);
    }
    return std::shared_ptr<Wakeup>(new Wakeup(ends[0], ends[1]));
  }

  int Get() const { return m_read.Get(); }

  // A full pipe wakes just as well.
  void Wake() const {
    const char byte = 0;
    const ssize_t ignored = ::write(m_write.Get(), &byte, 1);
    static_cast<void>(ignored);
  }

  void Drain() const {
    char bytes[64];
    while (::read(m_read.Get(), bytes, sizeof(bytes)) > 0) {
    }
  }

 private:
  Wakeup(int read, int write) : m_read(read), m_write(write) {}

  const platform::Descriptor m_read;
  const platform::Descriptor m_write;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_WAKEUP_H
