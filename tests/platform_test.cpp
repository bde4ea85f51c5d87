// The platform's calls against raw resource managers, plain files and the log ring.

#include <devctl.h>
#include <signal.h>
#include <sys/slog.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <set>
#include <thread>

#include "platform/io.h"
#include "platform/logbase.h"
#include "qnx/slog_ring.h"
#include "qnx/syslog_client.h"
#include "support/fake_manager.h"
#include "wire/devices.h"

namespace support {
namespace {

using std::chrono::steady_clock;

const int kGet = static_cast<int>(DCMD_SYS_INFO_GET_UUID);

// Runs `manager` beside the calling thread and joins it at the end of the scope.
class Beside {
 public:
  explicit Beside(std::function<void()> manager) : thread_(std::move(manager)) {}
  ~Beside() { thread_.join(); }

 private:
  std::thread thread_;
};

TEST(OpenTest, AsksTheFirstSocketOfThePathForTheRest) {
  TempRoot root;
  FakeManager pps(root, "/pps");
  for (const std::string rest : {"/a?wait,backlog=30", "//a", ""}) {
    std::optional<FakeManager::Opening> opening;
    Beside manager([&] {
      opening = pps.Accept();
      if (opening) opening->connection.Answer(0);
    });
    const std::string path = (rest == "//a" ? "//pps" : "/pps") + rest;
    const int fd = platform::open(path.c_str(), O_RDWR | O_CREAT, 0640);
    EXPECT_EQ(::fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << std::strerror(errno);
    ASSERT_TRUE(opening);
    EXPECT_EQ(opening->request.kind, qnx::RequestKind::kOpen);
    EXPECT_EQ(opening->request.flags, static_cast<std::uint32_t>(O_RDWR | O_CREAT));
    EXPECT_EQ(opening->request.mode, 0640u);
    EXPECT_EQ(opening->request.rest, rest);
    ::close(fd);
  }
}

TEST(OpenTest, FailsAsTheManagerSaysAndNeverKeepsADescriptor) {
  TempRoot root;
  root.AddFile("/file", "text");
  const int before = CountDescriptors(::getpid());
  {
    FakeManager pps(root, "/pps");
    const int held = CountDescriptors(::getpid());
    for (const int error : {ENOENT, EACCES, EBUSY}) {
      Beside manager([&] { pps.Accept()->connection.Answer(error); });
      EXPECT_EQ(platform::open("/pps/a", O_RDONLY), -1);
      EXPECT_EQ(errno, error);
    }
    {
      // What is no error number, and none at all.
      const std::string wrong[] = {"x", std::string(8, '\0'), "\xfb\xff\xff\xff"};
      Beside manager([&] {
        for (const std::string& answer : wrong) pps.Accept()->connection.Send(answer);
        pps.Accept();
      });
      for (std::size_t i = 0; i < std::size(wrong); ++i) {
        EXPECT_EQ(platform::open("/pps/a", O_RDONLY), -1);
        EXPECT_EQ(errno, EIO);
      }
      EXPECT_EQ(platform::access("/pps/a", F_OK), -1);
      EXPECT_EQ(errno, EIO);
    }
    const auto start = steady_clock::now();
    EXPECT_EQ(platform::open("/pps/silent", O_RDONLY), -1);
    EXPECT_EQ(errno, EIO);
    const auto waited = steady_clock::now() - start;
    EXPECT_GE(waited, milliseconds(1900));
    EXPECT_LE(waited, milliseconds(3000));
    EXPECT_EQ(CountDescriptors(::getpid()), held);
  }
  EXPECT_EQ(platform::open("/pps/a", O_RDONLY), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(platform::open("/file/below", O_RDONLY), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(platform::open("", O_RDONLY), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(platform::open(std::string(5000, 'a').insert(0, "/").c_str(), O_RDONLY), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(platform::access("/file", F_OK), 0);
  EXPECT_EQ(CountDescriptors(::getpid()), before);
}

TEST(OpenTest, TheWaitIsForTheConnectionAndTheAnswerTogether) {
  TempRoot root;
  FakeManager pps(root, "/pps");
  std::list<std::thread> others;  // as many as wait to be accepted
  for (int i = 0; i < 12; ++i) others.emplace_back([] { platform::access("/pps", F_OK); });
  std::this_thread::sleep_for(milliseconds(300));
  {
    Beside manager([&] {
      std::this_thread::sleep_for(milliseconds(1000));
      std::list<Connection> silent;
      while (auto opening = pps.Accept(milliseconds(2500))) {
        silent.push_back(std::move(opening->connection));
      }
    });
    const auto start = steady_clock::now();
    EXPECT_EQ(platform::open("/pps/a", O_RDONLY), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_LT(steady_clock::now() - start, milliseconds(2600));
  }
  for (std::thread& other : others) other.join();
}

TEST(OpenTest, ASocketWhoseManagerDiedIsEio) {
  TempRoot root;
  Program unit(root, "headunit", {"--root", root.path(), "--empty"});
  ASSERT_TRUE(Eventually([] { return platform::access("/pps", F_OK) == 0; }));
  unit.Signal(SIGKILL);
  unit.Wait();
  EXPECT_EQ(platform::open("/pps/a", O_RDONLY), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(platform::access("/pps/a", F_OK), -1);
}

TEST(OpenTest, AnOpenFileOutlivesItsManagerWithoutASignal) {
  TempRoot root;
  FakeManager pps(root, "/pps");
  int fd = -1;
  {
    Beside manager([&] { pps.Grant().Send("last words"); });
    fd = platform::open("/pps/a", O_RDWR);
  }
  char text[32] = {0};
  EXPECT_EQ(platform::write(fd, "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  // The tail of the message is dropped, and the count tells that there was one.
  EXPECT_EQ(platform::read(fd, text, 4), 10);
  EXPECT_STREQ(text, "last");
  EXPECT_EQ(::read(fd, text, sizeof(text)), 0);
  ::close(fd);
}

// Signals the calling thread every 20 ms, which interrupts each wait that is not taken up again.
class Interruptions {
 public:
  Interruptions() : caller_(::pthread_self()) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &action, &before_);
    thread_ = std::thread([this] {
      while (!over_) {
        std::this_thread::sleep_for(milliseconds(20));
        ::pthread_kill(caller_, SIGUSR1);
      }
    });
  }
  ~Interruptions() {
    over_ = true;
    thread_.join();
    ::sigaction(SIGUSR1, &before_, nullptr);
  }

 private:
  const pthread_t caller_;
  struct sigaction before_;
  std::atomic<bool> over_{false};
  std::thread thread_;
};

TEST(OpenTest, AnInterruptedCallGoesOnUntilItsDeadline) {
  TempRoot root;
  FakeManager pps(root, "/pps");
  const std::string large(150 * 1024, 'x');
  const auto pause = [] { std::this_thread::sleep_for(milliseconds(300)); };
  std::optional<Connection> kept;
  Beside manager([&] {
    std::optional<FakeManager::Opening> opening = pps.Accept();
    pause();
    opening->connection.Answer(0);
    pause();
    opening->connection.Send("text");
    pause();
    while (opening->connection.Receive(milliseconds(300))) continue;  // makes room for the writer
    Bytes answer(4 + sizeof(sysinfo_param_t), 0);
    opening->connection.Send(answer);
    kept = std::move(opening->connection);  // silent from here on
  });
  const Interruptions interruptions;
  const int fd = platform::open("/pps/a", O_RDWR);
  ASSERT_GE(fd, 0) << std::strerror(errno);
  char text[8] = {0};
  EXPECT_EQ(platform::read(fd, text, sizeof(text)), 4);
  // More than the queue holds, so a write waits for the manager.
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(platform::write(fd, large.data(), large.size()), static_cast<ssize_t>(large.size()));
  }
  sysinfo_param_t record;
  EXPECT_EQ(::devctl(fd, kGet, &record, sizeof(record), nullptr), 0);

  const auto takes_two_seconds = [](const std::function<void()>& call) {
    const auto start = steady_clock::now();
    call();
    const auto taken = steady_clock::now() - start;
    EXPECT_GE(taken, milliseconds(1900));
    EXPECT_LT(taken, milliseconds(2000 + 500 * KORVANDIS_PATIENCE));
  };
  takes_two_seconds([&] {
    EXPECT_EQ(platform::read(fd, text, sizeof(text)), -1);
    EXPECT_EQ(errno, EAGAIN);
  });
  takes_two_seconds([] { EXPECT_EQ(platform::open("/pps/b", O_RDWR), -1); });
  takes_two_seconds([&] { EXPECT_EQ(::devctl(fd, kGet, &record, sizeof(record), nullptr), EIO); });
  ::close(fd);
}

TEST(DevctlTest, ALateAnswerIsNeverTakenForTheNext) {
  TempRoot root;
  FakeManager device(root, "/dev/sysinfo");
  Beside beside([&] {
    Connection connection = device.Grant();
    connection.Receive();
    std::this_thread::sleep_for(milliseconds(2300));
    Bytes late(4 + sizeof(sysinfo_param_t), 0);
    ::send(connection.fd(), late.data(), late.size(), MSG_NOSIGNAL);
  });
  const int fd = platform::open("/dev/sysinfo", O_RDWR);
  sysinfo_param_t record = {"mine", 4};
  EXPECT_EQ(::devctl(fd, kGet, &record, sizeof(record), nullptr), EIO);
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_EQ(::devctl(fd, kGet, &record, sizeof(record), nullptr), EIO);
  EXPECT_STREQ(record.uuid, "mine");
  ::close(fd);
}

TEST(DevctlTest, OnlyAManagersFileTakesARequest) {
  TempRoot root;
  root.AddFile("/plain", "");
  const int fd = platform::open("/plain", O_RDWR);
  sysinfo_param_t record = {"mine", 4};
  EXPECT_EQ(::devctl(fd, kGet, &record, sizeof(record), nullptr), ENOTTY);
  ::close(fd);
  EXPECT_EQ(::devctl(fd, kGet, &record, sizeof(record), nullptr), EBADF);
}

// slogf keeps its ring for a second before it looks for another: the tests of a process share one
// root.
class SlogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ring_ = root_.path() + "/dev/slog";
    root_.AddFile("/dev/keep", "");
    ASSERT_EQ(qnx::CreateSlogRing(ring_, 8), 0);
    Follow();
  }
  // Reads the ring from where the writer has found it.
  void Follow() {
    ASSERT_EQ(reader_.Open(ring_), 0);
    ASSERT_TRUE(Eventually([this] {
      slogf(1, _SLOG_INFO, "%s", "probe");
      qnx::SlogLine line;
      std::uint64_t lost;
      return reader_.Next(&line, &lost) == qnx::SlogReader::Result::kLine;
    }));
    reader_.SkipToEnd();
  }
  qnx::SlogLine Next() {
    qnx::SlogLine line;
    std::uint64_t lost = 0;
    EXPECT_EQ(reader_.Next(&line, &lost), qnx::SlogReader::Result::kLine);
    return line;
  }

  TempRoot root_;
  std::string ring_;
  qnx::SlogReader reader_;
};

TEST_F(SlogTest, LinesAreCutAndNumbered) {
  EXPECT_EQ(slogf(0x1B1DC, _SLOG_ERROR, "%d-%s", 5, "x"), 3);
  const qnx::SlogLine line = Next();
  EXPECT_EQ(line.text, "5-x");
  EXPECT_EQ(line.opcode, 0x1B1DCu);
  EXPECT_EQ(line.severity, 2u);
  EXPECT_EQ(line.pid, static_cast<std::uint32_t>(::getpid()));
  const std::string longest(qnx::kSlogTextSize, 'a');
  EXPECT_EQ(slogf(1, 6, "%s", (longest + "tail").c_str()), 608);
  EXPECT_EQ(Next().text, longest);
  EXPECT_EQ(slogf(1, 6, "%s%s", longest.c_str(), "tail"), 608);
  EXPECT_EQ(Next().text, longest);

  LOGBASE(LOG_LEV_DEBUG, "Work", "%s", std::string(600, 'b').c_str());
  LOGBASE(LOG_LEV_DEBUG, std::string(600, 'f').c_str(), "never seen");
  const qnx::SlogLine first = Next();
  const qnx::SlogLine second = Next();
  EXPECT_EQ(first.text, "_KRV_[Work]-" + std::string(499, 'b'));
  EXPECT_EQ(second.text, "_KRV_[" + std::string(505, 'f'));
  EXPECT_EQ(first.opcode & 0xFFFFFu, 0x1B1DCu);
  EXPECT_EQ(second.opcode, first.opcode + (1u << 20));
}

TEST_F(SlogTest, WritersShareTheRingAndFollowANewOne) {
  ASSERT_EQ(qnx::CreateSlogRing(ring_, 1 << 14), 0);
  EXPECT_TRUE(reader_.Replaced());
  Follow();
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 4; ++writer) {
    writers.emplace_back([writer] {
      for (int i = 0; i < 3000; ++i) slogf(writer, 6, "%d:%d", writer, i);
    });
  }
  for (std::thread& writer : writers) writer.join();
  int next[4] = {0, 0, 0, 0};
  for (int i = 0; i < 4 * 3000; ++i) {
    const qnx::SlogLine line = Next();
    ASSERT_EQ(line.text, std::to_string(line.opcode) + ":" + std::to_string(next[line.opcode]++));
  }
}

TEST_F(SlogTest, LinesThatKilledWritersLeftHideNothingBehindThem) {
  const int left = 7;
  std::fstream ring(ring_, std::ios::in | std::ios::out | std::ios::binary);
  std::uint64_t next = 0;
  ring.seekg(offsetof(qnx::SlogHeader, next)).read(reinterpret_cast<char*>(&next), sizeof(next));
  next += left;
  ring.seekp(offsetof(qnx::SlogHeader, next))
      .write(reinterpret_cast<const char*>(&next), sizeof(next))
      .flush();
  slogf(1, 6, "%s", "behind");
  qnx::SlogLine line;
  std::uint64_t lost = 0;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < left; ++i) {
    EXPECT_EQ(reader_.Next(&line, &lost), qnx::SlogReader::Result::kUnfinished);
  }
  EXPECT_EQ(Next().text, "behind");
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(2000)) << "one wait for all";
}

// A full disk then ends no program that logs, and a reader needs no right to write.
TEST_F(SlogTest, TheRingHasItsBlocksAndReadersMapItReadOnly) {
  struct stat status;
  ASSERT_EQ(::stat(ring_.c_str(), &status), 0);
  EXPECT_GE(status.st_blocks * 512, status.st_size);
  std::multiset<std::string> uses;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(ring_) != std::string::npos) uses.insert(line.substr(line.find(' ') + 1, 4));
  }
  EXPECT_EQ(uses, (std::multiset<std::string>{"r--s", "rw-s"})) << "the reader's, the writer's";
}

// The guard of a ring that is cut is a handler of SIGBUS, called in the thread that meets the
// fault.
TEST(SlogGuardTest, NoThreadBlocksTheSignalsOfFaults) {
  if (!kOwnThreadsOnly) GTEST_SKIP() << "not the threads of the program alone";
  TempRoot root;
  Program unit(root, "headunit", {"--root", root.path()});
  ASSERT_TRUE(Eventually([] { return platform::access("/pps/zelmar/system/key", F_OK) == 0; }));
  Program service(root, "korvandis");
  EXPECT_TRUE(Eventually([&] {  // a thread blocks everything until it runs
    std::vector<std::uint64_t> masks;
    for (const pid_t pid : {unit.pid(), service.pid()}) {
      const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
      for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        const std::string status = ReadFile(task.path().string() + "/status");
        masks.push_back(std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16));
      }
    }
    const auto blocked = [](std::uint64_t mask) {
      std::uint64_t faults = 0;
      for (const int number : {SIGBUS, SIGSEGV, SIGFPE, SIGILL, SIGABRT}) {
        faults |= std::uint64_t{1} << (number - 1);
      }
      return (mask & faults) != 0;
    };
    // Three of the unit, two of the service.
    return masks.size() >= 5 && std::none_of(masks.begin(), masks.end(), blocked);
  }));
}

