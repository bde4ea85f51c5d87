// Small things that several commands need.
#ifndef KORVANDIS_SERVICE_MISC_H
#define KORVANDIS_SERVICE_MISC_H

#include <fcntl.h>

#include <cstddef>
#include <cstdint>

namespace platform {
class Encoder;
}

// Ticks of 10 ms since the first call, which returns 0. The first call must be over before a second
// thread calls.
std::uint32_t GetTimeTick();

// Copies `text` into the `size` bytes at `buffer`, cut to fit, and fills the rest with zero bytes.
// Returns false when it was cut.
bool CopyText(char* buffer, std::size_t size, const char* text);

// Opens the object or file at `path`; `mode` is that of one that is created. Returns the
// descriptor, which the caller owns, or -1 with the failure reported on standard error: the path
// and the text of errno.
int OpenOrReport(const char* path, int oflag, int mode);

// Reads the object or file at `path`, opened with `oflag` and closed again: one message of at most
// size - 1 bytes into `buffer`, the rest filled with zero bytes. A failed read leaves an empty
// text. False, with the failure reported and the buffer untouched, when it cannot be opened.
bool ReadText(const char* path, char* buffer, std::size_t size, int oflag = O_RDONLY);

// Writes the finished text of `encoder` to `fd`; whether the object takes it is not examined.
// False, with nothing written, when the encoder failed.
bool WriteEncoded(int fd, platform::Encoder* encoder);

// Reports a text that was read, on standard error.
void ReportText(const char* text);

#endif  // KORVANDIS_SERVICE_MISC_H
