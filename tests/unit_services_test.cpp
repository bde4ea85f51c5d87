// The services behind the unit's objects, driven as the service under test and a person's shell do.
#include <fcntl.h>
#include <pps.h>
#include <sys/slog.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "headunit/unit.h"
#include "platform/slog_ring.h"
#include "support/bench.h"
#include "support/raw_client.h"

namespace {

using bench::Eventually;
using bench::milliseconds;
using bench::OpenPps;
using bench::PpsText;
using bench::RawClient;

const char kDisc[] = "/zelmar/disc/";

class ServicesTest : public bench::UnitTest {
 protected:
  void SetUp() override {
    options_.profile = headunit::DefaultProfile();
    options_.services = true;
    UnitTest::SetUp();
    log_ = std::make_unique<bench::Log>(root_);
    // A process that logged to an earlier test's ring finds this one within a second.
    ASSERT_TRUE(Eventually([&] {
      slogf(0, _SLOG_DEBUG2, "probe");
      return !log_->Lines().empty();
    }));
  }

  // As the media and launcher commands write: creating and truncating, no newline.
  static void Command(const std::string& path, const std::string& line) {
    const RawClient client = OpenPps(path, O_RDWR | O_CREAT | O_TRUNC);
    ASSERT_EQ(0, client.answer());
    ASSERT_TRUE(client.Send(line));
  }

  static void Disc(int command, int first, int second) {
    Command("/zelmar/disc/control", "zmcmd:json:{\"cmd\":" + std::to_string(command) +
                                        ",\"param1\":" + std::to_string(first) +
                                        ",\"param2\":" + std::to_string(second) + "}");
  }

  static void Key(int key) {
    for (const char* status : {"dn", "up"}) {
      Command("/zelmar/system/key", "zmkey:json:{\"key\":" + std::to_string(key) +
                                        ",\"src\":\"wheel\",\"status\":\"" + status +
                                        "\",\"param\":0}");
    }
  }

  static void Launch(const std::string& application) {
    Command("/services/app-launcher",
            "@app-launcher\nreq:json:{\"id\":7,\"cmd\":\"launch zelmarapp\","
            "\"app\":\"" +
                application + "\",\"dat\":\"\"}\n");
  }

  // Waits until the object holds `line`.
  static void Expect(const std::string& path, const std::string& line) {
    EXPECT_TRUE(
        Eventually([&] { return PpsText(path).find("\n" + line + "\n") != std::string::npos; },
                   milliseconds(3000)))
        << path << " is " << PpsText(path) << " without " << line;
  }

  // Waits for a complaint that names `object` and `reason`.
  void ExpectComplaint(const std::string& object, const std::string& reason) {
    EXPECT_TRUE(Eventually(
        [&] {
          for (const auto& line : log_->Lines()) {
            if (line.text.find(object) != std::string::npos &&
                line.text.find(reason) != std::string::npos) {
              return true;
            }
          }
          return false;
        },
        milliseconds(3000)))
        << object << ": " << reason;
    log_->Clear();
  }

