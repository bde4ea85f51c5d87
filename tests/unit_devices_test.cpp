// The unit's devices with control requests: the system information driver and the I2C bus.
#include <devctl.h>
#include <errno.h>
#include <fcntl.h>

#include <cstring>
#include <filesystem>

#include "platform/io.h"
#include "support/fixture.h"
#include "support/raw_client.h"
#include "wire/devices.h"

namespace support {
namespace {

const char kSysInfo[] = "/dev/sysinfo";
const char kI2c[] = "/dev/i2c4";

std::string Word(std::uint32_t value) {
  std::string bytes(sizeof(value), '\0');
  std::memcpy(&bytes[0], &value, sizeof(value));
  return bytes;
}

std::string Words(const std::vector<std::uint32_t>& values) {
  std::string bytes;
  for (const std::uint32_t value : values) bytes += Word(value);
  return bytes;
}

std::string Padded(std::string bytes, std::size_t size) {
  bytes.resize(size);
  return bytes;
}

class DevicesTest : public UnitTest {
 protected:
  // The whole answer to one control request, byte by byte.
  static std::string Ask(const RawClient& device, const std::string& message) {
    EXPECT_TRUE(device.Send(message));
    return device.Receive().value_or("none");
  }

  static std::string Read(std::uint32_t dcmd) {
    const RawClient device(kSysInfo, "", O_RDWR);
    return Ask(device, Words({dcmd, sizeof(sysinfo_param_t)}));
  }

  static std::string Burn(std::uint32_t dcmd, const std::string& record) {
    const RawClient device(kSysInfo, "", O_RDWR);
    return Ask(device, Words({dcmd, static_cast<std::uint32_t>(record.size())}) + record);
  }

  static int SetSpeed(std::size_t size = sizeof(std::uint32_t)) {
    const int fd = platform::open(kI2c, O_RDWR);
    std::uint32_t speed = 32000;
    const int result = devctl(fd, static_cast<int>(DCMD_I2C_SET_BUS_SPEED), &speed, size, nullptr);
    close(fd);
    return result;
  }

  // Sends or receives through devctl, as a driver's client does; returns its error number.
  static int Transfer(std::uint32_t dcmd, std::uint32_t slave, std::uint32_t length,
                      I2cTransfer* transfer, std::uint32_t format = I2C_ADDRFMT_7BIT) {
    const int fd = platform::open(kI2c, O_RDWR);
    EXPECT_GE(fd, 0);
    transfer->header = {slave, format, length, 1};
    const int result = devctl(fd, static_cast<int>(dcmd), transfer, sizeof(*transfer), nullptr);
    close(fd);
    return result;
  }

  static int Send(const std::string& bytes, std::uint32_t slave = 0x11) {
    I2cTransfer transfer = {};
    std::memcpy(transfer.data, bytes.data(), bytes.size());
    return Transfer(DCMD_I2C_SEND, slave, static_cast<std::uint32_t>(bytes.size()), &transfer);
  }

