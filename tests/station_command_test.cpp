// The station's table: what is typed, the bytes that it becomes, and what replies mean.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "station/answer.h"
#include "station/command.h"
#include "station/command_line.h"
#include "station/packet_text.h"
#include "support/fixture.h"
#include "wire/at_packet.h"

namespace station {
namespace {

using support::Contains;

std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  EXPECT_EQ(SplitWords(line, &words), "") << line;
  return words;
}

// The request that a command line becomes: command number, sub-command, parameters.
Bytes Request(const std::string& line) {
  Invocation invocation;
  EXPECT_EQ(ParseInvocation(Words(line), &invocation), "") << line;
  if (invocation.command == nullptr) return {};
  Bytes bytes = {invocation.command->number, invocation.command->sub_command};
  const Bytes parameters = EncodeParameters(invocation);
  bytes.insert(bytes.end(), parameters.begin(), parameters.end());
  return bytes;
}

std::string Problem(const std::string& line) {
  Invocation invocation;
  return ParseInvocation(Words(line), &invocation);
}

// What the reply to a question means.
Answer Decode(const std::string& question, const Bytes& data) {
  Invocation invocation;
  EXPECT_EQ(ParseInvocation(Words(question), &invocation), "");
  const ReplyFormat& format = *invocation.command->reply;
  return format.decode(format, data);
}

// The value of a reply's first field.
std::string Value(const std::string& question, const Bytes& data) {
  const Answer answer = Decode(question, data);
  return answer.fields.empty() ? "" : answer.fields[0].text;
}

TEST(StationCommand, EachKindOfParameterHasItsBytesAndReadsBack) {
  const std::pair<const char*, const char*> rows[] = {
      {"version model", "07 06"},
      {"uuid", "0A 0B"},
      {"serial 'A B'", "0A 02 41 20 42"},
      {"bt mac 00:1A:7D:DA:71:13", "04 0E 00 1A 7D DA 71 13"},
      {"bt off", "04 0B 00"},
      {"source btaudio", "00 00 1C"},
      {"media jump 3 300", "03 01 00 03 01 2C"},
      {"media region 6", "03 07 06"},
      {"bt name 'Anna'\\''s car'", "04 00 41 6E 6E 61 27 73 20 63 61 72"},
      {"bt name 'C:\\cars\\7'", "04 00 43 3A 5C 63 61 72 73 5C 37"},
      {"bt name '\"'", "04 00 22"},
  };
  std::vector<std::pair<std::string, Bytes>> lines;
  for (const auto& [line, bytes] : rows) {
    lines.emplace_back(line, Request(line));
    EXPECT_EQ(Hex(lines.back().second), bytes) << line;
  }
  for (const Command& command : Commands()) {
    if (command.sent && command.parameters.empty()) {
      lines.emplace_back(command.words, Request(command.words));
    }
  }
  for (const auto& [line, request] : lines) {
    Invocation invocation;
    ASSERT_TRUE(DecodeRequest(request[0], request[1], Bytes(request.begin() + 2, request.end()),
                              &invocation))
        << line;
    EXPECT_EQ(CommandLine(invocation), line);
  }
  EXPECT_EQ(Request("bt mac 00-1a-7d-da-71-13"), Request("bt mac 00:1A:7D:DA:71:13"));
  Invocation invocation;
  EXPECT_FALSE(DecodeRequest(99, 0, {}, &invocation));
  EXPECT_FALSE(DecodeRequest(4, 11, {2}, &invocation)) << "neither on nor off";
  EXPECT_FALSE(DecodeRequest(4, 11, {}, &invocation));
  EXPECT_FALSE(DecodeRequest(4, 14, {1, 2, 3, 4, 5}, &invocation)) << "a cut address";
  EXPECT_FALSE(DecodeRequest(3, 1, {0, 3, 0}, &invocation));
  EXPECT_FALSE(DecodeRequest(7, 1, {0}, &invocation)) << "bytes that no argument takes";
  EXPECT_FALSE(DecodeRequest(0, 0, {3}, &invocation)) << "no source";
}

TEST(StationCommand, WrongUsageSaysWhatIsWrong) {
  const std::pair<const char*, const char*> problems[] = {
      {"nonsense", "unknown command 'nonsense'"},
      {"bt nonsense", "'bt' has no 'nonsense', only: name, pair, mac"},
      {"gps", "'gps' needs one of: watch, satellites"},
      {"gps navi 4", "'gps navi' has no '4', only: 2, 3, 5, 10"},
      {"usb nonsense", "'usb' has no 'nonsense', only: present, sync"},
      {"chip now", "'chip' takes no argument"},
      {"bt name a b", "'bt name' takes no argument or TEXT"},
      {"bt pair", "'bt pair' takes CODE"},
      {"media jump 3", "'media jump' takes FOLDER TRACK"},
      {"media jump 3 65536", "TRACK '65536' is not a number from 0 to 65535"},
      {"media jump -1 1", "FOLDER '-1' is not a number"},
      {"media region 7", "REGION '7' is not a number from 0 to 6"},
      {"media region 0x100000005", "is not a number"},
      {"source tape", "NAME 'tape' is not one of: radio, navi"},
      {"source ''", "NAME '' is not one of"},
      {"bt mac 00:11:22:33:44", "is not a MAC address"},
      {"bt mac 00:11:22:33:44:5g", "is not a MAC address"},
      {"bt mac 0:011:22:33:44:55", "is not a MAC address"},
      {"serial ''", "TEXT '' is empty"},
      {"serial 123456789012345678901", "is longer than 20 bytes"},
      {"uuid 12345678901234567", "is longer than 16 bytes"},
      {"bt name 'a\nb'", "'a\\nb' has control characters"},
      {"raw 256 1", "COMMAND '256' is not a number from 0 to 255"},
      {"raw 7 1 100", "BYTE '100' is not a byte in hexadecimal"},
      {"raw 7", "'raw' takes COMMAND SUB [BYTE...]"},
  };
  for (const auto& [line, problem] : problems) {
    EXPECT_PRED2(Contains, Problem(line), problem) << line;
  }
  std::vector<std::string> words;
  EXPECT_NE(SplitWords("bt name 'open", &words), "");
  EXPECT_NE(SplitWords("bt name open\\", &words), "");
}

TEST(StationCommand, ArgumentsTakeTheirLongestText) {
  EXPECT_EQ(Request("serial 12345678901234567890").size(), 2U + 20U);
  EXPECT_EQ(Request("uuid 1234567890123456").size(), 2U + 16U);
  EXPECT_EQ(Request("bt name " + std::string(125, 'x')).size(), 2U + 125U);
  EXPECT_NE(Problem("bt name " + std::string(126, 'x')), "");
  EXPECT_EQ(Request("bt call " + std::string(34, '1')).size(), 2U + 34U);
  EXPECT_NE(Problem("bt call " + std::string(35, '1')), "");
}

TEST(StationAnswer, TextsAndIdentities) {
  EXPECT_EQ(Value("version mpu", support::Text("1.2")), "1.2");
  EXPECT_EQ(Decode("version mpu", support::Text("1.2")).problem, "");
  EXPECT_NE(Decode("version mpu", {}).problem, "");
  EXPECT_EQ(Describe(Decode("version mpu", {'5', '\n', 0xFF, 0, 0x1B})), "5\\n\\xFF\\x00\\x1B");

  EXPECT_EQ(Value("serial", {'A', 'B', 0, 0}), "AB");
  EXPECT_EQ(Decode("serial", {'A', 'B', 0, 0}).problem, "");
  EXPECT_NE(Decode("serial", Bytes(20, 0)).problem, "");
  EXPECT_NE(Decode("serial", {}).problem, "");
  EXPECT_NE(Decode("serial", {'A', 0, 'B'}).problem, "") << "not the text that was burnt in";

  EXPECT_EQ(Decode("bt name", support::Text("Car")).problem, "");
  EXPECT_NE(Decode("bt name", support::Text("error")).problem, "");
  EXPECT_EQ(Value("bt mac", {0, 0x1A, 0x7D, 0xDA, 0x71, 0x13}), "00:1A:7D:DA:71:13");
  EXPECT_NE(Decode("bt mac", Bytes(6, 0)).problem, "");
  EXPECT_TRUE(Decode("bt mac", Bytes(5, 1)).fields.empty());
  EXPECT_TRUE(Decode("bt mac", Bytes(7, 1)).fields.empty());
}

TEST(StationAnswer, VerdictsAndNumbers) {
  EXPECT_EQ(Value("chip", {1}), "pass");
  EXPECT_EQ(Decode("chip", {1}).problem, "");
  EXPECT_EQ(Value("chip", {0}), "fail");
  EXPECT_NE(Decode("chip", {0}).problem, "");
  EXPECT_EQ(Value("sd present", {0}), "no");
  EXPECT_EQ(Decode("sd present", {0}).problem, "");
  EXPECT_EQ(Value("media state", {1}), "playing");
  for (const Bytes& data : {Bytes{}, Bytes{2}, Bytes{1, 1}}) {
    EXPECT_NE(Decode("media state", data).problem, "") << Hex(data);
    EXPECT_TRUE(Decode("media state", data).fields.empty());
  }
  EXPECT_EQ(Value("media device", {255}), "255");
  EXPECT_EQ(Decode("media region", {6}).problem, "");
  EXPECT_NE(Decode("media region", {7}).problem, "");
  EXPECT_EQ(Describe(Decode("media position", {0, 2, 1, 0x2C})), "folder 2, track 300");
  EXPECT_NE(Decode("media position", {0, 2, 1}).problem, "");
}

std::string Table(const Bytes& data) {
  return CommandsUnder("gps satellites").front()->reply->table(data);
}

TEST(StationAnswer, Satellites) {
  const Bytes two = {2, 5, 0, 0, 43, 12, 0xFF, 0xFF, 0xFE};
  EXPECT_EQ(Describe(Decode("gps satellites", two)), "count 2, strongest 43 dBHz, fourth 0 dBHz");
  EXPECT_EQ(Table(two),
            "satellite  C/N0\n"
            "        5   43 dBHz  #####################\n"
            "       12   -2 dBHz  \n"
            "2 satellites\n");
  Bytes five = {5};
  for (const std::uint8_t signal : Bytes{20, 40, 30, 10, 35}) {
    const std::uint8_t entry[] = {signal, 0, 0, signal};
    five.insert(five.end(), entry, entry + 4);
  }
  EXPECT_EQ(Describe(Decode("gps satellites", five)), "count 5, strongest 40 dBHz, fourth 20 dBHz");
  EXPECT_EQ(Decode("gps satellites", {0}).problem, "");
  EXPECT_NE(Decode("gps satellites", {}).problem, "");
  EXPECT_NE(Decode("gps satellites", {1, 5, 0, 0}).problem, "") << "cut";
  EXPECT_NE(Decode("gps satellites", {1, 5, 0, 0, 43, 0}).problem, "") << "a byte too many";
  Bytes many(1 + 4 * 25, 1);
  many[0] = 25;
  EXPECT_NE(Decode("gps satellites", many).problem, "") << "more than a unit can hold";
  EXPECT_EQ(Table({200, 1}), "");
  // A signal far above the scale keeps within the bar.
  EXPECT_LT(Table({1, 1, 0x7F, 0xFF, 0xFF}).size(), 100U);
}

Bytes Position(double longitude, double latitude) {
  Bytes data(16);
  std::memcpy(data.data(), &longitude, 8);
  std::memcpy(data.data() + 8, &latitude, 8);
  return data;
}

Bytes FixedText(const std::string& text) {
  Bytes data = support::Text(text);
  data.resize(78);
  return data;
}

TEST(StationAnswer, PositionSpeedAndAngle) {
  EXPECT_EQ(Describe(Decode("gps position", Position(121.4737, -31.25))),
            "longitude 121.473700 deg, latitude -31.250000 deg");
  EXPECT_EQ(Decode("gps position", Position(0, 0)).problem, "no fix yet");
  EXPECT_EQ(Decode("gps position", Position(-180, 90)).problem, "");
  for (const Bytes& wrong : {Position(180.1, 0), Position(0, -91), Position(NAN, 1),
                             Position(INFINITY, 1), Bytes(15, 1), Bytes(17, 1), Bytes()}) {
    EXPECT_NE(Decode("gps position", wrong).problem, "") << Hex(wrong);
    EXPECT_TRUE(Decode("gps position", wrong).fields.empty());
  }

  EXPECT_EQ(Decode("gps speed", FixedText("57.0")).fields.at(0).number, 57.0);
  EXPECT_NE(Decode("gps speed", FixedText("fast")).problem, "");
  EXPECT_NE(Decode("gps speed", FixedText("")).problem, "");
  EXPECT_NE(Decode("gps speed", support::Text("57.0")).problem, "");
  EXPECT_NE(Decode("gps speed", Bytes(78, '1')).problem, "") << "no zero byte at the end";
  Bytes rest = FixedText("57.0");
  rest[77] = 1;
  EXPECT_NE(Decode("gps speed", rest).problem, "") << "bytes behind the text";

  EXPECT_EQ(Decode("gps angle", FixedText("12.5")).fields.at(0).number, 12.5);
  EXPECT_EQ(Decode("gps angle", FixedText("north")).problem, "");
  EXPECT_TRUE(std::isnan(Decode("gps angle", FixedText("north")).fields.at(0).number));
  EXPECT_NE(Decode("gps angle", FixedText("")).problem, "");
  EXPECT_NE(Decode("gps angle", FixedText("    ")).problem, "");
}

TEST(StationAnswer, NumbersAreWholeTexts) {
  EXPECT_EQ(qnx::ParseReal("-1.5e1"), -15);
  for (const char* text : {"", " ", "1 ", " 1", "1x", "nan", "inf", "1e999", "--1", "1,5"}) {
    EXPECT_TRUE(std::isnan(qnx::ParseReal(text))) << text;
  }
}

TEST(StationPackets, AreNamedWhicheverBytesTheyHold) {
  const auto request = [](std::uint8_t number, std::uint8_t sub_command, const Bytes& parameters) {
    return DescribePacket(qnx::Direction::kToService,
                          wire::BuildRequest(number, sub_command, parameters));
  };
  EXPECT_EQ(request(7, 1, {}), "version mpu");
  EXPECT_EQ(request(4, 0, {'a', 0x1B}), "bt name 'a\\x1B'");
  EXPECT_EQ(request(99, 3, {1, 2}), "command 99, sub-command 3, parameters 01 02");
  EXPECT_EQ(
      DescribePacket(qnx::Direction::kFromService, support::Reply(7, 1, support::Text("1.2"))),
      "version mpu: 1.2");
  // Every way to cut or bend the two is told as such, and none reads outside.
  Bytes packet = wire::BuildRequest(7, 1, {});
  for (std::size_t size = 0; size < packet.size(); ++size) {
    const Bytes cut(packet.begin(), packet.begin() + static_cast<long>(size));
    EXPECT_EQ(DescribePacket(qnx::Direction::kToService, cut), "not a well-formed request");
    EXPECT_EQ(DescribePacket(qnx::Direction::kFromService, cut), "not a well-formed reply");
  }
  EXPECT_EQ(DescribePacket(qnx::Direction::kFromService, packet), "not a well-formed reply");
  packet[wire::kHeaderSize + wire::kLinkSize + wire::kRecordLengthOffset] = 0;
  EXPECT_EQ(DescribePacket(qnx::Direction::kToService, packet), "not a well-formed request");
}

// Runs the command line in this process.
struct Ran {
  int status;
  std::string out, err;
};
Ran RunLine(const std::vector<std::string>& arguments) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = Run(arguments, out, err);
  return Ran{status, out.str(), err.str()};
}

