// The opening protocol that all managers of the unit share, from a hostile client's side.
#include <errno.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <list>
#include <thread>

#include "platform/io.h"
#include "qnx/bench_link.h"
#include "support/fixture.h"
#include "support/raw_client.h"
#include "wire/at_packet.h"

namespace support {
namespace {

const char* const kAllManagers[] = {"/pps",         wire::kMcuDevicePath, qnx::kStationPath,
                                    "/dev/sysinfo", "/dev/i2c4",          qnx::kControlPath};

class ManagerTest : public UnitTest {};

TEST_F(ManagerTest, MalformedRequestsAreRefusedByEveryManager) {
  const std::string good = OpeningRequest(2, F_OK, "");
  for (const char* manager : kAllManagers) {
    SCOPED_TRACE(manager);
    EXPECT_EQ(0, RawClient(manager, "", F_OK, 2).answer());
    EXPECT_EQ(EINVAL, RawClient(manager, "", 0, 0).answer());
    EXPECT_EQ(EINVAL, RawClient(manager, "", 0, 4).answer());
    EXPECT_EQ(EINVAL, RawClient(manager, "", 0, 0xFFFFFFFF).answer());
    EXPECT_EQ(EINVAL, RawClient(manager, std::string("/x\0y", 4), 0).answer());
    EXPECT_EQ(ENAMETOOLONG, RawClient(manager, "/" + std::string(9000, 'a'), 0).answer());
    EXPECT_NE(0, RawClient(manager, "/none/such", O_RDONLY).answer());
    for (std::size_t size = 0; size < good.size(); ++size) {
      RawClient client(manager);
      ASSERT_TRUE(client.Send(good.substr(0, size)));
      EXPECT_EQ(EINVAL, client.TakeAnswer()) << size;
    }
    // After an answer that grants nothing the manager closes.
    RawClient access(manager, "", F_OK, 2);
    EXPECT_TRUE(access.AtEnd());
    if (std::string(manager) == "/pps") continue;
    EXPECT_EQ(ENOSYS, RawClient(manager, "", 0, 3).answer());
  }
}

TEST_F(ManagerTest, SilentClientsAreDroppedAndDelayNoOther) {
  std::list<RawClient> silent;
  for (int i = 0; i < 200; ++i) {
    silent.emplace_back("/pps");
    ASSERT_TRUE(silent.back().connected());
  }
  EXPECT_EQ(0, AccessPps(""));
  EXPECT_FALSE(silent.front().AtEnd(milliseconds(500)));
  EXPECT_TRUE(silent.front().AtEnd(milliseconds(4000)));
  EXPECT_TRUE(silent.back().AtEnd(milliseconds(1000)));
}

TEST_F(ManagerTest, AnOpenSeesEveryWriteBeforeIt) {
  std::list<RawClient> writers;
  for (int i = 0; i < 300; ++i) {
    writers.push_back(OpenPps("/key", O_WRONLY | O_CREAT));
    ASSERT_EQ(0, writers.back().answer());
  }
  for (int round = 0; round < 20; ++round) {
    std::size_t lines = 1;
    int number = 0;
    for (const RawClient& writer : writers) {
      const std::string name = "w" + std::to_string(number++);
      // One more message than the manager takes of one file in its turn.
      for (int i = 0; i < (round == 0 ? 1 : 3); ++i) {
        ASSERT_TRUE(writer.Send(name + ":n:" + std::to_string(round)));
      }
      ++lines;
    }
    const std::string text = PpsText("/key");
    ASSERT_EQ(lines, static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
    const std::string stale = ":n:" + std::to_string(round - 1) + "\n";
    ASSERT_EQ(std::string::npos, text.find(stale)) << round;
  }
  // Many messages in one socket, also empty ones, and one that was closed behind them.
  RawClient& last = writers.front();
  for (int i = 0; i < 150; ++i)
    ASSERT_TRUE(last.Send(i % 2 == 0 ? "" : "w0:n:" + std::to_string(i)));
  last.Close();
  EXPECT_PRED2(Contains, PpsText("/key"), "\nw0:n:149\n");
}

// Its queue is watched by edges, and each open looks at all files: a write between two looks must
// not be lost.
TEST_F(ManagerTest, AFileThatDoesNotReadIsStillHeard) {
  const RawClient client = OpenPps("/key?wait,backlog=1", O_RDWR | O_CREAT);
  const RawClient writer = OpenPps("/key", O_WRONLY);
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(writer.Send("pad::" + std::string(450, 'x')));
  std::atomic<bool> stop{false};
  const auto open_again = [&stop] {
    while (!stop) AccessPps("");
  };
  std::thread openers[] = {std::thread(open_again), std::thread(open_again)};
  for (int i = 0; i < 10000 && !stop; ++i) {
    std::string line;
    for (int message = 0; message <= i % 3; ++message) {
      line = "n:n:" + std::to_string(10 * i + message) + "\n";
      EXPECT_TRUE(client.Send(line));
      for (volatile int spin = i * 7919 % 3000; spin > 0; spin = spin - 1) continue;
    }
    const std::string text = PpsText("/key");
    EXPECT_PRED2(Contains, text, "\n" + line);
    if (!Contains(text, line)) stop = true;
  }
  stop = true;
  for (std::thread& opener : openers) opener.join();
}

TEST_F(ManagerTest, AFloodOfMessagesDoesNotHoldUpAnOpen) {
  const RawClient flood = OpenPps("/key", O_WRONLY | O_CREAT);
  bool stop = false;
  std::thread writer([&] {
    while (!__atomic_load_n(&stop, __ATOMIC_RELAXED)) {
      if (!flood.Send("n:n:1") && !flood.Send("")) std::this_thread::yield();
    }
  });
  auto longest = milliseconds(0);
  for (int i = 0; i < 200; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, AccessPps(""));
    const auto spent = std::chrono::steady_clock::now() - begin;
    longest = std::max(longest, std::chrono::duration_cast<milliseconds>(spent));
  }
  __atomic_store_n(&stop, true, __ATOMIC_RELAXED);
  writer.join();
  EXPECT_LT(longest.count(), 1000);
}

TEST_F(ManagerTest, AClientThatLeavesWithUnreadTextLosesNoWrite) {
  for (int i = 0; i < 50; ++i) {
    const std::string value = std::to_string(i);
    {
      const RawClient client = OpenPps("/key?wait", O_RDWR | O_CREAT);
      const RawClient other = OpenPps("/key", O_WRONLY);
      ASSERT_TRUE(other.Send("other:n:" + value));  // more for the client not to read
      for (const char* name : {"a", "b", "c"}) ASSERT_TRUE(client.Send(name + (":n:" + value)));
    }
    EXPECT_EQ(
        "@key\na:n:" + value + "\nb:n:" + value + "\nc:n:" + value + "\nother:n:" + value + "\n",
        PpsText("/key"));
  }
}

TEST_F(ManagerTest, TwoUnitsDoNotShareARoot) {
  headunit::Unit second(options_);
  const std::string reason = second.Start();
  EXPECT_PRED2(Contains, reason, "another unit");
  EXPECT_EQ(0, AccessPps(""));  // the first one is unharmed
  second.Stop();
  EXPECT_EQ(0, AccessPps(""));

  // A unit that stopped leaves no socket behind and can be started again, with nothing in memory.
  ASSERT_EQ(0, OpenPps("/key", O_WRONLY | O_CREAT).answer());
  unit_->Stop();
  unit_->Stop();
  for (const char* manager : kAllManagers) {
    EXPECT_FALSE(std::filesystem::exists(root_.path() + manager)) << manager;
  }
  EXPECT_EQ("error", unit_->Control("status").substr(0, 5));
  ASSERT_EQ("", unit_->Start());
  EXPECT_EQ(ENOENT, AccessPps("/key"));
  EXPECT_NE("", unit_->Start());
  EXPECT_EQ(0, AccessPps(""));
}

TEST_F(ManagerTest, SocketsOfADeadUnitAreReplacedOthersAreNot) {
  unit_->Stop();
  const std::string path = root_.path() + "/pps";
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof(address.sun_path));
  std::copy(path.begin(), path.end(), address.sun_path);
  const auto bind_there = [&](int type) {
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    return fd;
  };

