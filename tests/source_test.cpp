// The current source, and the switching command.
#include <algorithm>
#include <regex>
#include <set>

#include "support/recorder.h"
#include "wire/command_table.h"

namespace support {
namespace {

const std::uint8_t kSource = 0;
const std::string kNowPlaying = "/zelmar/navigator/nowplaying";

class Sources : public RecordedService {
 protected:
  // Looks up the current source while its object holds `text`; checks all that is written.
  void Expect(const std::string& text, const std::string& lines, int id) {
    pps_->Hold(kNowPlaying, text);
    Do(3, 255);  // a media request that does no more than that
    EXPECT_EQ(asked, Lines{"r 0 " + kNowPlaying});
    EXPECT_EQ(told, "CmdMedia::Work? \nCmdMedia::Work! \nread buf is('" + text.substr(0, 16383) +
                        "') \n" + lines + "src.m_srcID is('" + std::to_string(id) + "') \n");
  }

  static std::string Named(const std::string& value) {
    return "read decoder bufGet is('" + value + "') \nm_srcName is('" + value.substr(2) + "') \n";
  }
  static std::string Known(const std::string& value, int id) {
    return Named(value) + "m_srcID is('" + std::to_string(id) + "') \n";
  }
};

TEST_F(Sources, ReadTheCurrentOne) {
  int id = 0;
  for (const std::string& name : Arguments(
           "none disc sd usb rusb radio hdradio dab sxm tv aux1 aux2 bttel btaudio ipod camera "
           "navi pandora iheadradio tpms cdc dar linker tsp ptt asr mpu svc")) {
    Expect("zmplaysource::\xff\xfe" + name + "\n", Known("\xff\xfe" + name, id), id);
    ++id;
  }
  const std::string longest = "zm" + std::string(249, 'a');
  for (const std::string& value :
       Lines{"zmabc", "zmDisc", "zmdisc ", "zmdis", "zm", "%s%n%n", longest}) {
    Expect("zmplaysource::" + value + "\n", Named(value) + "GetIDByName fail \n", 0);
  }
  Expect("zmplaysource::" + longest + "a\n",
         "read decoder bufGet is('" + longest + "a') \nzmplaysource of 252 bytes does not fit \n",
         0);
  Expect("zmplaysource::z\n", "read decoder bufGet is('z') \n", 0);
  Expect("zmplaysource::\n", "read decoder bufGet is('') \n", 0);
  for (const char* text : {"", "@nowplaying\nother::zmusb\n", "zmplaysource:n:5\n",
                           "zmplaysource:json:{\"zmplaysource\":\"zmusb\"}\n"}) {
    Expect(text, "", 0);
  }
  Expect("zmplaysource:c:\\172musb\n", Known("zmusb", 3), 3);
  // 16383 bytes are read, and not one more.
  const std::string end = "\nzmplaysource::zmradio";
  const std::string full = "x::" + std::string(16383 - 3 - end.size(), 'x') + end;
  Expect(full, Known("zmradio", 5), 5);
  Expect("xxx" + full, Named("zmra") + "GetIDByName fail \n", 0);
  // Nothing survives from one request to the next.
  pps_->Refuse(kNowPlaying, ENOENT);
  Do(3, 255);
  EXPECT_EQ(told, "CmdMedia::Work? \nCmdMedia::Work! \n" + Unopened(kNowPlaying) +
                      "src.m_srcID is('0') \n");
}

TEST_F(Sources, AskTheLauncherOncePerRequest) {
  std::map<int, std::string> names;  // the applications', by code
  const auto* const row =
      std::find_if(wire::kCommands, wire::kCommands + wire::kCommandCount,
                   [](const wire::CommandSpec& spec) { return spec.command == kSource; });
  for (const wire::Choice* name = row->parameters[0].choices; name->word != nullptr; ++name) {
    names[name->value] = std::string("zm") + name->word;
  }
  std::set<std::string> ids;
  for (int code = 1; code < 256; ++code) {
    // Neither the sub-command nor what follows the code matters.
    Do(kSource, static_cast<std::uint8_t>(code * 7), {static_cast<std::uint8_t>(code), 0, 255});
    ASSERT_EQ(asked.size(), 2U) << code;
    EXPECT_EQ(asked[0], "access /services");
    const std::regex request(
        "rwc 666 /services/app-launcher @app-launcher\nreq:json:\\{\"id\":([0-9]+),"
        "\"cmd\":\"launch zelmarapp\",\"app\":\"" +
        names[code] + "\",\"dat\":\"\"\\}\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(asked[1], match, request)) << asked[1];
    ids.insert(match[1]);
  }
  EXPECT_EQ(ids.size(), 255U);
}

TEST_F(Sources, TraceReportsAndFailures) {
  const auto expect = [this](const Bytes& parameters, const Lines& requests, const Lines& traced) {
    Do(kSource, 1, parameters);
    EXPECT_EQ(asked, requests);
    EXPECT_EQ(told, "");
    Lines lines = {"6[Work]-Cmd Work[0]!\n", "6[Work]-Cmd Work!!\n"};
    lines.insert(lines.end(), traced.begin(), traced.end());
    EXPECT_EQ(Logged(log_.get(), {"Work", "chg", "report", "UpdatePPS_App_Launcher"}), lines);
  };
  expect({}, {}, {"6[report]-report!\n"});
  expect({0}, {}, {"6[report]-report!\n"});
  pps_->Refuse("/services", ENOENT);
  expect({2}, {"access /services"}, {"6[chg]-chg src to 2!\n"});
  pps_->Refuse("/services", 0);
  pps_->Refuse("/services/app-launcher", EACCES);
  expect({3}, {"access /services", "rwc 666 /services/app-launcher"},
         {"6[chg]-chg src to 3!\n",
          "2[UpdatePPS_App_Launcher]-[UpdatePPS_App_Launcher]: open() failed\n"});
}

}  // namespace
}  // namespace support