TEST(StationCommandLine, HelpOnEveryLevel) {
  const support::TempRoot root;
  const Ran all = RunLine({"--help"});
  EXPECT_EQ(all.status, 0);
  std::set<std::string> groups;
  for (const Command& command : Commands()) {
    EXPECT_PRED2(Contains, all.out, "  " + command.words) << command.words;
    std::vector<std::string> words = Words(command.words);
    while (!words.empty()) {
      words.push_back("--help");
      const Ran help = RunLine(words);
      words.pop_back();
      EXPECT_EQ(help.status, 0) << command.words;
      EXPECT_EQ(help.err, "");
      EXPECT_PRED2(Contains, help.out, command.help) << command.words;
      words.pop_back();
    }
  }
  EXPECT_EQ(RunLine({"nonsense", "--help"}).status, 2);
  EXPECT_PRED2(Contains, RunLine({"bt", "name", "--help"}).out, "--verify");
  EXPECT_EQ(RunLine({"chip", "--help"}).out.find("--verify"), std::string::npos);
}

// The section of docs/protocol.md on each command number, its heading left out.
std::map<int, std::string> ProtocolSections() {
  std::istringstream page(support::ReadFile(support::SourceDir() + "/docs/protocol.md"));
  std::map<int, std::string> sections;
  std::string* section = nullptr;
  for (std::string line; std::getline(page, line);) {
    int number = 0;
    if (std::sscanf(line.c_str(), "### %d:", &number) == 1) {
      section = &sections[number];
    } else if (line.rfind("##", 0) == 0) {
      section = nullptr;
    } else if (section != nullptr) {
      *section += line + "\n";
    }
  }
  return sections;
}

