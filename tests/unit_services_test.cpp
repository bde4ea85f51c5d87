// The services behind the unit's objects, driven as the service under test and a person's shell do.
#include <fcntl.h>
#include <sys/slog.h>

#include <climits>
#include <cstdio>
#include <set>
#include <thread>

#include "support/raw_client.h"

namespace support {
namespace {

const char kLauncher[] = "/services/app-launcher";
const char kNowPlaying[] = "/zelmar/navigator/nowplaying";
const char kDisc[] = "/zelmar/disc/control";
const char kDiscStatus[] = "/zelmar/disc/status";
const char kTrack[] = "/zelmar/disc/playing";
const char kRegion[] = "/zelmar/disc/setting_status";
const char kKey[] = "/zelmar/system/key";
const char kJump[] = "/zelmar/media/autotest/control";
const char kUsb[] = "/zelmar/media/zmusb/playing";
const char kHandsFree[] = "/services/handsfree/control";
const char kCall[] = "/services/handsfree/status";
const char kRemote[] = "/services/bluetooth/avrcp/control";
const char kAudio[] = "/services/bluetooth/avrcp/status";
const char kSwitch[] = "/zelmar/setting/bt_control";
const char kSettings[] = "/services/bluetooth/settings";
const char kNavigation[] = "/zelmar/navigation/command";
const char kAngle[] = "/zelmar/navigation/status";

// What is written to an object, and the line that another one then holds; without another one, what
// is complained of.
struct Step {
  const char* object;
  std::string text;
  const char* shown;
  std::string line;
};

std::string Disc(int command, int first, int second) {
  return "zmcmd:json:{\"cmd\":" + std::to_string(command) + ",\"param1\":" + std::to_string(first) +
         ",\"param2\":" + std::to_string(second) + "}";
}

std::string Track(int folder, int number) {
  return "trackinfo:json:{\"curmediaid\":" + std::to_string(number) +
         ",\"parentFolder\":" + std::to_string(folder) + "}";
}

std::string Key(int key, const std::string& status) {
  return "zmkey:json:{\"key\":" + std::to_string(key) + ",\"src\":\"wheel\",\"status\":\"" +
         status + "\",\"param\":0}";
}

std::string Place(int index) {
  return "json:{\"folderid\":3,\"index\":" + std::to_string(index) + "}";
}

std::string Launch(const std::string& application) {
  return "@app-launcher\nreq:json:{\"id\":7,\"cmd\":\"launch zelmarapp\",\"app\":\"" + application +
         "\",\"dat\":\"\"}\n";
}

bool Holds(const char* object, const std::string& line) {
  return PpsText(object).find("\n" + line + "\n") != std::string::npos;
}

class ServicesTest : public UnitTest {
 protected:
  void SetUp() override {
    options_.profile = headunit::DefaultProfile();
    options_.services = true;
    UnitTest::SetUp();
    log_ = std::make_unique<Log>(root_);
    // A process that logged to an earlier test's ring finds this one within a second.
    ASSERT_TRUE(Eventually([&] {
      slogf(0, _SLOG_DEBUG2, "probe");
      return !log_->Lines().empty();
    }));
  }

  // True when the log names `object` and `reason`.
  bool Complains(const std::string& object, const std::string& reason) {
    for (const auto& line : log_->Lines()) {
      if (line.text.find(object + ": " + reason) != std::string::npos) return true;
    }
    return false;
  }

  static void Write(const char* object, const std::string& text, int flags) {
    EXPECT_TRUE(OpenPps(object, flags).Send(text));
  }

  void Follow(int flags, const std::vector<Step>& steps) {
    for (const Step& step : steps) {
      log_->Clear();
      Write(step.object, step.text, flags);
      const auto is_seen = [&] {
        if (step.shown[0] == '\0') return Complains(step.object, step.line);
        return Holds(step.shown, step.line);
      };
      EXPECT_TRUE(Eventually(is_seen))
          << step.text << ": " << step.line << " not in " << PpsText(step.shown);
    }
  }

