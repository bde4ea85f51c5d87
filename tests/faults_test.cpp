// Faults of everything around the service: each row of the table in docs/reliability.md has its
// test here, with what is answered, what is reported, and that the next command works.

#include <sys/resource.h>
#include <sys/slog.h>

#include <atomic>
#include <thread>

#include "support/fake_manager.h"
#include "support/fixture.h"

namespace support {
namespace {

using std::chrono::steady_clock;

const char kStatus[] = "/pps/zelmar/system/version_status";
const Bytes kNothing;

// With the smallest log ring.
headunit::UnitOptions SmallLog() {
  headunit::UnitOptions options;
  options.services = false;
  options.log_lines = 1024;
  return options;
}

class FaultsTest : public ServiceOnUnit {
 protected:
  FaultsTest() : ServiceOnUnit(SmallLog()) {}
  void SetUp() override {
    ServiceOnUnit::SetUp();
    WriteObject(kStatus, "mpu:json:{\"version\":\"1.2\"}");
    ExpectServed();  // the manager has taken it in
  }
  void ExpectServed() { EXPECT_EQ(Station().Ask(7, 1), Text("1.2")) << Errors(); }
  // The data of the next reply.
  Bytes Answer(milliseconds limit) {
    const std::optional<Bytes> packet = station_->Receive(limit);
    wire::Reply reply{};
    EXPECT_TRUE(packet && wire::ParseReply(*packet, &reply));
    return reply.data;
  }
  void Control(const std::string& line) {
    ASSERT_EQ(unit_->Control(line).substr(0, 2), "ok") << line;
  }
  bool Reported(const std::string& text) {
    return Eventually([&] { return Errors().find(text) != std::string::npos; });
  }
};

TEST_F(FaultsTest, McuDeviceDisappearsAndReturns) {
  const int descriptors = CountDescriptors(service_->pid());
  for (int round = 0; round < 3; ++round) {
    Control("mcu down");
    ASSERT_TRUE(Eventually([&] { return CountDescriptors(service_->pid()) == descriptors - 1; }));
    Control("mcu up");
    ASSERT_TRUE(unit_->WaitForService(milliseconds(2000)));
    ExpectServed();
  }
  EXPECT_EQ(CountDescriptors(service_->pid()), descriptors);
}

TEST_F(FaultsTest, PpsManagerIsGoneAndReturns) {
  Control("pps down");
  Mark();
  EXPECT_EQ(station_->Ask(7, 1), kNothing);
  EXPECT_TRUE(Reported("open('/pps/zelmar/system/version_status') failed: "));
  EXPECT_EQ(station_->Ask(13, 0), Bytes{0});
  EXPECT_EQ(station_->Ask(4, 7), Bytes(6));
  EXPECT_EQ(station_->Ask(4, 13), Text("error"));
  // The loss of the open geolocation object is noticed beside the commands.
  EXPECT_TRUE(Eventually([&] {
    EXPECT_EQ(station_->Ask(5, 0), Bytes{0});
    return log_->Has(_SLOG_ERROR, "_KRV_[Init]-Open PPS false.\n");
  }));
  station_->Do(0, 0, {2});
  station_->Do(4, 0, Text("name"));
  Control("pps up");
  ExpectServed();
  EXPECT_EQ(station_->Ask(5, 0), Bytes{0});
  EXPECT_TRUE(log_->Has(_SLOG_DEBUG1, "_KRV_[Init]-Init\n"));
}

TEST_F(FaultsTest, PpsManagerDiesInTheMiddleOfACommand) {
  Control("pps stall");
  station_->Send(7, 1);
  std::this_thread::sleep_for(milliseconds(100));
  Control("pps down");
  EXPECT_EQ(Answer(milliseconds(1000)), kNothing);
  EXPECT_TRUE(Reported("failed: Input/output error\n"));
  Control("pps up");
  ExpectServed();
}

TEST_F(FaultsTest, PpsManagerAcceptsAndNeverAnswers) {
  for (const char* fault : {"pps stall", "pps stall-after-open"}) {
    Control(fault);
    Mark();
    const auto start = steady_clock::now();
    EXPECT_EQ(station_->Ask(7, 1), kNothing) << fault;
    EXPECT_LT(steady_clock::now() - start, milliseconds(3000));
    EXPECT_TRUE(Reported(fault == std::string("pps stall") ? "failed: Input/output error\n"
                                                           : "read buf is('') \n"));
    Control("pps up");
    ExpectServed();
  }
}

// The system ends a wait for a message when the process was stopped meanwhile.
TEST_F(FaultsTest, StoppedAndContinuedDuringARead) {
  FakeManager pps(root_, "/pps");
  station_->Send(7, 1);
  const Connection object = pps.Grant();
  for (const int number : {SIGSTOP, SIGCONT}) {
    std::this_thread::sleep_for(milliseconds(100));
    service_->Signal(number);
  }
  std::this_thread::sleep_for(milliseconds(100));
  object.Send("mpu:json:{\"version\":\"1.3\"}");
  EXPECT_EQ(Answer(kSoon), Text("1.3"));
}

TEST_F(FaultsTest, ObjectChangesWhileItIsRead) {
  std::atomic<bool> writing{true};
  std::thread writer([&] {
    for (char letter = 'a'; writing; letter = letter == 'a' ? 'b' : 'a') {
      WriteObject(kStatus, "mpu:json:{\"version\":\"" + std::string(200, letter) + "\"}");
    }
  });
  for (int i = 0; i < 300; ++i) {
    const Bytes version = station_->Ask(7, 1);
    if (version == Text("1.2")) continue;
    ASSERT_EQ(version.size(), 200u);
    ASSERT_EQ(version, Bytes(200, version[0]));
  }
  writing = false;
  writer.join();
}

TEST_F(FaultsTest, LogRingIsFullEmptiedOrMissing) {
  for (int i = 0; i < 60; ++i) EXPECT_EQ(station_->Ask(7, 1), Text("1.2"));  // more than its slots
  const std::string ring = root_.path() + qnx::kSlogPath;
  const auto logged = [&] {
    Log log(root_);
    return Eventually([&] {
      ExpectServed();
      return log.Has(_SLOG_DEBUG1, "_KRV_[SendVer]-m_subCmd = 1\n");
    });
  };
  const std::string fresh = root_.path() + "/fresh";
  ASSERT_EQ(qnx::CreateSlogRing(fresh, 1024), 0);
  for (const off_t size : {off_t{5000}, off_t{0}}) {  // taken from under the service
    ASSERT_EQ(::truncate(ring.c_str(), size), 0);
    ExpectServed();
    root_.AddFile(qnx::kSlogPath, ReadFile(fresh));  // there again, with the number it had
    EXPECT_TRUE(logged());
  }
  ASSERT_EQ(::unlink(ring.c_str()), 0);
  std::this_thread::sleep_for(milliseconds(1100));
  ExpectServed();
  ASSERT_EQ(qnx::CreateSlogRing(ring, 1024), 0);
  EXPECT_TRUE(logged());
}

TEST_F(FaultsTest, AStationThatNeverReadsDelaysNoOther) {
  const Station stopped;
  for (int i = 0; i < 3000; ++i) stopped.Send(7, 1);
  ExpectServed();
  EXPECT_EQ(stopped.Receive().has_value(), true);
}

TEST_F(FaultsTest, DescriptorsAreExhausted) {
  station_->Ask(7, 1);
  rlimit before{};
  ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, nullptr, &before), 0);
  const rlimit none = {3, before.rlim_max};
  ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, &none, nullptr), 0);
  Mark();
  EXPECT_EQ(station_->Ask(7, 1), kNothing);
  EXPECT_TRUE(Reported("failed: Too many open files\n"));
  EXPECT_EQ(station_->Ask(10, 3), Bytes(20));
  EXPECT_EQ(station_->Ask(12, 0), Bytes{0});
  EXPECT_EQ(station_->Ask(13, 0), Bytes{0});
  EXPECT_EQ(station_->Ask(5, 0), Bytes{0});
  ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, &before, nullptr), 0);
  ExpectServed();
  // From the start, with room for ever more of what it opens: told, and tried again.
  for (rlim_t limit = 4; limit <= 8; ++limit) {
    SCOPED_TRACE(limit);
    StopService();
    log_->Clear();
    service_ = std::make_unique<Program>(root_, "korvandis", std::vector<std::string>(), [&] {
      const rlimit few = {limit, before.rlim_max};
      ::setrlimit(RLIMIT_NOFILE, &few);
    });
    if (limit >= 7) {  // below that the log ring cannot be opened either
      ASSERT_TRUE(Eventually([&] { return log_->Has(_SLOG_DEBUG1, "_KRV_[Start]-Start!\n"); }));
      EXPECT_EQ(log_->Texts(_SLOG_ERROR).size(), 1U);
    } else {
      std::this_thread::sleep_for(milliseconds(200));
    }
    ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_TRUE(ServiceAnswers());
  }
  StopService();
  Program starved(root_, "korvandis", {}, [] {
    const rlimit few = {4, 4};
    ::setrlimit(RLIMIT_NOFILE, &few);
  });
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_TRUE(starved.IsRunning());
  EXPECT_EQ(starved.Terminate(), 0);
}

