// The process: options, lifecycle, the packet link, the registry and the frame of replies.

#include <signal.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <thread>

#include "misc.h"
#include "support/fake_manager.h"
#include "support/fixture.h"

namespace support {
namespace {

using Texts = std::vector<std::string>;

const char kUsage[] = "Korvandis:V1.0.0.1Build2015-01-29\n  -v    get version\n  -h    get help\n";

TEST(OptionsTest, EveryOptionEndsTheProcessWithItsText) {
  TempRoot root;
  struct Case {
    std::vector<std::string> arguments;
    const char* output;
    bool complains;  // getopt does
  };
  const Case cases[] = {
      {{"-v"}, "Korvandis:V1.0.0.1Build2015-01-29\n", false},
      {{"-v", "-h"}, "Korvandis:V1.0.0.1Build2015-01-29\n", false},
      {{"-h", "-v"}, kUsage, false},
      {{"-hx"}, kUsage, false},
      {{"-h"}, kUsage, true},
      {{"-x"}, kUsage, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.arguments[0]);
    Program service(root, "korvandis", c.arguments);
    EXPECT_EQ(service.Wait(), 0);
    EXPECT_EQ(service.Output(), c.output);
    EXPECT_EQ(!service.Errors().empty(), c.complains);
  }
}

TEST(OptionsTest, RunsWithoutAUnitUntilSigterm) {
  TempRoot root;
  Program service(root, "korvandis", {"ignored"});
  std::this_thread::sleep_for(milliseconds(200));
  ASSERT_TRUE(service.IsRunning());
  EXPECT_EQ(service.Terminate(), 0);
  Program interrupted(root, "korvandis");
  std::this_thread::sleep_for(milliseconds(200));
  interrupted.Signal(SIGINT);
  EXPECT_EQ(interrupted.Wait(), 128 + SIGINT);
}

// What is printed must not go to a file that took the place of a closed stream.
TEST(OptionsTest, NoFileTakesThePlaceOfAClosedStandardStream) {
  TempRoot root;
  headunit::UnitOptions options;
  options.root = root.path();
  options.services = false;
  headunit::Unit unit(options);
  ASSERT_EQ(unit.Start(), "");
  ASSERT_EQ(unit.Control("pps down"), "ok");
  Program service(root, "korvandis", {}, [] {
    for (int fd = 0; fd <= 2; ++fd) ::close(fd);
  });
  ASSERT_TRUE(unit.WaitForService(milliseconds(10000)));
  ASSERT_TRUE(ServiceAnswers());
  const Station station;
  EXPECT_EQ(station.Ask(7, 1), Bytes());
  EXPECT_EQ(station.Ask(4, 13), Text("error"));
  EXPECT_PRED2(Contains, unit.Control("status"), " unasked 0");
  EXPECT_EQ(service.Terminate(), 0);
}

class ServiceTest : public ServiceOnUnit {
 protected:
  // What is logged between the packet's coming in and its being done with. `packet` has no reply.
  Texts LinesOf(const Bytes& packet) {
    Mark();
    station_->SendRaw(packet);
    EXPECT_TRUE(
        Eventually([this] { return log_->Has(6, "_KRV_[OnRecvData]-OnRecvData------!\n"); }));
    Texts texts;
    for (const Log::Line& line : log_->Lines()) {
      texts.push_back(std::to_string(line.severity) + " " + line.text);
    }
    return texts;
  }
};

// Frame of every packet's lines around `inner`.
Texts Received(const Texts& inner) {
  Texts lines = {"6 _KRV_[OnRecvData]-OnRecvData++++++!\n",
                 "6 _KRV_[ProcessDataPacket]-ProcessDataPacket!\n"};
  lines.insert(lines.end(), inner.begin(), inner.end());
  lines.push_back("6 _KRV_[OnRecvData]-OnRecvData------!\n");
  return lines;
}

// The trace of a record.
Texts Traced(const Texts& bytes, const Texts& rest) {
  Texts lines = {"6 _KRV_[ParseATDataPacket]-ParseCANDataPacket:Receive data:"};
  for (const std::string& byte : bytes)
    lines.push_back("6 _KRV_[ParseATDataPacket]-0x" + byte + " ");
  lines.push_back("6 _KRV_[ParseATDataPacket]-end\n");
  lines.insert(lines.end(), rest.begin(), rest.end());
  return Received(lines);
}

std::string Refused(int length, int needed) {
  return "2 _KRV_[ParseATDataPacket]-record of " + std::to_string(length) + " bytes, " +
         std::to_string(needed) + " needed, refused!\n";
}

Bytes WithPayloadLength(Bytes packet, std::uint32_t length) {
  wire::StoreLe32(packet.data(), length);
  return packet;
}

TEST_F(ServiceTest, DropsWhatIsNoWholeRecord) {
  // The number of a reply, which no command can have.
  const Bytes whole = wire::BuildRequest(7 | wire::kReplyBit, 9, {0xAA, 0xBB});
  Bytes other_type = whole;
  other_type[4] = 0xB4;
  Bytes high_type = whole;
  high_type[7] = 1;
  const auto size_line = [](int size) {
    return "6 _KRV_[ProcessDataPacket]-MCU data: nSize = " + std::to_string(size) +
           ",  nHeaderSize = 28 \n";
  };
  const auto cut = [&whole](std::size_t size) {
    return Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
  };
  const Texts bytes = {"2a", "a2", "0", "3", "87", "9", "aa", "bb"};
  const Texts unknown = {"6 _KRV_[CmdWork]-CmdWork? for [135]\n"};

  EXPECT_EQ(LinesOf(cut(28)), Received({size_line(28)}));
  EXPECT_EQ(LinesOf(cut(1)), Received({size_line(1)}));
  EXPECT_EQ(LinesOf(other_type), Received({}));
  EXPECT_EQ(LinesOf(high_type), Received({}));
  EXPECT_EQ(LinesOf(whole), Traced(bytes, unknown));
  EXPECT_EQ(LinesOf(whole), Traced(bytes, unknown));  // no entry comes to be
  // The claimed length is bounded by what arrived, and bounds it.
  EXPECT_EQ(LinesOf(WithPayloadLength(whole, 0xFFFFFFFF)), Traced(bytes, unknown));
  EXPECT_EQ(LinesOf(WithPayloadLength(whole, 0x80000000)), Traced(bytes, unknown));
  EXPECT_EQ(LinesOf(WithPayloadLength(whole, 10)),
            Traced({bytes.begin(), bytes.end() - 1}, {Refused(7, 8)}));
  EXPECT_EQ(LinesOf(WithPayloadLength(whole, 8)),
            Traced({bytes.begin(), bytes.begin() + 5}, {Refused(5, 6)}));
  for (const std::uint32_t none : {0u, 1u, 2u, 3u}) {
    EXPECT_EQ(LinesOf(WithPayloadLength(whole, none)), Traced({}, {Refused(0, 6)}));
  }
  for (const std::size_t size : {29u, 30u, 31u}) {
    EXPECT_EQ(LinesOf(cut(size)), Traced({}, {Refused(0, 6)}));
  }
  EXPECT_EQ(LinesOf(cut(36)), Traced({bytes.begin(), bytes.begin() + 5}, {Refused(5, 6)}));
  EXPECT_FALSE(station_->Receive(milliseconds(50)));
}

TEST_F(ServiceTest, FramesRepliesAndTracesThem) {
  Mark();
  station_->SendRaw(wire::BuildRequest(7, 7, {}));
  const std::optional<Bytes> first = station_->Receive();
  ASSERT_TRUE(first);
  EXPECT_EQ(Hex(*first),
            "09 00 00 00 34 00 00 00 00 00 00 00 00 00 00 00 c8 00 00 00 03 00 00 00 00 00 00 00 "
            "34 00 02 2a a2 00 00 87 07");
  EXPECT_TRUE(
      Eventually([this] { return Errors() == "inBuf('') \nVER_SUB_CMD is not define!('7') \n"; }));
  Texts sent = {"6 _KRV_[CmdWork]-CmdWork? for [7]\n", "6 _KRV_[CmdWork]-CmdWork [7]!\n",
                "6 _KRV_[SendCtrCmd]-SendCtrCmd?9\n", "6 _KRV_[SendCtrCmd]-SendCtrCmd:send data:"};
  for (const std::uint8_t byte : *first) {
    char text[8];
    std::snprintf(text, sizeof(text), "0x%x ", byte);
    sent.push_back(std::string("6 _KRV_[SendCtrCmd]-") + text);
  }
  sent.insert(sent.end(), {"6 _KRV_[SendCtrCmd]-end\n", "6 _KRV_[SendCtrCmd]-SendCtrCmd[37]!\n",
                           "6 _KRV_[CmdWork]-CmdWork for m_cmd=7,m_subCmd= 7\n"});
  EXPECT_TRUE(Eventually([this] { return log_->Has(6, "_KRV_[OnRecvData]-OnRecvData------!\n"); }));
  Texts lines;
  for (const Log::Line& line : log_->Lines()) {
    lines.push_back(std::to_string(line.severity) + " " + line.text);
  }
  EXPECT_EQ(lines, Traced({"2a", "a2", "0", "1", "7", "7"}, sent));

  // The sequence number counts replies and wraps; it is the service's own.
  for (int i = 1; i <= 256; ++i) {
    station_->SendRaw(wire::BuildRequest(7, 7, {}, 99));
    const std::optional<Bytes> reply = station_->Receive();
    ASSERT_TRUE(reply);
    ASSERT_EQ((*reply)[29], i & 0xFF);
  }
}

TEST_F(ServiceTest, ARecordWithoutSubCommandIsReadAndRefused) {
  Bytes packet = wire::BuildRequest(7, 1, {});
  packet[28 + 3 + 3] = 0;
  const Texts lines = LinesOf(packet);
  EXPECT_EQ(lines[lines.size() - 3], "6 _KRV_[GetHead]-m_len < 1 [0]!\n");
  EXPECT_EQ(lines[lines.size() - 2], "6 _KRV_[CmdWork]-CmdWork for m_cmd=7,m_subCmd= 1\n");
  EXPECT_FALSE(station_->Receive(milliseconds(50)));
}

TEST_F(ServiceTest, EndsInOrderAlsoUnderAFlood) {
  std::atomic<bool> flood{true};
  std::thread sender([&] {
    Station flooder;
    while (flood) {
      flooder.Send(7, 1);
      while (flooder.Receive(milliseconds(0))) {
      }
    }
  });
  std::this_thread::sleep_for(milliseconds(100));
  EXPECT_EQ(StopService(), 0);
  flood = false;
  sender.join();
  EXPECT_TRUE(log_->Has(6, "_KRV_[Close]-Close!\n"));
}

TEST_F(ServiceTest, NoThreadWakesWhenNothingComes) {
  if (!kOwnThreadsOnly) GTEST_SKIP() << "not the threads of the program alone";
  station_->Ask(7, 7);
  // Of all threads: how often each gave the processor up or lost it.
  const auto switches = [this] {
    std::size_t total = 0;
    const std::string tasks = "/proc/" + std::to_string(service_->pid()) + "/task";
    for (const auto& thread : std::filesystem::directory_iterator(tasks)) {
      std::istringstream status(ReadFile(thread.path() / "status"));
      for (std::string line; std::getline(status, line);) {
        const std::size_t colon = line.find("_ctxt_switches:");
        if (colon != std::string::npos) total += std::stoul(line.substr(line.find(':') + 1));
      }
    }
    return total;
  };
  std::this_thread::sleep_for(milliseconds(100));
  const std::size_t before = switches();
  std::this_thread::sleep_for(milliseconds(1500));
  EXPECT_EQ(switches(), before);
}

TEST(ClockTest, TicksAreHundredthsOfASecondSinceTheFirstCall) {
  using Clock = std::chrono::system_clock;
  const auto ticks = [](Clock::duration time) {
    return std::chrono::duration_cast<milliseconds>(time).count() / 10;
  };
  const auto before_first = Clock::now();
  EXPECT_EQ(GetTimeTick(), 0U);
  const auto after_first = Clock::now();
  for (int i = 0; i < 11; ++i) {  // past the end of a second, wherever it began
    std::this_thread::sleep_for(milliseconds(97));
    const auto before = Clock::now();
    const std::uint32_t tick = GetTimeTick();
    EXPECT_GE(tick, ticks(before - after_first));
    EXPECT_LE(tick, ticks(Clock::now() - before_first) + 1);  // rounded either way
  }
}

}  // namespace
}  // namespace support
