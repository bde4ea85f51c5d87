// Recordings: their formats, their replay, and what Wireshark makes of them.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <thread>

#include "station/command.h"
#include "station/packet_text.h"
#include "station/recording.h"
#include "support/fixture.h"
#include "wire/at_packet.h"

namespace station {
namespace {

using support::Contains;

const auto kTo = qnx::Direction::kToService;
const auto kFrom = qnx::Direction::kFromService;

using support::Reply;

// What is wrong with a recording, or where it is cut.
std::string ParseProblem(const std::string& text) {
  std::vector<RecordedPacket> packets;
  std::string cut;
  const std::string problem = ParseRecording(text, &packets, &cut);
  return problem.empty() ? cut : problem;
}

TEST(StationRecording, BothFormatsReadBackAsWritten) {
  const std::vector<RecordedPacket> packets = {
      {1700000000000000001ULL, kTo, wire::BuildRequest(7, 1, {})},
      {1700000000123456789ULL, kFrom, Reply(7, 1, {'1', 0xFF, '#'})},
      {1700000001000000000ULL, kTo, {0x00}},
      {0, kFrom, Bytes(wire::kMaxPacket, 0xA5)},
  };
  for (const RecordingFormat format : {RecordingFormat::kText, RecordingFormat::kPcap}) {
    std::string text = RecordingHead(format);
    for (const RecordedPacket& packet : packets) text += RecordingEntry(format, packet);
    std::vector<RecordedPacket> read;
    std::string cut;
    ASSERT_EQ(ParseRecording(text, &read, &cut) + cut, "");
    ASSERT_EQ(read.size(), packets.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
      EXPECT_EQ(read[i].nanoseconds, packets[i].nanoseconds);
      EXPECT_EQ(read[i].direction, packets[i].direction);
      EXPECT_EQ(read[i].packet, packets[i].packet);
    }
  }
  EXPECT_EQ(RecordingEntry(RecordingFormat::kText, {5000000007ULL, kTo, {0xAB, 0x01}}),
            "5.000000007 > AB 01  # not a well-formed request\n");
  const std::string pcap =
      RecordingHead(RecordingFormat::kPcap) +
      RecordingEntry(RecordingFormat::kPcap, {5000000007ULL, kFrom, {0xAB, 0x01}});
  EXPECT_EQ(Hex(support::Text(pcap)),
            "4D 3C B2 A1 02 00 04 00 00 00 00 00 00 00 00 00 00 00 04 00 93 00 00 00 "
            "05 00 00 00 07 00 00 00 03 00 00 00 03 00 00 00 01 AB 01");
}

TEST(StationRecording, DamagedFilesAreRefusedWithTheirPlace) {
  EXPECT_EQ(ParseProblem(""), "");
  EXPECT_EQ(ParseProblem("# only\n\n  # comments\r\n"), "");
  for (const char* text :
       {"nonsense", "1.5 > 00", "1 > 00", ".000000000 > 00", "99999999999.000000000 > 00"}) {
    EXPECT_EQ(ParseProblem(text).substr(0, 21), "line 1: a line begins") << text;
  }
  EXPECT_PRED2(Contains, ParseProblem("# x\n1.000000000 = 00"), "line 2: > or <");
  EXPECT_PRED2(Contains, ParseProblem("1.000000000 > "), "line 1: a packet has");
  EXPECT_EQ(ParseProblem("1.000000000 > 00 01"), "the file is cut in line 1; played up to there");
  EXPECT_EQ(ParseProblem("1.000000000 > 00 #\n1.000000000 > 0"),
            "the file is cut in line 2; played up to there");
  for (const std::string text : {"0", "0G", "00\t0"}) {
    EXPECT_PRED2(Contains, ParseProblem("1.000000000 > " + text), "line 1: bytes are two");
  }
  EXPECT_EQ(ParseProblem(std::string("1.000000000 > 00\0 and more", 26)).substr(0, 21),
            "line 1: bytes are two");
  std::string big = "1.000000000 >";
  for (std::size_t i = 0; i <= wire::kMaxPacket; ++i) big += " 00";
  EXPECT_NE(ParseProblem(big), "");

  const std::string head = RecordingHead(RecordingFormat::kPcap);
  const std::string whole =
      head + RecordingEntry(RecordingFormat::kPcap, {1, kTo, wire::BuildRequest(7, 1, {})});
  for (std::size_t size = 4; size < whole.size(); ++size) {
    const std::string problem = ParseProblem(whole.substr(0, size));
    if (size < head.size()) {
      EXPECT_EQ(problem, "the pcap file's head is cut") << size;
    } else if (size > head.size()) {
      EXPECT_EQ(problem, "the file is cut in packet 1 at byte 24; played up to there") << size;
    }
  }
  EXPECT_EQ(ParseProblem(head), "");
  std::string other = whole;
  other[20] = 1;
  EXPECT_PRED2(Contains, ParseProblem(other), "a pcap file of link type 1, not 147");
  other = whole;
  ++other[head.size() + 12];
  EXPECT_EQ(ParseProblem(other), "packet 1 at byte 24: cut by a snap length");
  EXPECT_PRED2(Contains, ParseProblem("\n\r\r\n"), "a pcapng file");
  EXPECT_PRED2(Contains, ParseProblem("\xA1\xB2\x3C\x4D"), "in big-endian order");
  other = whole;
  other[head.size() + 16] = 2;
  EXPECT_PRED2(Contains, ParseProblem(other), "no direction");
  other = whole;
  other[head.size() + 11] = '\x7F';  // a packet of 2 GB
  EXPECT_NE(ParseProblem(other), "");
}

TEST(StationRecording, RepliesBelongToTheFirstRequestThatWaits) {
  const Bytes mpu = wire::BuildRequest(7, 1, {});
  const Bytes os = wire::BuildRequest(7, 2, {});
  const auto exchanges = PairExchanges({
      {1, kFrom, Reply(7, 1, {'x'})},  // asked before the recording began
      {2, kTo, mpu},
      {3, kTo, os},
      {4, kTo, mpu},
      {5, kFrom, Reply(7, 1, {'a'})},
      {6, kFrom, Reply(7, 2, {'b'})},
      {7, kFrom, Reply(7, 1, {'c'})},
      {8, kFrom, {0x01}},
  });
  ASSERT_EQ(exchanges.size(), 3U);
  EXPECT_EQ(exchanges[0].reply, Reply(7, 1, {'a'}));
  EXPECT_EQ(exchanges[1].reply, Reply(7, 2, {'b'}));
  EXPECT_EQ(exchanges[2].reply, Reply(7, 1, {'c'}));
}

TEST(StationRecording, WiresharkNamesEveryCommand) {
  if (std::system("tshark --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no tshark";
  const support::TempRoot root;
  std::string pcap = RecordingHead(RecordingFormat::kPcap);
  std::vector<std::string> expected;
  for (const Command& command : Commands()) {
    if (!command.sent) continue;
    Bytes parameters = command.fixed;
    if (command.words == "bt mac") parameters = {0, 0x1A, 0x7D, 0xDA, 0x71, 0x13};
    if (command.reply == nullptr && parameters.empty()) parameters = {2, 0, 0, 9};
    const Bytes request = wire::BuildRequest(command.number, command.sub_command, parameters);
    pcap += RecordingEntry(RecordingFormat::kPcap, {0, kTo, request});
    expected.push_back(command.words);
    if (command.reply == nullptr) continue;
    pcap += RecordingEntry(RecordingFormat::kPcap,
                           {250000000, kFrom, Reply(command.number, command.sub_command, {})});
    expected.push_back(command.words + ":");
  }
  const std::pair<Bytes, const char*> replies[] = {
      {Reply(7, 1, support::Text("1.2")), "version mpu: 1.2"},
      {Reply(4, 7, {0, 0x1A, 0x7D, 0xDA, 0x71, 0x13}), "bt mac: 00:1A:7D:DA:71:13"},
      {Reply(12, 0, {0}), "chip: fail"},
      {Reply(3, 5, {0, 2, 1, 0x2C}), "media position: folder 2, track 300"},
      {Reply(5, 0, {1, 5, 0, 0, 43}), "gps satellites: 1 satellites"},
      {Reply(5, 0, {2, 5, 0, 0, 43}), "gps satellites:"},
      {Reply(99, 1, {0}), "command 99, sub-command 1:"},
      {Bytes(wire::kHeaderSize, 0), "cut packet"},
      {Bytes(3, 0xFF), "cut packet"},
  };
  for (const auto& [packet, text] : replies) {
    pcap += RecordingEntry(RecordingFormat::kPcap, {0, kFrom, packet});
    expected.push_back(text);
  }
  root.AddFile("/t.pcap", pcap);
  const std::string run = "cd " + root.path() + " && HOME=" + root.path() +
                          " tshark -X lua_script:" + support::BinDir() +
                          "/../share/korvandis.lua -r t.pcap ";
  ASSERT_EQ(std::system((run + "-T fields -e _ws.col.Info > info 2> errors").c_str()), 0)
      << support::ReadFile(root.path() + "/errors");
  std::istringstream info(support::ReadFile(root.path() + "/info"));
  std::string line;
  for (const std::string& text : expected) {
    ASSERT_TRUE(std::getline(info, line));
    // Requests may show their parameters behind the name.
    EXPECT_EQ(line.substr(0, text.size()), text);
    EXPECT_TRUE(line.size() == text.size() || line[text.size()] == ' ') << line;
  }
  EXPECT_FALSE(std::getline(info, line)) << line;

  // Field values of one packet, its link to the request and the time since, and the mark on the
  // damaged ones.
  ASSERT_EQ(std::system((run + "-Y 'korvandis.track == 300' -T fields -e korvandis.direction -e "
                               "korvandis.command -e korvandis.reply -e korvandis.folder > info")
                            .c_str()),
            0);
  EXPECT_EQ(support::ReadFile(root.path() + "/info"), "1\t3\t1\t2\n");
  for (const char* filter : {"korvandis.response_to == 1", "korvandis.response_in == 2"}) {
    ASSERT_EQ(std::system((run + "-2 -Y '" + filter + "' -T fields -e frame.number -e " +
                           "korvandis.time >> links")
                              .c_str()),
              0);
  }
  EXPECT_EQ(support::ReadFile(root.path() + "/links"), "2\t0.250000000\n1\t\n");
  ASSERT_EQ(std::system((run + "-Y korvandis.malformed -T fields -e frame.len > info").c_str()), 0);
  EXPECT_EQ(support::ReadFile(root.path() + "/info"), "29\n4\n");
}

// True when the program has blocked SIGINT, to collect it.
bool CollectsSignals(const support::Program& program) {
  const std::string status =
      support::ReadFile("/proc/" + std::to_string(program.pid()) + "/status");
  const std::size_t at = status.find("SigBlk:");
  if (at == std::string::npos) return false;
  return (std::strtoull(status.c_str() + at + 7, nullptr, 16) & 1ULL << (SIGINT - 1)) != 0;
}

class StationReplayTest : public support::ServiceOnUnit {
 protected:
  StationReplayTest() : ServiceOnUnit(support::WholeUnit()) {}

  // Records what the station does on one command line.
  std::string Record(const std::vector<std::string>& arguments, const std::string& option) {
    const std::string path = root_.path() + "/recording" + option;
    std::vector<std::string> record = {"record", path};
    if (!option.empty()) record.push_back(option);
    support::Program recorder(root_, "station", record);
    EXPECT_TRUE(support::Eventually([&] { return !support::ReadFile(path).empty(); }));
    support::Program station(root_, "station", arguments);
    EXPECT_EQ(station.Wait(support::milliseconds(60000)), 0)
        << station.Output() << station.Errors();
    recorder.Signal(SIGINT);
    EXPECT_EQ(recorder.Wait(), 0);
    EXPECT_PRED2(Contains, recorder.Output(), " packets in ");
    return path;
  }

  std::unique_ptr<support::Program> Replay(std::vector<std::string> arguments) {
    // Nor does a slow unit's disc play yet when it is asked as soon as in the recording.
    arguments.insert(arguments.end(), {"--ignore", "gps", "--ignore", "media state"});
    arguments.insert(arguments.begin(), "replay");
    auto replay = std::make_unique<support::Program>(root_, "station", arguments);
    replay->Wait(support::milliseconds(60000));
    return replay;
  }
};

TEST_F(StationReplayTest, TheShippedSequencePassesAndReplaysAlike) {
  const std::string path = Record({"run", "end-of-line", "--set", "serial=SN000042", "--set",
                                   "uuid=00112233AABBCCDD", "--set", "mac=00:1A:7D:DA:71:13"},
                                  "");
  const auto replay = Replay({path});
  EXPECT_EQ(replay->Wait(), 0) << replay->Output() << replay->Errors();
  EXPECT_PRED2(Contains, replay->Output(), " answers compared, 0 differ\n");
}

TEST_F(StationReplayTest, AChangedUnitIsToldStepByStep) {
  const std::string path = Record({"version"}, "--pcap");
  support::WriteObject("/pps/zelmar/system/zmversion_status", "zmos:json:{\"version\":\"NEW\"}");
  const auto replay = Replay({path, "--fast"});
  EXPECT_EQ(replay->Wait(), 1);
  EXPECT_PRED2(Contains, replay->Output(), "\n    8  DIFFERS   version zmos\n");
  EXPECT_PRED2(Contains, replay->Output(), "version zmos: NEW [34 ");
  EXPECT_PRED2(Contains, replay->Output(), "\n    9  same      version touch\n");
  const std::string& end = replay->Output().substr(replay->Output().find("\nDifferences:\n"));
  EXPECT_PRED2(Contains, end, "\n    8  DIFFERS   version zmos\n");
  EXPECT_PRED2(Contains, end, "\n10 requests, 10 answers compared, 1 differ\n");
}

TEST_F(StationReplayTest, ARecordingIsKeptAndItsEndIsTold) {
  root_.AddFile("/kept", "kept");
  support::Program kept(root_, "station", {"record", root_.path() + "/kept"});
  EXPECT_EQ(kept.Wait(), 1);
  EXPECT_PRED2(Contains, kept.Errors(), "/kept': exists already; --force overwrites it\n");
  support::Program full(root_, "station", {"record", "/dev/full"});
  EXPECT_EQ(full.Wait(), 1);
  EXPECT_PRED2(Contains, full.Errors(), "'/dev/full': No space left on device\n");
  // A FIFO that nothing reads, and an output that nothing drains: a signal ends both waits.
  const std::string unread = root_.path() + "/unread";
  const std::string full_pipe = root_.path() + "/full";
  for (const std::string& path : {unread, full_pipe}) ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  support::Program fifo(root_, "station", {"record", unread});
  const int end = ::open(full_pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const Bytes filling(4096);
  while (::write(end, filling.data(), filling.size()) > 0) {
  }
  support::Program monitor(root_, "station", {"monitor"},
                           [] { ::dup2(::open("full", O_RDWR), STDOUT_FILENO); });
  EXPECT_TRUE(
      support::Eventually([&] { return CollectsSignals(fifo) && CollectsSignals(monitor); }));
  for (int i = 0; i < 10; ++i) {
    std::this_thread::sleep_for(support::milliseconds(50));
    station_->Ask(7, 1);  // something to show
  }
  for (support::Program* program : {&fifo, &monitor}) {
    EXPECT_TRUE(program->IsRunning());
    program->Signal(SIGINT);
    EXPECT_EQ(program->Wait(support::milliseconds(5000)), 1);
    EXPECT_PRED2(Contains, program->Errors(), "nterrupted");
  }
  ::close(end);
  support::Program record(root_, "station", {"record", "--force", root_.path() + "/kept"});
  EXPECT_TRUE(support::Eventually(
      [&] { return support::ReadFile(root_.path() + "/kept").rfind("# korv", 0) == 0; }));
  unit_->Stop();
  EXPECT_EQ(record.Wait(), 1);
  EXPECT_PRED2(Contains, record.Errors(), "the unit is gone");
}

TEST_F(StationReplayTest, MissingAndUnexpectedAnswersAreDifferences) {
  const auto replay = [&](const std::vector<RecordedPacket>& packets) {
    std::string text = RecordingHead(RecordingFormat::kText);
    for (const RecordedPacket& packet : packets) {
      text += RecordingEntry(RecordingFormat::kText, packet);
    }
    root_.AddFile("/made", text);
    support::Program program(root_, "station",
                             {"replay", root_.path() + "/made", "--timeout", "0.3"});
    EXPECT_EQ(program.Wait(), 1);
    return program.Output() + program.Errors();
  };
  const Bytes mpu = wire::BuildRequest(7, 1, {});
  const Bytes unknown = wire::BuildRequest(99, 1, {});
  std::string output = replay({{1, kTo, unknown}, {2, kFrom, Reply(99, 1, {})}});
  EXPECT_PRED2(Contains, output, "now       no answer\n");
  output = replay({{1, kTo, mpu}, {2, kTo, {0x01, 0x02}}});
  EXPECT_PRED2(Contains, output, "an answer that was not recorded: version mpu: ");
  EXPECT_PRED2(Contains, replay({}), "holds no requests");
  EXPECT_EQ(station_->Ask(7, 99), Bytes()) << "the service lives on";
  StopService();
  EXPECT_PRED2(Contains, replay({{1, kTo, mpu}}), "now       no service is connected\n");
}

}  // namespace
}  // namespace station
