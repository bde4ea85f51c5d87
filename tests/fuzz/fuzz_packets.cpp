// Any bytes as packets of the MCU link through the whole service, with every command behind it, on
// a unit in the same process.
//
// Input: operations, each an operation byte and a piece (see input.h):
//   0  the piece is one packet
//   1  the piece is command, sub-command and parameters of a well-formed request
//   2  the piece is a record's length byte, command, sub-command and parameters
//   3  the piece becomes the text of an object that commands read, chosen by the operation's high
//      bits
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "ATController.h"
#include "headunit/unit.h"
#include "input.h"
#include "platform/io.h"
#include "support/temp_root.h"
#include "wire/at_packet.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

const char kCalibrationScript[] = "/zmapps/etc/calib-recalibrate.sh";

const char* const kObjects[] = {
    "/pps/zelmar/system/version_status", "/pps/zelmar/system/zmversion_status",
    "/pps/zelmar/navigation/systeminfo", "/pps/zelmar/navigation/status",
    "/pps/zelmar/navigator/nowplaying",  "/pps/services/bluetooth/btmonitorstatus",
    "/pps/zelmar/disc/playing",          "/pps/zelmar/disc/status",
    "/pps/zelmar/disc/setting_status",   "/pps/services/bluetooth/settings",
    "/pps/zelmar/setting/systeminfo",    "/pps/zelmar/media/zmusb/status",
    "/pps/zelmar/media/zmsd/status",     "/pps/zelmar/disc/device",
    "/pps/zelmar/disc/mpeginfo",         "/pps/services/geolocation/control",
    "/pps/zelmar/system/dev_status",
};
const std::size_t kObjectCount = sizeof(kObjects) / sizeof(kObjects[0]);

// Number of open descriptors among the lowest ones: all that there are here.
int CountDescriptors() {
  pollfd entries[128];
  for (int i = 0; i < 128; ++i) entries[i] = pollfd{i, 0, 0};
  ::poll(entries, 128, 0);
  return static_cast<int>(
      std::count_if(std::begin(entries), std::end(entries),
                    [](const pollfd& e) { return (e.revents & POLLNVAL) == 0; }));
}

// The unit, and the service without its delivery thread: packets are handed over here. Its replies
// go to the unit's MCU, which has no station and drops them.
class Service {
 public:
  Service() {
    headunit::UnitOptions options;
    options.root = root_.path();
    options.profile = headunit::DefaultProfile();
    options.services = false;
    unit_ = std::make_unique<headunit::Unit>(options);
    fuzz::Require(unit_->Start().empty(), "the unit starts");
    fuzz::Require(::chdir(root_.path().c_str()) == 0, "the root is there");
    // Without its script the calibration command fails at once instead of waiting for it.
    ::unlink((root_.path() + kCalibrationScript).c_str());
    for (const char* path : kObjects) profile_.push_back(Read(path));
    service_ = std::make_unique<ATController>();
    service_->Init();
    Give(wire::BuildRequest(5, 0, {}));                           // opens what stays open
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // see CheckDescriptors
    descriptors_ = CountDescriptors();
  }

  ~Service() {
    service_->Stop();
    service_->Close();
    service_.reset();
    unit_->Stop();
  }

  void Run(fuzz::Input input) {
    while (!input.empty()) {
      const std::uint8_t operation = input.Byte();
      const std::string piece = input.Piece();
      switch (operation & 3) {
        case 0:
          Give(Bytes(piece.begin(), piece.end()));
          break;
        case 1:
          GiveRequest(piece);
          break;
        case 2:
          GiveRecord(piece);
          break;
        default:
          Write((operation >> 2) % kObjectCount, piece);
          break;
      }
    }
    CheckDescriptors();
    for (const std::size_t object : written_) SetText(object, profile_[object]);
    written_.clear();
  }

 private:
  // In a block of exactly the packet's size, as the sanitizer sees it.
  void Give(Bytes packet) {
    packet.shrink_to_fit();
    service_->OnRecvData(packet.data(), static_cast<int>(packet.size()));
  }

  void GiveRequest(const std::string& piece) {
    fuzz::Input bytes(reinterpret_cast<const std::uint8_t*>(piece.data()), piece.size());
    const std::uint8_t command = bytes.Byte();
    const std::uint8_t sub_command = bytes.Byte();
    const std::string parameters = bytes.Take(wire::kMaxParameters);
    Give(wire::BuildRequest(command, sub_command, Bytes(parameters.begin(), parameters.end())));
  }

  void GiveRecord(const std::string& piece) {
    if (piece.empty()) return;
    Bytes packet = wire::BuildRequest(0, 0, Bytes());
    const std::size_t record = wire::kHeaderSize + wire::kLinkSize;
    packet[record + wire::kRecordLengthOffset] = static_cast<std::uint8_t>(piece[0]);
    packet.resize(record + wire::kRecordCommandOffset);
    packet.insert(packet.end(), piece.begin() + 1, piece.end());
    wire::StoreLe32(packet.data(), static_cast<std::uint32_t>(packet.size() - wire::kHeaderSize));
    Give(packet);
  }

  void Write(std::size_t object, const std::string& text) {
    written_.insert(object);
    SetText(object, text);
  }

  static void SetText(std::size_t object, const std::string& text) {
    const int fd = platform::open(kObjects[object], O_WRONLY | O_CREAT | O_TRUNC, 0666);
    fuzz::Require(fd >= 0, "an object can be written");
    platform::write(fd, text.data(), text.size());
    ::close(fd);
  }

  static std::string Read(const char* path) {
    const int fd = platform::open(path, O_RDONLY);
    if (fd < 0) return "";
    std::string text(1 << 16, '\0');
    const ssize_t size = ::read(fd, text.data(), text.size());
    ::close(fd);
    text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return text;
  }

  // The unit closes its side of a connection a moment after the service has closed its own.
  void CheckDescriptors() const {
    for (int patience = 2000; CountDescriptors() > descriptors_; --patience) {
      fuzz::Require(patience > 0, "no descriptor stays open");
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  const support::TempRoot root_;
  std::unique_ptr<headunit::Unit> unit_;
  std::unique_ptr<ATController> service_;
  std::vector<std::string> profile_;  // texts of the objects at the start
  std::set<std::size_t> written_;
  int descriptors_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Service service;
  service.Run(fuzz::Input(data, size));
  return 0;
}
