#include "platform/print.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "platform/descriptor.h"
#include "platform/logbase.h"

namespace {

const std::size_t kTextSize = 20 * 1024;  // the longest text shows an object of 16 KiB
const int kPatienceMs = 100;              // for a stream that takes nothing

// One of the two streams. A write of at most PIPE_BUF bytes does not wait after poll found room.
struct Stream {
  const char* const name;
  char* const text;    // kTextSize bytes: the last text
  int fd;              // where it is written
  bool asks;           // a write may wait: poll is asked first
  bool stalled;        // the last text could not be written
  std::size_t length;  // of the text
  std::size_t done;    // bytes of it that were written
  unsigned dropped;    // texts since the stream stalled
  pthread_mutex_t mutex;
};

char g_texts[2][kTextSize];
Stream g_output = {"standard output",        g_texts[0], STDOUT_FILENO, false, false, 0, 0, 0,
                   PTHREAD_MUTEX_INITIALIZER};
Stream g_error = {"standard error",         g_texts[1], STDERR_FILENO, false, false, 0, 0, 0,
                  PTHREAD_MUTEX_INITIALIZER};

std::int64_t NowMs() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Waits until the stream takes something, or `limit` ms are over: false.
bool WaitForRoom(const Stream& stream, std::int64_t limit) {
  const std::int64_t deadline = NowMs() + limit;
  for (;;) {
    pollfd wait = {stream.fd, POLLOUT, 0};
    const std::int64_t left = std::max(deadline - NowMs(), std::int64_t{0});
    const int ready = ::poll(&wait, 1, static_cast<int>(left));
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

// Writes once. Returns the result of the write, -1 with EAGAIN when it would have waited.
ssize_t WriteSome(const Stream& stream) {
  std::size_t part = stream.length - stream.done;
  if (stream.asks) {
    if (!WaitForRoom(stream, 0)) {
      errno = EAGAIN;
      return -1;
    }
    part = std::min(part, static_cast<std::size_t>(PIPE_BUF));
  }
  return ::write(stream.fd, stream.text + stream.done, part);
}

// Writes the rest of the text, and waits at most `patience` ms for a stream that takes nothing.
// False when something is left.
bool WriteRest(Stream* stream, int patience) {
  std::int64_t deadline = 0;
  while (stream->done < stream->length) {
    const ssize_t count = WriteSome(*stream);
    if (count > 0) stream->done += static_cast<std::size_t>(count);
    if (count > 0 || errno == EINTR) continue;
    if (errno != EAGAIN || patience == 0) return false;
    if (deadline == 0) deadline = NowMs() + patience;
    const std::int64_t left = deadline - NowMs();
    if (left <= 0 || !WaitForRoom(*stream, left)) return false;
  }
  return true;
}

__attribute__((format(printf, 2, 0))) void FormatText(Stream* stream, const char* format,
                                                      va_list arguments) {
  const int needed = std::vsnprintf(stream->text, kTextSize, format, arguments);
  const std::size_t length = needed > 0 ? static_cast<std::size_t>(needed) : 0;
  stream->done = 0;
  stream->length = std::min(length, kTextSize - 1);
  if (length >= kTextSize) stream->text[kTextSize - 2] = '\n';
}

// With the mutex held. The number of dropped texts when the stream takes texts again, otherwise 0.
__attribute__((format(printf, 2, 0))) unsigned PrintLocked(Stream* stream, const char* format,
                                                           va_list arguments) {
  // The rest of a text that the stream took in part comes first.
  if (stream->stalled && !WriteRest(stream, 0)) {
    ++stream->dropped;
    return 0;
  }
  FormatText(stream, format, arguments);
  if (!WriteRest(stream, stream->stalled ? 0 : kPatienceMs)) {
    stream->stalled = true;
    if (stream->done > 0) return 0;
    stream->length = 0;
    ++stream->dropped;
    return 0;
  }
  const unsigned dropped = stream->dropped;
  stream->stalled = false;
  stream->dropped = 0;
  return dropped;
}

__attribute__((format(printf, 2, 0))) void Print(Stream* stream, const char* format,
                                                 va_list arguments) {
  ::pthread_mutex_lock(&stream->mutex);
  const unsigned dropped = PrintLocked(stream, format, arguments);
  ::pthread_mutex_unlock(&stream->mutex);
  if (dropped == 0) return;
  LOGBASE(LOG_LEV_ERROR, "Print", "%u lines of %s dropped!\n", dropped, stream->name);
}

// The stream opened a second time, so that O_NONBLOCK is not set for the other processes that write
// to it; -1 where the system cannot do that.
int OpenAgain(int fd, const struct stat& expected) {
  char path[sizeof("/dev/fd/") + 10];
  std::snprintf(path, sizeof(path), "/dev/fd/%d", fd);
  platform::Descriptor own(::open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat found;
  const bool usable = own.IsOpen() && ::fstat(own.Get(), &found) == 0 &&
                      found.st_dev == expected.st_dev && found.st_ino == expected.st_ino &&
                      (::fcntl(own.Get(), F_GETFL) & O_NONBLOCK) != 0;
  return usable ? own.Release() : -1;
}

void Watch(Stream* stream) {
  struct stat status;
  if (::fstat(stream->fd, &status) != 0) return;
  const bool reopens = S_ISFIFO(status.st_mode) || ::isatty(stream->fd) != 0;
  if (!reopens && !S_ISSOCK(status.st_mode)) return;  // a file or /dev/null takes everything
  const int own = reopens ? OpenAgain(stream->fd, status) : -1;
  if (own >= 0) {
    stream->fd = own;
  } else {
    stream->asks = true;
  }
}

}  // namespace

namespace platform {

void WatchStreams() {
  Watch(&g_output);
  Watch(&g_error);
}

void PrintOutput(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Print(&g_output, format, arguments);
  va_end(arguments);
}

void PrintError(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Print(&g_error, format, arguments);
  va_end(arguments);
}

}  // namespace platform
