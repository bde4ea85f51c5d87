// The source table, the current source, and the switching command.
#include <gtest/gtest.h>

#include <cerrno>
#include <regex>
#include <set>

#include "ATSrc.h"
#include "support/recording_pps.h"

namespace bench {
namespace {

const std::uint8_t kSource = 0;
const std::uint8_t kMedia = 3;
const std::uint8_t kNothing = 255;  // a media sub-command that only looks up the current source
const char kNowPlaying[] = "/zelmar/navigator/nowplaying";
const char kLauncher[] = "/services/app-launcher";

// The applications of the station's codes.
const std::map<int, std::string> kApplications = {
    {1, "zmradio"}, {2, "zmdisc"}, {4, "zmaux2"},  {6, "zmusb"},   {7, "zmbttel"},
    {9, "zmaux1"},  {12, "zmsd"},  {13, "zmnavi"}, {18, "zmipod"}, {28, "zmbtaudio"},
};

TEST(SourceTable, TranslatesExactly) {
  const std::vector<std::string> names = {
      "none", "disc",   "sd",   "usb",     "rusb",       "radio", "hdradio",
      "dab",  "sxm",    "tv",   "aux1",    "aux2",       "bttel", "btaudio",
      "ipod", "camera", "navi", "pandora", "iheadradio", "tpms",  "cdc",
      "dar",  "linker", "tsp",  "ptt",     "asr",        "mpu",   "svc"};
  NXQ::ZMCAR::SourcesNameIdMap map;
  map.Init();  // again: the same contents
  for (std::size_t id = 0; id < names.size(); ++id) {
    unsigned char found = 99;
    EXPECT_TRUE(map.GetIDByName(names[id], found)) << names[id];
    EXPECT_EQ(found, id) << names[id];
  }
  for (const char* name : {"", "Disc", "disc ", " disc", "dis", "zmdisc", "discs"}) {
    unsigned char found = 99;
    EXPECT_FALSE(map.GetIDByName(name, found)) << name;
    EXPECT_EQ(found, 99) << name;
  }
  unsigned char found = 99;
  EXPECT_FALSE(map.GetIDByName(std::string("usb\0", 4), found));

  Src src;
  EXPECT_EQ(src.m_srcID, 0);
  EXPECT_EQ(std::string(src.m_srcName, sizeof(src.m_srcName)), std::string(250, '\0'));
  for (int code = 0; code < 256; ++code) {
    const auto known = kApplications.find(code);
    EXPECT_EQ(std::string(src.GetSrcName(static_cast<unsigned char>(code))),
              known == kApplications.end() ? "" : known->second);
  }
}

using Sources = RecordedBench;

// What the lookup writes to standard error, from the object's text to the identifier.
std::string Lookup(const std::string& text, const std::string& value, int id, bool known = true) {
  std::string lines = "read buf is('" + text + "') \nread decoder bufGet is('" + value + "') \n";
  if (value.size() >= 2 && value.size() <= 251) {
    lines += "m_srcName is('" + value.substr(2) + "') \n";
    lines += known ? "m_srcID is('" + std::to_string(id) + "') \n" : "GetIDByName fail \n";
  }
  return lines;
}

TEST_F(Sources, ReadTheCurrentOne) {
  const std::string longest = "zm" + std::string(249, 'a');
  struct Case {
    std::string text;
    std::string lines;
    int id;
  };
  const auto named = [](const std::string& value, int id, bool known = true) {
    const std::string text = "zmplaysource::" + value + "\n";
    return Case{text, Lookup(text, value, id, known), known ? id : 0};
  };
  std::vector<Case> cases = {
      named("zmdisc", 1),
      named("zmsd", 2),
      named("zmusb", 3),
      named("xxrusb", 4),
      named("zmradio", 5),
      named("zmbtaudio", 13),
      named("zmsvc", 27),
      named("zmnone", 0),
      // No source of the table.
      named("zmabc", 0, false),
      named("zmDisc", 0, false),
      named("zmdisc ", 0, false),
      named("zmdis", 0, false),
      named("zm", 0, false),
      named("%s%n%n", 0, false),
      // Too short to carry the prefix; the longest that fits, and one more.
      named("z", 0, false),
      named("", 0, false),
      named(longest, 0, false),
  };
  cases.push_back(named(longest + "a", 0, false));
  cases.back().lines += "zmplaysource of 252 bytes does not fit \n";
  const auto silent = [&cases](const std::string& text) {
    cases.push_back({text, "read buf is('" + text + "') \n", 0});
  };
  silent("");
  silent("@nowplaying\nother::zmusb\n");
  silent("zmplaysource:n:5\n");
  silent("zmplaysource:json:{\"zmplaysource\":\"zmusb\"}\n");
  // The escapes are resolved after the text was reported.
  cases.push_back(
      {"zmplaysource:c:\\172musb\n", Lookup("zmplaysource:c:\\172musb\n", "zmusb", 3), 3});
  // 16383 bytes are read, and not one more.
  const std::string full = "\nzmplaysource::zmradio";
  std::string text = "x::" + std::string(16383 - 3 - full.size(), 'x') + full;
  cases.push_back({text, Lookup(text, "zmradio", 5), 5});
  text.insert(3, 3, 'x');
  cases.push_back({text, Lookup(text.substr(0, 16383), "zmra", 0, false), 0});

  for (const Case& test : cases) {
    pps_->Hold(kNowPlaying, test.text);
    Mark();
    station_->Do(kMedia, kNothing);
    EXPECT_EQ(Told(), "CmdMedia::Work? \nCmdMedia::Work! \n" + test.lines + "src.m_srcID is('" +
                          std::to_string(test.id) + "') \ninBuf('') \n");
    EXPECT_EQ(pps_->Take(), std::vector<std::string>{std::string("r 0 ") + kNowPlaying});
  }
  // Nothing survives from one request to the next.
  pps_->Drop(kNowPlaying);
  Mark();
  station_->Do(kMedia, kNothing);
  EXPECT_EQ(Told(),
            "CmdMedia::Work? \nCmdMedia::Work! \nopen('/pps/zelmar/navigator/nowplaying') failed: "
            "No such file or directory\nsrc.m_srcID is('0') \ninBuf('') \n");
}

// The lines that the switching command traces.
std::vector<std::string> Trace(Log* log) {
  std::vector<std::string> lines;
  const std::regex traced("_KRV_\\[(Work|chg|report|UpdatePPS_App_Launcher)\\]-");
  for (const Log::Line& line : log->Lines()) {
    if (std::regex_search(line.text, traced)) {
      lines.push_back(std::to_string(line.severity) + " " + line.text);
    }
  }
  return lines;
}

TEST_F(Sources, AskTheLauncherOncePerRequest) {
  std::set<std::string> ids;
  for (int code = 1; code < 256; ++code) {
    // Neither the sub-command nor what follows the code matters.
    station_->Do(kSource, static_cast<std::uint8_t>(code * 7),
                 {static_cast<std::uint8_t>(code), 0, 255});
    const std::vector<std::string> events = pps_->Take();
    ASSERT_EQ(events.size(), 2U) << code;
    EXPECT_EQ(events[0], "access /services");
    const auto known = kApplications.find(code);
    const std::regex request(
        "rwc 666 /services/app-launcher @app-launcher\nreq:json:\\{\"id\":([0-9]+),"
        "\"cmd\":\"launch zelmarapp\",\"app\":\"" +
        (known == kApplications.end() ? "" : known->second) + "\",\"dat\":\"\"\\}\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(events[1], match, request)) << events[1];
    ids.insert(match[1]);
  }
  EXPECT_EQ(ids.size(), 255U);

  for (const Bytes& parameters : {Bytes{}, Bytes{0}}) {  // a report
    Mark();
    station_->Do(kSource, 1, parameters);
    EXPECT_EQ(Trace(log_.get()), (std::vector<std::string>{"6 _KRV_[Work]-Cmd Work[0]!\n",
                                                           "6 _KRV_[Work]-Cmd Work!!\n",
                                                           "6 _KRV_[report]-report!\n"}));
    EXPECT_EQ(Told(), "inBuf('') \n");
    EXPECT_EQ(pps_->Take(), std::vector<std::string>());
  }
}

TEST_F(Sources, TellOnlyOfALauncherThatCannotBeOpened) {
  std::vector<std::string> trace = {"6 _KRV_[Work]-Cmd Work[0]!\n", "6 _KRV_[Work]-Cmd Work!!\n",
                                    "6 _KRV_[chg]-chg src to 2!\n"};
  pps_->Refuse("/services", ENOENT);
  Mark();
  station_->Do(kSource, 0, {2});
  EXPECT_EQ(Trace(log_.get()), trace);
  EXPECT_EQ(pps_->Take(), std::vector<std::string>{"access /services"});

  pps_->Refuse("/services", 0);
  pps_->Refuse(kLauncher, EACCES);
  Mark();
  station_->Do(kSource, 0, {2});
  trace.push_back("2 _KRV_[UpdatePPS_App_Launcher]-[UpdatePPS_App_Launcher]: open() failed\n");
  EXPECT_EQ(Trace(log_.get()), trace);
  EXPECT_EQ(Told(), "inBuf('') \n");
}

}  // namespace
}  // namespace bench
