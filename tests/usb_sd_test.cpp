// The presence command, and what all commands on sources, players and positions have to survive.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "support/recording_pps.h"

namespace bench {
namespace {

const std::uint8_t kUsbSd = 13;
const char kPresence[] = "/zelmar/system/dev_status";
const std::string kStatus[] = {"/zelmar/media/zmusb/status", "/zelmar/media/zmsd/status"};

class UsbSd : public RecordedBench {
 protected:
  std::string Answer(std::uint8_t sub) { return Hex(Ask(kUsbSd, sub)); }
  std::string Answer(std::uint8_t sub, const std::string& object, const std::string& text) {
    pps_->Hold(object, text);
    return Answer(sub);
  }
};

TEST_F(UsbSd, AnswersPresence) {
  for (const std::uint8_t sub : Bytes{0, 1}) {
    const std::string own = sub == 0 ? "zmusb" : "zmsd";
    const std::string other = sub == 0 ? "zmsd:n:1\n" : "zmusb:n:1\n";
    const std::string text = other + own + ":n:1\n";
    EXPECT_EQ(Answer(sub, kPresence, text), "01");
    EXPECT_EQ(told, "read buf is('" + text + "') \nread decoder val is('1') \n");
    EXPECT_EQ(asked, Lines{std::string("r 0 ") + kPresence});
    EXPECT_EQ(Answer(sub, kPresence, other), "00");
    EXPECT_EQ(told, "read buf is('" + other + "') \nread decoder val is('0') \n");
    for (const char* value :
         {"n:0", "n:2", "n:-1", "n:257", "n:4294967297", ":1", "b:true", "n:1.5", "json:[1]"}) {
      EXPECT_EQ(Answer(sub, kPresence, own + ":" + value + "\n" + other), "00") << value;
    }
    pps_->Drop(kPresence);
    EXPECT_EQ(Answer(sub), "00");
    EXPECT_EQ(told, "open('/pps/zelmar/system/dev_status') failed: No such file or directory\n");
  }
  for (int sub = 4; sub < 256; ++sub) {
    Do(kUsbSd, static_cast<std::uint8_t>(sub), {1});
    EXPECT_EQ(asked, Lines()) << sub;
  }
}

TEST_F(UsbSd, AnswersSynchronisation) {
  for (const std::uint8_t sub : Bytes{2, 3}) {
    const std::string& object = kStatus[sub - 2];
    EXPECT_EQ(Answer(sub, object, "zm_sync::finish\n"), "01");
    EXPECT_EQ(told, "read buf is('zm_sync::finish\n') \nread decoder val is('finish') \n");
    EXPECT_EQ(Answer(sub, object, "zm_sync:c:finis\\150"), "01");
    for (const char* value : {":finished", ":Finish", ":", ": finish", ":finish ", ":finish\\n",
                              "c:finish\\n", "json:{\"zm_sync\":\"finish\"}"}) {
      EXPECT_EQ(Answer(sub, object, std::string("zm_sync:") + value + "\n"), "00") << value;
    }
    // Another type, missing, and beside a line that is none.
    const std::pair<const char*, const char*> kFailures[] = {
        {"zm_sync:n:1\n", "2\n"}, {"@status\n", "3\n"}, {"noise\nzm_sync::finish\n", "4\n"}};
    for (const auto& [text, status] : kFailures) {
      EXPECT_EQ(Answer(sub, object, text), "00");
      EXPECT_EQ(told, std::string("read buf is('") + text + "') \n");
      EXPECT_EQ(
          log_->Texts(2),
          Lines{std::string("_KRV_[GetPPSStringVal]-Cmd, pps_decoder_status() return ") + status});
    }
    EXPECT_EQ(Answer(static_cast<std::uint8_t>(5 - sub), object, "zm_sync::finish\n"), "00");
    pps_->Drop(object);
    EXPECT_EQ(Answer(sub), "00");
    EXPECT_EQ(told, "open('pps" + object + "') failed: No such file or directory\n");
  }
}

TEST_F(UsbSd, FindsSynchronisationFromItsWorkingDirectoryOnly) {
  for (const std::string& object : kStatus) pps_->Hold(object, "zm_sync::finish\n");
  EXPECT_EQ(StopService(), 0);
  StartService([] {
    if (::chdir("dev") != 0) ::_exit(126);
  });
  EXPECT_EQ(Answer(0, kPresence, "zmusb:n:1\n"), "01");
  EXPECT_EQ(Answer(2), "00");
  EXPECT_EQ(Answer(3), "00");
}

class Hostile : public RecordedBench {
 protected:
  // Takes all replies in, and waits until the service is done.
  void Settle() const {
    station_->Send(7, 254);
    for (wire::Reply reply{}; reply.command != 7;) {
      const auto packet = station_->Receive();
      ASSERT_TRUE(packet);
      ASSERT_TRUE(wire::ParseReply(*packet, &reply));
    }
  }

