// Command 10 against a driver and a PPS manager that record every byte.

#include <algorithm>
#include <climits>

#include "support/recorder.h"

namespace support {
namespace {

const std::uint8_t kBurnInfo = 10;
const std::uint8_t kWriteSN = 2;
const std::uint8_t kReadSN = 3;
const std::uint8_t kWriteUUID = 10;
const std::uint8_t kReadUUID = 11;
const std::size_t kIdentity = 32;

Bytes Record(const Bytes& identity, std::int32_t length) {
  return Join(Padded(identity, kIdentity), Words({static_cast<std::uint32_t>(length)}));
}

Bytes Accepted(const Bytes& data = {}) { return Join(Words({0}), data); }

// The one request that reached the driver.
Lines Request(std::uint32_t number, const Bytes& record = {}) {
  return {"rw 0 " + Shown(Join(Words({number, 36}), record))};
}

Lines Published(const std::string& serial) {
  return {"wc 666 /zelmar/system/hostsn sn::" + serial};
}

class BurnInfoTest : public RecordedService {
 protected:
  void SetUp() override {
    RecordedService::SetUp();
    driver_ = std::make_unique<Recorder>(root_, "/dev/sysinfo");
    driver_->answer = [](const Bytes&) { return Accepted(); };
  }

  std::unique_ptr<Recorder> driver_;
};

TEST_F(BurnInfoTest, AWriteSendsTheWholeRecordAndASerialIsPublished) {
  struct Case {
    std::uint8_t sub_command;
    Bytes parameters;
    std::string identity;
  } const cases[] = {{kWriteUUID, Text("0123456789abcdef"), "0123456789abcdef"},
                     {kWriteUUID, {}, ""},
                     {kWriteUUID, Bytes(kIdentity, 'u'), std::string(kIdentity, 'u')},
                     {kWriteUUID, Padded(Text("short"), 254), "short"},
                     {kWriteSN, Text("SN-0123456789ABCDEF1"), "SN-0123456789ABCDEF1"},
                     {kWriteSN, Join(Text("SN"), {0, 'x'}), "SN"},
                     {kWriteSN, {}, ""}};
  for (const Case& c : cases) {
    const bool serial = c.sub_command == kWriteSN;
    const auto dcmd = serial ? 0x8024050AU : 0x80240506U;
    Do(kBurnInfo, c.sub_command, c.parameters);
    EXPECT_EQ(driver_->Take(), Request(dcmd, Record(Text(c.identity), serial ? 20 : 16)));
    EXPECT_EQ(asked, serial ? Published(c.identity) : Lines());
    EXPECT_EQ(log_->Texts(5), serial ? Lines{"_KRV_[WritePPS]-sn::" + c.identity} : Lines());
    EXPECT_EQ(Output(), serial ? "SetMachineSN: success \n" : "SetUUID: success \n");
    EXPECT_EQ(told, "cmd_UUID_sub_write(cmd:'" + std::to_string(c.sub_command) + "') \n");
  }
}

TEST_F(BurnInfoTest, ALongIdentityIsRefusedWhole) {
  station_->Do(kBurnInfo, kWriteUUID, Bytes(kIdentity + 1, 'x'));
  station_->Do(kBurnInfo, kWriteSN, Bytes(254, 'x'));
  EXPECT_EQ(driver_->Take(), Lines());
  EXPECT_EQ(pps_->Take(), Lines());
  EXPECT_EQ(Output(),
            "SetUUID: identity of 33 bytes does not fit 32 \n"
            "SetMachineSN: identity of 254 bytes does not fit 32 \n");
}

TEST_F(BurnInfoTest, ADriverThatRefusesOrIsMissing) {
  const auto write_both = [this](const std::string& uuid_error, const std::string& serial_error) {
    Do(kBurnInfo, kWriteUUID, Text("u"));
    EXPECT_EQ(Output(), "SetUUID: " + uuid_error + " \n");
    Do(kBurnInfo, kWriteSN, Text("unkept"));
    EXPECT_EQ(Output(), "SetMachineSN: " + serial_error + " \n");
    EXPECT_EQ(asked, Published("unkept"));
  };
  driver_->answer = [](const Bytes&) { return Words({EROFS}); };
  write_both("DCMD_SYS_INFO_SET_UUID: devctl failed, errno=30",
             "DCMD_SYS_INFO_SET_BAR_CODE: devctl failed, errno=30");
  driver_.reset();
  write_both("open /dev/sysinfo failed!", "open /dev/sysinfo failed!");
  EXPECT_EQ(Ask(kBurnInfo, kReadUUID), Bytes(16));
  EXPECT_EQ(told, "cmd_UUID_sub_read!(cmd:'11') \nopen /dev/sysinfo failed!\n");
  EXPECT_EQ(Ask(kBurnInfo, kReadSN), Bytes(20));
  EXPECT_EQ(told, "cmd_UUID_sub_read!(cmd:'3') \nopen /dev/sysinfo failed!\n");
}

TEST_F(BurnInfoTest, AReadRepliesWithAsManyBytesAsTheDriverReports) {
  const std::string text = "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345";
  const Bytes full = Text(text);
  Bytes holed = full;  // zero bytes within the length are the identity's own
  holed[3] = holed[15] = 0;
  const int failed = -1;
  struct Case {
    std::optional<Bytes> answer;  // of the driver
    int length;                   // of the reply
    int error;                    // that is told, when it failed
  } const cases[] = {{Accepted(Record(full, 16)), 16, 0},
                     {Accepted(Record(full, 32)), 32, 0},
                     {Accepted(Record(holed, 16)), 16, 0},
                     {Accepted(Record(full, 33)), 32, 0},
                     {Accepted(Record(full, INT_MAX)), 32, 0},
                     {Accepted(Record(full, 0)), 0, 0},
                     {Accepted(Record(full, INT_MIN)), 0, 0},
                     {Accepted(Padded(Record(full, 20), 5000)), 20, 0},
                     {Words({EACCES}), failed, EACCES},
                     {Join(Words({ENXIO}), Record(full, 16)), failed, ENXIO},
                     {Accepted(Padded(full, 35)), failed, EIO},
                     {Bytes{0, 0, 0}, failed, EIO},
                     {Bytes(), failed, EIO},
                     {std::nullopt, failed, EIO}};
  for (const Case& c : cases) {
    driver_->answer = [&](const Bytes&) { return c.answer; };
    for (const bool serial : {false, true}) {
      const std::string name = serial ? "DCMD_SYS_INFO_GET_BAR_CODE" : "DCMD_SYS_INFO_GET_UUID";
      const Bytes reply = Ask(kBurnInfo, serial ? kReadSN : kReadUUID);
      EXPECT_EQ(driver_->Take(), Request(serial ? 0x40240509U : 0x40240501U));
      const Bytes& held = &c == &cases[2] ? holed : full;
      const Bytes identity(held.begin(), held.begin() + std::max(0, c.length));
      EXPECT_EQ(Hex(reply), Hex(c.length == failed ? Bytes(serial ? 20 : 16) : identity));
      std::string expected =
          serial ? "cmd_UUID_sub_read!(cmd:'3') \n" : "cmd_UUID_sub_read!(cmd:'11') \n";
      if (c.length == failed) {
        expected += name + ": devctl failed, errno=" + std::to_string(c.error) + " \n";
      } else if (!serial) {
        expected += "param.length = " + std::to_string(c.length) + " UUID(" +
                    std::string(held.begin(), std::find(held.begin(), held.end(), 0)) + ")\n";
      }
      EXPECT_EQ(told, expected);
    }
  }
}

}  // namespace
}  // namespace support