  close(bind_there(SOCK_SEQPACKET));  // as a killed unit leaves it
  ASSERT_EQ("", unit_->Start());
  EXPECT_EQ(0, AccessPps(""));
  unit_->Stop();

  const int alive = bind_there(SOCK_SEQPACKET);
  ASSERT_EQ(0, listen(alive, 1));
  EXPECT_PRED2(Contains, unit_->Start(), path + ": a running unit serves it");
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_FALSE(std::filesystem::exists(root_.path() + qnx::kStationPath));
  close(alive);
  std::filesystem::remove(path);

  root_.AddFile("/pps", "somebody's file");
  EXPECT_PRED2(Contains, unit_->Start(), "something else");
  EXPECT_EQ("somebody's file", ReadFile(path));
}

TEST_F(ManagerTest, RootsThatCannotBeAreRefused) {
  const auto start = [](const std::string& root) {
    headunit::UnitOptions options;
    options.root = root;
    options.services = false;
    return headunit::Unit(options).Start();
  };
  EXPECT_NE("", start(""));
  for (const char* root : {"/", "//", "/.", "/usr/.."}) {
    EXPECT_PRED2(Contains, start(root), "own '/'") << root;
  }
  EXPECT_NE("", start("/proc/none"));

  // The services would talk to another unit.
  headunit::UnitOptions options;
  options.root = root_.path() + "/other";
  EXPECT_PRED2(Contains, headunit::Unit(options).Start(), "HEADUNIT_ROOT");
  EXPECT_FALSE(std::filesystem::exists(options.root + "/pps"));
}

TEST_F(ManagerTest, RootsOfAnyLengthWork) {
  std::string deep = root_.path();
  for (int i = 0; i < 12; ++i) deep += "/" + std::string(60, static_cast<char>('a' + i));
  ASSERT_GT(deep.size(), 700u);
  headunit::UnitOptions options;
  options.root = deep;
  setenv("HEADUNIT_ROOT", deep.c_str(), 1);
  for (int run = 0; run < 2; ++run) {
    headunit::Unit unit(options);
    ASSERT_EQ("", unit.Start());
    const int fd = platform::open("/pps/a/b", O_WRONLY | O_CREAT);
    ASSERT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(0, platform::access("/pps/a/b", F_OK));
    EXPECT_EQ(0, platform::access(wire::kMcuDevicePath, F_OK));
    unit.Stop();
    EXPECT_FALSE(std::filesystem::exists(deep + "/pps"));
  }
  setenv("HEADUNIT_ROOT", root_.path().c_str(), 1);
}

// The host refuses the unit further descriptors: it neither spins nor dies, and serves again once
// there are some.
TEST_F(ManagerTest, AUnitWithoutDescriptorsWaitsForThem) {
  unit_->Stop();
  Program unit(root_, "headunit", {"--empty"}, [] {
    const rlimit limit = {48, 48};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  ASSERT_TRUE(Eventually([] { return AccessPps("") == 0; }));
  std::list<RawClient> clients;
  for (int i = 0; i < 100; ++i) clients.emplace_back("/pps");
  const auto processor_time = [&] {
    const std::string stat = ReadFile("/proc/" + std::to_string(unit.pid()) + "/stat");
    std::size_t field = 0;
    std::size_t position = stat.rfind(')') + 2;
    for (; field < 11; ++field) position = stat.find(' ', position) + 1;
    return std::stol(stat.substr(position)) +
           std::stol(stat.substr(stat.find(' ', position) + 1));  // user and system, in ticks
  };
  const long before = processor_time();
  std::this_thread::sleep_for(milliseconds(1000));
  EXPECT_LT(processor_time() - before, sysconf(_SC_CLK_TCK) / 4);
  clients.clear();
  EXPECT_TRUE(Eventually([] { return AccessPps("") == 0; }));
  EXPECT_EQ(0, unit.Terminate());
}

}  // namespace
}  // namespace support
