// The bench's control lines, and the faults that they set on the PPS manager.
#include <devctl.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "platform/io.h"
#include "qnx/bench_link.h"
#include "support/fixture.h"
#include "support/raw_client.h"
#include "wire/devices.h"

namespace support {
namespace {

class ControlTest : public UnitTest {
 protected:
  static milliseconds Spent(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
  }
};

TEST_F(ControlTest, LinesAreAnsweredOnTheConnectorAsInTheProcess) {
  const RawClient connector(qnx::kControlPath, "", O_RDWR);
  ASSERT_EQ(0, connector.answer());
  for (const char* line :
       {"help", "i2c counters", "sysinfo show", "nonsense", "i2c identity 1 2 3"}) {
    ASSERT_TRUE(connector.Send(line));
    EXPECT_EQ(Control(line), connector.Receive().value_or("")) << line;
  }
  ASSERT_TRUE(connector.Send("  status  "));
  EXPECT_EQ("ok heap ", Control("memory").substr(0, 8));
  EXPECT_EQ("ok service 0 ", connector.Receive().value_or("").substr(0, 13));

  // Every line of the help is one that the table knows.
  const std::string help = Control("help").substr(3);
  std::size_t lines = 0;
  for (std::size_t begin = 0; begin < help.size(); begin = help.find('\n', begin) + 1, ++lines) {
    EXPECT_EQ(std::string::npos,
              Control(help.substr(begin, help.find(' ', begin) - begin) + " x y z").find("ok"));
    if (help.find('\n', begin) == std::string::npos) break;
  }
  EXPECT_GT(lines, 20u);
  EXPECT_EQ(
      "ok mcu down                    take the MCU device away\nmcu up                      "
      "bring it back",
      Control("mcu help"));
}

TEST_F(ControlTest, WrongLinesAreErrorsAndChangeNothing) {
  for (const char* line : {"",
                           " ",
                           "stat",
                           "i2c",
                           "i2c fail-send",
                           "i2c fail-send -1",
                           "i2c fail-send 1x",
                           "i2c fail-send 99999999999999999999",
                           "i2c fail-send 1 2",
                           "i2c identity 1 2 3 100",
                           "i2c speed maybe",
                           "sysinfo fail zero",
                           "sysinfo length",
                           "pps slow /key",
                           "pps slow /key soon",
                           "gps suspend",
                           "gps rate 10",
                           "save",
                           "save /proc/none",
                           "status now"}) {
    EXPECT_EQ("error ", Control(line).substr(0, 6)) << line;
  }
  for (const std::string& line : {std::string("help\0", 5), std::string(100000, 'x')}) {
    EXPECT_EQ("error ", Control(line).substr(0, 6));
  }
  EXPECT_EQ("ok speeds 0 sends 0 receives 0 transfers 0 speed 0", Control("i2c counters"));
}

TEST_F(ControlTest, AManagerCanBeStalledAndSlowed) {
  ASSERT_EQ(0, OpenPps("/key", O_WRONLY | O_CREAT).answer());
  ASSERT_EQ(0, OpenPps("/other", O_WRONLY | O_CREAT).answer());

  EXPECT_EQ("ok", Control("pps stall"));
  RawClient waiting("/pps");
  ASSERT_TRUE(waiting.Send(OpeningRequest(1, O_RDONLY, "/key")));
  EXPECT_EQ(-1, waiting.TakeAnswer(milliseconds(100)));
  EXPECT_EQ("ok", Control("pps unstall"));
  EXPECT_TRUE(waiting.AtEnd());
  EXPECT_EQ("@key\n", PpsText("/key"));

  EXPECT_EQ("ok", Control("pps slow /pps/key 300"));
  EXPECT_LT(Spent([] { EXPECT_EQ(0, AccessPps("/other")); }).count(), 250);
  EXPECT_GE(Spent([] { EXPECT_EQ(0, AccessPps("/key")); }).count(), 290);
  {
    // A client that does not wait for its answer leaves nothing behind.
    RawClient impatient("/pps");
    ASSERT_TRUE(impatient.Send(OpeningRequest(1, O_WRONLY | O_CREAT | O_TRUNC, "/key")));
  }
  std::this_thread::sleep_for(milliseconds(400));
  EXPECT_PRED2(Contains, Control("status"), " pps-files 0 ");
  EXPECT_EQ("ok", Control("pps slow /key 0"));
  EXPECT_LT(Spent([] { EXPECT_EQ(0, AccessPps("/key")); }).count(), 250);
}

TEST_F(ControlTest, ASavedProfileStartsAnEqualUnit) {
  const RawClient writer = OpenPps("/a/b/key", O_WRONLY | O_CREAT);
  ASSERT_TRUE(writer.Send("n:n:1\ntext::with: colons\nlist:json:[1,2]"));
  // Names that a profile leaves alone in its files, escapes, and one that leaves room for nothing.
  const std::string names[] = {
      "empty", ".hidden", "#number", "old~", "a%2Eb%", std::string(253, 'n'), ".d/#~"};
  for (const std::string& name : names) {
    ASSERT_EQ(0, OpenPps("/a/" + name, O_WRONLY | O_CREAT).answer());
  }
  const std::string folder = root_.path() + "/saved profile";
  EXPECT_EQ("error ", Control("save " + folder).substr(0, 6));  // a blank parts words
  ASSERT_EQ("ok", Control("save " + root_.path() + "/saved"));
  EXPECT_EQ("list:json:[1,2]\nn:n:1\ntext::with: colons\n",
            ReadFile(root_.path() + "/saved/pps/a/b/key"));

  headunit::UnitOptions again = options_;
  again.root = root_.path() + "/again";
  again.profile = root_.path() + "/saved";
  setenv("HEADUNIT_ROOT", again.root.c_str(), 1);
  {
    headunit::Unit unit(again);
    ASSERT_EQ("", unit.Start());
    EXPECT_EQ("@key\nlist:json:[1,2]\nn:n:1\ntext::with: colons\n", PpsText("/a/b/key"));
    for (const std::string& name : names) {
      EXPECT_EQ("@" + name.substr(name.rfind('/') + 1) + "\n", PpsText("/a/" + name));
    }
    EXPECT_PRED2(Contains, unit.Control("status"), " objects 8 ");
  }
  setenv("HEADUNIT_ROOT", root_.path().c_str(), 1);
}

// --- profiles -----------------------------------------------------------------------------------

class ProfileTest : public UnitTest {
 protected:
  void SetUp() override { options_.profile = root_.path() + "/profile"; }

