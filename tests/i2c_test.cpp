// The I2C functions in this process against a bus that records every byte, and command 12.

#include <unistd.h>

#include <climits>
#include <cstring>
#include <regex>

#include "i2c_devctl.h"
#include "support/recorder.h"

namespace support {
namespace {

const char kBus[] = "/dev/i2c4";
const std::uint32_t kSpeed = 0x80040502;
const std::uint32_t kSend = 0x80100505;
const std::uint32_t kReceive = 0xC0100506;
const std::uint32_t kSendReceive = 0xC0140507;
const std::size_t kArea = 512;
const Bytes kIdentity = {0x00, 0x00, 0x02, 0x00};
const Bytes kUntouched(600, 0xEE);

// Requests as the bus tells of them.
std::string Request(const std::vector<std::uint32_t>& header, const Bytes& data) {
  return " " + Shown(Join(Words(header), Padded(data, kArea)));
}

std::string SendRequest(std::uint32_t slave, const Bytes& data) {
  return Request({kSend, 528, slave, 2, static_cast<std::uint32_t>(data.size()), 1}, data);
}

std::string ReceiveRequest(std::uint32_t length) {
  return Request({kReceive, 528, 0x11, 2, length, 1}, {});
}

std::string OpenAt(std::uint32_t speed) { return "rw 0 " + Shown(Words({kSpeed, 4, speed})); }

std::string Repeated(int count, const std::string& request) {
  return count == 0 ? "" : request + Repeated(count - 1, request);
}

// A bus whose receives deliver `data`. The next `failing` requests with `failing_number` get
// `failure`.
class Bus : public Recorder {
 public:
  explicit Bus(const TempRoot& root) : Recorder(root, kBus) {
    answer = [this](const Bytes& message) -> std::optional<Bytes> {
      std::uint32_t number = 0;
      std::memcpy(&number, message.data(), sizeof(number));
      if (number == failing_number && failing-- > 0) return Words({EIO});
      if (number != kReceive && number != kSendReceive) return Words({0});
      const Bytes header(message.begin() + 8, message.begin() + (number == kReceive ? 24 : 28));
      return Join(Words({0}), Join(header, Padded(data, kArea)));
    };
  }

  Bytes data = kIdentity;
  std::uint32_t failing_number = 0;
  int failing = 0;

  // Opens the bus, does `work` and returns the requests behind the one that sets the speed.
  std::string Do(const std::function<void(int bus)>& work) {
    const int bus = open_i2c(kBus, 100000, 0);
    EXPECT_GE(bus, 0);
    work(bus);
    EXPECT_EQ(close_i2c(bus), 0);
    const Lines files = Take();
    EXPECT_EQ(files.size(), 1U);
    EXPECT_EQ(files.at(0).find(OpenAt(100000)), 0U);
    return files.at(0).substr(OpenAt(100000).size());
  }
};

class I2cTest : public ::testing::Test {
 protected:
  TempRoot root_;
  Bus bus_{root_};
};

TEST_F(I2cTest, AWriteSendsItsRegisterAndDataInOneRecord) {
  struct Case {
    std::uint32_t slave, reg, width;
    Bytes data;
    Bytes sent;  // none: refused
  } const cases[] = {{0x50, 0x0102, 2, {7, 8, 9}, {1, 2, 7, 8, 9}},
                     {0x50, 0xFFFF0102, 1, {7}, {2, 7}},
                     {0x11, 4, 1, {}, {4}},
                     {0x1A, 5, 1, {0x01, 0x23}, {0x0B, 0x23}},
                     {0x1A, 5, 1, {0xFE, 0x23, 0x99}, {0x0A, 0x23}},
                     {0x1A, 0xFF, 1, {0x01}, {0xFF, 0}},
                     {0x1A, 0x0102, 2, {7, 8, 9}, {1, 2}},
                     {0x50, 3, 1, Bytes(511, 9), Join({3}, Bytes(511, 9))},
                     {0x50, 3, 2, Bytes(510, 9), Join({0, 3}, Bytes(510, 9))},
                     {0x50, 3, 1, Bytes(512, 9), {}},
                     {0x50, 3, 2, Bytes(511, 9), {}},
                     {0x50, 3, 0, {1}, {}},
                     {0x1A, 3, UINT_MAX, {1}, {}}};
  for (const Case& c : cases) {
    const auto length = static_cast<std::uint32_t>(c.data.size());
    int result = 1;
    ::testing::internal::CaptureStderr();
    const std::string requests = bus_.Do([&](int bus) {
      result = i2c_write(bus, c.slave, c.reg, c.width, c.data.data(), length, 0);
    });
    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, c.sent.empty() ? -1 : 0);
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), c.sent.empty() ? 1 : 0) << errors;
    EXPECT_EQ(requests, c.sent.empty() ? "" : SendRequest(c.slave, c.sent));
  }
}

