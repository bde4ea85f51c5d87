// Command 6: the calibration script as a child of this process, and of the service.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "ATCmdKey.h"
#include "support/recorder.h"

namespace support {
namespace {

using Clock = std::chrono::steady_clock;

const char kScript[] = "/zmapps/etc/calib-recalibrate.sh";

// A script that notes how it was started, and what it should find: 3 is the directory that ls
// reads. Not the plain shell, which clears the signal mask itself.
const char kNote[] =
    "#!/bin/bash\nsleep 0.2; cd $HEADUNIT_ROOT; echo $$ > pid; echo \"$#:$1:$0\" > arguments\n"
    "ls /proc/self/fd > descriptors\n"
    "exec grep -E '^Sig(Blk|Ign)' /proc/self/status > signals\n";
const std::string kShell = "#!/bin/sh\n";
const char kOnlyStandardStreams[] = "0\n1\n2\n3\n";
const char kNoSignalState[] = "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";

// State letter of a process ('Z' is a zombie), '-' when there is none.
char StateOf(pid_t pid) {
  const std::string status = ReadFile("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t name_end = status.rfind(')');
  return name_end == std::string::npos ? '-' : status[name_end + 2];
}

// What a script left in the root.
std::string Left(const std::string& path) { return ReadFile(std::getenv("HEADUNIT_ROOT") + path); }

class ExcuteShellTest : public ::testing::Test {
 protected:
  bool Run(const std::string& body, int limit = 20, mode_t mode = 0755) {
    root_.AddFile(kScript, body, mode);
    return command_.ExcuteShell(kScript, "1", limit);
  }

  TempRoot root_;
  CmdKey command_;
};

TEST_F(ExcuteShellTest, OnlyAnExitWithZeroIsSuccess) {
  auto start = Clock::now();
  EXPECT_TRUE(Run(kShell + "exit 0"));
  EXPECT_GE(Clock::now() - start, milliseconds(100));
  EXPECT_LT(Clock::now() - start, milliseconds(10000));
  EXPECT_TRUE(Run(kShell + "sleep 0.3"));
  for (const char* lines : {"exit 3", "exit 255", "kill -9 $$", "kill -TERM $$"}) {
    EXPECT_FALSE(Run(kShell + lines)) << lines;
  }
  // A script that leaves the process group is waited for as well.
  EXPECT_FALSE(Run("#!/usr/bin/setsid /bin/sh\nsleep 0.3; exit 3"));
  start = Clock::now();
  EXPECT_FALSE(command_.ExcuteShell("/missing", "1", 20));
  EXPECT_FALSE(command_.ExcuteShell("/zmapps/etc", "1", 20));
  EXPECT_FALSE(command_.ExcuteShell("", "1", 20));
  EXPECT_FALSE(Run(kShell + "exit 0", 20, 0644));
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
  EXPECT_EQ(Left("/arguments"), "1:1:" + root_.path() + kScript + "\n");
  EXPECT_EQ(Left("/descriptors"), kOnlyStandardStreams);
  EXPECT_EQ(Left("/signals"), kNoSignalState);
  EXPECT_EQ(::close(high), 0);
  EXPECT_EQ(::close(low), 0);
}

TEST_F(ExcuteShellTest, AScriptThatOutlivesItsLimitIsLeftRunningAndCollectedLater) {
  const std::string stay = "echo $$ > $HEADUNIT_ROOT/pid\nexec sleep 60";
  const auto start = Clock::now();
  EXPECT_TRUE(Run(kShell + stay, 1));
  EXPECT_GE(Clock::now() - start, milliseconds(990));
  EXPECT_LT(Clock::now() - start, milliseconds(20000));
  const pid_t outlived = std::atoi(Left("/pid").c_str());
  ASSERT_GT(outlived, 0);
  EXPECT_FALSE(Run(kShell + "exit 3")) << "one that still runs is in the way of the next";
  EXPECT_EQ(StateOf(outlived), 'S');
  ::kill(outlived, SIGKILL);
  EXPECT_TRUE(Eventually([&] { return StateOf(outlived) == 'Z'; }));
  EXPECT_TRUE(Run(kShell + stay, 1)) << "took the end of another for its own";
  EXPECT_EQ(StateOf(outlived), '-');
  const pid_t second = std::atoi(Left("/pid").c_str());
  ::kill(second, SIGKILL);
  EXPECT_EQ(::waitpid(second, nullptr, 0), second);
}

class KeyTest : public ServiceOnUnit {};

TEST_F(KeyTest, ACalibrationWaitsForItsScriptAndIsNotAnswered) {
  const auto logged = [this] { return Logged(log_.get(), {"Work", "ExcuteShell"}); };
  root_.AddFile(kScript, kNote, 0755);
  // The parent process may ignore the ends of its children; the service still sees its
  // script's.
  EXPECT_EQ(StopService(), 0);
  StartService([] { ::signal(SIGCHLD, SIG_IGN); });
  const int descriptors = CountDescriptors(service_->pid());
  Mark();
  station_->Do(6, 4, {1, 2, 3});
  EXPECT_EQ(Left("/arguments"), "1:1:" + root_.path() + kScript + "\n");
  EXPECT_EQ(Left("/descriptors"), kOnlyStandardStreams);
  EXPECT_EQ(Left("/signals"), kNoSignalState);
  Lines lines = {"6[Work]-KEY_CALIBRATION [4]!\n", std::string("6[ExcuteShell]-script:") + kScript,
                 "6[ExcuteShell]-@@@@@@ pid = " + Left("/pid")};
  EXPECT_EQ(logged(), lines);
  EXPECT_EQ(StateOf(std::atoi(Left("/pid").c_str())), '-');
  EXPECT_EQ(CountDescriptors(service_->pid()), descriptors);
  EXPECT_EQ(::unlink((root_.path() + kScript).c_str()), 0);
  Mark();
  station_->Do(6, 4);  // a missing script is survived
  lines[2] = "6[ExcuteShell]-@@@@@@ pid = -1\n";
  EXPECT_EQ(logged(), lines);
}

}  // namespace
}  // namespace support