TEST(SyslogTest, ADaemonThatDoesNotReadCostsOneShortWait) {
  TempRoot root;
  const std::string path = root.path() + "/log";
  qnx::SyslogClient client(path.c_str());
  client.Send(LOG_ERR, "without daemon", 14);
  const int daemon = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.copy(address.sun_path, sizeof(address.sun_path) - 1), sizeof(address.sun_path));
  ASSERT_EQ(::bind(daemon, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  std::this_thread::sleep_for(milliseconds(1100));  // it is looked for once a second
  const auto start = steady_clock::now();
  for (int i = 0; i < 5000; ++i) client.Send(LOG_INFO, "text", 4);
  const auto taken = steady_clock::now() - start;
  EXPECT_GE(taken, milliseconds(90));
  EXPECT_LT(taken, milliseconds(100 + 300 * KORVANDIS_PATIENCE));

  char line[1024];
  std::string last;
  int received = 0;
  const auto read_all = [&] {
    ssize_t size;
    while ((size = ::recv(daemon, line, sizeof(line), 0)) >= 0) {
      last.assign(line, static_cast<std::size_t>(size));
      if (last.find("lines lost") == std::string::npos) ++received;
      int lost = 0;
      const std::size_t count = last.find("]: ");
      if (std::sscanf(last.c_str() + count, "]: %d lines lost", &lost) == 1) received += lost;
    }
  };
  read_all();
  client.Send(LOG_INFO, "again", 5);
  read_all();
  EXPECT_EQ(received, 5002) << "each line came or was counted";
  EXPECT_EQ(last.rfind("<14>", 0), 0u) << last;
  EXPECT_NE(last.find(" platform_test[" + std::to_string(::getpid()) + "]: again"),
            std::string::npos)
      << last;
  ::close(daemon);
}

TEST_F(SlogTest, WhatIsNoRingIsNeverWritten) {
  const std::string content(2000, 'z');
  root_.AddFile("/dev/slog", content);
  std::this_thread::sleep_for(milliseconds(1100));
  EXPECT_EQ(slogf(1, 6, "%s", "into the host's log"), 19);
  EXPECT_EQ(ReadFile(ring_), content);
  EXPECT_NE(qnx::CreateSlogRing(ring_, 7), 0);
  EXPECT_NE(qnx::SlogReader().Open(ring_), 0);
}

}  // namespace
}  // namespace support
