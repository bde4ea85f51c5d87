// The least that a version query costs: a program that answers the one request 7/1 with the input
// and output of the service and nothing else. It is the measure for benchmarks/round_trip,
// which also checks that both write the same reply, the same lines to the log ring and the same
// lines to standard error.
//
// The same: one read and one write on the MCU device; a connection, a request, an answer, a read
// and a close for the object; one write a line on standard error; one time stamp and one slot a
// line in the log ring.
//
// Left out: the framework (poll, registered files, locks, shared descriptors), the registry, the
// walk over the path's components, time limits on a manager, checks of the packet and of lengths,
// any error handling, printf, the PPS decoder (the version is found by searching for its text), and
// everything else that the service can do.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "qnx/manager_socket.h"
#include "qnx/slog_ring.h"
#include "wire/at_packet.h"

namespace {

const std::uint32_t kDebug = 6;
const std::uint32_t kOpcode = 0x1B1DC;
const std::string_view kPath = "/pps/zelmar/system/version_status";

std::string g_root;

// --- a resource manager -------------------------------------------------------------------------

platform::Descriptor Open(const std::string& socket_path, std::string_view rest,
                          std::uint32_t flags) {
  platform::Descriptor connection = qnx::NewManagerSocket();
  if (qnx::ConnectToManager(connection.Get(), socket_path.c_str()) != 0 ||
      !qnx::SendRequest(connection.Get(), qnx::RequestKind::kOpen, flags, 0, rest) ||
      qnx::ReceiveAnswer(connection.Get()) != 0) {
    std::exit(1);
  }
  return connection;
}

// --- the log ring -------------------------------------------------------------------------------

class Ring {
 public:
  explicit Ring(const std::string& path) {
    const platform::Descriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    struct stat status;
    if (::fstat(file.Get(), &status) != 0) std::exit(1);
    void* const map = ::mmap(nullptr, static_cast<std::size_t>(status.st_size),
                             PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    header_ = static_cast<qnx::SlogHeader*>(map);
    slots_ = reinterpret_cast<qnx::SlogSlot*>(header_ + 1);
    pid_ = static_cast<std::uint32_t>(::getpid());
  }

  void Line(std::string_view function, std::string_view text) {
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::uint64_t index = header_->next.fetch_add(1);
    qnx::SlogSlot& slot = slots_[index & (header_->slots - 1)];
    slot.sequence.store(0);
    slot.nanoseconds = static_cast<std::uint64_t>(now.tv_sec) * 1000000000U +
                       static_cast<std::uint64_t>(now.tv_nsec);
    slot.opcode = kOpcode | count_++ << 20;
    slot.severity = kDebug;
    slot.pid = pid_;
    char* end = slot.text;
    for (const std::string_view part :
         {std::string_view("_KRV_["), function, std::string_view("]-"), text}) {
      std::memcpy(end, part.data(), part.size());
      end += part.size();
    }
    slot.length = static_cast<std::uint32_t>(end - slot.text);
    slot.sequence.store(index + 1);
  }

  void Bytes(std::string_view function, const std::uint8_t* bytes, std::size_t count) {
    static const char kDigits[] = "0123456789abcdef";
    for (std::size_t i = 0; i < count; ++i) {
      char text[] = "0x   ";
      char* end = text + 2;
      if (bytes[i] > 15) *end++ = kDigits[bytes[i] >> 4];
      *end++ = kDigits[bytes[i] & 15];
      *end++ = ' ';
      Line(function, std::string_view(text, static_cast<std::size_t>(end - text)));
    }
    Line(function, "end\n");
  }

 private:
  qnx::SlogHeader* header_;
  qnx::SlogSlot* slots_;
  std::uint32_t pid_;
  std::uint32_t count_ = 0;
};

void ErrorLine(std::string_view name, std::string_view value) {
  iovec parts[3] = {{const_cast<char*>(name.data()), name.size()},
                    {const_cast<char*>(value.data()), value.size()},
                    {const_cast<char*>("') \n"), 4}};
  if (::writev(STDERR_FILENO, parts, 3) < 0) std::exit(1);
}

// --- the request --------------------------------------------------------------------------------

std::string_view ReadVersion(char* text, std::size_t size) {
  ErrorLine("path is('", kPath);
  ErrorLine("attr is('", "mpu");
  ErrorLine("ver is('", "version");
  const platform::Descriptor file = Open(g_root + "/pps", kPath.substr(4), O_RDONLY);
  const ssize_t count = ::read(file.Get(), text, size);
  const std::string_view object(text, static_cast<std::size_t>(count));
  ErrorLine("read buf is('", object);
  static const std::string_view kMember = "\"version\":\"";
  const std::size_t begin = object.find(kMember, object.find("\nmpu:json:")) + kMember.size();
  const std::string_view version = object.substr(begin, object.find('"', begin) - begin);
  ErrorLine("verStr is('", version);
  ErrorLine("verLen is('", std::to_string(version.size()));
  return version;
}

void Reply(int mcu, Ring* ring, std::uint8_t sequence, std::string_view data) {
  std::uint8_t packet[wire::kHeaderSize + wire::kReplyOverhead + wire::kMaxReplyData] = {};
  const std::size_t payload = wire::kReplyOverhead + data.size();
  const std::size_t size = wire::kHeaderSize + payload;
  const std::uint32_t header[] = {
      static_cast<std::uint32_t>(payload), wire::kLinkType, 0, 0, 200, 3, 0};
  const std::uint8_t head[] = {wire::kLinkType,
                               sequence,
                               wire::kLinkByte,
                               wire::kRecordStart,
                               wire::kRecordId,
                               0,
                               static_cast<std::uint8_t>(data.size()),
                               7 | wire::kReplyBit,
                               1};
  std::memcpy(packet, header, sizeof(header));
  std::memcpy(packet + sizeof(header), head, sizeof(head));
  std::memcpy(packet + sizeof(header) + sizeof(head), data.data(), data.size());
  ErrorLine("inBuf('", data);
  ring->Line("SendCtrCmd", "SendCtrCmd?" + std::to_string(payload) + "\n");
  ring->Line("SendCtrCmd", "SendCtrCmd:send data:");
  ring->Bytes("SendCtrCmd", packet, size);
  if (::write(mcu, packet, size) < 0) std::exit(1);
  ring->Line("SendCtrCmd", "SendCtrCmd[" + std::to_string(size) + "]!\n");
}

}  // namespace

int main() {
  g_root = std::getenv("HEADUNIT_ROOT");
  Ring ring(g_root + qnx::kSlogPath);
  const platform::Descriptor mcu = Open(g_root + wire::kMcuDevicePath, "", O_RDWR);
  static std::uint8_t packet[wire::kMaxPacket];
  static char object[16 * 1024];
  for (std::uint8_t sequence = 0;;) {
    const ssize_t size = ::read(mcu.Get(), packet, sizeof(packet));
    if (size <= 0) return 0;
    const std::size_t head = wire::kHeaderSize + wire::kLinkSize;
    ring.Line("OnRecvData", "OnRecvData++++++!\n");
    ring.Line("ProcessDataPacket", "ProcessDataPacket!\n");
    ring.Line("ParseATDataPacket", "ParseCANDataPacket:Receive data:");
    ring.Bytes("ParseATDataPacket", packet + head, static_cast<std::size_t>(size) - head);
    ring.Line("CmdWork", "CmdWork? for [7]\n");
    ring.Line("CmdWork", "CmdWork [7]!\n");
    ring.Line("SendVer", "m_subCmd = 1\n");
    Reply(mcu.Get(), &ring, sequence++, ReadVersion(object, sizeof(object)));
    ring.Line("CmdWork", "CmdWork for m_cmd=7,m_subCmd= 1\n");
    ring.Line("OnRecvData", "OnRecvData------!\n");
  }
}
