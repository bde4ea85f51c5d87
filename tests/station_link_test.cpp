// The station against a test connector that answers exactly what a test says.
#include <signal.h>
#include <sys/socket.h>

#include <cstring>
#include <sstream>
#include <thread>

#include "qnx/bench_link.h"
#include "station/command_line.h"
#include "station/packet_text.h"
#include "support/fake_manager.h"
#include "support/fixture.h"

namespace support {
namespace {

class StationLinkTest : public ::testing::Test {
 protected:
  // Starts the station and takes its request.
  void Start(const std::vector<std::string>& arguments) {
    program_ = std::make_unique<Program>(root_, "station", arguments);
    link_ = std::make_unique<Connection>(connector_.Grant());
  }
  // Takes a request without parameters and answers it.
  void Answer(std::uint8_t command, std::uint8_t sub_command, const Bytes& data) {
    EXPECT_EQ(link_->Receive(), wire::BuildRequest(command, sub_command, {}));
    link_->Send(Reply(command, sub_command, data));
  }

  TempRoot root_;
  FakeManager connector_{root_, qnx::kStationPath};
  std::unique_ptr<Program> program_;
  std::unique_ptr<Connection> link_;
};

TEST_F(StationLinkTest, SendsTheRequestAndShowsTheReply) {
  Start({"version", "mpu"});
  Answer(7, 1, Text("1.2\n"));
  EXPECT_EQ(program_->Wait(), 0);
  EXPECT_EQ(program_->Output(), "1.2\\n\n");
  EXPECT_EQ(program_->Errors(), "");
}

TEST_F(StationLinkTest, PassesOverWhatIsNotItsReply) {
  Start({"bt", "mac"});
  ASSERT_TRUE(link_->Receive());
  link_->Send(Reply(7, 1, Text("another command")));
  link_->Send(Reply(4, 13, Text("another sub-command")));
  link_->Send(wire::BuildRequest(4, 7, {}));
  link_->Send(Bytes{1, 2, 3});
  link_->Send(Reply(4, 7, {0, 0x1A, 0x7D, 0xDA, 0x71, 0x13}));
  EXPECT_EQ(program_->Wait(), 0);
  EXPECT_EQ(program_->Output(), "00:1A:7D:DA:71:13\n");
}

TEST_F(StationLinkTest, MalformedRepliesAreWrong) {
  Bytes bent = Reply(7, 1, Text("1.2"));
  bent[0] ^= 1;  // payload length
  const Bytes good = Reply(7, 1, Text("1.2"));
  const Bytes cut(good.begin(), good.end() - 1);
  Bytes longer = good;
  longer.push_back('3');
  for (const Bytes& packet : {bent, cut, longer}) {
    Start({"version", "mpu"});
    ASSERT_TRUE(link_->Receive());
    link_->Send(packet);
    EXPECT_EQ(program_->Wait(), 1);
    EXPECT_EQ(program_->Output(), "");
    EXPECT_PRED2(Contains, program_->Errors(), "a malformed reply of");
  }
  // Too short for its numbers: reported when nothing better comes.
  Start({"version", "mpu", "--timeout", "0.2"});
  ASSERT_TRUE(link_->Receive());
  link_->Send(Bytes(30, 0xFF));
  EXPECT_EQ(program_->Wait(), 1);
  EXPECT_PRED2(Contains, program_->Errors(), "a malformed reply of 30 bytes");
}

TEST_F(StationLinkTest, TheTimeLimitIsForTheWholeAnswer) {
  Start({"chip", "--timeout", "0.5"});
  ASSERT_TRUE(link_->Receive());
  const auto start = std::chrono::steady_clock::now();
  // A stream of other replies does not put it off.
  while (program_->IsRunning() && std::chrono::steady_clock::now() - start < milliseconds(5000)) {
    ::send(link_->fd(), Reply(7, 1, {}).data(), 37, MSG_NOSIGNAL);
    std::this_thread::sleep_for(milliseconds(20));
  }
  const auto taken = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(program_->Wait(), 1);
  EXPECT_GE(taken, milliseconds(400));
  EXPECT_LT(taken, milliseconds(3000));
  EXPECT_PRED2(Contains, program_->Errors(), "no answer within 0.5 s");
}

TEST_F(StationLinkTest, AUnitThatHangsUpEndsTheWait) {
  Start({"chip", "--timeout", "30"});
  ASSERT_TRUE(link_->Receive());
  link_->Close();
  EXPECT_EQ(program_->Wait(milliseconds(5000)), 1);
  EXPECT_PRED2(Contains, program_->Errors(), "the unit hung up");
}

TEST_F(StationLinkTest, RawShowsAnyReply) {
  Start({"raw", "0x63", "2", "ff", "0x0A"});
  EXPECT_EQ(link_->Receive(), wire::BuildRequest(0x63, 2, {0xFF, 0x0A}));
  link_->Send(Reply(0x63, 2, {0xAB}));
  EXPECT_EQ(program_->Wait(), 0);
  EXPECT_PRED2(Contains, program_->Output(),
               "E3 02 AB\n  reply to command 99, sub-command 2: AB\n");
  // A command that is known to have no reply is not waited for, unless that is asked.
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--wait", "0.1"}}) {
    std::vector<std::string> arguments = {"raw", "4", "11", "1", "--timeout", "30"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    Start(arguments);
    EXPECT_EQ(link_->Receive(), wire::BuildRequest(4, 11, {1}));
    EXPECT_EQ(program_->Wait(milliseconds(5000)), 0);
    EXPECT_PRED2(Contains, program_->Output(), "bt on\nno answer, and none is expected");
  }
  Start({"raw", "99", "1", "--wait", "0.1"});
  EXPECT_EQ(program_->Wait(milliseconds(5000)), 1);
  EXPECT_PRED2(Contains, program_->Errors(), "some commands are not answered\n");
}

TEST_F(StationLinkTest, TheWholeTableIsAskedThoughOneIsMissing) {
  Start({"version"});
  for (const std::uint8_t sub_command : Bytes{1, 2, 3, 4, 5, 6, 8, 9, 27, 29}) {
    Answer(7, sub_command, sub_command == 5 ? Bytes() : Text("v1"));
  }
  EXPECT_EQ(program_->Wait(), 1);
  EXPECT_PRED2(Contains, program_->Output(), "\nmap        empty: the unit has none\n");
  EXPECT_PRED2(Contains, program_->Output(), "\nifs    v1  ok\n");
}

TEST_F(StationLinkTest, MonitorTellsEveryPacketUntilTheUnitGoes) {
  Start({"monitor"});
  const auto show = [&](qnx::Direction direction, const Bytes& packet) {
    qnx::MonitorHead head{};
    head.direction = static_cast<std::uint32_t>(direction);
    Bytes message(sizeof(head));
    std::memcpy(message.data(), &head, sizeof(head));
    message.insert(message.end(), packet.begin(), packet.end());
    link_->Send(message);
  };
  show(qnx::Direction::kToService, wire::BuildRequest(4, 11, {1}));
  show(qnx::Direction::kFromService, Reply(12, 0, {1}));
  show(qnx::Direction::kFromService, {0xFF});
  link_->Send(Bytes{1});  // not from a monitor
  // Each line is there at once, not when a buffer is full.
  EXPECT_TRUE(Eventually([&] {
    return program_->Output().find(" < FF  not a well-formed reply\n") != std::string::npos;
  })) << program_->Output();
  EXPECT_PRED2(Contains, program_->Output(), " > 34 00 02 2A A2 00 02 04 0B 01  bt on\n");
  EXPECT_PRED2(Contains, program_->Output(), " < 34 00 02 2A A2 00 01 8C 00 01  chip: pass\n");
  link_->Close();
  EXPECT_EQ(program_->Wait(), 0);
  EXPECT_PRED2(Contains, program_->Errors(), "the unit is gone");
}

TEST_F(StationLinkTest, MonitorEndsOnASignalAndOnAClosedOutput) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Start({"monitor"});
    program_->Signal(signal);
    EXPECT_EQ(program_->Wait(milliseconds(5000)), 0);
    EXPECT_EQ(program_->Errors(), "");
  }
  program_ = std::make_unique<Program>(root_, "station", std::vector<std::string>{"monitor"},
                                       [] { ::close(1); });
  link_ = std::make_unique<Connection>(connector_.Grant());
  link_->Send(Bytes(sizeof(qnx::MonitorHead) + 1, 0));
  EXPECT_EQ(program_->Wait(milliseconds(5000)), 1);
}

