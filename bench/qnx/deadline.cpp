#include "deadline.h"

#include <cerrno>
#include <ctime>

namespace qnx {

std::int64_t NowMs() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

bool WaitAgain(int fd, short event, std::int64_t deadline) {
  pollfd wait = {fd, event, 0};
  int ready;
  do {
    const std::int64_t left = deadline - NowMs();
    ready = ::poll(&wait, 1, left > 0 ? static_cast<int>(left) : 0);
  } while (ready < 0 && errno == EINTR);
  if (ready > 0) return true;
  errno = EAGAIN;
  return false;
}

}  // namespace qnx
