// Any messages at the PPS manager: requests with any path, flags and options on several
// connections, writes, reads and closes in any order, through its socket.
//
// Input: operations, each an operation byte and a piece (see input.h). The operation's low half
// chooses what is done, its high half the connection.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "event_loop.h"
#include "input.h"
#include "pps_manager.h"
#include "qnx/manager_socket.h"
#include "qnx/slog_ring.h"
#include "support/temp_root.h"

namespace {

const int kConnections = 6;

enum Operation {
  kOpen,       // a byte of flags, the path
  kOpenFirst,  // the same, of one object, so that connections meet
  kAccess,     // the path
  kUnlink,     // the path
  kRequest,    // the piece is the whole first message
  kWrite,      // the piece is the message
  kRead,       // all there is
  kHangUp,
  kMute,
  kUnmute,
};

// The manager on a thread of ours: it gets its turn when we give it one, so a run does the same
// each time.
class Manager {
 public:
  Manager() : pps_(&loop_, Path()) {
    fuzz::Require(pps_.Bind().empty(), "the manager binds its socket");
  }

  static std::string Path() { return Root().path() + "/pps"; }

  // Removed at the end of the process.
  static const support::TempRoot& Root() {
    static const support::TempRoot root;
    return root;
  }

  // Lets the manager work until it has nothing to do.
  void Turn() {
    const int kEnough = 10000;
    int turns = 0;
    while (loop_.poller().Dispatch(0) > 0) {
      fuzz::Require(++turns < kEnough, "the manager comes to rest");
    }
  }

  headunit::PpsManager& pps() { return pps_; }

 private:
  headunit::EventLoop loop_;
  headunit::PpsManager pps_;
};

class Connection {
 public:
  void Request(Manager* manager, const std::string& message) {
    HangUp(manager);
    socket_ = qnx::NewManagerSocket(SOCK_NONBLOCK);
    fuzz::Require(qnx::ConnectToManager(socket_.Get(), Manager::Path().c_str()) == 0,
                  "the manager takes connections");
    fuzz::Require(::send(socket_.Get(), message.data(), message.size(), MSG_NOSIGNAL) >= 0,
                  "a request can be sent");
    manager->Turn();
    const int answer = qnx::ReceiveAnswer(socket_.Get());
    fuzz::Require(answer >= 0, "each request is answered by an error number");
    if (answer != 0) HangUp(manager);
  }

  void Write(Manager* manager, const std::string& message) {
    if (!socket_.IsOpen()) return;
    ::send(socket_.Get(), message.data(), message.size(), MSG_NOSIGNAL);
    manager->Turn();
  }

  // Reads whole messages until none is left. Each is text that a reader can take apart.
  void Read(Manager* manager) {
    if (!socket_.IsOpen()) return;
    std::string text;
    while (qnx::ReadMessage(socket_.Get(), &text) > 0) {
      fuzz::Require(text.find('\0') == text.npos, "no text has a zero byte");
      fuzz::Require(text.back() == '\n', "every text ends with its last line");
    }
    manager->Turn();
  }

  void HangUp(Manager* manager) {
    if (!socket_.IsOpen()) return;
    socket_.Reset();
    manager->Turn();
  }

 private:
  platform::Descriptor socket_;
};

std::string Message(qnx::RequestKind kind, std::uint32_t flags, const std::string& path) {
  const qnx::ManagerRequest request = {static_cast<std::uint32_t>(kind), flags, 0666};
  std::string message(sizeof(request), '\0');
  std::memcpy(&message[0], &request, sizeof(request));
  return message + path;
}

// Open flags out of a byte.
std::uint32_t Flags(std::uint8_t byte) {
  static const int kBits[] = {O_CREAT, O_TRUNC, O_EXCL, O_DIRECTORY, O_APPEND, O_NONBLOCK};
  int flags = byte & O_ACCMODE;
  for (std::size_t i = 0; i < sizeof(kBits) / sizeof(kBits[0]); ++i) {
    if ((byte & (4U << i)) != 0) flags |= kBits[i];
  }
  return static_cast<std::uint32_t>(flags);
}

std::string OpenMessage(const std::string& directory, const std::string& piece) {
  if (piece.empty()) return Message(qnx::RequestKind::kOpen, 0, directory);
  const std::uint32_t flags = Flags(static_cast<std::uint8_t>(piece[0]));
  return Message(qnx::RequestKind::kOpen, flags, directory + piece.substr(1));
}

void Do(std::uint8_t operation, const std::string& piece, Manager* manager,
        Connection* connection) {
  switch (operation) {
    case kOpen:
      return connection->Request(manager, OpenMessage("", piece));
    case kOpenFirst:
      return connection->Request(manager, OpenMessage("/a?", piece));
    case kAccess:
      return connection->Request(manager, Message(qnx::RequestKind::kAccess, F_OK, piece));
    case kUnlink:
      return connection->Request(manager, Message(qnx::RequestKind::kUnlink, 0, piece));
    case kRequest:
      // An empty first message and the end of the connection are one; it would not be answered.
      if (!piece.empty()) connection->Request(manager, piece);
      return;
    case kWrite:
      return connection->Write(manager, piece);
    case kRead:
      return connection->Read(manager);
    case kHangUp:
      return connection->HangUp(manager);
    case kMute:
      return manager->pps().SetMute(true);
    case kUnmute:
      return manager->pps().ClearFaults();
    default:
      return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // What the manager logs goes into a ring of its own, not to the host.
  const std::string& root = Manager::Root().path();
  fuzz::Require(::mkdir((root + "/dev").c_str(), 0700) == 0, "the root is empty");
  fuzz::Require(qnx::CreateSlogRing(root + qnx::kSlogPath, 64) == 0, "there is room for a log");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Manager manager;
  Connection connections[kConnections];
  while (!input.empty()) {
    const std::uint8_t operation = input.Byte();
    const std::string piece = input.Piece();
    Do(operation & 15, piece, &manager, &connections[(operation >> 4) % kConnections]);
  }
  for (Connection& connection : connections) connection.HangUp(&manager);
  fuzz::Require(manager.pps().open_files() == 0, "a file is closed with its connection");
  return 0;
}
