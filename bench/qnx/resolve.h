// Where a path of the unit lies on this host.
#ifndef KORVANDIS_QNX_RESOLVE_H
#define KORVANDIS_QNX_RESOLVE_H

#include <climits>

namespace qnx {

struct ResolvedPath {
  char path[PATH_MAX];  // host path: of the manager's socket, or of the file
  const char* rest;     // what the manager is asked for ("" for the device itself); null for a file
  char tail[PATH_MAX];  // holds the rest
};

// Puts `path` below HEADUNIT_ROOT when it is absolute, and looks for the first component that is a
// socket. Returns false with errno EFAULT (null), ENOENT (empty) or ENAMETOOLONG.
bool Resolve(const char* path, ResolvedPath* resolved);

// Only the first half: the host path, no manager looked for. `size` bytes at `host`.
bool HostPath(const char* path, char* host, unsigned long size);

}  // namespace qnx

#endif  // KORVANDIS_QNX_RESOLVE_H
