// The media command on every kind of source, and the players behind it.
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <sstream>
#include <tuple>

#include "ATMedia.h"
#include "support/recording_pps.h"

namespace bench {
namespace {

const std::uint8_t kMedia = 3;
const char kNowPlaying[] = "/zelmar/navigator/nowplaying";
const char kControl[] = "/zelmar/disc/control";
const char kKey[] = "/zelmar/system/key";
const char kJump[] = "/zelmar/media/autotest/control";
const char kPlaying[] = "/zelmar/disc/playing";
const char kSetting[] = "/zelmar/disc/setting_status";

// What a request makes a player do: lines written to one object, and text on standard error.
struct Action {
  std::string object;
  Lines lines;
  std::string told;
};

// "COMMAND PARAM1 PARAM2"; a jump tells of itself first.
Action Disc(const std::string& numbers) {
  std::istringstream words(numbers);
  std::string command, param1, param2;
  if (!(words >> command >> param1 >> param2)) return {};
  const std::string value =
      "json:{\"cmd\":" + command + ",\"param1\":" + param1 + ",\"param2\":" + param2 + "}";
  const std::string jump =
      command == "182" ? "JumpTo(folde:" + param2 + ",number:'" + param1 + "') \n" : "";
  return {kControl, {"zmcmd:" + value}, jump + "wirtepps buf is('" + value + "') \n"};
}

// "OPERATION KEY", or "FOLDER INDEX" of a jump.
Action UsbSd(const std::string& text) {
  std::istringstream words(text);
  std::string first, second;
  if (!(words >> first >> second)) return {};
  if (std::isdigit(first[0]) != 0) {
    return {kJump,
            {"autotest_play:json:{\"folderid\":" + first + ",\"index\":" + second + "}"},
            "goto(folder[" + first + "],index[" + second + "]') \n"};
  }
  const std::string head = "zmkey:json:{\"key\":" + second + ",\"src\":\"wheel\",\"status\":\"";
  return {kKey,
          {head + "dn\",\"param\":0}", head + "up\",\"param\":0}"},
          "do('MediaUsbSD::" + first + "') \n"};
}

class MediaCommand : public RecordedBench {
 protected:
  // Makes `name`, the source with identifier `id`, the current one; "" takes its object away.
  void Play(const std::string& name, int id = 0) {
    head_ = "CmdMedia::Work? \nCmdMedia::Work! \n";
    if (name.empty()) {
      pps_->Drop(kNowPlaying);
      head_ += Missing(kNowPlaying);
    } else {
      const std::string text = "zmplaysource::zm" + name + "\n";
      pps_->Hold(kNowPlaying, text);
      head_ += "read buf is('" + text + "') \nread decoder bufGet is('zm" + name +
               "') \nm_srcName is('" + name + "') \nm_srcID is('" + std::to_string(id) + "') \n";
    }
    head_ += "src.m_srcID is('" + std::to_string(id) + "') \n";
  }

  static std::string Missing(const std::string& object) {
    return "open('/pps" + object + "') failed: No such file or directory\n";
  }