  // What every query answers.
  std::string Answers() const {
    std::string text;
    for (const std::uint8_t sub : Bytes{4, 5, 6, 8}) text += Hex(station_->Ask(3, sub)) + "|";
    for (const std::uint8_t sub : Bytes{0, 1, 2, 3}) text += Hex(station_->Ask(kUsbSd, sub)) + "|";
    const Bytes angle = station_->Ask(5, 4);
    EXPECT_EQ(angle.size(), 78U);
    return text + std::string(angle.begin(), std::find(angle.begin(), angle.end(), 0));
  }

  const Lines objects_ = {"/zelmar/navigator/nowplaying",
                          "/zelmar/disc/device",
                          "/zelmar/disc/playing",
                          "/zelmar/disc/status",
                          "/zelmar/disc/setting_status",
                          "/zelmar/navigation/status",
                          "/zelmar/navigation/command",
                          kPresence,
                          kStatus[0],
                          kStatus[1]};
};

TEST_F(Hostile, AnySubCommandWithAnyParameters) {
  const int descriptors = CountDescriptors(service_->pid());
  pps_->Hold(objects_[0], "zmplaysource::zmdisc\n");
  for (const std::uint8_t command : Bytes{0, 3, 5, 13}) {
    for (int sub = 0; sub < 256; ++sub) {
      for (const int count : {0, 1, 2, 3, 4, 5, 254, sub % 255}) {  // each count somewhere
        station_->Send(command, static_cast<std::uint8_t>(sub),
                       Bytes(static_cast<std::size_t>(count), static_cast<std::uint8_t>(sub)));
      }
      Settle();
    }
    // Without a sub-command byte nothing is done.
    Bytes packet = wire::BuildRequest(command, 0, {1});
    packet[wire::kHeaderSize + wire::kLinkSize + wire::kRecordLengthOffset] = 0;
    pps_->Take();
    Mark();
    station_->SendRaw(packet);
    Settle();
    EXPECT_TRUE(log_->Has(6, "_KRV_[GetHead]-m_len < 1 [0]!\n"));
    EXPECT_EQ(pps_->Take(), Lines());
  }
  EXPECT_EQ(CountDescriptors(service_->pid()), descriptors);
}

TEST_F(Hostile, ObjectsOfAnyTextAndSize) {
  const std::string nothing = "00|00 00 00 00|00|00|00|00|00|00|";
  for (const std::string& text :
       Lines{"\n\n:\n::\n:::\n@\n-\n", std::string(4096, ':'), "\xff\xfe\x80\x81",
             "zmplaysource::zmdisc\ntrackinfo:json:" + std::string(900, '['), "zm_sync:c:\\",
             std::string("zm_sync:c:finish\\x\0\n", 19), "msgres:json:{\"dat\":\"=\\ud800\"",
             "zmplaysource::%s%n%n%n%n\nzm_sync::%n%s\nzmusb:n:%n\n"}) {
    for (const std::string& object : objects_) pps_->Hold(object, text);
    EXPECT_EQ(Answers(), nothing) << text.substr(0, 80);
  }
  // Plain files may be as large as they like: the front of each is read.
  const std::string large(3 << 20, 'x');
  pps_.reset();
  for (const std::string& object : objects_) root_.AddFile("/pps" + object, large);
  EXPECT_EQ(Answers(), nothing);
  const std::string front =
      "zmplaysource::zmdisc\ndisc:n:7\ndiscstate:n:22\nzmregion:n:5\nzmusb:n:1\nzmsd:n:1\n"
      "zm_sync::finish\ntrackinfo:json:{\"curmediaid\":300,\"parentFolder\":2}\n"
      "msgres:json:{\"msg\":1,\"dat\":\"angle=12.5\"}\nx::";
  for (const std::string& object : objects_) root_.AddFile("/pps" + object, front + large);
  EXPECT_EQ(Answers(), "07|00 02 01 2c|01|05|01|01|01|01|12.5");
}

}  // namespace
}  // namespace bench