  std::unique_ptr<bench::Log> log_;
};

TEST_F(ServicesTest, TheLauncherMakesAnApplicationTheSource) {
  Launch("zmdisc");
  Expect("/zelmar/navigator/nowplaying", "zmplaysource::zmdisc");
  Launch("zmusb");
  Expect("/zelmar/navigator/nowplaying", "zmplaysource::zmusb");
  Launch("zmdisc");  // the same request as the first, and a new one all the same
  Expect("/zelmar/navigator/nowplaying", "zmplaysource::zmdisc");

  Launch("");
  ExpectComplaint("app-launcher", "no such application");
  const std::string malformed[] = {
      "req::text",
      "req:json:[1]",
      "req:json:{\"id\":7}",
      "req:json:{\"id\":7,",
      "req:json:{\"id\":\"7\",\"cmd\":\"launch zelmarapp\",\"app\":\"zmsd\",\"dat\":\"\"}",
      "req:json:{\"id\":7,\"cmd\":\"launch zelmarapp\",\"app\":\"zmsd\",\"dat\":\"\",\"x\":1}"};
  for (const std::string& line : malformed) {
    Command("/services/app-launcher", line);
    ExpectComplaint("app-launcher", "malformed request");
  }
  Expect("/zelmar/navigator/nowplaying", "zmplaysource::zmdisc");
}

TEST_F(ServicesTest, TheDiscPlayerPlaysStepsAndJumps) {
  const auto expect_track = [](int folder, int number) {
    Expect("/zelmar/disc/playing", "trackinfo:json:{\"curmediaid\":" + std::to_string(number) +
                                       ",\"parentFolder\":" + std::to_string(folder) + "}");
  };
  const std::string status = std::string(kDisc) + "status";
  Disc(131, 1, 0);
  Expect(status, "discstate:n:22");
  Disc(130, 1, 0);
  Expect(status, "discstate:n:21");
  Disc(182, 10, 3);
  expect_track(3, 10);
  Expect(status, "discstate:n:22");
  Disc(135, 1, 0);
  expect_track(3, 11);
  Disc(136, 1, 0);
  expect_track(3, 10);
  Disc(129, 1, 0);
  Expect(status, "discstate:n:20");

  // Over the ends of folders and of the disc.
  Disc(182, 40, 8);
  expect_track(8, 40);
  Disc(135, 1, 0);
  expect_track(1, 1);
  Disc(136, 1, 0);
  expect_track(8, 40);

  Disc(192, 2, 0);
  Expect(status, "zmrepeat:n:2");
  Disc(193, 1, 0);
  Expect(status, "zmrandom:n:1");
  ASSERT_TRUE(
      OpenPps("/zelmar/disc/setting_status", O_WRONLY).Send("@setting_status\nzmregion:n:6\n"));
  Expect(status, "zmregion:n:6");

  Disc(182, 41, 1);
  ExpectComplaint("disc/control", "unknown command or parameter");
  Disc(192, 3, 0);
  ExpectComplaint("disc/control", "unknown command or parameter");
  Disc(131, 2, 0);
  ExpectComplaint("disc/control", "unknown command or parameter");
  Command("/zelmar/disc/control", "zmcmd:json:{\"cmd\":131,\"param1\":1}");
  ExpectComplaint("disc/control", "malformed command");
  ASSERT_TRUE(OpenPps("/zelmar/disc/setting_status", O_WRONLY).Send("zmregion:n:7"));
  ExpectComplaint("setting_status", "no region");
  ASSERT_TRUE(OpenPps("/zelmar/disc/device", O_WRONLY).Send("disc:n:0"));
  Disc(131, 1, 0);
  ExpectComplaint("disc/control", "no disc");
  expect_track(8, 40);
}

TEST_F(ServicesTest, KeysAndJumpsDriveThePlayerOfTheSource) {
  const std::string usb = "/zelmar/media/zmusb/playing";
  Key(17);  // the radio plays: none of theirs
  Command("/zelmar/media/autotest/control", "autotest_play:json:{\"folderid\":3,\"index\":9}");
  ExpectComplaint("autotest/control", "neither USB nor SD");
  Expect(usb, "state::stopped");

  Launch("zmusb");
  Expect("/zelmar/navigator/nowplaying", "zmplaysource::zmusb");
  Key(17);
  Expect(usb, "state::playing");
  Command("/zelmar/media/autotest/control", "autotest_play:json:{\"folderid\":3,\"index\":9}");
  Expect(usb, "trackinfo:json:{\"folderid\":3,\"index\":9}");
  Key(20);
  Expect(usb, "trackinfo:json:{\"folderid\":3,\"index\":10}");
  Key(21);
  Expect(usb, "trackinfo:json:{\"folderid\":3,\"index\":9}");
  Key(18);
  Expect(usb, "state::paused");
  Launch("zmsd");
  Expect("/zelmar/navigator/nowplaying", "zmplaysource::zmsd");
  Key(17);
  Expect("/zelmar/media/zmsd/playing", "state::playing");
  Expect(usb, "state::paused");

  const std::string up = "zmkey:json:{\"key\":20,\"src\":\"wheel\",\"status\":\"up\",\"param\":0}";
  const std::string down =
      "zmkey:json:{\"key\":21,\"src\":\"wheel\",\"status\":\"dn\",\"param\":0}";
  Command("/zelmar/system/key", up);
  ExpectComplaint("system/key", "released without being pressed");
  Command("/zelmar/system/key", down);
  Command("/zelmar/system/key", down);
  ExpectComplaint("system/key", "another key is down");
  Command("/zelmar/system/key",
          "zmkey:json:{\"key\":20,\"src\":\"wheel\",\"status\":\"no\",\"param\":0}");
  ExpectComplaint("system/key", "malformed key");
}

TEST_F(ServicesTest, TelephonyShowsWhatItWasTold) {
  const auto write = [](const std::string& path, const std::string& text) {
    EXPECT_TRUE(OpenPps(path, O_WRONLY).Send(text));
  };
  write("/services/handsfree/control", "@control\ncommand::HFP_CALL\ncmd_data::+49 30 1234\n");
  Expect("/services/handsfree/status", "callstate::dialing");
  Expect("/services/handsfree/status", "number::+49 30 1234");
  write("/services/handsfree/control", "command::HFP_ACCEPT");
  Expect("/services/handsfree/status", "callstate::active");
  write("/services/handsfree/control", "command::HFP_HANGUP");
  Expect("/services/handsfree/status", "callstate::idle");
  write("/services/handsfree/control", "command::HFP_CALL");
  ExpectComplaint("handsfree", "no number");
  write("/services/bluetooth/avrcp/control", "command::play");
  Expect("/services/bluetooth/avrcp/status", "state::playing");
  write("/services/bluetooth/avrcp/control", "command::next");
  write("/services/bluetooth/avrcp/control", "command::next");
  Expect("/services/bluetooth/avrcp/status", "track:n:3");
  write("/services/bluetooth/avrcp/control", "command::previous");
  Expect("/services/bluetooth/avrcp/status", "track:n:2");
  write("/zelmar/setting/bt_control", "zmbt_switch::off");
  Expect("/services/bluetooth/status", "power::off");
  write("/zelmar/setting/bt_control", "zmbt_switch::dim");
  ExpectComplaint("bt_control", "neither on nor off");
  write("/services/bluetooth/settings", "mac::00:11:22:33:44:55");
  write("/services/bluetooth/settings", "mac::00:11:22:33:44:5");
  ExpectComplaint("bluetooth/settings", "no MAC address");
}

TEST_F(ServicesTest, NavigationPublishesTheAngle) {
  const auto command = [](const std::string& line) {
    EXPECT_TRUE(OpenPps("/zelmar/navigation/command", O_WRONLY).Send(line));
  };
  ASSERT_TRUE(OpenPps("/zelmar/navigation/gyro", O_WRONLY).Send("angle:n:-3.75"));
  command("msg:json:{\"cmd\":2}");
  Expect("/zelmar/navigation/status", "lastcmd:n:2");
  Expect("/zelmar/navigation/status", "msgres:json:{\"msg\":1,\"dat\":\"angle=12.5\"}");
  command("msg:json:{\"cmd\":1}");
  Expect("/zelmar/navigation/status", "msgres:json:{\"msg\":1,\"dat\":\"angle=-3.75\"}");
  for (const char* wrong :
       {"msg:json:{\"cmd\":4}", "msg:json:{\"cmd\":\"1\"}", "msg::1", "other:n:1"}) {
    command(wrong);
    ExpectComplaint("navigation/command", "malformed or unknown command");
  }
}

// --- positioning --------------------------------------------------------------------------------

class PositioningTest : public ServicesTest {
 protected:
  static RawClient Client() {
    return OpenPps("/services/geolocation/control?wait,backlog=30", O_RDWR | O_CREAT);
  }

