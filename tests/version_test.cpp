// Command 7.

#include "support/fixture.h"

namespace support {
namespace {

const char kStatus[] = "/pps/zelmar/system/version_status";
const char kNaviObject[] = "/pps/zelmar/navigation/systeminfo";

class VersionTest : public ServiceOnUnit {};

TEST_F(VersionTest, EachSubCommandReadsItsOwnPlace) {
  WriteObject(
      kStatus,
      "mpu:json:{\"version\":\"mpu-v\",\"model\":\"mpu-m\"}\nos:json:{\"version\":\"os-v\"}\n"
      "touchpanel:json:{\"x\":{\"version\":\"no\"},\"version\":\"tp-v\"}\n"
      "ifs:json:{\"version\":\"\\u00e9\\n\"}\n");
  WriteObject(kNaviObject, "engerversion:json:{\"data\":\"navi-v\",\"version\":\"no\"}");
  WriteObject("/pps/services/bluetooth/btmonitorstatus",
              "btmonitorstatus:json:{\"version\":\"bt-v\"}");
  WriteObject("/pps/zelmar/disc/mpeginfo", "mapversion:json:{\"version\":\"map-v\"}");
  WriteObject("/pps/zelmar/system/zmversion_status",
              "zmmpu:json:{\"version\":\"zmmpu-v\"}\nzmos:json:{\"version\":\"zmos-v\"}");
  root_.AddFile("/zmnavigator/zmnavigator.info", "never:read");
  const std::pair<std::uint8_t, const char*> versions[] = {
      {1, "mpu-v"}, {2, "os-v"},    {3, "navi-v"}, {4, "bt-v"},  {5, "map-v"},
      {6, "mpu-m"}, {8, "zmmpu-v"}, {9, "zmos-v"}, {27, "tp-v"}, {29, "\xC3\xA9\n"},
  };
  for (const auto& [sub_command, text] : versions) {
    EXPECT_EQ(station_->Ask(7, sub_command), Text(text)) << int{sub_command};
  }
  Mark();
  EXPECT_EQ(station_->Ask(7, 4), Text("bt-v"));
  EXPECT_EQ(Errors(),
            "path is('/pps/services/bluetooth/btmonitorstatus') \nattr is('btmonitorstatus') \n"
            "ver is('version') \n"
            "read buf is('@btmonitorstatus\nbtmonitorstatus:json:{\"version\":\"bt-v\"}\n') \n"
            "verStr is('bt-v') \nverLen is('4') \ninBuf('bt-v') \n");
  EXPECT_TRUE(log_->Has(6, "_KRV_[SendVer]-m_subCmd = 4\n"));
  for (const std::uint8_t undefined : Bytes{0, 7, 10, 26, 28, 30, 255}) {
    Mark();
    EXPECT_EQ(station_->Ask(7, undefined), Bytes());
    EXPECT_TRUE(Eventually([&] {
      return Errors() ==
             "inBuf('') \nVER_SUB_CMD is not define!('" + std::to_string(undefined) + "') \n";
    }));
  }
}

TEST_F(VersionTest, WhatIsNotThereIsAnEmptyReply) {
  EXPECT_EQ(station_->Ask(7, 1), Bytes());
  EXPECT_PRED2(Contains, Errors(), "open('/pps/zelmar/system/version_status') failed: ");
  const char* const objects[] = {
      "version::plain",                               // the right name at the wrong level
      "mpu::{\"version\":\"text\"}",                  // not JSON
      "mpu:json:[\"version\"]",                       // not an object
      "mpu:json:{\"Version\":\"1\",\"version\":5}",   // another name, another type
      "mpu:json:{\"inner\":{\"version\":\"deep\"}}",  // too deep
      "mpu:json:{\"version\":\"cut",                  // cut
      "mpu:json:\nversion::1",
  };
  for (const char* object : objects) {
    WriteObject(kStatus, std::string("-mpu\n-version\n") + object);
    EXPECT_EQ(station_->Ask(7, 1), Bytes()) << object;
  }
}

TEST_F(VersionTest, LongTextsAreCutAt243Bytes) {
  const std::string longest(243, 'v');
  for (const std::size_t length : {242u, 243u, 244u, 255u, 256u, 5000u}) {
    WriteObject(kStatus, "mpu:json:{\"version\":\"" + std::string(length, 'v') + "\"}");
    EXPECT_EQ(station_->Ask(7, 1), Text(longest.substr(0, length))) << length;
  }
  // An object behind 16 KiB of others: what is cut off is not found, what is whole is.
  WriteObject(kStatus, "aaa::" + std::string(20000, 'x') + "\nmpu:json:{\"version\":\"far\"}\n");
  EXPECT_EQ(station_->Ask(7, 1), Bytes());
  WriteObject(kStatus, "-aaa\nzzz::" + std::string(20000, 'x') + "\n");
  EXPECT_EQ(station_->Ask(7, 1), Text("far"));
}

TEST_F(VersionTest, NavigationFallsBackToItsFile) {
  Mark();
  station_->Do(7, 3);  // no object, no file: no reply
  EXPECT_PRED2(Contains, Errors(),
               "open('/zmnavigator/zmnavigator.info') failed: No such file or directory\n");
  const std::pair<std::string, std::string> files[] = {
      {"NAVI:5.2.1\n", "5.2.1\n"},
      {"no colon\n", "no colon\n"},
      {"", ""},
      {"a:b:c", "b:c"},
      {"end:", ""},
      {std::string("N:1\0:2", 6), "1"},
      {"N:" + std::string(300, 'v'), std::string(243, 'v')},
  };
  for (const auto& [content, version] : files) {
    root_.AddFile("/zmnavigator/zmnavigator.info", content);
    EXPECT_EQ(station_->Ask(7, 3), Text(version)) << content;
  }
  // The object decides by being there, whatever it holds.
  WriteObject(kNaviObject, "other::1");
  EXPECT_EQ(station_->Ask(7, 3), Bytes());
}

}  // namespace
}  // namespace support