// The manual's list of the service's commands is made from the table; the rest is held against it.
TEST(StationCommandLine, DocumentsListTheTable) {
  std::string manual = support::ReadFile(support::SourceDir() + "/docs/man/station.1");
  manual.erase(std::remove(manual.begin(), manual.end(), '\\'), manual.end());
  for (const Command& command : Commands()) {
    for (const std::string& word : Words(command.sent ? "" : command.words)) {
      EXPECT_TRUE(std::regex_search(manual, std::regex("\\b" + word + "\\b"))) << command.words;
    }
    for (const Option& option : OptionsOf(command)) {
      EXPECT_PRED2(Contains, manual, option.name) << command.words;
    }
  }
  // Each sub-command of the table has a row or a sentence in the section of its number, and the
  // words of a parameter stand there with their values. No section lists more than the table.
  std::map<int, std::set<int>> listed;
  for (const auto& [number, section] : ProtocolSections()) {
    const std::regex row("(?:^|\\n)\\| ([0-9, ]+) \\||Sub-command ([0-9]+)");
    for (std::sregex_iterator at(section.begin(), section.end(), row), end; at != end; ++at) {
      std::istringstream subs((*at)[1].str() + (*at)[2].str());
      for (int sub = 0; subs >> sub; subs.ignore()) listed[number].insert(sub);
    }
    if (Contains(section, "Any sub-command")) listed[number].insert(0);
  }
  listed[4].erase(6);  // "bt answer" and "bt hangup" once more
  std::map<int, std::set<int>> table;
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    const wire::CommandSpec& row = wire::kCommands[i];
    table[row.command].insert(row.sub_command);
    EXPECT_NE(wire::CommandName(row.command), nullptr) << row.words;
    const wire::Choice* choice = row.parameters[0].choices;
    for (; choice != nullptr && choice->word != nullptr; ++choice) {
      const std::string word = std::to_string(choice->value) + " " + choice->word;
      EXPECT_PRED2(Contains, ProtocolSections()[row.command], word);
    }
  }
  EXPECT_EQ(listed, table);
}