TEST_F(StationLinkTest, WatchGoesOnWithoutAFixUntilInterrupted) {
  Start({"gps", "watch", "--every", "0.05"});
  for (int round = 0; round < 3; ++round) {
    Answer(5, 2, Bytes(16, 0));
    Answer(5, 3, Bytes(78, 0xFF));
    Answer(5, 0, {1, 7, 0, 0, 30});
  }
  program_->Signal(SIGINT);
  EXPECT_EQ(program_->Wait(milliseconds(5000)), 0);
  const std::string round =
      "gps position: no fix yet\n"
      "gps speed: no text with zero bytes behind it\n"
      "satellite  C/N0\n        7   30 dBHz  ###############\n1 satellites\n";
  EXPECT_EQ(program_->Output().substr(0, 2 * round.size()), round + round);
}

TEST_F(StationLinkTest, WaitsForTheService) {
  FakeManager control(root_, qnx::kControlPath);
  Program waiting(root_, "station", {"wait", "20"});
  for (const char* answer : {"ok service 0 stations 1", "error busy", "ok service 1 stations 1"}) {
    Connection connection = control.Grant();
    EXPECT_EQ(connection.Receive(), Text("status"));
    connection.Send(std::string(answer));
  }
  // Connected is not started: it is there when it answers.
  {
    const Connection link = connector_.Grant();
    EXPECT_EQ(link.Receive(), wire::BuildRequest(7, 1, {}));
    link.Send(Reply(7, 1, {}));
    EXPECT_EQ(waiting.Wait(), 0);
  }
  {
    const auto connected = [&control] {
      Connection asked = control.Grant();
      asked.Receive();
      asked.Send(std::string("ok service 1"));
      return asked;
    };
    Program unanswered(root_, "station", {"wait", "0"});
    const Connection before = connected();
    const Connection silent = connector_.Grant();
    const Connection after = connected();
    EXPECT_EQ(unanswered.Wait(), 1);
    EXPECT_PRED2(Contains, unanswered.Errors(), "the service is connected, but does not answer");
  }

  Program impatient(root_, "station", {"wait", "0"});
  Connection connection = control.Grant();
  connection.Receive();
  connection.Send(std::string("ok stations 1 service 0"));
  EXPECT_EQ(impatient.Wait(), 1);
  EXPECT_PRED2(Contains, impatient.Errors(), "the service is not connected");
}

