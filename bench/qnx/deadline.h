// Waits that end at a fixed time, whatever interrupts them.
#ifndef KORVANDIS_QNX_DEADLINE_H
#define KORVANDIS_QNX_DEADLINE_H

#include <poll.h>

namespace qnx {

// Milliseconds of CLOCK_MONOTONIC.
long NowMs();

// After an interruption (EINTR): waits until `fd` is ready for `event` (POLLIN, POLLOUT), which is
// true, or until `deadline` of NowMs, which is false with EAGAIN. What is ready at the deadline
// counts: a process that was stopped until then finds what came meanwhile.
bool WaitAgain(int fd, short event, long deadline);

}  // namespace qnx

#endif  // KORVANDIS_QNX_DEADLINE_H
