// Waits that end at a fixed time, whatever interrupts them.
#ifndef KORVANDIS_QNX_DEADLINE_H
#define KORVANDIS_QNX_DEADLINE_H

#include <poll.h>

#include <cstdint>

namespace qnx {

// Milliseconds of CLOCK_MONOTONIC.
std::int64_t NowMs();

// After an interruption (EINTR): waits until `fd` is ready for `event` (POLLIN, POLLOUT), which is
// true, or until `deadline` of NowMs, which is false with EAGAIN. What is ready at the deadline
// counts: a process that was stopped until then finds what came meanwhile.
bool WaitAgain(int fd, short event, std::int64_t deadline);

}  // namespace qnx

#endif  // KORVANDIS_QNX_DEADLINE_H