class StationOnSilentUnitTest : public ServiceOnUnit {};

TEST_F(StationOnSilentUnitTest, TheSlowestAnswerComesInTime) {
  // A lost geolocation object is opened anew before the two that the angle asks.
  for (const char* line : {"pps down", "pps up", "pps stall"}) {
    ASSERT_EQ(unit_->Control(line), "ok");
  }
  Program angle(root_, "station", {"gps", "angle"});
  EXPECT_EQ(angle.Wait(), 1);
  EXPECT_PRED2(Contains, angle.Errors(), "the navigation service gave none");
}

class StationVerifyTest : public ServiceOnUnit {
 protected:
  StationVerifyTest() : ServiceOnUnit(WholeUnit()) {}
};

// A name "error", an address of zeros: the service answers so as well when it cannot read. Region 0
// and a pause are proven by the unit's objects instead. What is inserted is not filled in again.
TEST_F(StationVerifyTest, OnlyAValueThatIsNoFailureProvesAWrite) {
  WriteObject("/pps/zelmar/navigator/nowplaying", "zmplaysource::zmdisc");
  const struct {
    std::vector<std::string> words;
    int status;
    const char* said;
  } rows[] = {
      {{"bt", "name", "error"}, 1, "cannot be proven by 'error'"},
      {{"bt", "name", "{1-1}"}, 0, "name is '{1-1}'"},
      {{"bt", "mac", "00:00:00:00:00:00"}, 1, "cannot be proven by '00:00:00:00:00:00'"},
      {{"media", "region", "0"}, 0, "setting_status zmregion is '0'"},
      {{"media", "region", "3"}, 0, "in media region region is '3'"},
      {{"media", "pause"}, 0, "disc/control zmcmd is '{\"cmd\":130,"},
      {{"media", "jump", "0", "0"}, 0, "disc/control zmcmd is '{\"cmd\":182,"},
  };
  for (const auto& row : rows) {
    std::vector<std::string> words = row.words;
    words.push_back("--verify");
    Program station(root_, "station", words);
    EXPECT_EQ(station.Wait(), row.status) << station.Errors();
    EXPECT_PRED2(Contains, station.Output() + station.Errors(), row.said);
  }
}

TEST_F(StationVerifyTest, WhatAnObjectHeldBeforeProvesNoWrite) {
  WriteObject("/pps/zelmar/setting/bt_control", "zmbt_switch::on");
  FakeManager connector(root_, qnx::kStationPath);
  for (const bool answered : {false, true}) {
    Program station(root_, "station", {"bt", "on", "--verify", "--timeout", "0.3"});
    const Connection link = connector.Grant();
    EXPECT_EQ(link.Receive(), wire::BuildRequest(4, 11, {1}));
    EXPECT_EQ(link.Receive(), wire::BuildRequest(7, 1, {}));
    if (answered) link.Send(Reply(7, 1, Text("1")));
    EXPECT_EQ(station.Wait(), 1);
    EXPECT_PRED2(Contains, station.Errors(),
                 answered ? "zmbt_switch is not written" : "perhaps not carried out");
  }
}

}  // namespace
}  // namespace support
