// Files of the unit: how the service opens, tests, reads and writes a path, whatever stands behind
// it.
//
// On the unit these forward to POSIX. On a Linux host an absolute path lies below the directory
// that HEADUNIT_ROOT names, and a path component that is a Unix socket (SOCK_SEQPACKET) is a
// resource manager: the rest of the path is asked of it, and the connection is the open file.
//
// All may be called from any thread. None raises SIGPIPE, and none waits longer than
// kManagerTimeoutMs for a manager. A wait that a signal or a stop interrupts goes on until that
// time is over.
#ifndef KORVANDIS_PLATFORM_IO_H
#define KORVANDIS_PLATFORM_IO_H

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>

namespace platform {

// Longest wait for a resource manager's answer, in milliseconds.
const int kManagerTimeoutMs = 2000;

// Opens `path` with the POSIX flags `oflag` and, when the file is created, `mode`. The descriptor
// is close-on-exec. Returns the descriptor, or -1 with errno: what the manager answered, EIO when
// it does not answer in time, hangs up or is gone, otherwise as open(2).
int open(const char* path, int oflag, mode_t mode = 0);

// Tests `path` as access(2) does. Returns 0, or -1 with errno as for open.
int access(const char* path, int mode);

// Reads from `fd` into the `size` bytes at `data`; on a manager's file one message. Returns the
// number of bytes read, 0 at the end and for an empty message, or -1 with errno (EAGAIN when
// nothing comes in time). Systems differ on a message that does not fit: its first `size` bytes are
// read, or none and the call fails, and the number can be that of the whole message, larger than
// `size`. So a caller bounds the number by `size`.
ssize_t read(int fd, void* data, std::size_t size);

// Writes `size` bytes to `fd`; on a manager's file they are one message. Returns the number of
// bytes written, or -1 with errno (EPIPE when the manager is gone, EAGAIN when it takes nothing in
// time).
ssize_t write(int fd, const void* data, std::size_t size);

}  // namespace platform

#endif  // KORVANDIS_PLATFORM_IO_H
