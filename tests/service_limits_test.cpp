// The service where the system gives it less than it asks for: streams that are not read, no
// threads, no descriptors, limits on files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/slog.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <set>
#include <sstream>

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

}  // namespace
}  // namespace support
