// The media command on every kind of source, and the players behind it.
#include <gtest/gtest.h>

#include <cerrno>

#include "ATMedia.h"
#include "support/recording_pps.h"

namespace bench {
namespace {

using Lines = std::vector<std::string>;

const std::uint8_t kMedia = 3;
const char kNowPlaying[] = "/zelmar/navigator/nowplaying";
const char kControl[] = "/zelmar/disc/control";
const char kKey[] = "/zelmar/system/key";
const char kJump[] = "/zelmar/media/autotest/control";
const char kPlaying[] = "/zelmar/disc/playing";
const char kSetting[] = "/zelmar/disc/setting_status";

// One write as the manager sees it; the same line is logged.
struct Write {
  std::string object;
  std::string line;
};

// What a request makes a player do: writes, and text on standard error.
struct Action {
  std::vector<Write> writes;
  std::string errors;
};

std::string DiscValue(int command, int param1, int param2) {
  return "json:{\"cmd\":" + std::to_string(command) + ",\"param1\":" + std::to_string(param1) +
         ",\"param2\":" + std::to_string(param2) + "}";
}

Action Disc(int command, int param1, int param2, const std::string& errors = "") {
  const std::string value = DiscValue(command, param1, param2);
  return {{{kControl, "zmcmd:" + value}}, errors + "wirtepps buf is('" + value + "') \n"};
}

Action Press(const std::string& operation, int key) {
  const std::string head =
      "zmkey:json:{\"key\":" + std::to_string(key) + ",\"src\":\"wheel\",\"status\":\"";
  return {{{kKey, head + "dn\",\"param\":0}"}, {kKey, head + "up\",\"param\":0}"}},
          "do('MediaUsbSD::" + operation + "') \n"};
}

Action Jump(int folder, int index) {
  const std::string numbers[] = {std::to_string(folder), std::to_string(index)};
  return {{{kJump,
            "autotest_play:json:{\"folderid\":" + numbers[0] + ",\"index\":" + numbers[1] + "}"}},
          "goto(folder[" + numbers[0] + "],index[" + numbers[1] + "]') \n"};
}

class MediaCommand : public RecordedBench {
 protected:
  // Makes `name` the current source; "" takes the object away.
  void Play(const std::string& name) {
    if (name.empty()) return pps_->Drop(kNowPlaying);
    pps_->Hold(kNowPlaying, "zmplaysource::zm" + name + "\n");
  }

  // What looking up the current source writes.
  std::string Lookup(const std::string& name, int id) const {
    if (name.empty()) {
      return "CmdMedia::Work? \nCmdMedia::Work! \nopen('/pps/zelmar/navigator/nowplaying') failed: "
             "No such file or directory\nsrc.m_srcID is('0') \n";
    }
    const std::string number = std::to_string(id);
    return "CmdMedia::Work? \nCmdMedia::Work! \nread buf is('zmplaysource::zm" + name +
           "\n') \nread decoder bufGet is('zm" + name + "') \nm_srcName is('" + name +
           "') \nm_srcID is('" + number + "') \nsrc.m_srcID is('" + number + "') \n";
  }

