// Mapping of a log ring, shared by its writer (slogf) and its reader.
#ifndef KORVANDIS_QNX_RING_MAP_H
#define KORVANDIS_QNX_RING_MAP_H

#include "qnx/slog_ring.h"

namespace qnx {

// True when `header` is that of a ring that a file of `file_size` bytes can hold.
bool IsRing(const SlogHeader& header, std::uint64_t file_size);

enum class RingUse { kRead, kWrite };

// Maps the ring in the host file `path`; for kRead the file need not be writable. Returns null with
// errno (EINVAL: not a ring); otherwise sets *size to the mapped bytes and *inode to the file's
// identity. When another process cuts the file, pages under the mapping are gone: at the next
// access to one the whole mapping reads as zero, and what is written there from then on is lost.
// This is done in a handler of SIGBUS, so no thread that uses a ring blocks that signal.
void* MapRing(const char* path, RingUse use, std::size_t* size, unsigned long* inode);

// Ends a mapping that is no longer used.
void UnmapRing(void* base, std::size_t size);

// True when `path` is still the file that is mapped, whole and a ring.
bool IsMappedRing(const char* path, const void* base, unsigned long inode, std::size_t size);

}  // namespace qnx

#endif  // KORVANDIS_QNX_RING_MAP_H
