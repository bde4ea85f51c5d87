// Mapping of a log ring, shared by its writer (slogf) and its reader.
#ifndef KORVANDIS_QNX_RING_MAP_H
#define KORVANDIS_QNX_RING_MAP_H

#include "qnx/slog_ring.h"

namespace qnx {

// True when `header` is that of a ring that a file of `file_size` bytes can hold.
bool IsRing(const SlogHeader& header, std::uint64_t file_size);

// Maps the ring in the host file `path`. Returns null with errno (EINVAL: not a ring); otherwise
// sets *size to the mapped bytes and *inode to the file's identity. Whoever cuts the file takes
// pages from under the mapping: at the next access to one the whole of it reads as zero, and from
// then on what is written there is lost.
void* MapRing(const char* path, std::size_t* size, unsigned long* inode);

// Ends a mapping that nobody uses any more.
void UnmapRing(void* base, std::size_t size);

// True when `path` is still the file that is mapped, whole and a ring.
bool IsMappedRing(const char* path, const void* base, unsigned long inode, std::size_t size);

}  // namespace qnx

#endif  // KORVANDIS_QNX_RING_MAP_H