  // Sends a request that is not answered and checks everything that it causes.
  void Expect(const std::string& head, std::uint8_t sub, const Bytes& parameters,
              const Action& action) {
    SCOPED_TRACE(std::to_string(sub) + " " + Hex(parameters));
    Mark();
    station_->Do(kMedia, sub, parameters);
    Lines events = {std::string("r 0 ") + kNowPlaying};
    Lines logged;
    for (const Write& write : action.writes) {
      events.push_back("rwct 666 " + write.object + " " + write.line);
      logged.push_back("_KRV_[WritePPS]-" + write.line);
    }
    EXPECT_EQ(pps_->Take(), events);
    EXPECT_EQ(log_->Texts(5), logged);
    EXPECT_EQ(Told(), head + action.errors + "inBuf('') \n");
    EXPECT_EQ(log_->Texts(2), Lines());
  }
};

TEST_F(MediaCommand, DrivesThePlayerOfEachSource) {
  const struct {
    std::uint8_t sub;
    Bytes parameters;
    Action disc;
    Action usb_sd;
  } kRequests[] = {
      {0, {0}, Disc(135, 1, 0), Press("PlayNext", 20)},
      {0, {1}, Disc(136, 1, 0), Press("PlayPre", 21)},
      {0, {2}, {}, {}},
      {0, {255}, {}, {}},
      {1, {0, 3, 0, 10}, Disc(182, 10, 3, "JumpTo(folde:3,number:'10') \n"), Jump(3, 9)},
      {1, {0, 0, 0, 0, 7}, Disc(182, 0, 0, "JumpTo(folde:0,number:'0') \n"), Jump(0, 0)},
      {1, {1, 0, 0, 1}, Disc(182, 1, 256, "JumpTo(folde:256,number:'1') \n"), Jump(256, 0)},
      {1,
       {255, 255, 255, 255},
       Disc(182, 65535, 65535, "JumpTo(folde:65535,number:'65535') \n"),
       Jump(65535, 65534)},
      {2, {0}, Disc(130, 1, 0), Press("Pause", 18)},
      {2, {1}, Disc(131, 1, 0), Press("Play", 17)},
      {2, {2}, Disc(129, 1, 0), Press("Stop", 18)},
      {2, {3}, {}, {}},
      {9, {0}, Disc(192, 1, 0), {}},
      {9, {1}, Disc(192, 0, 0), {}},
      {9, {2}, Disc(192, 2, 0), {}},
      {9, {3}, Disc(193, 1, 0), {}},
      {9, {4}, Disc(193, 0, 0), {}},
      {9, {5}, {}, {}},
      {9, {255}, {}, {}},
      {10, {1}, {}, {}},
      {255, {1}, {}, {}},
  };
  const struct {
    std::string name;
    int id;
  } kSources[] = {{"disc", 1}, {"sd", 2},    {"usb", 3},  {"rusb", 4},
                  {"none", 0}, {"radio", 5}, {"svc", 27}, {"", 0}};
  for (const auto& source : kSources) {
    SCOPED_TRACE(source.name);
    Play(source.name);
    const std::string head = Lookup(source.name, source.id);
    for (const auto& request : kRequests) {
      const Action action = source.id == 1                     ? request.disc
                            : source.id >= 2 && source.id <= 4 ? request.usb_sd
                                                               : Action();
      Expect(head, request.sub, request.parameters, action);
    }
    // Published whatever plays; told of only by the disc player.
    Action setup = Disc(200, 1, 0);
    if (source.id != 1) setup.errors.clear();
    Expect(head, 3, {}, setup);
  }
}

TEST_F(MediaCommand, GoesOnWhenAPlayerCannotBeReached) {
  const std::string denied = "') failed: Permission denied\n";
  for (const char* object : {kControl, kKey, kJump}) pps_->Refuse(object, EACCES);
  const auto errors = [this](std::uint8_t sub, const Bytes& parameters) {
    Mark();
    station_->Do(kMedia, sub, parameters);
    EXPECT_EQ(log_->Texts(5), Lines());
    return Told();
  };
  Play("disc");
  EXPECT_EQ(errors(2, {1}), Lookup("disc", 1) + Disc(131, 1, 0).errors + "open('/pps" + kControl +
                                denied + "inBuf('') \n");
  Play("usb");  // the release is tried although the press failed
  EXPECT_EQ(errors(2, {1}), Lookup("usb", 3) + Press("Play", 17).errors + "open('/pps" + kKey +
                                denied + "open('/pps" + kKey + denied + "inBuf('') \n");
  EXPECT_EQ(errors(1, {0, 1, 0, 1}),
            Lookup("usb", 3) + Jump(1, 0).errors + "open('/pps" + kJump + denied + "inBuf('') \n");

  // Parameter bytes that are missing are not made up.
  Play("disc");
  const struct {
    std::uint8_t sub;
    Bytes parameters;
    const char* line;
  } kShort[] = {{0, {}, "sub-command 0 with 0 parameter bytes, 1 needed!\n"},
                {1, {}, "sub-command 1 with 0 parameter bytes, 4 needed!\n"},
                {1, {0, 3, 0}, "sub-command 1 with 3 parameter bytes, 4 needed!\n"},
                {2, {}, "sub-command 2 with 0 parameter bytes, 1 needed!\n"},
                {7, {}, "sub-command 7 with 0 parameter bytes, 1 needed!\n"},
                {9, {}, "sub-command 9 with 0 parameter bytes, 1 needed!\n"}};
  pps_->Hold(kSetting, "zmregion:n:1\n");
  pps_->Take();
  for (const auto& request : kShort) {
    Mark();
    station_->Do(kMedia, request.sub, request.parameters);
    EXPECT_EQ(log_->Texts(2), Lines{std::string("_KRV_[Work]-") + request.line});
    EXPECT_EQ(pps_->Take(), Lines{std::string("r 0 ") + kNowPlaying});
  }
}

TEST_F(MediaCommand, AnswersTheTrackOfTheDisc) {
  const struct {
    const char* object;
    const char* reply;
  } kCases[] = {
      {"trackinfo:json:{\"curmediaid\":300,\"parentFolder\":2}\n", "00 02 01 2c"},
      {"x::1\ntrackinfo:json:{\"a\":[{}],\"parentFolder\":65535,\"curmediaid\":65535}",
       "ff ff ff ff"},
      {"trackinfo:json:{\"curmediaid\":300}\n", "00 00 01 2c"},
      {"trackinfo:json:{\"parentFolder\":258}\n", "01 02 00 00"},
      // Beyond 16 bits and below zero: quotient and remainder round toward zero.
      {"trackinfo:json:{\"curmediaid\":65536,\"parentFolder\":-1}\n", "00 ff 00 00"},
      {"trackinfo:json:{\"curmediaid\":-257,\"parentFolder\":-32769}\n", "80 ff ff ff"},
      {"trackinfo:json:{\"curmediaid\":2147483647,\"parentFolder\":-2147483648}\n", "00 00 ff ff"},
      {"trackinfo:json:{\"curmediaid\":2147483648,\"parentFolder\":1}\n", "00 01 00 00"},
      // Not numbers.
      {"trackinfo:json:{\"curmediaid\":\"300\",\"parentFolder\":2.5}\n", "00 00 00 00"},
      {"trackinfo:json:{\"curmediaid\":null,\"parentFolder\":[2]}\n", "00 00 00 00"},
      // Not the track's members.
      {"curmediaid:n:300\nparentFolder:n:2\n", "00 00 00 00"},
      {"trackinfo::gone\ncurmediaid:n:300\nparentFolder:n:2\n", "00 00 00 00"},
      {"trackinfo:json:{\"x\":{\"curmediaid\":300,\"parentFolder\":2}}\n", "00 00 00 00"},
      {"trackinfo:json:[{\"curmediaid\":300,\"parentFolder\":2}]\n", "00 00 00 00"},
      {"trackinfo:json:{\"curmediaid\":300,\"parentFolder\":2\ncurmediaid:n:300\n", "00 00 00 00"},
      {"", "00 00 00 00"},
  };
  Play("disc");
  for (const auto& test : kCases) {
    pps_->Hold(kPlaying, test.object);
    EXPECT_EQ(Hex(station_->Ask(kMedia, 5)), test.reply) << test.object;
  }
  // 1023 bytes are read.
  const std::string track = "\ntrackinfo:json:{\"parentFolder\":2,\"curmediaid\":300}";
  const std::string filled = "x::" + std::string(1023 - 3 - track.size(), 'x') + track;
  pps_->Hold(kPlaying, filled);
  EXPECT_EQ(Hex(station_->Ask(kMedia, 5)), "00 02 01 2c");
  pps_->Hold(kPlaying, "y" + filled);
  EXPECT_EQ(Hex(station_->Ask(kMedia, 5)), "00 00 00 00");

  pps_->Hold(kPlaying, kCases[0].object);
  pps_->Take();
  Mark();
  station_->Ask(kMedia, 5);
  EXPECT_EQ(Told(), Lookup("disc", 1) + "read buf is('" + kCases[0].object +
                        "') \nread fileId is('2') songNo[300] \ninBuf('') \n");
  EXPECT_EQ(pps_->Take(),
            (Lines{std::string("r 0 ") + kNowPlaying, std::string("r 0 ") + kPlaying}));
  pps_->Drop(kPlaying);
  Mark();
  EXPECT_EQ(Hex(station_->Ask(kMedia, 5)), "00 00 00 00");
  EXPECT_EQ(Told(), Lookup("disc", 1) +
                        "open('/pps/zelmar/disc/playing') failed: No such file "
                        "or directory\ninBuf('') \n");
  pps_->Hold(kPlaying, kCases[0].object);  // another source has no track
  Play("usb");
  EXPECT_EQ(Hex(station_->Ask(kMedia, 5)), "00 00 00 00");
}

TEST_F(MediaCommand, AnswersTheDiscsStateAndSetsItsRegion) {
  const struct {
    std::uint8_t sub;
    std::string object;
    std::string attribute;
  } kNumbers[] = {{4, "/zelmar/disc/device", "disc"},
                  {6, "/zelmar/disc/status", "discstate"},
                  {8, kSetting, "zmregion"}};
  for (const auto& number : kNumbers) {
    const bool state = number.sub == 6;
    const auto ask = [&](const std::string& value) {
      pps_->Hold(number.object, number.attribute + ":" + value + "\n");
      return Hex(station_->Ask(kMedia, number.sub));
    };
    EXPECT_EQ(ask("n:22"), state ? "01" : "16");
    EXPECT_EQ(ask("n:21"), state ? "00" : "15");
    EXPECT_EQ(ask("n:278"), state ? "00" : "16");  // 22 in the low 8 bits
    EXPECT_EQ(ask("n:-1"), state ? "00" : "ff");
    for (const char* other : {":22", "b:true", "n:22.5", "n:4294967318", "json:{}", "n:"}) {
      EXPECT_EQ(ask(other), "00") << other;
    }
    pps_->Hold(number.object, "x" + number.attribute + ":n:22\n");
    EXPECT_EQ(Hex(station_->Ask(kMedia, number.sub)), "00");
    pps_->Drop(number.object);
    Mark();
    EXPECT_EQ(Hex(station_->Ask(kMedia, number.sub)), "00");
    EXPECT_EQ(Told(), Lookup("", 0) + "open('/pps" + number.object +
                          "') failed: No such file or directory\ninBuf('') \n");
  }

  const auto set = [this](std::uint8_t region) {
    Mark();
    pps_->Take();
    station_->Do(kMedia, 7, {region});
    Lines events = pps_->Take();
    events.erase(events.begin());  // the current source
    return events;
  };
  const std::string event = std::string("w 666 ") + kSetting;
  EXPECT_EQ(set(3), Lines{event});  // not created
  EXPECT_EQ(Told(), Lookup("", 0) + "open('/pps" + kSetting +
                        "') failed: No such file or directory\ninBuf('') \n");
  pps_->Hold(kSetting, "zmregion:n:1\n");
  EXPECT_EQ(set(0), Lines{event + " @setting_status\nzmregion:n:0\n"});
  EXPECT_EQ(set(6), Lines{event + " @setting_status\nzmregion:n:6\n"});
  EXPECT_EQ(Told(), Lookup("", 0) +
                        "pps_encoder_buffer is('@setting_status\nzmregion:n:6\n') \n"
                        "inBuf('') \n");
  EXPECT_EQ(log_->Texts(5), Lines{"_KRV_[WritePPS]-/pps/zelmar/disc/setting_status"});
  EXPECT_EQ(set(7), Lines());
  EXPECT_EQ(set(255), Lines());
}

TEST(Players, TellWhetherTheyWrote) {
  TempRoot root;
  MediaDISC disc;
  MediaUsbSD usb_sd;
  CommMedia common;
  for (const int written : {0, 1}) {
    EXPECT_EQ(disc.Play(), written);
    EXPECT_EQ(disc.JumpTo(3, 10), written);
    EXPECT_EQ(disc.CtrlPreNext(1), written);
    EXPECT_EQ(disc.CtrlPreNext(2), 0);
    EXPECT_EQ(usb_sd.CtrlPlay(2), written);
    EXPECT_EQ(usb_sd.CtrlPlay(3), 0);
    EXPECT_EQ(usb_sd.JumpTo(0, 0), written);
    EXPECT_EQ(common.Play() + common.Stop() + common.CtrlPreNext(0) + common.JumpTo(1, 1), 0);
    int track = -7;
    int folder = -8;
    EXPECT_EQ(disc.GetSongNo(track, folder), written == 1);
    EXPECT_EQ(track, written == 1 ? 5 : -7);
    EXPECT_EQ(folder, -8);
    // The second time the objects are there, as plain files.
    root.AddFile("/pps/zelmar/disc/playing", "trackinfo:json:{\"curmediaid\":5}");
    for (const char* object : {kControl, kKey, kJump}) {
      root.AddFile(std::string("/pps") + object, std::string(4096, 'x'));
    }
  }
  // One line replaces the object, cut at 255 characters.
  EXPECT_TRUE(disc.WritePPS("/pps/zelmar/system/key", "n", std::string(300, 'v').c_str()));
  EXPECT_EQ(ReadFile(root.path() + "/pps" + kKey), "n:" + std::string(253, 'v'));
}

}  // namespace
}  // namespace bench