  std::string StartOn(const std::string& file, const std::string& content) {
    root_.AddFile("/profile/" + file, content);
    unit_ = std::make_unique<headunit::Unit>(options_);
    const std::string failure = unit_->Start();
    if (!failure.empty()) std::filesystem::remove(options_.profile + "/" + file);
    return failure;
  }
};

TEST_F(ProfileTest, WrongFilesAreNamedWithTheirLine) {
  unit_ = std::make_unique<headunit::Unit>(options_);
  EXPECT_PRED2(Contains, unit_->Start(), "no such profile");
  EXPECT_PRED2(Contains, StartOn("pps/a/key", "n:n:1\n\nx::1\n"),
               "/pps/a/key: line 2 is no PPS line");
  EXPECT_PRED2(Contains, StartOn("pps/a/key", "@key\nwrong"), "line 2");
  options_.services = true;
  EXPECT_PRED2(Contains, StartOn("drive.txt", "# comment\nfix 1 2 3 4\n"), "/drive.txt: line 2");
  EXPECT_PRED2(Contains, StartOn("drive.txt", "sat 1 2 1 4 5\n"), "line 1");
  EXPECT_PRED2(Contains, StartOn("drive.txt", "fix 1 2 3 4 5\nsat 1 2 7 4 5\n"), "line 2");
  EXPECT_EQ("", StartOn("drive.txt", "fix 1 2 3 4 5\nsat 1 2.5 1 4 5\n"));
}

TEST_F(ProfileTest, FilesAreLaidBelowTheRootAndLeftoversSkipped) {
  root_.AddFile("/profile/root/app/run.sh", "#!/bin/sh\n", 0755);
  root_.AddFile("/profile/root/app/text", "from the profile");
  root_.AddFile("/app/text", "mine");
  root_.AddFile("/profile/pps/.key.swp", "\0\0");
  root_.AddFile("/profile/pps/key~", "old and wrong");
  ASSERT_EQ("", StartOn("pps/dir/key", "n:n:1"));
  EXPECT_EQ("@key\nn:n:1\n", PpsText("/dir/key"));
  EXPECT_EQ("dir/\n", OpenPps("", O_RDONLY | O_DIRECTORY).Receive().value_or(""));
  EXPECT_EQ(0, access((root_.path() + "/app/run.sh").c_str(), X_OK));
  EXPECT_EQ("mine", ReadFile(root_.path() + "/app/text"));
}

// --- the program --------------------------------------------------------------------------------

TEST_F(ProfileTest, TheProgramSaysWhatIsWrongOnItsCommandLine) {
  std::vector<std::vector<std::string>> misuses = {{"--root", ""}};
  for (const char* line : {"--what", "--root", "--log-lines 3", "--log-lines -8", "--log-lines 0",
                           "extra", "--empty --profile /tmp"}) {
    misuses.push_back(Arguments(line));
  }
  for (const std::vector<std::string>& arguments : misuses) {
    Program program(root_, "headunit", arguments);
    EXPECT_EQ(2, program.Wait()) << arguments[0];
    EXPECT_NE("", program.Errors());
    EXPECT_EQ("", program.Output());
  }
  Program help(root_, "headunit", {"import", "--help"});
  EXPECT_EQ(0, help.Wait());
  EXPECT_PRED2(Contains, help.Output(), "--no-services");
  Program status(root_, "headunit", {"ctl", "status"});
  EXPECT_EQ(1, status.Wait());
  EXPECT_PRED2(Contains, status.Errors(), "no unit runs below");
}

TEST_F(ProfileTest, TheProgramRunsSavesAndEndsInOrder) {
  const std::string saved = root_.path() + "/saved";
  for (const int signal : {SIGTERM, SIGINT}) {
    Program unit(root_, "headunit", {"--root", ".", "--save", saved, "--log-lines", "64"});
    ASSERT_TRUE(Eventually([&] { return unit.Output().find("ready: ") == 0; }));
    EXPECT_EQ(0, AccessPps("/zelmar/system/version_status"));
    ASSERT_TRUE(OpenPps("/mine", O_WRONLY | O_CREAT).Send("n:n:1"));
    Program control(root_, "headunit", {"ctl", "i2c", "identity", "1", "2", "3", "4"});
    EXPECT_EQ(0, control.Wait());
    EXPECT_EQ("ok\n", control.Output());
    Program refused(root_, "headunit", {"ctl", "i2c", "identity"});
    EXPECT_EQ(1, refused.Wait());
    EXPECT_PRED2(Contains, refused.Errors(), "usage: i2c identity");
    Program save(root_, "headunit", {"ctl", "save", "mine"});  // where this program runs
    EXPECT_EQ(0, save.Wait());
    EXPECT_EQ("n:n:1\n", ReadFile(root_.path() + "/mine/pps/mine"));
    unit.Signal(signal);
    EXPECT_EQ(0, unit.Wait());
    EXPECT_EQ("n:n:1\n", ReadFile(saved + "/pps/mine"));
    EXPECT_FALSE(std::filesystem::exists(root_.path() + "/pps"));
  }

  // A killed unit's sockets are no obstacle.
  Program killed(root_, "headunit", {"--empty"});
  ASSERT_TRUE(Eventually([&] { return killed.Output().find("ready: ") == 0; }));
  killed.Signal(SIGKILL);
  EXPECT_EQ(128 + SIGKILL, killed.Wait());
  EXPECT_TRUE(std::filesystem::exists(root_.path() + "/pps"));
  Program next(root_, "headunit", {"--empty"});
  ASSERT_TRUE(Eventually([&] { return next.Output().find("ready: ") == 0; }));
  EXPECT_EQ(0, next.Terminate());
}

TEST_F(ProfileTest, ADumpOfARealUnitBecomesAProfile) {
  for (int i = 0; i < 60; ++i) {
    const std::string path = "/dump/d" + std::to_string(i % 7) + "/sub/o" + std::to_string(i);
    root_.AddFile(path, i < 5 ? "" : "[n]@o" + std::to_string(i) + "\n[n]a:n:1\nb:json:{}\n");
  }
  root_.AddFile("/dump/.hidden", "x::1");
  root_.AddFile("/dump/.all", "@d0\na::1\n@d1\n");
  root_.AddFile("/dump/d1/sub/.notify", "");
  root_.AddFile("/dump/d2/core", std::string("\x7f"
                                             "ELF\0\0",
                                             6));
  root_.AddFile("/dump/d3/cut", "a:n:1\nb:");
  root_.AddFile("/dump/d3/o?wait", "a:n:1\n");
  std::filesystem::create_symlink("/etc/passwd", root_.path() + "/dump/link");

  setenv("XDG_DATA_HOME", (root_.path() + "/data").c_str(), 1);
  const std::vector<std::string> words = {"import", "dump", "--name", "real"};
  Program import(root_, "headunit", words);
  EXPECT_EQ(0, import.Wait()) << import.Errors();
  EXPECT_EQ(
      "left out .all: a special file of its directory\n"
      "left out d1/sub/.notify: a special file of its directory\n"
      "left out d2/core: binary data\n"
      "left out d3/cut: line 2 is no PPS line\n"
      "left out d3/o?wait: not a name for an object\n"
      "left out link: not a plain file\n"
      "imported 61 objects, left out 6 files: " +
          root_.path() + "/data/korvandis/profiles/real\n",
      import.Output());
  Program again(root_, "headunit", words);
  EXPECT_EQ(1, again.Wait());
  EXPECT_PRED2(Contains, again.Errors(), "exists already");

  Program unit(root_, "headunit", {"--profile", "real", "--no-services"});
  ASSERT_TRUE(Eventually([&] { return unit.Output().find("ready: ") == 0; }));
  EXPECT_EQ("[n]@o59\n[n]a:n:1\nb:json:{}\n", PpsText("/d3/sub/o59"));
  EXPECT_EQ("@o1\n", PpsText("/d1/sub/o1"));
  EXPECT_EQ("@.hidden\nx::1\n", PpsText("/.hidden"));
  unsetenv("XDG_DATA_HOME");
}

// The number of the service's child is not ours to know: it is the one that has the unit as parent.
pid_t ChildOf(pid_t parent) {
  const std::string path = "/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent);
  return static_cast<pid_t>(std::atoi(ReadFile(path + "/children").c_str()));
}

TEST_F(ProfileTest, TheProgramStartsTheServiceAndSaysHowItEnded) {
  if (KORVANDIS_EMULATOR[0] != '\0') GTEST_SKIP() << "the unit cannot start what needs an emulator";
  Program early(root_, "headunit", {"wait", "0"});
  EXPECT_EQ(1, early.Wait());
  EXPECT_PRED2(Contains, early.Errors(), "no unit runs");
  Program missing(root_, "headunit", {"--empty", "--service", "none"});
  EXPECT_EQ(1, missing.Wait());
  EXPECT_PRED2(Contains, missing.Errors(), "no program 'none'");

  for (const bool killed : {false, true}) {
    Program unit(root_, "headunit", {"--service", "korvandis"});
    Program wait(root_, "headunit", {"wait"});
    EXPECT_EQ(0, wait.Wait()) << wait.Errors();
    EXPECT_EQ(Text("ZM-MPU-03.12.07"), Station().Ask(7, 1));
    std::string end = "korvandis ended with status 0\n";
    if (killed) {
      end = "korvandis was ended by signal 9\n";
      const pid_t service = ChildOf(unit.pid());
      ASSERT_GT(service, 0);  // 0 would be this test and all that started it
      kill(service, SIGKILL);
      EXPECT_TRUE(Eventually([&] { return Contains(unit.Output(), end); }));
      EXPECT_EQ(0, AccessPps(""));  // the unit stays
    }
    EXPECT_EQ(killed ? 1 : 0, unit.Terminate());
    EXPECT_PRED2(Contains, unit.Output(), end);
  }
}

// As on a full disk: no file of the unit may grow.
TEST_F(ProfileTest, AUnitThatCanWriteNothingGoesOnAndSaysSo) {
  Program unit(root_, "headunit", {"--empty"});
  ASSERT_TRUE(Eventually([&] { return unit.Output().find("ready: ") == 0; }));
  ASSERT_TRUE(OpenPps("/key", O_WRONLY | O_CREAT).Send("n:n:1"));
  rlimit before;
  const rlimit none = {0, 0};
  ASSERT_EQ(0, prlimit(unit.pid(), RLIMIT_FSIZE, &none, &before));
  Program refused(root_, "headunit", {"ctl", "save", "saved"});
  EXPECT_EQ(1, refused.Wait());
  EXPECT_PRED2(Contains, refused.Errors(), "/saved/pps/key: File too large");
  EXPECT_FALSE(std::filesystem::exists(root_.path() + "/saved/pps/key"));
  ASSERT_TRUE(OpenPps("/key", O_WRONLY).Send("n:n:2"));
  EXPECT_EQ("@key\nn:n:2\n", PpsText("/key"));
  sysinfo_param_t record = {"an identity", 11};
  const int driver = platform::open("/dev/sysinfo", O_RDWR);
  const int burn = static_cast<int>(DCMD_SYS_INFO_SET_UUID);
  EXPECT_EQ(EIO, devctl(driver, burn, &record, sizeof(record), nullptr));
  const int get = static_cast<int>(DCMD_SYS_INFO_GET_UUID);
  EXPECT_EQ(0, devctl(driver, get, &record, sizeof(record), nullptr));
  EXPECT_STREQ("", record.uuid);
  close(driver);
  EXPECT_EQ(0, unit.Terminate());

  Program no_ring(root_, "headunit", {"--empty"}, [] {
    const rlimit limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
  EXPECT_EQ(1, no_ring.Wait());
  EXPECT_PRED2(Contains, no_ring.Errors(), "/dev/slog: File too large");
}

}  // namespace
}  // namespace support