  std::unique_ptr<Log> log_;
};

// As the media and launcher commands write: creating and truncating, no newline.
const int kCreate = O_RDWR | O_CREAT | O_TRUNC;

TEST_F(ServicesTest, TheLauncherMakesAnApplicationTheSource) {
  const std::string no_number = R"({"id":"7","cmd":"launch zelmarapp","app":"zmsd","dat":""})";
  const std::string one_more = R"({"id":7,"cmd":"launch zelmarapp","app":"zmsd","dat":"","x":1})";
  const std::string data = R"({"id":7,"cmd":"launch zelmarapp","app":"zmsd","dat":"x"})";
  Follow(kCreate, {{kLauncher, Launch("zmdisc"), kNowPlaying, "zmplaysource::zmdisc"},
                   {kLauncher, Launch("zmusb"), kNowPlaying, "zmplaysource::zmusb"},
                   // The same request as the first, and a new one all the same.
                   {kLauncher, Launch("zmdisc"), kNowPlaying, "zmplaysource::zmdisc"},
                   {kLauncher, Launch(""), "", "no such application"},
                   {kLauncher, "req:json:[1]", "", "malformed request"},
                   {kLauncher, "req:json:{\"id\":7,", "", "malformed request"},
                   {kLauncher, "req:json:" + no_number, "", "malformed request"},
                   {kLauncher, "req:json:" + data, "", "malformed request"},
                   {kLauncher, "req:json:" + one_more, "", "malformed request"}});
  EXPECT_TRUE(Holds(kNowPlaying, "zmplaysource::zmdisc"));
}

TEST_F(ServicesTest, TheDiscPlayerPlaysStepsAndJumps) {
  const std::string wrong = "unknown command or parameter";
  Follow(kCreate, {{kDisc, Disc(130, 1, 0), kDiscStatus, "discstate:n:21"},
                   {kDisc, Disc(182, 11, 3), kTrack, Track(3, 11)},
                   {kDisc, Disc(136, 1, 0), kTrack, Track(3, 10)}});
  EXPECT_TRUE(Holds(kDiscStatus, "discstate:n:22"));  // a jump plays
  Follow(kCreate, {{kDisc, Disc(129, 1, 0), kDiscStatus, "discstate:n:20"},
                   // Over the ends of folders and of the disc.
                   {kDisc, Disc(182, 40, 8), kTrack, Track(8, 40)},
                   {kDisc, Disc(135, 1, 0), kTrack, Track(1, 1)},
                   {kDisc, Disc(136, 1, 0), kTrack, Track(8, 40)},
                   {kTrack, Track(INT_MAX, INT_MAX), kTrack, Track(INT_MAX, INT_MAX)},
                   {kDisc, Disc(135, 1, 0), kTrack, Track(1, 1)},
                   {kDisc, Disc(136, 1, 0), kTrack, Track(8, 40)},
                   {kDisc, Disc(192, 2, 0), kDiscStatus, "zmrepeat:n:2"},
                   {kDisc, Disc(182, 41, 1), "", wrong},
                   {kDisc, Disc(192, 3, 0), "", wrong},
                   {kDisc, Disc(131, 2, 0), "", wrong},
                   {kDisc, "zmcmd:json:{\"cmd\":131,\"param1\":1}", "", "malformed command"}});
  Follow(O_WRONLY, {{kRegion, "@setting_status\nzmregion:n:6\n", kDiscStatus, "zmregion:n:6"},
                    {kRegion, "zmregion:n:7", "", "no region"}});
  Write("/zelmar/disc/device", "disc:n:0", O_WRONLY);
  Follow(kCreate, {{kDisc, Disc(131, 1, 0), "", "no disc"}});
  EXPECT_TRUE(Holds(kTrack, Track(8, 40)));
}

TEST_F(ServicesTest, KeysAndJumpsDriveThePlayerOfTheSource) {
  const auto down = [](int key) { return Step{kKey, Key(key, "dn"), kKey, Key(key, "dn")}; };
  const Step jump = {kJump, "autotest_play:" + Place(9), kUsb, "trackinfo:" + Place(9)};
  Follow(kCreate, {down(17),  // the radio plays: neither the key nor the jump is theirs
                   {kKey, Key(17, "up"), kKey, Key(17, "up")},
                   {kJump, jump.text, "", "neither USB nor SD"},
                   {kLauncher, Launch("zmusb"), kNowPlaying, "zmplaysource::zmusb"}});
  EXPECT_TRUE(Holds(kUsb, "state::stopped"));
  Follow(kCreate, {down(17),
                   {kKey, Key(17, "up"), kUsb, "state::playing"},
                   jump,
                   down(20),
                   {kKey, Key(20, "up"), kUsb, "trackinfo:" + Place(10)},
                   down(21),
                   {kKey, Key(21, "up"), kUsb, "trackinfo:" + Place(9)},
                   down(18),
                   {kKey, Key(18, "up"), kUsb, "state::paused"},
                   {kLauncher, Launch("zmsd"), kNowPlaying, "zmplaysource::zmsd"},
                   down(17),
                   {kKey, Key(17, "up"), "/zelmar/media/zmsd/playing", "state::playing"},
                   {kKey, Key(20, "up"), "", "released without being pressed"},
                   down(21),
                   {kKey, Key(21, "dn"), "", "pressed while another key is down"},
                   {kKey, Key(20, "no"), "", "malformed key"}});
  EXPECT_TRUE(Holds(kUsb, "state::paused"));
  Follow(kCreate,
         {{kUsb, "trackinfo:" + Place(INT_MAX), kUsb, "trackinfo:" + Place(INT_MAX)},
          {kKey, R"(zmkey:json:{"key":20,"src":"x","status":"dn","param":0})", "", "malformed"},
          {kKey, R"(zmkey:json:{"key":20,"src":"wheel","status":"dn","param":7})", "", "malformed"},
          {kKey, Key(21, "up"), kKey, Key(21, "up")},
          {kLauncher, Launch("zmusb"), kNowPlaying, "zmplaysource::zmusb"},
          down(20),
          {kKey, Key(20, "up"), kUsb, "trackinfo:" + Place(0)}});
}

TEST_F(ServicesTest, TelephonyAndNavigationShowWhatTheyWereTold) {
  const std::string wrong = "malformed or unknown command";
  const std::string call = "@control\ncommand::HFP_CALL\ncmd_data::+49 30 1234\n";
  Write(kRemote, "command::next", O_WRONLY);
  Follow(O_WRONLY,
         {{kHandsFree, call, kCall, "callstate::dialing\nnumber::+49 30 1234"},
          {kHandsFree, "command::HFP_HANGUP", kCall, "callstate::idle"},
          {kHandsFree, "command::HFP_CALL", "", "no number"},
          {kHandsFree, "cmd_data::1", "", "no command"},
          {kAudio, "track:n:2147483647", kAudio, "track:n:2147483647"},
          {kRemote, "command::next", kAudio, "track:n:65535"},
          {kAudio, "track:n:2", kAudio, "track:n:2"},
          {kRemote, "command::play", kAudio, "state::playing"},
          {kRemote, "command::next", kAudio, "track:n:3"},
          {kSwitch, "zmbt_switch::off", "/services/bluetooth/status", "power::off"},
          {kSwitch, "zmbt_switch::dim", "", "neither on nor off"},
          {kSettings, "mac::00:11:22:33:44:55", kSettings, "mac::00:11:22:33:44:55"},
          {kSettings, "mac::00:11:22:33:44:5", "", "no MAC address"},
          {"/zelmar/navigation/gyro", "angle:n:-3.75", "/zelmar/navigation/gyro", "angle:n:-3.75"},
          {kNavigation, "msg:json:{\"cmd\":2}", kAngle, "lastcmd:n:2"}});
  EXPECT_TRUE(Holds(kAngle, "msgres:json:{\"msg\":1,\"dat\":\"angle=12.5\"}"));
  Follow(O_WRONLY, {{kNavigation, "msg:json:{\"cmd\":1}", kAngle,
                     "msgres:json:{\"msg\":1,\"dat\":\"angle=-3.75\"}"},
                    {kNavigation, "msg:json:{\"cmd\":4}", "", wrong},
                    {kNavigation, "msg:json:{\"cmd\":\"1\"}", "", wrong},
                    {kNavigation, "msg::1", "", wrong},
                    {kNavigation, "other:n:1", "", wrong}});
}

// A message of the positioning service.
struct Fix {
  bool good = false;
  char id[3] = "";
  double latitude = 0;
  long long utc = 0;
  int satellites = 0;
  double first_cno = 0;
};

class PositioningTest : public ServicesTest {
 protected:
  static RawClient Client() {
    return OpenPps("/services/geolocation/control?wait,backlog=4096", O_RDWR | O_CREAT);
  }