TEST(StationCommandLine, WrongUsageIsStatusTwoAndOneLine) {
  const support::TempRoot root;
  for (const char* line :
       {"", "nonsense", "chip --verify", "chip --nonsense", "chip --timeout", "chip --timeout 0",
        "chip --timeout soon", "chip --help=yes", "run /nonexistent", "run /", "run ''",
        "gps watch --every 0", "replay /nonexistent", "replay --ignore '' /dev/null",
        "bt name -- --verify x", "run --station \xFF /dev/null"}) {
    const Ran ran = RunLine(Words(line));
    EXPECT_EQ(ran.status, 2) << line;
    EXPECT_EQ(ran.out, "");
    EXPECT_PRED2(Contains, ran.err, "--help'\n");
    EXPECT_EQ(ran.err.find('\n'), ran.err.size() - 1) << ran.err;
  }
}

TEST(StationCommandLine, WithoutAUnitEveryCommandSaysSo) {
  const support::TempRoot root;
  for (const char* line : {"version", "version mpu", "bt on --verify", "raw 7 1", "monitor",
                           "wait 0", "gps watch", "usb", "record /dev/null"}) {
    const Ran ran = RunLine(Words(line));
    EXPECT_EQ(ran.status, 1) << line;
    EXPECT_PRED2(Contains, ran.err, "no unit runs below " + root.path());
    EXPECT_EQ(ran.err.find('\n'), ran.err.size() - 1) << ran.err;
  }
}

