// Command 4: every text it writes, byte for byte, and every text it may find.

#include <pps.h>

#include <cerrno>

#include "ATCmdBt.h"
#include "support/recorder.h"
#include "support/recording_pps.h"

namespace bench {
namespace {

const std::uint8_t kBluetooth = 4;
const std::string kAvrcp = "/services/bluetooth/avrcp/control";
const std::string kHandsfree = "/services/handsfree/control";
const std::string kSettings = "/services/bluetooth/settings";
const std::string kSystemInfo = "/zelmar/setting/systeminfo";
const std::string kSwitch = "/zelmar/setting/bt_control";
const Bytes kNoMac(6);

class BluetoothTest : public RecordedBench {
 protected:
  void SetUp() override {
    RecordedBench::SetUp();
    for (const auto& path : {kAvrcp, kHandsfree, kSettings, kSystemInfo, kSwitch}) {
      pps_->Hold(path, "");
    }
  }
  // What the service logged under `function`, without the prefix.
  Lines Logged(const std::string& function) {
    const std::string prefix = "_KRV_[" + function + "]-";
    Lines texts;
    for (const Log::Line& line : log_->Lines()) {
      if (line.text.rfind(prefix, 0) == 0) texts.push_back(line.text.substr(prefix.size()));
    }
    return texts;
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
    EXPECT_EQ(Logged("WritePPS"), c.sub_command == BT_CALL ? Lines() : Lines{c.text});
    EXPECT_EQ(log_->Texts(2), Lines());
    const std::string number = std::to_string(c.sub_command);
    EXPECT_TRUE(log_->Has(6, "_KRV_[Work]-CmdBtChgName, m_subCmd = " + number + "\n"));
  }
}

TEST_F(BluetoothTest, WhatIsOutOfRangeWritesNothing) {
  const std::string unknown = "CmdBtChgName, BT_SET_SWITCH, unknown cmd : ";
  const Bytes tall(254, 1);
  struct Case {
    std::uint8_t sub_command;
    Bytes parameters;
    std::string error;  // at level 2
  } const cases[] = {{11, {2}, unknown + "2\n"},
                     {11, {}, unknown + "255\n"},
                     {0, Bytes(128, 'n'), "text of 128 bytes does not fit 127, refused!\n"},
                     {5, tall, "text of 254 bytes does not fit 127, refused!\n"},
                     {4, Bytes(35, '1'), "text of 35 bytes does not fit 34, refused!\n"},
                     {14, Bytes(9), "MAC of 9 bytes does not fit 8, refused!\n"}};
  for (const Case& c : cases) {
    Do(kBluetooth, c.sub_command, c.parameters);
    EXPECT_EQ(asked, Lines());
    EXPECT_EQ(log_->Texts(2), Lines{"_KRV_[Work]-" + c.error});
  }
  for (int sub_command = 0; sub_command < 256; ++sub_command) {
    const auto number = static_cast<std::uint8_t>(sub_command);
    const bool selects = number == 1 || number == 2 || number == 3 || number == 6;
    if (!selects && (number < 8 || number == 11 || number == 13 || number == 14)) continue;
    for (const Bytes& parameters : {Bytes{}, Bytes{2}, tall}) {
      if (selects && parameters == tall) continue;
      Do(kBluetooth, number, parameters);
      EXPECT_EQ(asked, Lines()) << sub_command;
      EXPECT_EQ(log_->Texts(2), Lines());
    }
  }
}

TEST_F(BluetoothTest, ATextThatIsReadIsTakenAsItStandsOrReplacedByTheFallback) {
  struct Case {
    std::string text;  // of the object
    Bytes mac;
  } const macs[] = {{"@settings\nmac::00:1A:7D:DA:71:13\n", {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
                    {"mac::00:1a:7d:da:71:13", {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
                    {"mac::aB-Cd_eF g1\n", {0xAB, 0xCD, 0xEF, 0x00, 0x01}},
                    {"mac::1::2:\n", {1, 0, 2, 0}},
                    {"mac::1FE:FFFFFFFFFFFFFFFFFF7C\n", {0xFE, 0x7C}},
                    {"mac::\n", {0}},
                    {"mac::\xFF\x80\n", {0, 0, 0}},
                    {"mac::" + std::string(125, ':') + "12\n", Bytes(126)},
                    {"mac::" + std::string(100000, '7'), {0x77}},
                    {"mac::12\n" + std::string(60000, 'a') + "::1\n", {0x12}},
                    {std::string(1016, 'a') + "::1\nmac::12\n", kNoMac},
                    {std::string("mac:\0:12\n", 9), kNoMac},
                    {"\xFF\xFE:::\n\n@@", kNoMac},
                    {"mac", kNoMac},
                    {"", kNoMac},
                    {"mac:json:{\"a\":\"00\"}\n", kNoMac}};
  const int descriptors = CountDescriptors(service_->pid());
  for (const Case& c : macs) {
    pps_->Hold(kSettings, c.text);
    EXPECT_EQ(Hex(Ask(kBluetooth, BT_GET_MAC_ADDR)), Hex(c.mac)) << c.text.substr(0, 99);
    EXPECT_EQ(asked, Lines{"r 0 " + kSettings});
  }
  const std::pair<std::string, std::string> names[] = {
      {"zmlocalname::ten  chars\n", "ten  chars"},
      {"zmlocalname:c:K\\tr\n", "K\tr"},
      {"zmlocalname::" + std::string(126, 'x'), std::string(125, 'x')},
      {"zmlocalname::" + std::string(9999, 'x'), std::string(125, 'x')},
      {"zmlocalname::\n", "error"},
      {"zmlocalname:b:true\n", "error"}};
  for (const auto& [text, name] : names) {
    pps_->Hold(kSystemInfo, text);
    EXPECT_EQ(Ask(kBluetooth, BT_GET_NAME), Text(name)) << text.substr(0, 99);
    EXPECT_EQ(asked, Lines{"r 0 " + kSystemInfo});
    const std::string line = "_KRV_[Work]-BT_GET_NAME, name = " + name + "\n";
    EXPECT_TRUE(Eventually([&, &line = line] { return log_->Has(6, line); }));
  }
  EXPECT_EQ(CountDescriptors(service_->pid()), descriptors);
}

TEST_F(BluetoothTest, ReadsAndFailedOpensAreTraced) {
  const std::string none = "BT_GET_MAC_ADDR, get mac addr fail, send all 0 to mcu\n";
  pps_->Hold(kSettings, "mac:n:5");
  EXPECT_EQ(Ask(kBluetooth, BT_GET_MAC_ADDR), kNoMac);
  EXPECT_EQ(Logged("Work"), (Lines{"CmdBtChgName, m_subCmd = 7\n", "BT_GET_MAC_ADDR\n", none}));
  const std::string status = std::to_string(PPS_DECODER_BAD_TYPE);
  EXPECT_EQ(log_->Texts(2),
            (Lines{"_KRV_[GetPPSStringVal]-Cmd, pps_decoder_status() return " + status + "\n",
                   "_KRV_[GetBtMacAddr]-CmdBtChgName, get bt mac Addr from pps fail\n",
                   "_KRV_[Work]-" + none}));
  pps_->Hold(kSettings, "mac::1f:A");
  Ask(kBluetooth, BT_GET_MAC_ADDR);
  EXPECT_EQ(Logged("GetBtMacAddr"),
            (Lines{"CmdBtChgName, mac = 1f:A\n", "CmdBtChgName, c = 1\n", "CmdBtChgName, c = f\n",
                   "CmdBtChgName, c = :\n", "push, tmpData = 31\n", "CmdBtChgName, c = A\n"}));
  EXPECT_EQ(told, "read buf is('mac::1f:A') \nread decoder val is('1f:A') \n");

  pps_->Drop(kHandsfree);
  pps_->Refuse(kSettings, EACCES);
  Do(kBluetooth, BT_CALL, Text("1"));
  EXPECT_EQ(told, "open(/pps/services/handsfree/control) failed\n");
  Do(kBluetooth, BT_HANGUP_CALL, {1});
  EXPECT_EQ(told, "open('/pps" + kHandsfree + "') failed: No such file or directory\n");
  EXPECT_EQ(Ask(kBluetooth, BT_GET_MAC_ADDR), kNoMac);
  EXPECT_EQ(told, "open('/pps" + kSettings + "') failed: Permission denied\n");
}

class BluetoothUnitTest : public BenchTest {};

TEST_F(BluetoothUnitTest, WhatIsWrittenIsReadBack) {
  WriteObject("/pps" + kSystemInfo, "other::kept\n");
  WriteObject("/pps" + kSettings, "");
  const Bytes mac = {0xFE, 0x1A, 0x00, 0xDA, 0x0F, 0xF0};
  for (const char* name : {"Kr\xC3\xBCger's: 5", "n"}) {
    station_->Do(kBluetooth, BT_SET_NAME, Text(name));
    EXPECT_EQ(station_->Ask(kBluetooth, BT_GET_NAME), Text(name));
  }
  station_->Do(kBluetooth, BT_SET_MAC_ADDR, mac);
  EXPECT_EQ(station_->Ask(kBluetooth, BT_GET_MAC_ADDR), mac);
  EXPECT_EQ(Attribute("/pps" + kSystemInfo, "other"), ":kept");
}

TEST(CmdBtChgNameTest, Hex2charLeavesWhatIsNoDigit) {
  CmdBtChgName command;
  std::string digits(17, '-');
  for (unsigned char value = 0; value < 17; ++value) command.Hex2char(value, &digits[value]);
  EXPECT_EQ(digits, "0123456789ABCDEF-");
}

}  // namespace
}  // namespace bench