  // Sends a request that is not answered and checks everything that it causes.
  void Expect(std::uint8_t sub, const std::string& parameters, const Action& action) {
    SCOPED_TRACE(head_ + std::to_string(sub) + " " + parameters);
    Do(kMedia, sub, FromHex(parameters));
    Lines requests = {std::string("r 0 ") + kNowPlaying};
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
    const char* parameters;
    const char* disc;
    const char* usb_sd;
  } kRequests[] = {
      {0, "00", "135 1 0", "PlayNext 20"},
      {0, "01", "136 1 0", "PlayPre 21"},
      {0, "02", "", ""},
      {0, "ff", "", ""},
      {1, "00 03 00 0a", "182 10 3", "3 9"},
      {1, "00 00 00 00 07", "182 0 0", "0 0"},
      {1, "01 00 00 01", "182 1 256", "256 0"},
      {1, "ff ff ff ff", "182 65535 65535", "65535 65534"},
      {2, "00", "130 1 0", "Pause 18"},
      {2, "01", "131 1 0", "Play 17"},
      {2, "02", "129 1 0", "Stop 18"},
      {2, "03", "", ""},
      {9, "00", "192 1 0", ""},
      {9, "01", "192 0 0", ""},
      {9, "02", "192 2 0", ""},
      {9, "03", "193 1 0", ""},
      {9, "04", "193 0 0", ""},
      {9, "05", "", ""},
      {9, "ff", "", ""},
      {10, "01", "", ""},
      {255, "01", "", ""},
  };
  const std::map<std::string, int> kSources = {{"disc", 1}, {"sd", 2},    {"usb", 3},  {"rusb", 4},
                                               {"none", 0}, {"radio", 5}, {"svc", 27}, {"", 0}};
  for (const auto& [name, id] : kSources) {
    Play(name, id);
    for (const auto& request : kRequests) {
      const bool is_usb_sd = id >= 2 && id <= 4;
      Expect(request.sub, request.parameters,
             is_usb_sd ? UsbSd(request.usb_sd) : Disc(id == 1 ? request.disc : ""));
    }
    // Published whatever plays; told of only by the disc player.
    Action setup = Disc("200 1 0");
    if (id != 1) setup.told.clear();
    Expect(3, "", setup);
  }
}

TEST_F(MediaCommand, GoesOnWhenSomethingIsMissing) {
  const auto denied = [this](const char* object, int times) {
    std::string text;
    while (times-- > 0)
      text += std::string("open('/pps") + object + "') failed: Permission denied\n";
    pps_->Refuse(object, EACCES);
    return text;
  };
  const auto expect = [this](std::uint8_t sub, const Bytes& parameters, const std::string& text) {
    Do(kMedia, sub, parameters);
    EXPECT_EQ(told, head_ + text);
    EXPECT_EQ(log_->Texts(5), Lines());
  };
  Play("disc", 1);
  expect(2, {1}, Disc("131 1 0").told + denied(kControl, 1));
  Play("usb", 3);  // the release is tried although the press failed
  expect(2, {1}, UsbSd("Play 17").told + denied(kKey, 2));
  expect(1, {0, 1, 0, 1}, UsbSd("1 0").told + denied(kJump, 1));

  // Parameter bytes that are missing are not made up.
  pps_->Hold(kSetting, "zmregion:n:1\n");
  for (const auto& [sub, count, needed] :
       {std::array<int, 3>{0, 0, 1}, {1, 0, 4}, {1, 3, 4}, {2, 0, 1}, {7, 0, 1}, {9, 0, 1}}) {
    expect(static_cast<std::uint8_t>(sub), Bytes(static_cast<std::size_t>(count)), "");
    EXPECT_EQ(log_->Texts(2), Lines{"_KRV_[Work]-sub-command " + std::to_string(sub) + " with " +
                                    std::to_string(count) + " parameter bytes, " +
                                    std::to_string(needed) + " needed!\n"});
    EXPECT_EQ(asked, Lines{std::string("r 0 ") + kNowPlaying});
  }
}

TEST_F(MediaCommand, AnswersTheTrackOfTheDisc) {
  const std::pair<std::string, std::string> kCases[] = {
      {"trackinfo:json:{\"curmediaid\":300,\"parentFolder\":2}\n", "00 02 01 2c"},
      {"trackinfo:json:{\"a\":[{}],\"parentFolder\":65535,\"curmediaid\":65535}", "ff ff ff ff"},
      {"trackinfo:json:{\"curmediaid\":300}\n", "00 00 01 2c"},
      {"trackinfo:json:{\"parentFolder\":258}\n", "01 02 00 00"},
      // Beyond 16 bits and below zero: quotient and remainder round toward zero.
      {"trackinfo:json:{\"curmediaid\":65536,\"parentFolder\":-1}\n", "00 ff 00 00"},
      {"trackinfo:json:{\"curmediaid\":-257,\"parentFolder\":-32769}\n", "80 ff ff ff"},
      {"trackinfo:json:{\"curmediaid\":2147483647,\"parentFolder\":-2147483648}\n", "00 00 ff ff"},
      {"trackinfo:json:{\"curmediaid\":2147483648,\"parentFolder\":1}\n", "00 01 00 00"},
      // Not numbers; not the track's members.
      {"trackinfo:json:{\"curmediaid\":\"300\",\"parentFolder\":2.5}\n", "00 00 00 00"},
      {"trackinfo:json:{\"curmediaid\":null,\"parentFolder\":[2]}\n", "00 00 00 00"},
      {"curmediaid:n:300\nparentFolder:n:2\n", "00 00 00 00"},
      {"trackinfo::gone\ncurmediaid:n:300\nparentFolder:n:2\n", "00 00 00 00"},
      {"trackinfo:json:{\"x\":{\"curmediaid\":300,\"parentFolder\":2}}\n", "00 00 00 00"},
      {"trackinfo:json:[{\"curmediaid\":300,\"parentFolder\":2}]\n", "00 00 00 00"},
      {"trackinfo:json:{\"curmediaid\":300,\"parentFolder\":2\ncurmediaid:n:300\n", "00 00 00 00"},
      {"", "00 00 00 00"},
  };
  Play("disc", 1);
  for (const auto& [object, reply] : kCases) {
    pps_->Hold(kPlaying, object);
    EXPECT_EQ(Number(5), reply) << object;
  }
  // 1023 bytes are read.
  const std::string track = "\ntrackinfo:json:{\"parentFolder\":2,\"curmediaid\":300}";
  const std::string full = "x::" + std::string(1023 - 3 - track.size(), 'x') + track;
  pps_->Hold(kPlaying, full);
  EXPECT_EQ(Number(5), "00 02 01 2c");
  pps_->Hold(kPlaying, "y" + full);
  EXPECT_EQ(Number(5), "00 00 00 00");

  pps_->Hold(kPlaying, kCases[0].first);
  EXPECT_EQ(Number(5), "00 02 01 2c");
  EXPECT_EQ(told,
            head_ + "read buf is('" + kCases[0].first + "') \nread fileId is('2') songNo[300] \n");
  EXPECT_EQ(asked, (Lines{std::string("r 0 ") + kNowPlaying, std::string("r 0 ") + kPlaying}));
  Play("usb", 3);  // has no track on the disc
  EXPECT_EQ(Number(5), "00 00 00 00");
  EXPECT_EQ(asked, Lines{std::string("r 0 ") + kNowPlaying});
  Play("disc", 1);
  pps_->Drop(kPlaying);
  EXPECT_EQ(Number(5), "00 00 00 00");
  EXPECT_EQ(told, head_ + Missing(kPlaying));
}

TEST_F(MediaCommand, AnswersTheDiscsStateAndSetsItsRegion) {
  Play("");
  const std::tuple<int, const char*, const char*> kNumbers[] = {
      {4, "/zelmar/disc/device", "disc"},
      {6, "/zelmar/disc/status", "discstate"},
      {8, kSetting, "zmregion"}};
  for (const auto& [number, object, attribute] : kNumbers) {
    const bool is_state = number == 6;  // answers whether it is 22; the others the low 8 bits
    const std::uint8_t sub = static_cast<std::uint8_t>(number);
    const std::pair<const char*, const char*> kValues[] = {{"n:22", is_state ? "01" : "16"},
                                                           {"n:278", is_state ? "00" : "16"},
                                                           {"n:21", is_state ? "00" : "15"},
                                                           {"n:-1", is_state ? "00" : "ff"},
                                                           {":22", "00"},
                                                           {"b:true", "00"},
                                                           {"n:22.5", "00"},
                                                           {"n:4294967318", "00"},
                                                           {"json:{}", "00"},
                                                           {"n:", "00"}};
    for (const auto& [value, reply] : kValues) {
      pps_->Hold(object, std::string("x::1\n") + attribute + ":" + value + "\n");
      EXPECT_EQ(Number(sub), reply) << value;
    }
    pps_->Drop(object);
    EXPECT_EQ(Number(sub), "00");
    EXPECT_EQ(told, head_ + Missing(object));
  }

  const auto expect = [this](std::uint8_t region, const Lines& requests, const std::string& text) {
    Do(kMedia, 7, {region});
    EXPECT_EQ(Lines(asked.begin() + 1, asked.end()), requests);
    EXPECT_EQ(told, head_ + text);
  };
  const std::string request = std::string("w 666 ") + kSetting;
  expect(3, {request}, Missing(kSetting));  // not created
  pps_->Hold(kSetting, "zmregion:n:1\n");
  for (const std::uint8_t region : Bytes{0, 6}) {
    const std::string text = "@setting_status\nzmregion:n:" + std::to_string(region) + "\n";
    expect(region, {request + " " + text}, "pps_encoder_buffer is('" + text + "') \n");
    EXPECT_EQ(log_->Texts(5), Lines{"_KRV_[WritePPS]-/pps/zelmar/disc/setting_status"});
  }
  expect(7, {}, "");
  expect(255, {}, "");
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
    for (const std::string object : {kControl, kKey, kJump}) {
      root.AddFile("/pps" + object, std::string(4096, 'x'));
    }
  }
  // One line replaces the object, cut at 255 characters.
  EXPECT_TRUE(disc.WritePPS("/pps/zelmar/system/key", "n", std::string(300, 'v').c_str()));
  EXPECT_EQ(ReadFile(root.path() + "/pps" + kKey), "n:" + std::string(253, 'v'));
}

}  // namespace
}  // namespace bench