TEST(StationCommandLine, CompletesItsOwnTable) {
  const support::TempRoot root;
  const Ran script = RunLine({"completion", "bash"});
  ASSERT_EQ(script.status, 0);
  root.AddFile("/script", script.out);
  const auto complete = [&](const std::string& words) {
    return support::Completed(root, root.path() + "/script", "station " + words);
  };
  EXPECT_EQ(complete("\"\"").substr(0, 9), "wait raw ");
  EXPECT_EQ(complete("v"), "version\n");
  EXPECT_EQ(complete("version z"), "zmmpu zmos\n");
  EXPECT_EQ(complete("--timeout 3 gps navi \"\""), "2 3 5 10\n");
  EXPECT_EQ(complete("source b"), "bttel btaudio\n");
  EXPECT_EQ(complete("bt name --v"), "--verify\n");
  EXPECT_EQ(complete("chip --"), "--timeout --root --help\n");
  EXPECT_EQ(complete("run " + root.path() + "/scr"), root.path() + "/script\n");
  EXPECT_EQ(complete("run end"), "end-of-line\n");
  EXPECT_EQ(complete("run end-of-line --jun"), "--junit\n");
  EXPECT_EQ(complete("summary --json --ht"), "--html\n");
  if (KORVANDIS_EMULATOR[0] != '\0') return;  // the script cannot ask the program for what follows
  root.AddFile("/a.seq",
               "value serial\nvalue sum = 1\nphase First one\nstep A\n  wait 0 s\nphase B\nstep "
               "C\n  wait 0 s\n");
  EXPECT_EQ(complete("run " + root.path() + "/a.seq --set s"), "serial= sum=\n");
  EXPECT_EQ(complete("run " + root.path() + "/a.seq --set serial = 0 : 1 --set s"),
            "serial= sum=\n");
  EXPECT_EQ(complete("run --loop " + root.path() + "/a.seq --only \"\""), "First\\ one B\n");
}

}  // namespace
}  // namespace station