  static std::string Receive(std::uint32_t count) {
    I2cTransfer transfer = {};
    EXPECT_EQ(0, Transfer(DCMD_I2C_RECV, 0x11, count, &transfer));
    return std::string(reinterpret_cast<const char*>(transfer.data), count);
  }
};

TEST_F(DevicesTest, IdentitiesAreKeptToTheByteAndSurviveARestart) {
  EXPECT_EQ(Word(0) + Padded("", 32) + Word(16), Read(DCMD_SYS_INFO_GET_UUID));
  EXPECT_EQ(Word(0) + Padded("", 32) + Word(20), Read(DCMD_SYS_INFO_GET_BAR_CODE));

  std::string every_byte;
  for (int i = 0; i < 32; ++i) every_byte += static_cast<char>(255 - 8 * i);
  EXPECT_EQ(Word(0), Burn(DCMD_SYS_INFO_SET_UUID, every_byte + Word(16)));
  EXPECT_EQ(Word(0), Burn(DCMD_SYS_INFO_SET_BAR_CODE, Padded("SN-0123456789", 32) + Word(13)));
  EXPECT_EQ(Word(0) + every_byte + Word(16), Read(DCMD_SYS_INFO_GET_UUID));

  unit_->Stop();
  ASSERT_EQ("", unit_->Start());
  EXPECT_EQ(Word(0) + every_byte + Word(16), Read(DCMD_SYS_INFO_GET_UUID));
  EXPECT_EQ(Word(0) + Padded("SN-0123456789", 32) + Word(13), Read(DCMD_SYS_INFO_GET_BAR_CODE));

  // Lengths outside the record are bounded to it.
  EXPECT_EQ(Word(0), Burn(DCMD_SYS_INFO_SET_UUID, Padded("a", 32) + Word(33)));
  EXPECT_EQ(Word(0) + Padded("a", 32) + Word(32), Read(DCMD_SYS_INFO_GET_UUID));
  EXPECT_EQ(Word(0), Burn(DCMD_SYS_INFO_SET_UUID, Padded("a", 32) + Word(0xFFFFFFFF)));
  EXPECT_EQ(Word(0) + Padded("a", 32) + Word(0), Read(DCMD_SYS_INFO_GET_UUID));
}

TEST_F(DevicesTest, ADamagedStoreStopsTheUnitInsteadOfLosingIdentities) {
  unit_->Stop();
  const std::string damaged[] = {"uuid 16 abc\n", "uuid 99 " + std::string(64, '0') + "\n",
                                 "what 1 2\n", "uuid 16 " + std::string(64, 'g') + "\n",
                                 "barcode\n"};
  for (const std::string& text : damaged) {
    root_.AddFile("/var/headunit/sysinfo", text);
    EXPECT_PRED2(Contains, unit_->Start(), "/sysinfo: not a store") << text;
  }
  std::filesystem::remove(root_.path() + "/var/headunit/sysinfo");
  EXPECT_EQ("", unit_->Start());
}

TEST_F(DevicesTest, MalformedControlRequestsAreRefused) {
  for (const char* path : {kSysInfo, kI2c}) {
    SCOPED_TRACE(path);
    const RawClient device(path, "", O_RDWR);
    const std::string record(sizeof(sysinfo_param_t), 'r');
    const std::uint32_t set = DCMD_SYS_INFO_SET_UUID;
    EXPECT_EQ(Word(EINVAL), Ask(device, ""));
    EXPECT_EQ(Word(EINVAL), Ask(device, "1234567"));
    EXPECT_EQ(Word(EINVAL), Ask(device, Words({set, 36})));                 // data missing
    EXPECT_EQ(Word(EINVAL), Ask(device, Words({set, 36}) + record + "x"));  // too much
    EXPECT_EQ(Word(EINVAL), Ask(device, Words({DCMD_SYS_INFO_GET_UUID, 36}) + record));
    EXPECT_EQ(Word(EINVAL), Ask(device, Words({DCMD_SYS_INFO_GET_UUID, 0x7FFFFFFF})));
    EXPECT_EQ(Word(EINVAL), Ask(device, Words({DCMD_I2C_SEND, 0xFFFFFFFF})));
    EXPECT_EQ(Word(ENOTTY), Ask(device, Words({0x40240599, 36})));
    EXPECT_EQ(Word(ENOTTY), Ask(device, Words({0, 0})));
  }
  EXPECT_EQ(Word(EINVAL), Burn(DCMD_SYS_INFO_SET_UUID, std::string(35, 'r')));
  EXPECT_EQ(Word(EINVAL), Burn(DCMD_SYS_INFO_SET_UUID, std::string(37, 'r')));
  const RawClient device(kSysInfo, "", O_RDWR);
  EXPECT_EQ(Word(EINVAL), Ask(device, Words({DCMD_SYS_INFO_GET_UUID, 35})));
  EXPECT_EQ(Word(0) + Padded("", 32) + Word(16), Read(DCMD_SYS_INFO_GET_UUID));
}

TEST_F(DevicesTest, TheDriverCanBeTold) {
  EXPECT_EQ("ok", Control("sysinfo fail"));
  EXPECT_EQ(Word(EIO), Read(DCMD_SYS_INFO_GET_UUID));
  EXPECT_EQ("ok", Control("sysinfo fail 5"));
  EXPECT_EQ(Word(5), Burn(DCMD_SYS_INFO_SET_UUID, Padded("lost", 36)));
  EXPECT_EQ("ok", Control("sysinfo ok"));
  EXPECT_EQ("ok", Control("sysinfo length -7"));
  EXPECT_EQ(Word(0) + Padded("", 32) + Word(0xFFFFFFF9), Read(DCMD_SYS_INFO_GET_UUID));
  EXPECT_EQ("ok", Control("sysinfo ok"));
  EXPECT_EQ(Word(0), Burn(DCMD_SYS_INFO_SET_BAR_CODE, Padded("A\x01Z", 32) + Word(3)));
  EXPECT_EQ("ok uuid 16 '................' barcode 3 'A.Z'", Control("sysinfo show"));
}

TEST_F(DevicesTest, TheChipIsARegisterFile) {
  EXPECT_EQ(0, Send("\x04"));
  EXPECT_EQ(std::string("\x00\x00\x02\x00", 4), Receive(4));
  EXPECT_EQ(std::string("\x00\x00\x02", 3), Receive(3));  // the pointer stays
  EXPECT_EQ(0, Send("\x06"));
  EXPECT_EQ(std::string("\x02\x00", 2), Receive(2));

  EXPECT_EQ(0, Send("\xFE"
                    "abc"));  // runs over the last register
  EXPECT_EQ(0, Send("\xFE"));
  EXPECT_EQ("abc", Receive(3));
  EXPECT_EQ(512u, Receive(512).size());

  const int fd = platform::open(kI2c, O_RDWR);
  I2cSendRecv both = {};
  both.header = {0x11, I2C_ADDRFMT_7BIT, 1, 4, 1};
  both.data[0] = 0x04;
  EXPECT_EQ(0, devctl(fd, static_cast<int>(DCMD_I2C_SENDRECV), &both, sizeof(both), nullptr));
  EXPECT_EQ(0, std::memcmp(both.data, "\x00\x00\x02\x00", 4));
  both.header.recv_length = kI2cDataSize + 1;
  EXPECT_EQ(EINVAL, devctl(fd, static_cast<int>(DCMD_I2C_SENDRECV), &both, sizeof(both), nullptr));
  close(fd);
  EXPECT_EQ(0, SetSpeed());
  EXPECT_EQ(EINVAL, SetSpeed(3));

  I2cTransfer transfer = {};
  EXPECT_EQ(EIO, Transfer(DCMD_I2C_SEND, 0x12, 1, &transfer));
  EXPECT_EQ(EIO, Transfer(DCMD_I2C_RECV, 0x1A, 1, &transfer));
  EXPECT_EQ(EINVAL, Transfer(DCMD_I2C_SEND, 0x11, 1, &transfer, 1));
  EXPECT_EQ(EINVAL, Transfer(DCMD_I2C_SEND, 0x11, kI2cDataSize + 1, &transfer));
  EXPECT_EQ(EINVAL, Transfer(DCMD_I2C_RECV, 0x11, 0xFFFFFFFF, &transfer));
}

TEST_F(DevicesTest, TheBusCanBeToldToFailAndCounts) {
  EXPECT_EQ("ok", Control("i2c reset"));
  EXPECT_EQ("ok", Control("i2c fail-send 2"));
  EXPECT_EQ("ok", Control("i2c fail-recv 1"));
  EXPECT_EQ(EIO, Send("\x04"));
  EXPECT_EQ(EIO, Send("\x04"));
  EXPECT_EQ(0, Send("\x04"));
  I2cTransfer transfer = {};
  EXPECT_EQ(EIO, Transfer(DCMD_I2C_RECV, 0x11, 4, &transfer));
  EXPECT_EQ("ok", Control("i2c identity 01 ff 02 a"));
  EXPECT_EQ("\x01\xff\x02\x0a", Receive(4));

  EXPECT_EQ("ok", Control("i2c speed refuse"));
  EXPECT_EQ(EINVAL, SetSpeed());
  EXPECT_EQ("ok", Control("i2c speed accept"));
  EXPECT_EQ(0, SetSpeed());
  EXPECT_EQ("ok speeds 2 sends 3 receives 2 transfers 0 speed 32000", Control("i2c counters"));
  EXPECT_EQ(
      "ok send 0x11 1: 04 failed\nsend 0x11 1: 04 failed\nsend 0x11 1: 04\n"
      "recv 0x11 4: 00 00 00 00 failed\nrecv 0x11 4: 01 ff 02 0a",
      Control("i2c log"));

  EXPECT_EQ("ok", Control("i2c reset"));
  EXPECT_EQ(0, Send("\x04"));
  EXPECT_EQ(std::string("\x00\x00\x02\x00", 4), Receive(4));
  EXPECT_EQ("ok speeds 0 sends 1 receives 1 transfers 0 speed 32000", Control("i2c counters"));
}

}  // namespace
}  // namespace support