TEST_F(I2cTest, AReadIsASendAndAReceiveACombinedOneASingleTransfer) {
  bus_.data.resize(kArea);
  for (std::size_t i = 0; i < kArea; ++i) bus_.data[i] = static_cast<std::uint8_t>(i * 7);
  for (const std::uint32_t length : {0U, 1U, 4U, 512U}) {
    Bytes separate = kUntouched;
    Bytes combined = kUntouched;
    const std::string requests = bus_.Do([&](int bus) {
      EXPECT_EQ(i2c_read(bus, 0x11, 4, 1, separate.data(), length, 0), 0);
      EXPECT_EQ(i2c_send_recv(bus, 0x11, 0x0102, 2, combined.data(), length, 0), 0);
    });
    EXPECT_EQ(requests, SendRequest(0x11, {4}) + ReceiveRequest(length) +
                            Request({kSendReceive, 532, 0x11, 2, 2, length, 1}, {1, 2}));
    EXPECT_EQ(separate, Join(Padded(bus_.data, length), Bytes(kUntouched.size() - length, 0xEE)));
    EXPECT_EQ(combined, separate);
  }
  for (const std::uint32_t length : {513U, UINT_MAX}) {
    Bytes read = kUntouched;
    ::testing::internal::CaptureStderr();
    const std::string requests = bus_.Do([&](int bus) {
      EXPECT_EQ(i2c_read(bus, 0x11, 4, 1, read.data(), length, 0), -1);
      EXPECT_EQ(i2c_send_recv(bus, 0x11, 4, 1, read.data(), length, 0), -1);
      EXPECT_EQ(i2c_send_recv(bus, 0x11, 4, 3, read.data(), 1, 0), -1);
      EXPECT_EQ(i2c_read(bus, 0x11, 4, 0, read.data(), 1, 0), -1);
    });
    const std::string line =
        "i2c_read(): recv too large (" + std::to_string(static_cast<int>(length)) + " bytes) \n";
    EXPECT_EQ(::testing::internal::GetCapturedStderr().rfind(line, 0), 0U);
    EXPECT_EQ(read, kUntouched);
    EXPECT_EQ(requests, "");
  }
}

TEST_F(I2cTest, EachTransferIsTriedFiveTimesAndAFailedOneLeavesTheDestinationAlone) {
  const std::string send = SendRequest(0x11, {4});
  const std::string receive = ReceiveRequest(4);
  const std::string combined = Request({kSendReceive, 532, 0x11, 2, 1, 4, 1}, {4});
  struct Case {
    std::uint32_t number;
    int failing;
    std::string requests;
  } const cases[] = {
      {kSend, 4, Repeated(5, send) + receive},    {kSend, 5, Repeated(5, send)},
      {kReceive, 4, send + Repeated(5, receive)}, {kReceive, 5, send + Repeated(5, receive)},
      {kSendReceive, 4, Repeated(5, combined)},   {kSendReceive, 5, Repeated(5, combined)},
  };
  for (const Case& c : cases) {
    bus_.failing_number = c.number;
    bus_.failing = c.failing;
    Bytes read = kUntouched;
    EXPECT_EQ(c.requests, bus_.Do([&](int bus) {
      const auto transfer = c.number == kSendReceive ? i2c_send_recv : i2c_read;
      EXPECT_EQ(transfer(bus, 0x11, 4, 1, read.data(), 4, 0), c.failing == 5 ? -1 : 0);
    }));
    EXPECT_EQ(Bytes(read.begin(), read.begin() + 4), c.failing == 5 ? Bytes(4, 0xEE) : kIdentity);
    EXPECT_EQ(Bytes(read.begin() + 4, read.end()), Bytes(read.size() - 4, 0xEE));
  }
}

