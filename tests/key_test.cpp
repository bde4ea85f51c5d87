// Command 6: the calibration script as a child of this process, and of the service.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "ATCmdKey.h"
#include "support/bench.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

const char kScript[] = "/zmapps/etc/calib-recalibrate.sh";

// A script that notes how it was started, and what it should find: 3 is the directory that ls
// reads. Not the plain shell, which clears the signal mask itself.
const char kNote[] =
    "#!/bin/bash\nsleep 0.2; cd $HEADUNIT_ROOT; echo $$ > pid; echo \"$#:$1:$0\" > arguments\n"
    "ls /proc/self/fd > descriptors\n"
    "exec grep -E '^Sig(Blk|Ign)' /proc/self/status > signals\n";
const char kOnlyStandardStreams[] = "0\n1\n2\n3\n";
const char kNoSignalState[] = "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";

// State letter of a process ('Z' is a zombie), '-' when there is none.
char StateOf(pid_t pid) {
  const std::string status = ReadFile("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t name_end = status.rfind(')');
  return name_end == std::string::npos ? '-' : status[name_end + 2];
}

class ExcuteShellTest : public ::testing::Test {
 protected:
  bool Run(const std::string& body, int limit = 20, mode_t mode = 0755) {
    root_.AddFile(kScript, body, mode);
    return command_.ExcuteShell(kScript, "1", limit);
  }
  bool RunShell(const std::string& lines, int limit = 20) {
    return Run("#!/bin/sh\n" + lines, limit);
  }
  std::string Left(const std::string& name) const { return ReadFile(root_.path() + "/" + name); }

  TempRoot root_;
  CmdKey command_;
};

TEST_F(ExcuteShellTest, OnlyAnExitWithZeroIsSuccess) {
  auto start = Clock::now();
  EXPECT_TRUE(RunShell("exit 0"));
  EXPECT_GE(Clock::now() - start, milliseconds(100));
  EXPECT_LT(Clock::now() - start, milliseconds(10000));
  EXPECT_TRUE(RunShell("sleep 0.3"));
  for (const char* lines : {"exit 3", "exit 255", "kill -9 $$", "kill -TERM $$"}) {
    EXPECT_FALSE(RunShell(lines)) << lines;
  }
  start = Clock::now();
  EXPECT_FALSE(command_.ExcuteShell("/missing", "1", 20));
  EXPECT_FALSE(command_.ExcuteShell("/zmapps/etc", "1", 20));
  EXPECT_FALSE(command_.ExcuteShell("", "1", 20));
  EXPECT_FALSE(Run("#!/bin/sh\nexit 0\n", 20, 0644));
  EXPECT_FALSE(Run("#!/no/such/shell\n"));
  EXPECT_FALSE(Run(""));
  EXPECT_LT(Clock::now() - start, milliseconds(10000)) << "waited for what was never started";
}

TEST_F(ExcuteShellTest, TheScriptInheritsNoDescriptorAndNoSignalState) {
  const int low = ::open("/dev/null", O_RDONLY);
  const int high = ::fcntl(low, F_DUPFD, 300);
  sigset_t all;
  sigset_t blocked;
  sigfillset(&all);
  ::pthread_sigmask(SIG_BLOCK, &all, &blocked);
  const int ignored[] = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGRTMAX};
  for (const int number : ignored) ::signal(number, SIG_IGN);
  EXPECT_TRUE(Run(kNote));
  for (const int number : ignored) ::signal(number, SIG_DFL);
  ::pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
  EXPECT_EQ(Left("arguments"), "1:1:" + root_.path() + kScript + "\n");
  EXPECT_EQ(Left("descriptors"), kOnlyStandardStreams);
  EXPECT_EQ(Left("signals"), kNoSignalState);
  EXPECT_EQ(::close(high), 0);
  EXPECT_EQ(::close(low), 0);
}

TEST_F(ExcuteShellTest, AScriptThatOutlivesItsLimitIsLeftRunningAndCollectedLater) {
  const std::string stay = "echo $$ > $HEADUNIT_ROOT/pid\nexec sleep 60";
  const auto start = Clock::now();
  EXPECT_TRUE(RunShell(stay, 1));
  EXPECT_GE(Clock::now() - start, milliseconds(990));
  EXPECT_LT(Clock::now() - start, milliseconds(20000));
  const pid_t outlived = std::atoi(Left("pid").c_str());
  ASSERT_GT(outlived, 0);
  EXPECT_FALSE(RunShell("exit 3")) << "one that still runs is in the way of the next";
  EXPECT_EQ(StateOf(outlived), 'S');
  ::kill(outlived, SIGKILL);
  EXPECT_TRUE(Eventually([&] { return StateOf(outlived) == 'Z'; }));
  EXPECT_TRUE(RunShell(stay, 1)) << "took the end of another for its own";
  EXPECT_EQ(StateOf(outlived), '-');
  const pid_t second = std::atoi(Left("pid").c_str());
  ::kill(second, SIGKILL);
  EXPECT_EQ(::waitpid(second, nullptr, 0), second);
}

class KeyTest : public BenchTest {
 protected:
  bool Logged(const std::string& text) { return log_->Has(6, "_KRV_" + text); }
  std::string Left(const std::string& name) const { return ReadFile(root_.path() + "/" + name); }
};

TEST_F(KeyTest, TheServiceWaitsForTheScriptAndAnswersNothing) {
  root_.AddFile(kScript, kNote, 0755);
  const int descriptors = CountDescriptors(service_->pid());
  station_->Do(6, 4, {1, 2, 3});
  EXPECT_EQ(Left("arguments"), "1:1:" + root_.path() + kScript + "\n");
  EXPECT_EQ(Left("descriptors"), kOnlyStandardStreams);
  EXPECT_EQ(Left("signals"), kNoSignalState);
  EXPECT_TRUE(Logged("[Work]-KEY_CALIBRATION [4]!\n"));
  EXPECT_TRUE(Logged(std::string("[ExcuteShell]-script:") + kScript));
  EXPECT_TRUE(Logged("[ExcuteShell]-@@@@@@ pid = " + Left("pid")));
  EXPECT_EQ(StateOf(std::atoi(Left("pid").c_str())), '-');
  EXPECT_EQ(CountDescriptors(service_->pid()), descriptors);
}

TEST_F(KeyTest, OtherSubCommandsStartNothingAndAMissingScriptIsSurvived) {
  root_.AddFile(kScript, kNote, 0755);
  for (int sub_command = 0; sub_command < 256; ++sub_command) {
    if (sub_command != 4) station_->Do(6, static_cast<std::uint8_t>(sub_command), {4});
  }
  EXPECT_EQ(Left("pid"), "");
  EXPECT_EQ(::unlink((root_.path() + kScript).c_str()), 0);
  station_->Do(6, 4);
  EXPECT_TRUE(Logged("[ExcuteShell]-@@@@@@ pid = -1\n"));
}

}  // namespace
}  // namespace bench