  static void Request(const RawClient& client, const std::string& id = "10") {
    EXPECT_TRUE(
        client.Send("@control\nmsg::location\nid::" + id +
                    "\ndat:json:{\"period\":1,\"provider\":\"gnss\",\"fix_type\":\"best\"}\n"));
  }

  // The next message, good when it is one fix with all its members and no satellite twice.
  static Fix Take(const RawClient& client) {
    Fix fix;
    const std::string text = client.Receive(milliseconds(3000)).value_or("");
    int number = 0, size = 0;
    std::sscanf(text.c_str(),
                "@control msg::location id::%2s dat:json:{\"latitude\":%lf,\"longitude\":%*f,"
                "\"altitude\":%*f,\"speed\":%*d,\"ttff\":%*d,\"utc\":%lld,\"Angle\":%*d,"
                "\"satellites\":[%n",
                fix.id, &fix.latitude, &fix.utc, &size);
    std::set<int> ids;
    const char* rest = text.c_str() + size;
    for (fix.satellites = 0; *rest == '{'; ++fix.satellites) {
      double cno = 0;
      size = 1;  // no end is reached behind what does not match
      std::sscanf(rest,
                  "{\"id\":%d,\"cno\":%lf,\"used\":%*[a-z],\"azimuth\":%*d,\"elevation\":%*d}%n",
                  &number, &cno, &size);
      ids.insert(number);
      if (fix.satellites == 0) fix.first_cno = cno;
      rest += size + (rest[size] == ',' ? 1 : 0);
    }
    fix.good =
        std::string(rest) == "]}\n" && ids.size() == static_cast<std::size_t>(fix.satellites);
    return fix;
  }
};

TEST_F(PositioningTest, EachClientGetsTheDriveAtItsPeriod) {
  const RawClient client = Client();
  EXPECT_FALSE(client.Receive(milliseconds(200)));  // nothing before it asks
  Request(client);
  const Fix first = Take(client);
  EXPECT_TRUE(first.good);
  EXPECT_STREQ("10", first.id);
  EXPECT_GT(first.satellites, 4);
  EXPECT_NEAR(31.2, first.latitude, 0.2);
  Request(client, "11");  // again: the pace stays
  EXPECT_FALSE(client.Receive(milliseconds(500)));
  const Fix second = Take(client);
  EXPECT_TRUE(second.good);
  EXPECT_STREQ("11", second.id);
  EXPECT_NEAR(1000, static_cast<double>(second.utc - first.utc), 400);
  EXPECT_NE(first.first_cno, second.first_cno);

  const RawClient other = Client();
  Request(other);
  EXPECT_EQ(first.latitude, Take(other).latitude);  // it begins the drive

  // Each differs from a right request in one place.
  const std::string right = R"(msg::location
id::1
dat:json:{"period":1,"provider":"gnss","fix_type":"best"})";
  for (const auto& [part, change] :
       std::vector<std::pair<std::string, std::string>>{{"location", "other"},
                                                        {"id::1\n", ""},
                                                        {"id::1", "id:n:1"},
                                                        {"id::1", "id::1\nx::1"},
                                                        {"1,", "0,"},
                                                        {"1,", "\"1\","},
                                                        {"gnss", "x"},
                                                        {"best", "x"},
                                                        {",\"fix_type\":\"best\"", ""}}) {
    std::string wrong = right;
    wrong.replace(wrong.find(part), part.size(), change);
    log_->Clear();
    ASSERT_TRUE(other.Send(wrong));
    EXPECT_TRUE(Eventually([&] { return Complains("geolocation", "malformed request"); })) << wrong;
  }
}

TEST_F(PositioningTest, TheWholeDriveIsSoundAndBounded) {
  const RawClient client = Client();
  EXPECT_EQ("ok", Control("gps rate 1"));
  Request(client);
  std::set<double> places;
  std::set<int> counts;
  for (int i = 0; i < 400; ++i) {
    const Fix fix = Take(client);
    ASSERT_TRUE(fix.good) << i;
    counts.insert(fix.satellites);
    places.insert(fix.latitude);
  }
  EXPECT_EQ(24, *counts.rbegin());
  EXPECT_GT(places.size(), 100u);

  EXPECT_EQ("ok", Control("gps lose"));
  EXPECT_TRUE(Eventually([&] { return Take(client).satellites == 0; }));
  EXPECT_EQ(0, Take(client).latitude);
  EXPECT_EQ("ok", Control("gps find"));
  EXPECT_TRUE(Eventually([&] { return Take(client).satellites > 0; }));
}

TEST_F(PositioningTest, SuspendedClientsAreToldAndServedWhenTheyAskAgain) {
  const RawClient client = Client();
  EXPECT_EQ("ok", Control("gps rate 20"));
  const auto take_until_suspended = [&] {
    for (int i = 0; i < 100; ++i) {
      if (client.Receive() == "@control\nerr::suspended\n") return true;
    }
    return false;
  };
  Request(client);
  EXPECT_TRUE(Take(client).good);
  EXPECT_EQ("ok", Control("gps suspend once"));
  EXPECT_TRUE(take_until_suspended());
  EXPECT_FALSE(client.Receive(milliseconds(200)));
  Request(client);
  EXPECT_TRUE(Take(client).good);

  EXPECT_EQ("ok", Control("gps suspend"));
  EXPECT_TRUE(take_until_suspended());
  Request(client);
  EXPECT_FALSE(client.Receive(milliseconds(200)));
  EXPECT_EQ("ok", Control("gps resume"));
  EXPECT_TRUE(Take(client).good);
  EXPECT_TRUE(Take(client).good);
}

TEST_F(PositioningTest, ServicesSurviveTheLossOfTheManager) {
  const auto wait_for_servers = [&] {  // every service has its object open again
    return Eventually(
        [&] { return Control("status").find(" pps-files 11 ") != std::string::npos; });
  };
  ASSERT_TRUE(wait_for_servers()) << Control("status");
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ("ok", Control("pps down"));
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ("ok", Control("pps up"));
    ASSERT_TRUE(wait_for_servers()) << Control("status");
  }
  EXPECT_EQ(0, UnlinkPps(kLauncher));
  // What is asked while the launcher has not noticed yet is lost.
  EXPECT_TRUE(Eventually([&] {
    Write(kLauncher, Launch("zmsd"), kCreate);
    return Holds(kNowPlaying, "zmplaysource::zmsd");
  }));
  ASSERT_TRUE(wait_for_servers());
  const RawClient client = Client();
  Request(client);
  EXPECT_TRUE(Take(client).good);

  // A unit whose manager does not answer still ends at once.
  EXPECT_EQ("ok", Control("pps down"));
  EXPECT_EQ("ok", Control("pps up"));
  EXPECT_EQ("ok", Control("pps stall"));
  std::this_thread::sleep_for(milliseconds(300));  // the services ask
  const auto begin = std::chrono::steady_clock::now();
  unit_->Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

}  // namespace
}  // namespace support
