#include "i2c_bus.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "qnx/text.h"
#include "wire/devices.h"

namespace headunit {
namespace {

const std::uint32_t kChipAddress = 0x11;
const std::uint8_t kIdentityRegister = 0x04;
const I2cBus::Identity kChipIdentity = {0x00, 0x00, 0x02, 0x00};
const std::size_t kLoggedTransfers = 32;
const std::size_t kLoggedBytes = 16;  // of one transfer

// Uses up one failure of those still to come.
bool TakeFailure(std::uint32_t* failures) {
  if (*failures == 0) return false;
  --*failures;
  return true;
}

int CheckAddress(std::uint32_t slave, std::uint32_t format) {
  if (format != I2C_ADDRFMT_7BIT) return EINVAL;
  return slave == kChipAddress ? 0 : EIO;  // no device acknowledges
}

}  // namespace

I2cBus::I2cBus(EventLoop* loop, std::string path) : DevctlDevice(loop, std::move(path)) { Reset(); }

I2cBus::~I2cBus() { Close(); }

void I2cBus::SetIdentity(const Identity& identity) {
  std::copy(identity.begin(), identity.end(), registers_.begin() + kIdentityRegister);
}

void I2cBus::Reset() {
  registers_.fill(0);
  SetIdentity(kChipIdentity);
  pointer_ = 0;
  absent_ = false;
  speed_refused_ = false;
  failing_sends_ = 0;
  failing_receives_ = 0;
  counters_ = I2cCounters();
  log_.clear();
}

int I2cBus::OnOpen(const std::string& rest, std::uint32_t flags, std::unique_ptr<OpenFile>* file) {
  return absent_ ? ENXIO : ResourceManager::OnOpen(rest, flags, file);
}

int I2cBus::OnAccess(const std::string& rest, std::uint32_t mode) {
  return absent_ ? ENXIO : ResourceManager::OnAccess(rest, mode);
}

int I2cBus::OnDevctl(std::uint32_t dcmd, std::string* data) {
  switch (dcmd) {
    case DCMD_I2C_SET_BUS_SPEED:
      return SetSpeed(*data);
    case DCMD_I2C_SEND:
      return Send(*data);
    case DCMD_I2C_RECV:
      return Receive(data);
    case DCMD_I2C_SENDRECV:
      return SendReceive(data);
    default:
      return ENOTTY;
  }
}

int I2cBus::SetSpeed(const std::string& data) {
  std::uint32_t speed = 0;
  if (!LoadRecord(data, &speed)) return EINVAL;
  ++counters_.speeds;
  if (speed_refused_ || speed == 0) return EINVAL;
  speed_ = speed;
  return 0;
}

int I2cBus::Send(const std::string& data) {
  I2cTransfer transfer;
  if (!LoadRecord(data, &transfer) || transfer.header.length > kI2cDataSize) return EINVAL;
  ++counters_.sends;
  int error = CheckAddress(transfer.header.slave, transfer.header.format);
  if (error == 0 && TakeFailure(&failing_sends_)) error = EIO;
  if (error == 0) Write(transfer.data, transfer.header.length);
  Note("send", transfer.header.slave, transfer.data, transfer.header.length, error);
  return error;
}

int I2cBus::Receive(std::string* data) {
  I2cTransfer transfer;
  if (!LoadRecord(*data, &transfer) || transfer.header.length > kI2cDataSize) return EINVAL;
  ++counters_.receives;
  int error = CheckAddress(transfer.header.slave, transfer.header.format);
  if (error == 0 && TakeFailure(&failing_receives_)) error = EIO;
  if (error == 0) Read(transfer.data, transfer.header.length);
  Note("recv", transfer.header.slave, transfer.data, transfer.header.length, error);
  if (error == 0) StoreRecord(transfer, data);
  return error;
}

int I2cBus::SendReceive(std::string* data) {
  I2cSendRecv transfer;
  if (!LoadRecord(*data, &transfer) || transfer.header.send_length > kI2cDataSize ||
      transfer.header.recv_length > kI2cDataSize) {
    return EINVAL;
  }
  ++counters_.transfers;
  int error = CheckAddress(transfer.header.slave, transfer.header.format);
  if (error == 0 && (TakeFailure(&failing_sends_) || TakeFailure(&failing_receives_))) error = EIO;
  Note("sendrecv", transfer.header.slave, transfer.data, transfer.header.send_length, error);
  if (error != 0) return error;
  Write(transfer.data, transfer.header.send_length);
  Read(transfer.data, transfer.header.recv_length);
  StoreRecord(transfer, data);
  return 0;
}

void I2cBus::Write(const std::uint8_t* bytes, std::size_t count) {
  if (count == 0) return;
  pointer_ = bytes[0];
  std::uint8_t target = pointer_;
  for (std::size_t i = 1; i < count; ++i) registers_[target++] = bytes[i];
}

void I2cBus::Read(std::uint8_t* bytes, std::size_t count) {
  std::uint8_t source = pointer_;
  for (std::size_t i = 0; i < count; ++i) bytes[i] = registers_[source++];
}

void I2cBus::Note(const char* what, std::uint32_t slave, const std::uint8_t* bytes,
                  std::size_t count, int error) {
  std::string line = qnx::Formatted("%s 0x%02x %zu:", what, slave, count);
  for (std::size_t i = 0; i < std::min(count, kLoggedBytes); ++i) {
    line += qnx::Formatted(" %02x", static_cast<unsigned>(bytes[i]));
  }
  if (count > kLoggedBytes) line += " ...";
  if (error != 0) line += " failed";
  if (log_.size() >= kLoggedTransfers) log_.pop_front();
  log_.push_back(std::move(line));
}

std::string I2cBus::Transfers() const {
  std::string lines;
  for (const std::string& line : log_) lines += (lines.empty() ? "" : "\n") + line;
  return lines;
}

}  // namespace headunit
