// Device control requests.
#ifndef KORVANDIS_DEVCTL_H
#define KORVANDIS_DEVCTL_H

#include <cstddef>

// Direction bits of a device control number, as seen from the caller.
#define DEVDIR_TO 0x80000000U
#define DEVDIR_FROM 0x40000000U

// Sends the request `dcmd` with `size` bytes at `data` to the device behind `fd`. The bytes are
// sent when dcmd has DEVDIR_TO; they are replaced by the device's when dcmd has DEVDIR_FROM and the
// request succeeds, and are untouched otherwise. `info` may be null; it receives 0. Returns 0 (EOK)
// or the error number; errno is not used. A device that does not answer within two seconds, or
// hangs up, is EIO, and its descriptor then fails every later request at once, so that a late
// answer is never taken for another's. May be called from any thread, one request a descriptor at
// a time.
int devctl(int fd, int dcmd, void* data, std::size_t size, int* info);

#endif  // KORVANDIS_DEVCTL_H