TEST_F(I2cTest, WhatIsPrinted) {
  const int descriptors = CountDescriptors(::getpid());
  const std::uint8_t value[] = {0x01, 0x23};
  Bytes read(4);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(open_i2c("/dev/i2c9", 1, 1), -1);
  bus_.failing_number = kSpeed;
  bus_.failing = 1;
  EXPECT_EQ(open_i2c(kBus, 400000, 0), -1);
  const int bus = open_i2c(kBus, 32000, 1);
  bus_.failing_number = kReceive;
  bus_.failing = 5;
  i2c_read(bus, 0x11, 4, 1, read.data(), 4, 1);
  bus_.failing_number = kSend;
  bus_.failing = 5;
  i2c_write(bus, 0x11, 4, 1, nullptr, 0, 1);
  i2c_write(bus, 0x1A, 5, 1, value, 2, 1);
  i2c_write(bus, 0x50, 0x102, 2, value, 2, 1);
  i2c_send_recv(bus, 0x11, 4, 1, read.data(), 4, 1);
  close_i2c(bus);
  i2c_show_buf(value, 2);
  i2c_show_buf(value, 0);
  char handle[24];
  std::snprintf(handle, sizeof(handle), "handle=0x%x,", static_cast<unsigned>(bus));
  const std::string output = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(std::regex_replace(output, std::regex(handle), "H"),
            R"(open_i2c(): open /dev/i2c9 failed, error=No such file or directory 
open_i2c(): set speed failed, error=Input/output error 
speed=32000 
i2c_write(): H slave=0x11, reg=0x4, size=0 
11 00 00 00 02 00 00 00 01 00 00 00 01 00 00 00 : 04 
i2c_read(): H slave=0x11, size=4 
11 00 00 00 02 00 00 00 04 00 00 00 01 00 00 00 : 00 00 00 00 
i2c_read(): read value failed. ret=5 
i2c_read(): read value failed. ret=5 
i2c_read(): read value failed. ret=5 
i2c_read(): read value failed. ret=5 
i2c_read(): read value failed. ret=5 
i2c_read(): MAX try error 
i2c_write(): H slave=0x11, reg=0x4, size=0 
11 00 00 00 02 00 00 00 01 00 00 00 01 00 00 00 : 04 
i2c_write(): devctl failed. ret=5 
i2c_write(): devctl failed. ret=5 
i2c_write(): devctl failed. ret=5 
i2c_write(): devctl failed. ret=5 
i2c_write(): devctl failed. ret=5 
i2c_write(): MAX try error 
i2c_write(): H slave=0x1a, reg=0x5, size=2 
1a 00 00 00 02 00 00 00 02 00 00 00 01 00 00 00 : 0b 23 00 00 
i2c_write(): H slave=0x50, reg=0x102, size=2 
50 00 00 00 02 00 00 00 04 00 00 00 01 00 00 00 : 01 02 01 23 
i2c_send_recv(): slave=0x11, reg=0x4, size=4 
11 00 00 00 02 00 00 00 01 00 00 00 04 00 00 00 01 00 00 00 : 04 00 00 00 
01 23 0 length)");
  bus_.Take();
  // The bus, in this process too, lets go of a file a moment after it was closed.
  EXPECT_TRUE(Eventually([&] { return CountDescriptors(::getpid()) == descriptors; }));
  EXPECT_FALSE(isDataValid(kIdentity.data(), 2));
  EXPECT_FALSE(isDataValid(nullptr, 0));
  EXPECT_TRUE(isDataValid(kIdentity.data(), 4));
}

class ChipTest : public ServiceOnUnit {};

TEST_F(ChipTest, OnlyTheExpectedIdentityPasses) {
  const std::uint8_t kMacAuth = 12;
  EXPECT_EQ(unit_->Control("i2c absent"), "ok");
  EXPECT_EQ(station_->Ask(kMacAuth, 0), Bytes{0});
  EXPECT_EQ(Output(), "open_i2c(): open /dev/i2c4 failed, error=No such device or address \n");
  Bus bus(root_);
  const std::string send = OpenAt(32000) + SendRequest(0x11, {4});
  struct Case {
    Bytes identity;
    std::uint32_t failing_number;
    std::string requests;
    std::string verdict;  // printed, when the identity was read
  } const cases[] = {
      {kIdentity, 0, send + ReceiveRequest(4), "success "},
      {{0, 0, 3, 0}, 0, send + ReceiveRequest(4), "failed "},
      {{1, 0, 2, 0}, 0, send + ReceiveRequest(4), "failed "},
      {{0, 0, 2, 1}, 0, send + ReceiveRequest(4), "failed "},
      {kIdentity, kSpeed, OpenAt(32000), ""},
      {kIdentity, kSend, send + Repeated(4, SendRequest(0x11, {4})), ""},
  };
  const int descriptors = CountDescriptors(service_->pid());
  for (const Case& c : cases) {
    ASSERT_FALSE(HasFailure());
    bus.data = c.identity;
    bus.failing_number = c.failing_number;
    bus.failing = 5;
    Mark();
    EXPECT_EQ(station_->Ask(kMacAuth, 0, {1, 2}), Bytes{c.verdict == "success "});
    EXPECT_EQ(bus.Take(), Lines{c.requests});
    for (const std::string verdict : {"success ", "failed "}) {
      EXPECT_EQ(Output().find("\n" + verdict + "\n") != std::string::npos, verdict == c.verdict);
    }
    EXPECT_EQ(Errors().rfind("cmd_sub_read(cmd:'0') \n", 0), 0U) << Errors();
  }
  EXPECT_EQ(CountDescriptors(service_->pid()), descriptors);
}

}  // namespace
}  // namespace support
