// Removing what lies at a path of the unit: for the tools, as the service removes nothing.
#ifndef KORVANDIS_QNX_REMOVE_H
#define KORVANDIS_QNX_REMOVE_H

namespace qnx {

// Removes the object or file at `path`. Returns 0, or -1 with errno as platform::open does.
int Remove(const char* path);

}  // namespace qnx

#endif  // KORVANDIS_QNX_REMOVE_H
