// The presence command, and what all commands have to survive.
#include <set>

#include "support/recorder.h"
#include "wire/command_table.h"

namespace support {
namespace {

const std::uint8_t kUsbSd = 13;
const std::string kNowPlaying = "/zelmar/navigator/nowplaying";
const std::string kPresence = "/zelmar/system/dev_status";
const std::string kUsb = "/zelmar/media/zmusb/status";
const std::string kSd = "/zelmar/media/zmsd/status";

class UsbSd : public RecordedService {};

TEST_F(UsbSd, OnlyItsOwnAttributeAnswersEach) {
  // The path of a status is relative to the service's working directory.
  const struct {
    std::string object, path, attribute, yes;
  } kPlaces[] = {{kPresence, "/pps" + kPresence, "zmusb", "n:1"},
                 {kPresence, "/pps" + kPresence, "zmsd", "n:1"},
                 {kUsb, "pps" + kUsb, "zm_sync", ":finish"},
                 {kSd, "pps" + kSd, "zm_sync", ":finish"}};
  for (std::uint8_t sub = 0; sub < 4; ++sub) {
    const auto& place = kPlaces[sub];
    for (const std::string value :
         {"n:1", "n:0", "n:2", "n:-1", "n:257", "n:4294967297", ":1", "b:true", "n:1.5", "json:[1]",
          ":finish", ":finished", ":Finish", ":", ": finish", ":finish ", ":finish\\n",
          "c:finish\\n", "json:{\"zm_sync\":\"finish\"}"}) {
      SCOPED_TRACE(place.attribute + value);
      const std::string text =
          (sub == 0 ? "zmsd:n:1\n" : "zmusb:n:1\n") + place.attribute + ":" + value + "\n";
      for (const auto& other : kPlaces) pps_->Hold(other.object, other.attribute + ":" + other.yes);
      pps_->Hold(place.object, text);
      EXPECT_EQ(Ask(kUsbSd, sub), Bytes{value == place.yes});
      EXPECT_EQ(asked, Lines{"r 0 " + place.object});
      if (value != place.yes && (sub > 1 || value != "n:0")) continue;
      EXPECT_EQ(told, "read buf is('" + text + "') \nread decoder val is('" +
                          value.substr(value.find(':') + 1) + "') \n");
    }
    pps_->Refuse(place.object, ENOENT);
    EXPECT_EQ(Ask(kUsbSd, sub), Bytes{0});
    EXPECT_EQ(told, "open('" + place.path + "') failed: No such file or directory\n");
  }
  pps_->Hold(kUsb, "zm_sync:c:finis\\150");
  EXPECT_EQ(Ask(kUsbSd, 2), Bytes{1});
  const std::string finish = "zm_sync::finish";
  for (const std::size_t size : {1023U, 1024U}) {  // 1023 bytes are read
    pps_->Hold(kUsb, "x::" + std::string(size - finish.size() - 4, 'x') + "\n" + finish);
    EXPECT_EQ(Ask(kUsbSd, 2), Bytes{size == 1023});
  }
  // Another type, missing, and beside a line that is none.
  const std::pair<std::string, std::string> kFailures[] = {
      {"zm_sync:n:1\n", "2\n"}, {"@status\n", "3\n"}, {"noise\nzm_sync::finish\n", "4\n"}};
  for (const auto& [text, status] : kFailures) {
    pps_->Hold(kUsb, text);
    EXPECT_EQ(Ask(kUsbSd, 2), Bytes{0});
    EXPECT_EQ(told, "read buf is('" + text + "') \n");
    EXPECT_EQ(log_->Texts(2),
              Lines{"_KRV_[GetPPSStringVal]-Cmd, pps_decoder_status() return " + status});
  }
}

class Hostile : public RecordedService {};

// The service lives, keeps no descriptor, sends nothing but replies, and does nothing that is not
// in the table of commands.
TEST_F(Hostile, AnySubCommandWithAnyParameters) {
  std::set<std::pair<int, int>> known;
  std::set<std::uint8_t> commands;
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    known.insert({wire::kCommands[i].command, wire::kCommands[i].sub_command});
    commands.insert(wire::kCommands[i].command);
  }
  commands.erase(7);  // which is asked below
  Recorder driver(root_, "/dev/sysinfo");
  driver.answer = [](const Bytes&) { return Join(Words({0}), Bytes(36, 'i')); };
  pps_->Hold(kNowPlaying, "zmplaysource::zmdisc\n");
  pps_->Hold("/services/bluetooth/settings", "mac::" + std::string(500, ':'));
  pps_->Hold("/services/handsfree/control", "");
  // Takes all replies in, and waits until the service is done.
  const auto settle = [this] {
    station_->Send(7, 254);
    for (wire::Reply reply{}; reply.command != 7;) {
      const auto packet = station_->Receive();
      ASSERT_TRUE(packet && wire::ParseReply(*packet, &reply)) << Errors();
    }
  };
  for (const std::uint8_t command : commands) {
    for (int sub = 0; sub < 256 && !HasFailure(); ++sub) {
      Mark();
      for (const int count : {0, 1, 2, 3, 4, 5, 8, 9, 34, 35, 127, 128, 254, sub % 255}) {
        station_->Send(command, static_cast<std::uint8_t>(sub),
                       Bytes(static_cast<std::size_t>(count), static_cast<std::uint8_t>(sub)));
      }
      settle();
      const Lines requests = pps_->Take();
      if (command == 0 || known.count({command, sub}) != 0) continue;
      // The media command looks up the source, the positioning command asks for fixes.
      for (const std::string& request : requests) {
        EXPECT_TRUE(request == "r 0 " + kNowPlaying || request == "rwc 666 " + kGeolocation)
            << int{command} << "/" << sub << " " << request;
      }
      EXPECT_EQ(Output(), "");  // of driver and bus
      EXPECT_EQ(Logged(log_.get(), {"ExcuteShell"}), Lines());
    }
    // Without a sub-command byte nothing is done.
    Bytes packet = wire::BuildRequest(command, 0, {1});
    packet[wire::kHeaderSize + wire::kLinkSize + wire::kRecordLengthOffset] = 0;
    Mark();
    station_->SendRaw(packet);
    settle();
    EXPECT_TRUE(log_->Has(6, "_KRV_[GetHead]-m_len < 1 [0]!\n"));
    EXPECT_EQ(pps_->Take(), Lines());
  }
}

// Each does what it does without a parameter.
TEST_F(Hostile, BytesBehindTheRecordAreNoParameters) {
  const std::string name = "/zelmar/setting/systeminfo";
  const std::string settings = "/services/bluetooth/settings";
  const std::string handsfree = "/services/handsfree/control";
  for (const std::string& object : {name, settings, handsfree}) pps_->Hold(object, "");
  pps_->Hold(kNowPlaying, "zmplaysource::zmdisc\n");
  const std::map<std::pair<int, int>, std::string> kWritten = {
      {{4, 0}, name + " zmlocalname::"},
      {{4, 4}, handsfree + " @control\ncommand::HFP_CALL\ncmd_data::\n"},
      {{4, 5}, settings + " pairingcode::"},
      {{4, 14}, settings + " mac::00:00:00:00:00:00"},
      {{10, 2}, "/zelmar/system/hostsn sn::"}};
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    const wire::CommandSpec& row = wire::kCommands[i];
    const bool takes = row.selector >= 0 || row.parameters[0].kind != wire::ParameterKind::kNone;
    if (!takes || row.reply.kind != wire::ReplyKind::kNone) continue;
    Bytes packet =
        Join(wire::BuildRequest(row.command, row.sub_command, {}), {1, 'x', 2, 0, 1, 'y'});
    wire::StoreLe32(packet.data(), static_cast<std::uint32_t>(packet.size() - wire::kHeaderSize));
    pps_->Take();
    station_->SendRaw(packet);
    station_->Do(kUsbSd, 255);
    std::string all;
    for (const std::string& line : pps_->Take()) {
      if (line[0] == 'w') all += line.substr(line.find('/'));
    }
    const auto written = kWritten.find({row.command, row.sub_command});
    EXPECT_EQ(all, written == kWritten.end() ? "" : written->second) << row.words;
  }
}

}  // namespace
}  // namespace support