  static void Request(const RawClient& client, const std::string& id = "10") {
    EXPECT_TRUE(
        client.Send("@control\nmsg::location\nid::" + id +
                    "\ndat:json:{\"period\":1,\"provider\":\"gnss\",\"fix_type\":\"best\"}\n"));
  }

  struct Fix {
    bool good = false;
    std::string id;
    double latitude = 0;
    std::int64_t utc = 0;
    int satellites = -1;
    double first_cno = 0;
  };

  static Fix Take(const RawClient& client, milliseconds limit = milliseconds(3000)) {
    Fix fix;
    std::string text = client.Receive(limit).value_or("");
    if (text.compare(0, 9, "@control\n") != 0) return fix;
    pps_decoder_t decoder;
    pps_decoder_initialize(&decoder, &text[0]);
    const char* id = "";
    const char* message = "";
    double longitude = 0;
    double altitude = 0;
    int speed = 0;
    int angle = 0;
    int ttff = 0;
    pps_decoder_push(&decoder, nullptr);
    pps_decoder_get_string(&decoder, "id", &id);
    pps_decoder_get_string(&decoder, "msg", &message);
    pps_decoder_push(&decoder, "dat");
    pps_decoder_get_double(&decoder, "latitude", &fix.latitude);
    pps_decoder_get_double(&decoder, "longitude", &longitude);
    pps_decoder_get_double(&decoder, "altitude", &altitude);
    pps_decoder_get_int(&decoder, "speed", &speed);
    pps_decoder_get_int(&decoder, "Angle", &angle);
    pps_decoder_get_int(&decoder, "ttff", &ttff);
    pps_decoder_get_int64(&decoder, "utc", &fix.utc);
    pps_decoder_push_array(&decoder, "satellites");
    fix.satellites = pps_decoder_length(&decoder);
    std::set<int> ids;
    for (int i = 0; i < fix.satellites; ++i) {
      int number = 0;
      int azimuth = 0;
      int elevation = 0;
      bool used = false;
      double cno = 0;
      pps_decoder_push(&decoder, nullptr);
      pps_decoder_get_int(&decoder, "id", &number);
      pps_decoder_get_double(&decoder, "cno", &cno);
      pps_decoder_get_bool(&decoder, "used", &used);
      pps_decoder_get_int(&decoder, "azimuth", &azimuth);
      pps_decoder_get_int(&decoder, "elevation", &elevation);
      pps_decoder_pop(&decoder);
      if (i == 0) fix.first_cno = cno;
      ids.insert(number);
    }
    fix.id = id;
    fix.good = pps_decoder_status(&decoder, true) == PPS_DECODER_OK &&
               std::string(message) == "location" &&
               ids.size() == static_cast<std::size_t>(fix.satellites);
    pps_decoder_cleanup(&decoder);
    return fix;
  }
};

TEST_F(PositioningTest, EachClientGetsTheDriveAtItsPeriod) {
  const RawClient client = Client();
  EXPECT_FALSE(client.Receive(milliseconds(200)));  // nothing before it asks
  Request(client);
  const Fix first = Take(client);
  EXPECT_TRUE(first.good);
  EXPECT_EQ("10", first.id);
  EXPECT_GT(first.satellites, 4);
  EXPECT_NEAR(31.2, first.latitude, 0.2);
  Request(client, "11");  // again: the pace stays
  EXPECT_FALSE(client.Receive(milliseconds(500)));
  const Fix second = Take(client);
  EXPECT_TRUE(second.good);
  EXPECT_EQ("11", second.id);
  EXPECT_NEAR(1000, static_cast<double>(second.utc - first.utc), 400);
  EXPECT_NE(first.first_cno, second.first_cno);

  const RawClient other = Client();
  Request(other);
  EXPECT_EQ(first.latitude, Take(other).latitude);  // it begins the drive

  for (const char* wrong :
       {"msg::location\nid::1",
        "msg::other\ndat:json:{\"period\":1,\"provider\":\"gnss\",\"fix_type\":\"x\"}",
        "msg::location\ndat:json:{\"period\":0,\"provider\":\"gnss\",\"fix_type\":\"best\"}",
        "msg::location\ndat:json:{\"period\":\"1\",\"provider\":\"gnss\",\"fix_type\":\"best\"}"}) {
    ASSERT_TRUE(other.Send(wrong));
    ExpectComplaint("geolocation", "malformed request");
  }
}

TEST_F(PositioningTest, TheWholeDriveIsSoundAndBounded) {
  const RawClient client = Client();
  EXPECT_EQ("ok", Control("gps rate 1"));
  Request(client);
  std::set<double> places;
  int most = 0;
  for (int i = 0; i < 400; ++i) {
    const Fix fix = Take(client);
    ASSERT_TRUE(fix.good) << i;
    ASSERT_LE(fix.satellites, 24);
    most = std::max(most, fix.satellites);
    places.insert(fix.latitude);
  }
  EXPECT_EQ(24, most);
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
  EXPECT_EQ(0, bench::UnlinkPps("/services/app-launcher"));
  // What is asked while the launcher has not noticed yet is lost.
  EXPECT_TRUE(Eventually([&] {
    Launch("zmsd");
    return PpsText("/zelmar/navigator/nowplaying").find("\nzmplaysource::zmsd\n") !=
           std::string::npos;
  }));
  ASSERT_TRUE(wait_for_servers());
  const RawClient client = Client();
  Request(client);
  EXPECT_TRUE(Take(client).good);

  // A unit whose manager answers nobody still ends at once.
  EXPECT_EQ("ok", Control("pps down"));
  EXPECT_EQ("ok", Control("pps up"));
  EXPECT_EQ("ok", Control("pps stall"));
  std::this_thread::sleep_for(milliseconds(300));  // the services ask
  const auto begin = std::chrono::steady_clock::now();
  unit_->Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

}  // namespace
