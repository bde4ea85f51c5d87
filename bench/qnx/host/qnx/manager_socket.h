// Both sides of a connection to a resource manager: the socket at its path, the opening request
// and its answer (manager_protocol.h), and messages of any length.
#ifndef KORVANDIS_QNX_MANAGER_SOCKET_H
#define KORVANDIS_QNX_MANAGER_SOCKET_H

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/descriptor.h"
#include "qnx/manager_protocol.h"

namespace qnx {

// An open socket for either side; `flags` as SOCK_NONBLOCK. Not open, with errno, when the host has
// none left.
platform::Descriptor NewManagerSocket(int flags = 0);

// The client's side. -----------------------------------------------------------------------------

// Connects to the socket at the host path `path`, however long that is. 0, or -1 with errno.
int ConnectToManager(int fd, const char* path);

// Sends the opening request for the rest of the path. False with errno.
bool SendRequest(int fd, RequestKind kind, std::uint32_t flags, std::uint32_t mode,
                 std::string_view rest);

// The manager's answer, an error number. -1 when it gives none: with errno 0 when it hung up or
// sent something else, otherwise with that of the failed read. `flags` as MSG_DONTWAIT.
int ReceiveAnswer(int fd, int flags = 0);

// The manager's side. ----------------------------------------------------------------------------

// Binds the socket `fd` to the host path `path`, however long that is, and listens with a queue of
// `backlog` connections. 0, or -1 with errno.
int ListenAt(int fd, const char* path, int backlog);

struct OpeningRequest {
  RequestKind kind = RequestKind::kOpen;  // as it was sent: perhaps an unknown number
  std::uint32_t flags = 0;
  std::uint32_t mode = 0;
  std::string rest;
};

// Takes the first message of a connection without waiting. Returns 0, EAGAIN (not there yet), EPIPE
// (the client is gone), EINVAL or ENAMETOOLONG.
int ReceiveRequest(int fd, OpeningRequest* request);

// Sends the answer, an error number. False when the client is gone.
bool SendAnswer(int fd, int error);

// Both. ------------------------------------------------------------------------------------------

// Takes the next message of an open file of the unit, however long, or the next part of a plain
// file. Returns 1 with the text, 0 at the end of file, -1 with errno.
int ReadMessage(int fd, std::string* message);

// True when the other side has ended its half of the connection.
bool HungUp(int fd);

}  // namespace qnx

#endif  // KORVANDIS_QNX_MANAGER_SOCKET_H
