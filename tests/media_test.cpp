// The media command on every kind of source, and the players behind it.
#include "ATMedia.h"
#include "support/recorder.h"

namespace support {
namespace {

const std::uint8_t kMedia = 3;
const std::string kNowPlaying = "/zelmar/navigator/nowplaying";
const std::string kControl = "/zelmar/disc/control";
const std::string kKey = "/zelmar/system/key";
const std::string kJump = "/zelmar/media/autotest/control";
const std::string kPlaying = "/zelmar/disc/playing";
const std::string kSetting = "/zelmar/disc/setting_status";

// What a request makes a player do: lines written to one object, and text on standard error.
struct Action {
  std::string object;
  Lines lines;
  std::string told;
};

// A jump tells of itself first.
Action Disc(int command, int first, int second) {
  const std::string param1 = std::to_string(first);
  const std::string param2 = std::to_string(second);
  const std::string value = "json:{\"cmd\":" + std::to_string(command) + ",\"param1\":" + param1 +
                            ",\"param2\":" + param2 + "}";
  const std::string jump = "JumpTo(folde:" + param2 + ",number:'" + param1 + "') \n";
  return {kControl,
          {"zmcmd:" + value},
          (command == 182 ? jump : "") + "wirtepps buf is('" + value + "') \n"};
}

Action Key(const std::string& operation, int key) {
  const std::string head = "zmkey:json:{\"key\":" + std::to_string(key);
  return {kKey,
          {head + ",\"src\":\"wheel\",\"status\":\"dn\",\"param\":0}",
           head + ",\"src\":\"wheel\",\"status\":\"up\",\"param\":0}"},
          "do('MediaUsbSD::" + operation + "') \n"};
}

Action Goto(const std::string& folder, const std::string& index) {
  return {kJump,
          {"autotest_play:json:{\"folderid\":" + folder + ",\"index\":" + index + "}"},
          "goto(folder[" + folder + "],index[" + index + "]') \n"};
}

class MediaCommand : public RecordedService {
 protected:
  // Makes `name`, the source with identifier `id`, the current one; "" takes its object away.
  void Play(const std::string& name, int id = 0) {
    const std::string text = "zmplaysource::zm" + name + "\n";
    const std::string number = "m_srcID is('" + std::to_string(id) + "') \n";
    std::string found = "read buf is('" + text + "') \nread decoder bufGet is('zm" + name +
                        "') \nm_srcName is('" + name + "') \n" + number;
    pps_->Hold(kNowPlaying, text);
    if (name.empty()) {
      pps_->Refuse(kNowPlaying, ENOENT);
      found = Unopened(kNowPlaying);
    }
    head_ = "CmdMedia::Work? \nCmdMedia::Work! \n" + found + "src." + number;
  }

  // Sends a request that is not answered and checks everything that it causes.
  void Expect(std::uint8_t sub, const Bytes& parameters, const Action& action) {
    SCOPED_TRACE(head_ + std::to_string(sub) + " " + Hex(parameters));
    Do(kMedia, sub, parameters);
    Lines requests = {"r 0 " + kNowPlaying};
    Lines logged;
    for (const std::string& line : action.lines) {
      requests.push_back("rwct 666 " + action.object + " " + line);
      logged.push_back("_KRV_[WritePPS]-" + line);
    }
    EXPECT_EQ(asked, requests);
    EXPECT_EQ(told, head_ + action.told);
    EXPECT_EQ(log_->Texts(5), logged);
    EXPECT_EQ(log_->Texts(2), Lines());
  }

  std::string Number(std::uint8_t sub) { return Hex(Ask(kMedia, sub)); }

