// Command 4: every text it writes, byte for byte, and every text it may find.

#include "ATCmdBt.h"
#include "support/recorder.h"

namespace support {
namespace {

const std::uint8_t kBluetooth = 4;
const std::string kAvrcp = "/services/bluetooth/avrcp/control";
const std::string kHandsfree = "/services/handsfree/control";
const std::string kSettings = "/services/bluetooth/settings";
const std::string kSystemInfo = "/zelmar/setting/systeminfo";
const std::string kSwitch = "/zelmar/setting/bt_control";
const Bytes kNoMac(6);

class BluetoothTest : public RecordedService {
 protected:
  void SetUp() override {
    RecordedService::SetUp();
    for (const auto& path : {kAvrcp, kHandsfree, kSettings, kSystemInfo, kSwitch}) {
      pps_->Hold(path, "");
    }
  }
};

TEST_F(BluetoothTest, EachWriteIsOneTextToAnObjectThatIsNotCreated) {
  const std::string call = "@control\ncommand::HFP_CALL\ncmd_data::";
  struct Case {
    std::uint8_t sub_command;
    Bytes parameters;
    std::string path, text;
  } const cases[] = {
      {0, Text("My car"), kSystemInfo, "zmlocalname::My car"},
      {0, {}, kSystemInfo, "zmlocalname::"},
      {0, Text("Kr\xC3\xBCger's: 5"), kSystemInfo, "zmlocalname::Kr\xC3\xBCger's: 5"},
      {0, Bytes(127, 'n'), kSystemInfo, "zmlocalname::" + std::string(127, 'n')},
      {0, Join(Text("cut"), Bytes(200)), kSystemInfo, "zmlocalname::cut"},
      {1, {0}, kAvrcp, "command::previous"},
      {1, {1, 9}, kAvrcp, "command::next"},
      {2, {0}, kAvrcp, "command::play"},
      {2, {1}, kAvrcp, "command::stop"},
      {3, {0}, kHandsfree, "command::HFP_ACCEPT"},
      {3, {1}, kHandsfree, "command::HFP_HANGUP"},
      {6, {0}, kHandsfree, "command::HFP_ACCEPT"},
      {6, {1}, kHandsfree, "command::HFP_HANGUP"},
      {4, Text("+4989123"), kHandsfree, call + "+4989123\n"},
      {4, {}, kHandsfree, call + "\n"},
      {4, Bytes(34, '9'), kHandsfree, call + std::string(34, '9') + "\n"},
      {5, Bytes(127, 'p'), kSettings, "pairingcode::" + std::string(127, 'p')},
      {11, {1}, kSwitch, "zmbt_switch::on"},
      {11, {0}, kSwitch, "zmbt_switch::off"},
      {14, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}, kSettings, "mac::00:1A:7D:DA:71:13"},
      {14, {0xFF, 0x09, 0xA0}, kSettings, "mac::FF:09:A0:00:00:00"},
      {14, {1, 2, 3, 4, 5, 6, 7, 8}, kSettings, "mac::01:02:03:04:05:06"}};
  for (const Case& c : cases) {
    Do(kBluetooth, c.sub_command, c.parameters);
    EXPECT_EQ(asked, Lines{"w 666 " + c.path + " " + c.text});
    EXPECT_EQ(told, "");
    EXPECT_EQ(Logged(log_.get(), {"WritePPS"}),
              c.sub_command == BT_CALL ? Lines() : Lines{"5[WritePPS]-" + c.text});
    EXPECT_EQ(log_->Texts(2), Lines());
    const std::string number = std::to_string(c.sub_command);
    EXPECT_TRUE(log_->Has(6, "_KRV_[Work]-CmdBtChgName, m_subCmd = " + number + "\n"));
  }
}

TEST_F(BluetoothTest, WhatIsOutOfRangeWritesNothing) {
  const std::string unknown = "CmdBtChgName, BT_SET_SWITCH, unknown cmd : ";
  struct Case {
    std::uint8_t sub_command;
    Bytes parameters;
    std::string error;  // at level 2
  };
  std::vector<Case> cases = {
      {11, {2}, unknown + "2\n"},
      {11, {}, unknown + "255\n"},
      {0, Bytes(128, 'n'), "text of 128 bytes does not fit 127, refused!\n"},
      {5, Bytes(254, 1), "text of 254 bytes does not fit 127, refused!\n"},
      {4, Bytes(35, '1'), "text of 35 bytes does not fit 34, refused!\n"},
      {14, Bytes(9), "MAC of 9 bytes does not fit 8, refused!\n"},
  };
  for (const std::uint8_t selects : Bytes{1, 2, 3, 6}) {
    cases.insert(cases.end(), {{selects, {}, ""}, {selects, {2}, ""}});
  }
  for (const Case& c : cases) {
    Do(kBluetooth, c.sub_command, c.parameters);
    EXPECT_EQ(asked, Lines()) << int{c.sub_command};
    EXPECT_EQ(log_->Texts(2), c.error.empty() ? Lines() : Lines{"_KRV_[Work]-" + c.error});
  }
}

TEST_F(BluetoothTest, ATextThatIsReadIsTakenAsItStandsOrReplacedByTheFallback) {
  struct Case {
    std::uint8_t sub_command;
    std::string text;  // of the object
    Bytes reply;
  } const cases[] = {
      {7, "@settings\nmac::00:1A:7D:DA:71:13\n", {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
      {7, "mac::00:1a:7d:da:71:13", {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
      {7, "mac::aB-Cd_eF g1\n", {0xAB, 0xCD, 0xEF, 0x00, 0x01}},
      {7, "mac::1::2:\n", {1, 0, 2, 0}},
      {7, "mac::1FE:FFFFFFFFFFFFFFFFFF7C\n", {0xFE, 0x7C}},
      {7, "mac::\n", {0}},
      {7, "mac::\xFF\x80\n", {0, 0, 0}},
      {7, "mac::" + std::string(125, ':') + "12\n", Bytes(126)},
      {7, "mac::" + std::string(100000, '7'), {0x77}},
      {7, "mac::12\n" + std::string(60000, 'a') + "::1\n", {0x12}},
      {7, std::string(1016, 'a') + "::1\nmac::12\n", kNoMac},
      {7, std::string("mac:\0:12\n", 9), kNoMac},
      {7, "", kNoMac},
      {13, "zmlocalname::ten  chars\n", Text("ten  chars")},
      {13, "zmlocalname::Kr\xC3\xBCger's: 5\n", Text("Kr\xC3\xBCger's: 5")},
      {13, "zmlocalname:c:K\\tr\n", Text("K\tr")},
      {13, "zmlocalname::" + std::string(126, 'x'), Bytes(125, 'x')},
      {13, "zmlocalname::" + std::string(9999, 'x'), Bytes(125, 'x')},
      {13, "zmlocalname::\n", Text("error")},
      {13, "zmlocalname:b:true\n", Text("error")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 99));
    const std::string& object = c.sub_command == BT_GET_NAME ? kSystemInfo : kSettings;
    pps_->Hold(object, c.text);
    EXPECT_EQ(Hex(Ask(kBluetooth, c.sub_command)), Hex(c.reply));
    EXPECT_EQ(asked, Lines{"r 0 " + object});
    if (c.sub_command != BT_GET_NAME) continue;
    const std::string name(c.reply.begin(), c.reply.end());
    EXPECT_TRUE(
        Eventually([&] { return log_->Has(6, "_KRV_[Work]-BT_GET_NAME, name = " + name + "\n"); }));
  }
}

TEST_F(BluetoothTest, ReadsAndFailedOpensAreTraced) {
  pps_->Hold(kSettings, "mac:n:5");
  EXPECT_EQ(Ask(kBluetooth, BT_GET_MAC_ADDR), kNoMac);
  EXPECT_EQ(Logged(log_.get(), {"Work", "GetPPSStringVal", "GetBtMacAddr"}),
            (Lines{"6[Work]-CmdBtChgName, m_subCmd = 7\n", "6[Work]-BT_GET_MAC_ADDR\n",
                   "2[GetPPSStringVal]-Cmd, pps_decoder_status() return 2\n",
                   "2[GetBtMacAddr]-CmdBtChgName, get bt mac Addr from pps fail\n",
                   "2[Work]-BT_GET_MAC_ADDR, get mac addr fail, send all 0 to mcu\n"}));
  pps_->Hold(kSettings, "mac::1f:A");
  Ask(kBluetooth, BT_GET_MAC_ADDR);
  const std::string head = "6[GetBtMacAddr]-CmdBtChgName, ";
  EXPECT_EQ(Logged(log_.get(), {"GetBtMacAddr"}),
            (Lines{head + "mac = 1f:A\n", head + "c = 1\n", head + "c = f\n", head + "c = :\n",
                   "6[GetBtMacAddr]-push, tmpData = 31\n", head + "c = A\n"}));
  EXPECT_EQ(told, "read buf is('mac::1f:A') \nread decoder val is('1f:A') \n");

  pps_->Refuse(kHandsfree, ENOENT);
  pps_->Refuse(kSettings, EACCES);
  Do(kBluetooth, BT_CALL, Text("1"));
  EXPECT_EQ(told, "open(/pps/services/handsfree/control) failed\n");
  Do(kBluetooth, BT_HANGUP_CALL, {1});
  EXPECT_EQ(told, Unopened(kHandsfree));
  EXPECT_EQ(Ask(kBluetooth, BT_GET_MAC_ADDR), kNoMac);
  EXPECT_EQ(told, Unopened(kSettings, EACCES));
}

TEST(CmdBtChgNameTest, Hex2charLeavesWhatIsNoDigit) {
  CmdBtChgName command;
  std::string digits(17, '-');
  for (unsigned char value = 0; value < 17; ++value) command.Hex2char(value, &digits[value]);
  EXPECT_EQ(digits, "0123456789ABCDEF-");
}

}  // namespace
}  // namespace support
