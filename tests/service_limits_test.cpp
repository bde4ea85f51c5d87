// The service where the system gives it less than it asks for: streams that are not read, no
// threads, no descriptors, limits on files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/slog.h>
#include <sys/socket.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <thread>

#include "support/fixture.h"

namespace support {
namespace {

const Bytes kMpuVersion = Text("V1.0");

// What stands in front of the bracket in the lines of a version query.
const std::set<std::string> kWholeLines = {
    "path is", "attr is",   "ver is",    "read buf is", R"(mpu:json:{"version":"V1.0"})",
    "') ",     "verStr is", "verLen is", "inBuf"};

class ServiceLimits : public ServiceOnUnit {
 protected:
  ServiceLimits() : ServiceOnUnit(Empty()) {}

  void StartAgain(const std::function<void()>& before_exec) {
    EXPECT_EQ(StopService(), 0);
    StartService(before_exec);
  }
};

// Reads everything that waits in `fd`.
std::string Drain(int fd) {
  std::string text;
  char part[4096];
  while (WaitReadable(fd, milliseconds(0))) {
    const ssize_t count = ::read(fd, part, sizeof(part));
    if (count <= 0) break;
    text.append(part, static_cast<std::size_t>(count));
  }
  return text;
}

// Standard error is a pipe, or a socket, that is not read: its lines are dropped, in whole lines,
// and counted; every request is answered, and SIGTERM ends the service.
TEST_F(ServiceLimits, AStreamThatIsNotReadHoldsNothingUp) {
  WriteObject("/pps/zelmar/system/version_status", R"(mpu:json:{"version":"V1.0"})"
                                                   "\n");
  for (const bool socket : {false, true}) {
    SCOPED_TRACE(socket ? "socket" : "pipe");
    int ends[2];
    ASSERT_EQ(socket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : ::pipe(ends), 0);
    // Beyond the descriptors that a child of the fixture closes.
    const int end = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 300);
    StartAgain([end] { ::dup2(end, STDERR_FILENO); });
    const auto ask = [this](int requests) {
      for (int i = 0; i < requests; ++i) ASSERT_EQ(station_->Ask(7, 1), kMpuVersion) << i;
    };
    ask(1000);
    log_->Clear();
    std::string text = Drain(ends[0]);
    ask(1);
    text += Drain(ends[0]);
    EXPECT_EQ(text.back(), '\n');
    std::istringstream lines(text);
    std::string line;
    int replies = 0;
    while (std::getline(lines, line)) {
      if (line == "inBuf('V1.0') ") ++replies;
      const std::string first = line.substr(0, line.find('('));
      EXPECT_EQ(kWholeLines.count(first), 1U) << line;
    }
    EXPECT_LT(replies, 1000);
    const std::vector<std::string> told = log_->Texts(_SLOG_ERROR);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_PRED2(Contains, told[0], " lines of standard error dropped!\n");

    ask(1000);
    EXPECT_EQ(service_->Terminate(milliseconds(2000)), 0);
    for (const int fd : {ends[0], ends[1], end}) ::close(fd);
    StartService();
  }
}

// A limit on files, of which standard error is one, is no end.
TEST_F(ServiceLimits, AFullStandardErrorEndsNothing) {
  StartAgain([] {
    const rlimit small = {100, 100};
    ::setrlimit(RLIMIT_FSIZE, &small);
  });
  for (int i = 0; i < 3; ++i) EXPECT_EQ(station_->Ask(7, 1), Bytes());
  EXPECT_LE(service_->Errors().size(), 100U);
  EXPECT_EQ(StopService(), 0);
}

// No room for the stack of its thread: told once, and tried again until there is some.
TEST_F(ServiceLimits, WithoutAThreadItTriesAgain) {
  EXPECT_EQ(StopService(), 0);
  log_->Clear();
  const auto limit = [] {
    const rlimit memory = {rlim_t{512} << 20, RLIM_INFINITY};
    const rlimit stack = {rlim_t{1024} << 20, RLIM_INFINITY};
    if (::setrlimit(RLIMIT_AS, &memory) + ::setrlimit(RLIMIT_STACK, &stack) != 0) ::_exit(1);
  };
  if (KORVANDIS_EMULATOR[0] != '\0' || Program(root_, "korvandis", {"-v"}, limit).Wait() != 0) {
    GTEST_SKIP() << "an emulator or a sanitizer needs more memory than that";
  }
  service_ = std::make_unique<Program>(root_, "korvandis", std::vector<std::string>(), limit);
  EXPECT_TRUE(Eventually([this] { return log_->Has(_SLOG_DEBUG1, "_KRV_[Start]-Start!\n"); }));
  std::this_thread::sleep_for(milliseconds(700));  // and once more
  const rlimit all = {RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_AS, &all, nullptr), 0);
  EXPECT_TRUE(ServiceAnswers());
  const std::vector<std::string> told = log_->Texts(_SLOG_ERROR);
  EXPECT_EQ(std::count(told.begin(), told.end(),
                       "_KRV_[Start]-no delivery: Resource temporarily unavailable!\n"),
            2)
      << "once for the packets, once for the fixes";
}

}  // namespace
}  // namespace support
