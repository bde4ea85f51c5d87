#include "misc.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/pps_guards.h"
#include "platform/print.h"

std::uint32_t GetTimeTick() {
  static timespec stmv = {0, 0};
  if (stmv.tv_sec == 0) {
    ::clock_gettime(CLOCK_REALTIME, &stmv);
    return 0;
  }
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  const long long kNanosecondsPerTick = 10000000;
  const long long ticks =
      100LL * (now.tv_sec - stmv.tv_sec) + (now.tv_nsec - stmv.tv_nsec) / kNanosecondsPerTick;
  return static_cast<std::uint32_t>(ticks);
}

bool CopyText(char* buffer, std::size_t size, const char* text) {
  const std::size_t length = ::strnlen(text, size);
  const std::size_t kept = length < size ? length : size - 1;
  std::memcpy(buffer, text, kept);
  std::memset(buffer + kept, 0, size - kept);
  return kept == length;
}

int OpenOrReport(const char* path, int oflag, int mode) {
  const int fd = platform::open(path, oflag, static_cast<mode_t>(mode));
  if (fd < 0) platform::PrintError("open('%s') failed: %s\n", path, std::strerror(errno));
  return fd;
}

bool ReadText(const char* path, char* buffer, std::size_t size, int oflag) {
  const platform::Descriptor object(OpenOrReport(path, oflag, 0));
  if (!object.IsOpen()) return false;
  // Cleared first: the count of a read tells too much, or nothing, when the text does not fit.
  std::memset(buffer, 0, size);
  if (platform::read(object.Get(), buffer, size - 1) < 0) buffer[0] = '\0';
  return true;
}

bool WriteEncoded(int fd, platform::Encoder* encoder) {
  const char* const text = pps_encoder_buffer(encoder->Get());
  if (text == nullptr) return false;
  platform::write(fd, text, static_cast<std::size_t>(pps_encoder_length(encoder->Get())));
  return true;
}

void ReportText(const char* text) { platform::PrintError("read buf is('%s') \n", text); }