  std::string head_;  // what looking up the current source writes
};

TEST_F(MediaCommand, DrivesThePlayerOfEachSource) {
  const struct {
    std::uint8_t sub;
    Bytes parameters;
    Action disc, usb_sd;
  } kRequests[] = {
      {0, {0}, Disc(135, 1, 0), Key("PlayNext", 20)},
      {0, {1}, Disc(136, 1, 0), Key("PlayPre", 21)},
      {0, {2}, {}, {}},
      {1, {0, 3, 0, 10}, Disc(182, 10, 3), Goto("3", "9")},
      {1, {0, 0, 0, 0, 7}, Disc(182, 0, 0), Goto("0", "0")},
      {1, {1, 0, 0, 1}, Disc(182, 1, 256), Goto("256", "0")},
      {1, {255, 255, 255, 255}, Disc(182, 65535, 65535), Goto("65535", "65534")},
      {2, {0}, Disc(130, 1, 0), Key("Pause", 18)},
      {2, {1}, Disc(131, 1, 0), Key("Play", 17)},
      {2, {2}, Disc(129, 1, 0), Key("Stop", 18)},
      {2, {3}, {}, {}},
      {9, {0}, Disc(192, 1, 0), {}},
      {9, {1}, Disc(192, 0, 0), {}},
      {9, {2}, Disc(192, 2, 0), {}},
      {9, {3}, Disc(193, 1, 0), {}},
      {9, {4}, Disc(193, 0, 0), {}},
      {9, {5}, {}, {}},
      {10, {1}, {}, {}},
  };
  const std::map<std::string, int> kSources = {{"disc", 1}, {"sd", 2},    {"usb", 3},  {"rusb", 4},
                                               {"none", 0}, {"radio", 5}, {"svc", 27}, {"", 0}};
  for (const auto& [name, id] : kSources) {
    Play(name, id);
    for (const auto& request : kRequests) {
      const Action action = id == 1 ? request.disc : id >= 2 && id <= 4 ? request.usb_sd : Action();
      Expect(request.sub, request.parameters, action);
    }
    // Published whatever plays; told of only by the disc player.
    Action setup = Disc(200, 1, 0);
    if (id != 1) setup.told.clear();
    Expect(3, {}, setup);
  }
}

TEST(Players, TellWhetherTheyWrote) {
  const TempRoot root;
  Recorder pps(root, "/pps");
  MediaUsbSD player;
  CommMedia none;
  for (const bool written : {true, false}) {
    EXPECT_EQ(player.CtrlPreNext(1), written);
    EXPECT_EQ(player.JumpTo(1, 2), written);
    EXPECT_EQ(player.CtrlPlay(3) + player.CtrlPreNext(2) + none.CtrlPlay(1) + none.JumpTo(1, 2), 0);
    for (const std::string& object : {kKey, kJump}) pps.Refuse(object, EACCES);
  }
}

TEST_F(MediaCommand, GoesOnWhenSomethingIsMissing) {
  const auto expect = [this](int sub, int count, const std::string& text) {
    Do(kMedia, static_cast<std::uint8_t>(sub), Bytes(static_cast<std::size_t>(count), 1));
    EXPECT_EQ(told, head_ + text);
    EXPECT_EQ(log_->Texts(5), Lines());
  };
  for (const std::string& object : {kControl, kKey, kJump}) pps_->Refuse(object, EACCES);
  Play("disc", 1);
  expect(2, 1, Disc(131, 1, 0).told + Unopened(kControl, EACCES));
  Play("usb", 3);  // the release is tried although the press failed
  expect(2, 1, Key("Play", 17).told + Unopened(kKey, EACCES) + Unopened(kKey, EACCES));
  expect(1, 4, Goto("257", "256").told + Unopened(kJump, EACCES));

  // Parameter bytes that are missing are not made up.
  pps_->Hold(kSetting, "zmregion:n:1\n");
  const std::tuple<int, int, int> kShort[] = {{0, 0, 1}, {1, 0, 4}, {1, 3, 4},
                                              {2, 0, 1}, {7, 0, 1}, {9, 0, 1}};
  for (const auto& [sub, count, needed] : kShort) {
    expect(sub, count, "");
    EXPECT_EQ(log_->Texts(2), Lines{"_KRV_[Work]-sub-command " + std::to_string(sub) + " with " +
                                    std::to_string(count) + " parameter bytes, " +
                                    std::to_string(needed) + " needed!\n"});
    EXPECT_EQ(asked, Lines{"r 0 " + kNowPlaying});
  }
}

TEST_F(MediaCommand, AnswersTheTrackOfTheDisc) {
  const std::string track = "trackinfo:json:{\"parentFolder\":2,\"curmediaid\":300}";
  const std::pair<std::string, std::string> kCases[] = {
      {"trackinfo:json:{\"a\":[{}],\"parentFolder\":65535,\"curmediaid\":65535}", "ff ff ff ff"},
      {"trackinfo:json:{\"parentFolder\":258}\n", "01 02 00 00"},
      // Beyond 16 bits and below zero: quotient and remainder round toward zero.
      {"trackinfo:json:{\"curmediaid\":65536,\"parentFolder\":-1}\n", "00 ff 00 00"},
      {"trackinfo:json:{\"curmediaid\":-257,\"parentFolder\":-32769}\n", "80 ff ff ff"},
      {"trackinfo:json:{\"curmediaid\":2147483647,\"parentFolder\":-2147483648}\n", "00 00 ff ff"},
      {"trackinfo:json:{\"curmediaid\":2147483648,\"parentFolder\":1}\n", "00 01 00 00"},
      // Not numbers; not the track's members.
      {"trackinfo:json:{\"curmediaid\":\"300\",\"parentFolder\":2.5}\n", "00 00 00 00"},
      {"curmediaid:n:300\nparentFolder:n:2\n", "00 00 00 00"},
      {"trackinfo:json:{\"curmediaid\":300,\"parentFolder\":2\ncurmediaid:n:300\n", "00 00 00 00"},
      {"", "00 00 00 00"},
      // 1023 bytes are read.
      {std::string(1024 - track.size(), '\n') + track, "00 00 00 00"},
      {std::string(1023 - track.size(), '\n') + track, "00 02 01 2c"},
      {track, "00 02 01 2c"},
  };
  Play("disc", 1);
  for (const auto& [object, reply] : kCases) {
    pps_->Hold(kPlaying, object);
    EXPECT_EQ(Number(5), reply) << object;
  }
  EXPECT_EQ(told, head_ + "read buf is('" + track + "') \nread fileId is('2') songNo[300] \n");
  EXPECT_EQ(asked, (Lines{"r 0 " + kNowPlaying, "r 0 " + kPlaying}));
  Play("usb", 3);  // has no track on the disc
  EXPECT_EQ(Number(5), "00 00 00 00");
  EXPECT_EQ(asked, Lines{"r 0 " + kNowPlaying});
  Play("disc", 1);
  pps_->Refuse(kPlaying, ENOENT);
  EXPECT_EQ(Number(5), "00 00 00 00");
  EXPECT_EQ(told, head_ + Unopened(kPlaying));
}

TEST_F(MediaCommand, AnswersTheDiscsStateAndSetsItsRegion) {
  Play("");
  // The low 8 bits of the device and the region; of the state whether it is 22.
  const std::tuple<std::string, std::string, std::string> kValues[] = {
      {"n:22", "16", "01"}, {"n:278", "16", "00"}, {"n:21", "15", "00"},
      {"n:-1", "ff", "00"}, {":22", "00", "00"},   {"n:4294967318", "00", "00"}};
  const std::tuple<std::uint8_t, std::string, std::string> kNumbers[] = {
      {4, "/zelmar/disc/device", "disc"},
      {6, "/zelmar/disc/status", "discstate"},
      {8, kSetting, "zmregion"}};
  for (const auto& [sub, object, attribute] : kNumbers) {
    for (const auto& [value, number, state] : kValues) {
      pps_->Hold(object, "x::1\n" + attribute + ":" + value + "\n");
      EXPECT_EQ(Number(sub), sub == 6 ? state : number) << value;
    }
    pps_->Refuse(object, ENOENT);
    EXPECT_EQ(Number(sub), "00");
    EXPECT_EQ(told, head_ + Unopened(object));
  }

  const auto expect = [this](std::uint8_t region, const Lines& requests, const std::string& text) {
    Do(kMedia, 7, {region});
    EXPECT_EQ(Lines(asked.begin() + 1, asked.end()), requests);
    EXPECT_EQ(told, head_ + text);
  };
  expect(3, {"w 666 " + kSetting}, Unopened(kSetting));  // not created
  pps_->Hold(kSetting, "zmregion:n:1\n");
  for (const std::uint8_t region : Bytes{0, 6}) {
    const std::string text = "@setting_status\nzmregion:n:" + std::to_string(region) + "\n";
    expect(region, {"w 666 " + kSetting + " " + text}, "pps_encoder_buffer is('" + text + "') \n");
    EXPECT_EQ(log_->Texts(5), Lines{"_KRV_[WritePPS]-/pps/zelmar/disc/setting_status"});
  }
  expect(7, {}, "");
  expect(255, {}, "");
}

}  // namespace
}  // namespace support
