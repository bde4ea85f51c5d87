// Command 7.

#include "ATCmdVersion.h"
#include "support/recorder.h"

namespace support {
namespace {

const std::uint8_t kVersion = 7;
const std::string kStatus = "/zelmar/system/version_status";
const std::string kNavi = "/zelmar/navigation/systeminfo";
const std::string kBluetooth = "/services/bluetooth/btmonitorstatus";
const std::string kMap = "/zelmar/disc/mpeginfo";
const std::string kZmStatus = "/zelmar/system/zmversion_status";
const char kNaviFile[] = "/zmnavigator/zmnavigator.info";

class VersionTest : public RecordedService {
 protected:
  std::string Version(std::uint8_t sub_command) {
    const Bytes reply = Ask(kVersion, sub_command);
    return std::string(reply.begin(), reply.end());
  }
};

TEST_F(VersionTest, EachSubCommandReadsItsOwnPlace) {
  pps_->Hold(kStatus,
             "mpu:json:{\"version\":\"mpu-v\",\"model\":\"mpu-m\"}\n"
             "os:json:{\"version\":\"os-v\"}\nifs:json:{\"version\":\"\\u00e9\\n\"}\n"
             "touchpanel:json:{\"x\":{\"version\":\"no\"},\"version\":\"tp-v\"}\n");
  pps_->Hold(kNavi, "engerversion:json:{\"data\":\"navi-v\",\"version\":\"no\"}");
  pps_->Hold(kBluetooth, "btmonitorstatus:json:{\"version\":\"bt-v\"}");
  pps_->Hold(kMap, "mapversion:json:{\"version\":\"map-v\"}");
  pps_->Hold(kZmStatus, "zmmpu:json:{\"version\":\"zmmpu-v\"}\nzmos:json:{\"version\":\"zmos-v\"}");
  root_.AddFile(kNaviFile, "never:read");
  const std::tuple<std::uint8_t, std::string, std::string> kVersions[] = {
      {1, kStatus, "mpu-v"},  {2, kStatus, "os-v"},        {3, kNavi, "navi-v"},
      {5, kMap, "map-v"},     {6, kStatus, "mpu-m"},       {8, kZmStatus, "zmmpu-v"},
      {27, kStatus, "tp-v"},  {29, kStatus, "\xC3\xA9\n"}, {9, kZmStatus, "zmos-v"},
      {4, kBluetooth, "bt-v"}};
  for (const auto& [sub_command, object, version] : kVersions) {
    EXPECT_EQ(Version(sub_command), version) << int{sub_command};
    EXPECT_EQ(asked.back(), "r 0 " + object);
  }
  EXPECT_EQ(told,
            "path is('/pps/services/bluetooth/btmonitorstatus') \nattr is('btmonitorstatus') \n"
            "ver is('version') \n"
            "read buf is('btmonitorstatus:json:{\"version\":\"bt-v\"}') \n"
            "verStr is('bt-v') \nverLen is('4') \n");
  EXPECT_TRUE(log_->Has(6, "_KRV_[SendVer]-m_subCmd = 4\n"));
}

TEST_F(VersionTest, WhatIsNotThereIsAnEmptyReply) {
  EXPECT_EQ(Version(1), "");
  EXPECT_PRED2(Contains, told, Unopened(kStatus));
  for (const char* const text : {
           "version::plain",                               // the right name at the wrong level
           "mpu:json:{\"Version\":\"1\",\"version\":5}",   // another name, another type
           "mpu:json:{\"inner\":{\"version\":\"deep\"}}",  // too deep
           "mpu:json:{\"version\":\"cut",                  // cut
       }) {
    pps_->Hold(kStatus, text);
    EXPECT_EQ(Version(1), "") << text;
  }
  for (const std::uint8_t undefined : Bytes{0, 7, 10, 26, 28, 30, 254}) {
    Mark();
    EXPECT_EQ(station_->Ask(kVersion, undefined), Bytes());
    EXPECT_TRUE(Eventually([&] {
      return Errors() ==
             "inBuf('') \nVER_SUB_CMD is not define!('" + std::to_string(undefined) + "') \n";
    }));
  }
}

TEST_F(VersionTest, LongTextsAreCut) {
  for (const std::size_t length : {242U, 243U, 244U, 255U, 256U, 5000U}) {
    pps_->Hold(kStatus, "mpu:json:{\"version\":\"" + std::string(length, 'v') + "\"}");
    EXPECT_EQ(Version(1), std::string(std::min<std::size_t>(length, 243), 'v')) << length;
  }
  // 16383 bytes of an object are read, and not one more.
  const std::string end = "\nmpu:json:{\"version\":\"far\"}";
  const std::string full = "x::" + std::string(16383 - 3 - end.size(), 'x') + end;
  pps_->Hold(kStatus, full);
  EXPECT_EQ(Version(1), "far");
  pps_->Hold(kStatus, "x" + full);
  EXPECT_EQ(Version(1), "");
}

TEST_F(VersionTest, NavigationFallsBackToItsFile) {
  pps_->Refuse(kNavi, ENOENT);
  Do(kVersion, 3);  // no object, no file: no reply
  EXPECT_EQ(told, "open('/zmnavigator/zmnavigator.info') failed: No such file or directory\n");
  EXPECT_EQ(asked, Lines{"access " + kNavi});
  const std::pair<std::string, std::string> files[] = {
      {"NAVI:5.2.1\n", "5.2.1\n"},
      {"no colon\n", "no colon\n"},
      {"", ""},
      {"a:b:c", "b:c"},
      {"end:", ""},
      {std::string("N:1\0:2", 6), "1"},
      {"N:" + std::string(300, 'v'), std::string(243, 'v')},
      {std::string(20, 'n') + ":" + std::string(300, 'v'), std::string(255 - 21, 'v')},
  };
  for (const auto& [content, version] : files) {
    root_.AddFile(kNaviFile, content);
    EXPECT_EQ(Version(3), version) << content;
  }
  // A FIFO is not waited for.
  const std::string fifo = root_.path() + kNaviFile;
  ASSERT_EQ(::unlink(fifo.c_str()) | ::mkfifo(fifo.c_str(), 0666), 0);
  EXPECT_EQ(Version(3), "");
  // The object decides by being there, whatever it holds.
  pps_->Hold(kNavi, "other::1");
  EXPECT_EQ(Version(3), "");
}

TEST(CmdVerTest, TheTextHasRoomFor255Bytes) {
  const TempRoot root;
  root.AddFile("/object", "a:json:{\"v\":\"" + std::string(300, 'x') + "\"}");
  infoExchg info = {"/object", "a", "v", "", 0};
  EXPECT_TRUE(CmdVer().GetVerStr(info));
  EXPECT_EQ(info.verLen, 255);
  EXPECT_EQ(info.verStr, std::string(255, 'x'));
}

}  // namespace
}  // namespace support
