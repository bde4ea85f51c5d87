// A resource manager that does exactly what a test tells it, on raw sockets.
#ifndef KORVANDIS_TESTS_SUPPORT_FAKE_MANAGER_H
#define KORVANDIS_TESTS_SUPPORT_FAKE_MANAGER_H

#include "qnx/manager_socket.h"
#include "support/fixture.h"

namespace support {

// One connection, from either side. Closed when the object goes.
class Connection {
 public:
  explicit Connection(int fd = -1) : socket_(fd) {}

  // The next message; nothing at the end of file or when none comes within `limit`.
  std::optional<Bytes> Receive(milliseconds limit = kSoon) const;
  void Send(const Bytes& message) const;
  void Send(const std::string& text) const { Send(Text(text)); }
  // One 4-byte error number.
  void Answer(std::int32_t error) const;
  void Close() { socket_.Reset(); }
  int fd() const { return socket_.Get(); }

 private:
  platform::Descriptor socket_;
};

class FakeManager {
 public:
  // Binds the socket at `path` below the root, in the place of whatever lies there: the unit's own
  // manager then hears of no further open.
  FakeManager(const TempRoot& root, const std::string& path);
  ~FakeManager();  // removes the socket
  FakeManager(const FakeManager&) = delete;
  FakeManager& operator=(const FakeManager&) = delete;

  struct Opening {
    qnx::OpeningRequest request;
    Connection connection;
  };
  // Accepts a connection and reads its opening request; nothing within `limit` otherwise.
  std::optional<Opening> Accept(milliseconds limit = kSoon);
  // The same, granted. Fails the test when no request comes.
  Connection Grant(milliseconds limit = kSoon);

 private:
  std::string path_;
  platform::Descriptor socket_;
};

}  // namespace support

#endif  // KORVANDIS_TESTS_SUPPORT_FAKE_MANAGER_H
