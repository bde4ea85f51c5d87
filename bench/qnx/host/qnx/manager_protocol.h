// The opening message of a connection to a resource manager, and its answer. Host byte order.
#ifndef KORVANDIS_QNX_MANAGER_PROTOCOL_H
#define KORVANDIS_QNX_MANAGER_PROTOCOL_H

#include <cstdint>

namespace qnx {

enum class RequestKind : std::uint32_t {
  kOpen = 1,    // `flags` holds Linux O_* values
  kAccess = 2,  // `flags` holds the mode of the test, F_OK and the like
  kUnlink = 3,  // removes the object; asked by the tools only, other managers refuse it
};

// Followed by the rest of the path, without terminator. Answered by one 4-byte error number.
struct ManagerRequest {
  std::uint32_t kind;
  std::uint32_t flags;
  std::uint32_t mode;
};
static_assert(sizeof(ManagerRequest) == 12, "the path follows at offset 12");

// A device control request: this head, then `size` bytes when dcmd has bit 31. Answered by a 4-byte
// error number, then `size` bytes when it is 0 and dcmd has bit 30.
struct DevctlRequest {
  std::uint32_t dcmd;
  std::uint32_t size;
};
static_assert(sizeof(DevctlRequest) == 8, "the data follows at offset 8");

}  // namespace qnx

#endif  // KORVANDIS_QNX_MANAGER_PROTOCOL_H
