#include "deadline.h"

#include <cerrno>
#include <ctime>

namespace qnx {

long NowMs() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

bool WaitAgain(int fd, short event, long deadline) {
  pollfd wait = {fd, event, 0};
  int ready;
  do {
    const long left = deadline - NowMs();
    ready = ::poll(&wait, 1, left > 0 ? static_cast<int>(left) : 0);
  } while (ready < 0 && errno == EINTR);
  if (ready > 0) return true;
  errno = EAGAIN;
  return false;
}

}  // namespace qnx