TEST_F(FaultsTest, SigtermDuringEachKindOfCommandEndsItInOrder) {
  root_.AddFile("/zmapps/etc/calib-recalibrate.sh", "#!/bin/sh\nsleep 1\necho done > calibrated\n",
                0755);
  struct Kind {
    const char* fault;
    std::uint8_t command, sub_command;
    Bytes parameters;
  };
  const Kind kinds[] = {
      {"pps stall", 7, 1, {}},   {"pps stall", 4, 0, Text("n")}, {"pps stall", 0, 0, {2}},
      {"pps stall", 3, 5, {}},   {"pps stall", 5, 4, {}},        {"pps stall", 13, 2, {}},
      {"i2c absent", 12, 0, {}}, {"sysinfo fail 5", 10, 3, {}},  {"pps unstall", 6, 4, {}},
  };
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(int{kind.command});
    if (!service_->IsRunning()) StartService();
    station_ = std::make_unique<Station>();
    Control(kind.fault);
    station_->Send(kind.command, kind.sub_command, kind.parameters);
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(StopService(), 0);
    Control("pps up");
  }
  EXPECT_EQ(ReadFile(root_.path() + "/calibrated"), "done\n");  // the script was waited for
  StartService();
  ExpectServed();
}

// An MCU that stops taking replies: the service drops what it cannot send and goes on.
TEST(McuFaultsTest, McuStopsReadingAndGoesOn) {
  TempRoot root;
  FakeManager device(root, wire::kMcuDevicePath);
  ASSERT_EQ(qnx::CreateSlogRing(root.path() + "/dev/slog", 1024), 0);
  Log log(root);
  Program service(root, "korvandis");
  Connection mcu = device.Grant();
  int sent = 0;
  const Bytes request = wire::BuildRequest(7, 7, {});
  while (sent < 400) {
    mcu.Send(request);
    ++sent;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  EXPECT_TRUE(
      Eventually([&] { return log.Has(_SLOG_DEBUG1, "_KRV_[SendCtrCmd]-SendCtrCmd[-11]!\n"); }));
  int received = 0;
  while (mcu.Receive(milliseconds(2500))) ++received;
  EXPECT_GT(received, 100);
  EXPECT_LT(received, sent);
  mcu.Send(request);
  EXPECT_TRUE(mcu.Receive());
  EXPECT_EQ(service.Terminate(), 0);
}

}  // namespace
}  // namespace support
