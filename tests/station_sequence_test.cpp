// Sequences: what a file may say, and what a run makes of it.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <sstream>
#include <thread>

#include "station/expectation.h"
#include "station/progress.h"
#include "support/fixture.h"
#include "tools/pps_object.h"

namespace station {
namespace {

using support::Contains;

const char kStep[] = "phase P\nstep S\n";

// A sequence and the files it includes, in place of files of the host.
using Files = std::map<std::string, std::string>;

std::vector<Mistake> Read(const Files& files, Sequence* sequence) {
  return ReadSequence(
      "test.seq",
      [&](const std::string& path, std::string* text) -> std::string {
        const auto file = files.find(path);
        if (file == files.end()) return "there is no " + path;
        *text = file->second;
        return "";
      },
      sequence);
}

// "LINE: reason" for each mistake, with the file in front of it when it is an included one.
std::string Joined(const Sequence& sequence, std::vector<Mistake> mistakes) {
  SortMistakes(&mistakes);
  std::string text;
  for (const Mistake& mistake : mistakes) {
    if (mistake.place.file > 0) text += sequence.files[mistake.place.file] + ":";
    if (mistake.place.line > 0) text += std::to_string(mistake.place.line) + ": ";
    text += mistake.reason + "\n";
  }
  return text;
}

std::string Errors(const Files& files, const Values& given = {},
                   const std::set<std::string>& phases = {}) {
  Sequence sequence;
  std::vector<Mistake> mistakes = Read(files, &sequence);
  const std::vector<Mistake> more = CheckSequence(sequence, given, phases);
  mistakes.insert(mistakes.end(), more.begin(), more.end());
  return Joined(sequence, mistakes);
}

std::string Errors(const std::string& text, const Values& given = {},
                   const std::set<std::string>& phases = {}) {
  return Errors(Files{{"test.seq", text}}, given, phases);
}

TEST(StationSequence, TakesEverythingThatAFileMaySay) {
  const char text[] =
      "# comment\r\n"
      "title The title\n"
      "\tdevice unit {serial}\n"
      "value serial\n"
      "value name = Bench 1 \n"
      "value empty =\n"
      "phase First phase\n"
      "step Wait\n"
      "  wait for service 10 s\n"
      "  wait 0.5 s\n"
      "step Ask\n"
      "  do gps satellites\n"
      "  expect count from 4 to 24\n"
      "  expect strongest at least 30 dBHz\n"
      "  expect fourth at most 60\n"
      "  keep count as seen\n"
      "  retry 3 times every 0.5 s\n"
      "  timeout 5 s\n"
      "  stop on failure\n"
      "phase Second\n"
      "step Write\n"
      "  do bt name '{name} {seen}'\n"
      "  verify\n"
      "step Text\n"
      "  do version mpu\n"
      "  expect version is \" {serial} \"\n"
      "  expect version one of a 'b c' {name}\n"
      "  expect version matches [a-z]{2}{serial}\n"
      "  retry 1 time";
  Sequence sequence;
  EXPECT_EQ(Joined(sequence, Read({{"test.seq", text}}, &sequence)), "");
  EXPECT_EQ(Joined(sequence, CheckSequence(sequence, {{"serial", "42"}}, {})), "");
  EXPECT_EQ(sequence.title, "The title");
  EXPECT_EQ(sequence.values.at("name").text, "Bench 1");
  ASSERT_EQ(sequence.phases.size(), 2U);
  const Step& wait = sequence.phases[0].steps.at(0);
  EXPECT_TRUE(wait.waits.at(0).for_service);
  EXPECT_EQ(wait.waits.at(1).seconds, 0.5);
  const Step& ask = sequence.phases[0].steps.at(1);
  EXPECT_EQ(ask.retries, 3);
  EXPECT_EQ(ask.retry_pause, 0.5);
  EXPECT_EQ(ask.timeout, 5);
  EXPECT_TRUE(ask.stop_on_failure);
  const Step& last = sequence.phases[1].steps.at(1);
  EXPECT_EQ(last.retries, 1);
  const Values values = {{"serial", "42"}, {"name", "N"}};
  EXPECT_EQ(DescribeExpectation(ask.expectations[0], values), "from 4 to 24");
  EXPECT_EQ(DescribeExpectation(ask.expectations[1], values), "at least 30 dBHz");
  EXPECT_EQ(DescribeExpectation(ask.expectations[2], values), "at most 60 dBHz");
  EXPECT_EQ(DescribeExpectation(last.expectations[0], values), "' 42 '");
  EXPECT_EQ(DescribeExpectation(last.expectations[1], values), "one of 'a', 'b c', 'N'");
  EXPECT_EQ(DescribeExpectation(last.expectations[2], values), "matching [a-z]{2}42");
}

TEST(StationSequence, ErrorsNameTheLineAndTheReason) {
  std::vector<std::pair<std::string, std::string>> errors = {
      {"", "there is no phase"},
      {"nonsense\nphase P\nstep S\nwait 1 s", "1: unknown word 'nonsense'"},
      {"step S", "1: a step must be inside a phase"},
      {"phase P\nphase Q\nstep S\nwait 1 s", "1: phase 'P' has no steps"},
      {"phase P\nstep S\nwait 1 s\nphase P\nstep S\nwait 1 s", "4: phase 'P' is there already"},
      {"phase P\nexpect x is y", "2: 'expect' must be inside a step"},
      {"phase P\nstep S", "2: step 'S' does nothing"},
      {"phase P\nstep", "2: step needs a name"},
      {"device {unknown}\nphase P\nstep S\nwait 1 s", "1: no earlier step defines the value"},
      {"value 1\nphase P\nstep S\nwait 1 s", "1: '1' is not a name"},
      {"value a matches ([\nphase P\nstep S\nwait 1 s", "1: '([' is not a pattern"},
      {"value a = 1\nvalue b = x{a}\nphase P\nstep S\nwait 1 s",
       "2: a default cannot hold another value: {a}"},
      {"value a b\nphase P\nstep S\nwait 1 s", "1: it reads: value NAME"},
      {"include x.seq", "1: there is no x.seq"},
      {"include test.seq", "1: 'test.seq' includes itself"},
      {"value a\nvalue a = 1\nphase P\nstep S\nwait 1 s", "2: value 'a' is declared already"},
      {"phase P\nstep S\nwait 1 s\nvalue a = 1", "4: values must be declared before"},
      {"phase " + std::string(5000, 'x'), "1: the line is too long"},
  };
  const std::pair<const char*, const char*> in_step[] = {
      // bars part those of one error
      {"do nonsense", "3: unknown command 'nonsense'"},
      {"do version", "3: 'version' is not a command that is sent"},
      {"do source tape", "3: 'source': NAME 'tape' is not one of"},
      {"do chip\ndo chip", "4: a second command"},
      {"do chip\nverify", "3: 'chip' cannot be verified"},
      {"do chip\nexpect colour is red", "4: the answer to 'chip' has no 'colour', only: verdict"},
      {"do bt on\nexpect x is y", "4: 'bt on' is not answered"},
      {"do chip\nexpect verdict like pass", "4: expect FIELD needs one of"},
      {"do chip\nexpect verdict at least 1", "4: 'verdict' is a text"},
      {"do chip\nexpect verdict matches ([", "4: '([' is not a pattern"},
      {"do chip\nexpect verdict one of", "4: 'one of' needs"},
      {"do gps position\nexpect latitude from 1 to 2 m", "4: 'latitude' is in deg, not in 'm'"},
      {"do gps speed\nexpect speed at most 5 km/h", "'speed' has no unit"},
      {"do gps speed\nexpect speed from 2 to 1", "4: the lower limit"},
      {"do gps speed\nexpect speed from 2 to x", "4: 'x' is not a number"},
      {"do gps speed\nexpect speed from 2", "4: expect FIELD needs"},
      {"do chip\nkeep verdict|do chip\nkeep verdict as 1x", "4: keep needs FIELD as NAME"},
      {"do chip\nkeep colour as x", "has no 'colour'"},
      {"wait 1|wait -1 s|wait 1e9 s", "3: wait needs a time"},
      {"do chip\nretry 0 times|do chip\nretry 1.5 times|do chip\nretry 2 times each 1 s",
       "4: retry needs"},
      {"do chip\ntimeout 0 s", "4: timeout needs"},
      {"do chip\nstop", "4: it reads: stop on failure"},
      {"do bt name {unknown}", "3: no earlier step defines the value"},
      {"do chip\x01", "3: control characters"},
      {"do chip\nexpect verdict is passs", "4: 'verdict' is never 'passs', only: fail, pass"},
      {"do usb present\nexpect present one of ja yes nein",
       "4: 'present' is never 'ja' or 'nein', only: no, y"},
      {"do media region\nexpect region is 9", "'9', only numbers from 0 to 6"},
      {"do gps position\nexpect latitude at least 91", "is never at least 91 deg, only numbers fr"},
      {"do gps speed\nexpect speed is 5 km/h", "4: 'speed' is never '5 km/h', only numbers"},
      {"confirm", "3: confirm needs a question"},
      {"confirm Is {x} right?", "3: no earlier step defines the value 'x'"},
  };
  for (const auto& [bodies, error] : in_step) {
    std::istringstream all(bodies);
    for (std::string body; std::getline(all, body, '|');) errors.emplace_back(kStep + body, error);
  }
  for (const auto& [text, error] : errors) {
    EXPECT_PRED2(Contains, Errors(text), error) << text;
  }
  // All of them at once, in the order of the lines.
  EXPECT_EQ(Errors("phase P\nstep S\nfoo\ndo bar\n"),
            "3: unknown word 'foo'\n4: unknown command 'bar'\n");
}

TEST(StationSequence, ValuesAreKnownBeforeAnythingIsSent) {
  const std::string text =
      "value serial matches [0-9]+\nvalue low = 3\nphase Keep\nstep S\ndo version mpu\nkeep "
      "version as mpu\n"
      "phase Use\nstep S\ndo bt name {mpu}\nstep T\ndo serial {serial}\n"
      "step U\ndo gps speed\nexpect speed at least {low}\n";
  EXPECT_EQ(Errors(text, {{"serial", "1"}}), "");
  EXPECT_PRED2(Contains, Errors(text), "value 'serial' is missing");
  EXPECT_PRED2(Contains, Errors(text, {{"serial", "x"}}),
               "value 'serial' is 'x', not matching [0-9]+");
  // Some phases alone need the values that they use.
  EXPECT_EQ(Errors(text, {}, {"Keep"}), "");
  EXPECT_PRED2(Contains, Errors(text, {{"serial", "\xFF"}}), "is '\\xFF', not text in UTF-8");
  EXPECT_PRED2(Contains, Errors(text, {{"serial", std::string(21, '1')}}), "11: 'serial': TEXT");
  EXPECT_PRED2(Contains, Errors(text, {{"serial", "1"}, {"low", "x"}}), "14: 'x' is not a number");
  EXPECT_PRED2(Contains, Errors(text, {{"serial", "1"}, {"other", ""}}), "no value 'other'");
  EXPECT_PRED2(Contains, Errors(text, {{"serial", "1"}}, {"Nowhere"}), "no phase 'Nowhere'");
  // What another phase would have kept is missing when only this one runs.
  EXPECT_EQ(Errors(text, {{"serial", "1"}}, {"Use"}),
            "9: no earlier step defines the value 'mpu'\n");
}

TEST(StationSequence, VariantsShareASequenceAndHaveTheirOwnLimits) {
  Files files = {
      {"test.seq", "title Variant\nvalue low = 30\nlimits a.csv\ninclude common.seq\n"},
      {"common.seq",
       "title Common\nvalue low = 5\nvalue high = 50\nlimits b.csv\ninclude more.seq\nphase P\n"
       "step S\ndo gps satellites\nexpect fourth at least 1\nexpect fourth at most 45\n"
       "expect count at least 4\n"},
      {"b.csv", "P,S,strongest,40,\n"},
      {"more.seq", "phase M\nstep N\nwait 1 s\n"},
      {"a.csv",
       "\xEF\xBB\xBFphase, step, field, low, high\n# comment\nP, S, fourth, {low}, "
       "{high}\n\"P\",S,strongest,35,"}};
  Sequence sequence;
  EXPECT_EQ(Joined(sequence, Read(files, &sequence)), "");
  EXPECT_EQ(sequence.title, "Variant");
  ASSERT_EQ(sequence.phases.size(), 2U);
  std::string expected;
  for (const Expectation& one : sequence.phases[1].steps[0].expectations) {
    expected += one.field + " " + DescribeExpectation(one, StartValues(sequence, {})) + "\n";
  }
  EXPECT_EQ(expected, "fourth from 30 to 50 dBHz\ncount at least 4\nstrongest at least 35 dBHz\n");

  files["a.csv"] =
      "P,S\nQ,S,fourth,1,2\nP,T,fourth,1,2\nP,S,fifth,1,2\nP,S,count,x,\nP,S,fourth,,\n"
      "P,S,count,1,y\nM,N,count,1,2\n";
  files["more.seq"] += "title T\nnonsense\n";
  EXPECT_EQ(
      Errors(files),
      "a.csv:1: a limit reads: PHASE, STEP, FIELD, LOW, HIGH\na.csv:2: there is no phase 'Q'\n"
      "a.csv:3: phase 'P' has no step 'T'\na.csv:4: the answer to 'gps satellites' has no "
      "'fifth', only: count, strongest, fourth\na.csv:5: 'x' is not a number\n"
      "a.csv:6: a limit needs LOW, HIGH or both\na.csv:7: this field of this step has its "
      "limits already\na.csv:7: 'y' is not a number\na.csv:8: step 'N' has no command\nmore.seq:5: "
      "unknown word 'nonsense'\n");
  files["test.seq"] += "title Again\nvalue low = 1\n";
  EXPECT_PRED2(Contains, Errors(files), "5: a second title\n6: values must be declared before");
}

TEST(StationSequence, ExpectationsHoldAtTheirEdges) {
  const FieldInfo number_info = {"n", "", true};
  const FieldInfo text_info = {"t", "", false};
  const auto holds = [&](const std::string& expected, const FieldInfo& info,
                         const std::string& text) {
    Sequence sequence;
    const std::string command =
        info.numeric ? "do gps speed\nexpect speed " : "do chip\nexpect verdict ";
    EXPECT_EQ(Joined(sequence, Read({{"test.seq", kStep + command + expected}}, &sequence)), "");
    std::string problem;
    return Holds(sequence.phases.at(0).steps.at(0).expectations.at(0),
                 Field{&info, text, qnx::ParseReal(text)}, {{"v", "5"}}, &problem);
  };
  const struct {
    const FieldInfo& info;
    const char *expected, *right, *wrong;  // values, with bars between
  } rows[] = {
      {number_info, "from 1 to 2", "1|2.0", "0.999|2.001"},
      {number_info, "at least {v}", "5", "4.9"},
      {number_info, "at most -1", "-1", "0|north"},
      {number_info, "at least {missing}", "", "5"},
      {number_info, "is 5", "5.0", "north"},
      {text_info, "is a b", "a b", "a"},
      {text_info, "is 5", "5", "5.0"},
      {text_info, "one of x 'a b'", "x|a b", "a"},
      {text_info, "matches a+", "aaa", "aaab"},
  };
  for (const auto& row : rows) {
    for (const bool right : {true, false}) {
      std::istringstream values(right ? row.right : row.wrong);
      for (std::string value; std::getline(values, value, '|');) {
        EXPECT_EQ(holds(row.expected, row.info, value), right) << row.expected << ": " << value;
      }
    }
  }
  EXPECT_TRUE(holds("is", text_info, ""));
  // Linear in the text, whatever the pattern.
  EXPECT_FALSE(holds("matches (a*)*b", text_info, std::string(1000000, 'a')));
}

// Runs against a unit and the service.
class StationRunTest : public support::ServiceOnUnit {
 protected:
  void SetUp() override {
    ServiceOnUnit::SetUp();
    support::WriteObject("/pps/zelmar/system/version_status",
                         "mpu:json:{\"version\":\"M<1>&\\\"\"}");
    support::WriteObject("/pps/zelmar/setting/systeminfo", "zmlocalname::Old");
  }

  // Runs the station on a sequence; its exit status.
  int RunText(const std::string& text, std::vector<std::string> arguments = {},
              const std::string& input = "") {
    root_.AddFile("/test.seq", text);
    root_.AddFile("/input", input);
    arguments.insert(arguments.begin(), {"run", root_.path() + "/test.seq"});
    const std::string input_path = root_.path() + "/input";
    program_ = std::make_unique<support::Program>(root_, "station", arguments, [&] {
      ::dup2(::open(input_path.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    });
    return program_->Wait();
  }

  std::unique_ptr<support::Program> program_;
};

TEST_F(StationRunTest, KeepsValuesVerifiesAndReports) {
  const std::string text =
      "title A <run>\ndevice {serial}\nvalue serial\nphase One\n"
      "step Read\ndo bt name\nkeep name as old\nstep Write\ndo bt name '{old} {serial}'\nverify\n"
      "step Check\ndo bt name\nexpect name is Old 42\nexpect name matches Old.*\n"
      "phase Two\nstep Wrong\ndo version mpu\nexpect version is other\nretry 2 times every 0.01 s\n"
      "step Go on\ndo bt name\n";
  const std::string json_path = root_.path() + "/record.json";
  const std::string junit_path = root_.path() + "/record.xml";
  EXPECT_EQ(RunText(text, {"--set", "serial=42", "--json", json_path, "--junit", junit_path,
                           "--station", "Line 3"}),
            1);
  EXPECT_EQ(support::Attribute("/pps/zelmar/setting/systeminfo", "zmlocalname"), ":Old 42");
  const std::string output = program_->Output();
  EXPECT_PRED2(Contains, output, "passed   Read: Old\n");
  EXPECT_PRED2(Contains, output, "passed   Write: verified\n");
  EXPECT_PRED2(Contains, output,
               "failed   Wrong: version is 'M<1>&\"', not 'other' (3 attempts)\n");
  EXPECT_PRED2(Contains, output, "4 passed, 1 failed, 0 errors, 0 skipped in ");
  EXPECT_PRED2(Contains, output,
               ", device 42: FAILED\n  failed   Two / Wrong: version is 'M<1>&\"', not 'other'\n"
               "           expected: version 'other'\n");
  EXPECT_EQ(output.find('\033'), std::string::npos) << "no colours in a file";

  // The record is JSON that a strict reader takes, and says the same.
  const std::string json = support::ReadFile(json_path);
  EXPECT_PRED1(tools::IsJson, json);
  for (const char* part :
       {"\n  \"device\": \"42\"", "\n  \"outcome\": \"failed\"", "\"attempts\": 3",
        "\"text\": \"M<1>&\\\"\"", "\"expected\": \"'other'\"", "\"station\": \"Line 3\"",
        "\"file_crc32\": \"b0357c7c\"",
        // Of an answer of which nothing is expected, and of a write that was read back.
        "\"name\": \"name\",\n              \"text\": \"Old\",\n              \"outcome\": "
        "\"passed\"",
        "\"text\": \"Old 42\",\n              \"expected\": \"'Old 42'\""}) {
    EXPECT_PRED2(Contains, json, part);
  }

  const std::string junit = support::ReadFile(junit_path);
  EXPECT_PRED2(
      Contains, junit,
      "<testsuites name=\"A &lt;run>\" tests=\"5\" failures=\"1\" errors=\"0\" skipped=\"0\"");
  EXPECT_PRED2(Contains, junit, "<testcase classname=\"A &lt;run>.Two\" name=\"Wrong\"");
}

TEST_F(StationRunTest, AWriteThatIsNotCarriedOutIsNotRight) {
  support::WriteObject("/pps/zelmar/setting/bt_control", "zmbt_switch::on");
  const auto station = [&](const std::vector<std::string>& arguments) {
    program_ = std::make_unique<support::Program>(root_, "station", arguments);
    return program_->Wait();
  };
  EXPECT_EQ(station({"bt", "off", "--verify"}), 0) << program_->Errors();
  EXPECT_EQ(support::Attribute("/pps/zelmar/setting/bt_control", "zmbt_switch"), ":off");
  EXPECT_EQ(station({"bt", "pair", "0000", "--verify", "--timeout", "0.3"}), 1)
      << "there is no such object";
  EXPECT_PRED2(Contains, program_->Errors(), "pairingcode is not written");
  EXPECT_EQ(station({"media", "play", "--verify"}), 1) << "no player is the source";
  EXPECT_PRED2(Contains, program_->Errors(), "cannot be proven");
  EXPECT_EQ(station({"raw", "4", "11", "1", "--timeout", "0.3"}), 0);
  StopService();
  EXPECT_EQ(station({"raw", "4", "11", "1"}), 1);
  EXPECT_EQ(station({"bt", "on"}), 1);
  EXPECT_PRED2(Contains, program_->Errors(), "no service is connected");
  EXPECT_EQ(station({"chip", "--timeout", "1000"}), 1) << "no answer will ever come";
}

TEST_F(StationRunTest, StopsWhereAFailureMakesTheRestUseless) {
  EXPECT_EQ(RunText("phase P\nstep A\ndo version mpu\nexpect version is x\nstop on failure\n"
                    "step B\ndo bt name never\nphase Q\nstep C\nwait 100 s\n"),
            1);
  EXPECT_PRED2(Contains, program_->Output(),
               "2 steps skipped: 'A' failed\n\n0 passed, 1 failed, 0 errors, 2 skipped");
  EXPECT_EQ(support::Attribute("/pps/zelmar/setting/systeminfo", "zmlocalname"), ":Old");
  // A step whose value was never kept is not to blame.
  EXPECT_EQ(RunText("phase P\nstep A\ndo version os\nkeep version as v\nstep B\ndo bt name {v}\n"),
            1);
  EXPECT_PRED2(Contains, program_->Output(), "1 step skipped: there is no value 'v'");
}

TEST_F(StationRunTest, RetriesUntilTheUnitIsReady) {
  root_.AddFile("/test.seq",
                "phase P\nstep A\ndo bt name\nexpect name is New\nretry 500 times every 0.02 s\n");
  support::Program program(root_, "station", {"run", root_.path() + "/test.seq"});
  std::this_thread::sleep_for(support::milliseconds(200));
  support::WriteObject("/pps/zelmar/setting/systeminfo", "zmlocalname::New");
  EXPECT_EQ(program.Wait(), 0) << program.Output();
}

TEST_F(StationRunTest, NothingIsSentByListAndDryRunAndWrongFiles) {
  const std::string text =
      "value n = New\nphase P\nstep A\ndo bt name {n}\nphase Q\nstep B\nwait 100 s\n";
  EXPECT_EQ(RunText(text, {"--list"}), 0);
  EXPECT_EQ(program_->Output(), "value n = New\n\nP\n  A: bt name {n}\n\nQ\n  B\n");
  EXPECT_EQ(RunText(text, {"--dry-run", "--only", "P"}), 0);
  EXPECT_EQ(program_->Output(),
            "P\n  A\n    sends bt name New: 34 00 02 2A A2 00 04 04 00 4E 65 77\n");
  EXPECT_EQ(RunText(text + "step C\ndo nonsense\n"), 2);
  EXPECT_PRED2(Contains, program_->Errors(), "test.seq:9: unknown command 'nonsense'\n");
  EXPECT_EQ(RunText(text, {"--set", "n"}), 2);
  EXPECT_EQ(RunText(text, {"--json", "/nonexistent/file"}), 2);
  EXPECT_EQ(support::Attribute("/pps/zelmar/setting/systeminfo", "zmlocalname"), ":Old");
  EXPECT_EQ(RunText(text, {"--only", "P"}), 0);
  EXPECT_TRUE(support::Eventually([] {
    return support::Attribute("/pps/zelmar/setting/systeminfo", "zmlocalname") == ":New";
  }));
}

TEST_F(StationRunTest, ASignalEndsTheRunWithItsRecord) {
  EXPECT_EQ(unit_->Control("sysinfo fail 5").substr(0, 2),
            "ok");  // so that nothing proves the write
  const std::string json = root_.path() + "/record.json";
  for (const char* step : {"wait 100 s", "do serial KV1\nverify\ntimeout 100 s"}) {
    root_.AddFile("/test.seq", std::string("phase P\nstep A\n") + step + "\nstep B\ndo bt name\n");
    support::Program program(root_, "station", {"run", root_.path() + "/test.seq", "--json", json});
    EXPECT_TRUE(support::Eventually([&] { return Contains(program.Output(), "\nP\n"); }));
    std::this_thread::sleep_for(support::milliseconds(200));
    program.Signal(SIGINT);
    EXPECT_EQ(program.Wait(), 130);
    EXPECT_PRED2(Contains, program.Output(), "aborted  A: interrupted\n");
    EXPECT_PRED2(Contains, program.Output(), "1 step skipped: interrupted\n");
    EXPECT_TRUE(tools::IsJson(support::ReadFile(json)));
  }
}

TEST_F(StationRunTest, ATeardownRunsWhateverHappened) {
  const std::string teardown =
      "phase Back always\nstep T\ndo bt name Back\nverify\nstep U\nwait 100 s\nstep V\ndo bt name "
      "Late\n";
  root_.AddFile("/test.seq", "phase P\nstep A\nwait 100 s\nstep B\ndo bt name B\n" + teardown);
  support::Program program(root_, "station", {"run", root_.path() + "/test.seq"});
  EXPECT_TRUE(support::Eventually([&] { return Contains(program.Output(), "\nP\n"); }));
  program.Signal(SIGINT);
  EXPECT_TRUE(
      support::Eventually([&] { return Contains(program.Output(), "passed   T: verified\n"); }));
  program.Signal(SIGINT);
  EXPECT_EQ(program.Wait(), 130);
  EXPECT_PRED2(Contains, program.Output(), "aborted  U: interrupted\n\n2 steps skipped");
  EXPECT_EQ(support::Attribute("/pps/zelmar/setting/systeminfo", "zmlocalname"), ":Back");
  EXPECT_EQ(RunText("phase P\nstep A\ndo version mpu\nexpect version is x\nstop on failure\n"
                    "step B\nwait 100 s\nphase Q always\nstep C\ndo bt name\nphase R\nstep D\n"
                    "wait 100 s\n"),
            1);
  EXPECT_PRED2(Contains, program_->Output(), "passed   C: Back\n\n2 steps skipped: 'A' failed\n");
}

TEST_F(StationRunTest, OneRunAtATimeHasTheUnit) {
  root_.AddFile("/first.seq", "phase P\nstep A\nwait 100 s\n");
  support::Program first(root_, "station", {"run", root_.path() + "/first.seq"});
  EXPECT_TRUE(support::Eventually([&] { return Contains(first.Output(), "\nP\n"); }));
  const std::string text = "phase P\nstep A\ndo bt name\n";
  EXPECT_EQ(RunText(text), 3);
  EXPECT_PRED2(Contains, program_->Errors(),
               "another run has the unit: process " + std::to_string(first.pid()) + ", started 20");
  EXPECT_EQ(program_->Output(), "");
  EXPECT_EQ(RunText(text, {"--list"}), 0);
  first.Signal(SIGKILL);
  first.Wait();
  EXPECT_EQ(RunText(text), 0) << program_->Errors();
}

TEST_F(StationRunTest, ASecondServiceIsTold) {
  const std::string text = "phase P\nstep A\nwait 0 s\n";
  root_.AddFile("/slow.seq",
                "phase P\nstep A\ndo usb present\nexpect present is yes\n"
                "retry 10000 times every 0.02 s\nstep B\ndo bt name B\n");
  support::Program during(root_, "station", {"run", root_.path() + "/slow.seq"});
  EXPECT_TRUE(support::Eventually([&] { return Contains(during.Output(), "\nP\n"); }));
  support::Program second(root_, "korvandis");
  ASSERT_TRUE(
      support::Eventually([this] { return Contains(unit_->Control("status"), " services 2 "); }));
  support::WriteObject("/pps/zelmar/system/dev_status", "zmusb:n:1");
  EXPECT_EQ(during.Wait(), 3) << during.Output();
  EXPECT_PRED2(Contains, during.Output(), "error    B: 2 services are connected");
  EXPECT_EQ(RunText(text), 3);
  EXPECT_PRED2(Contains, program_->Output(),
               "error    A: 2 services are connected to the unit: end");
  EXPECT_PRED2(Contains, program_->Output(), "0 passed, 0 failed, 1 error, 0 skipped in ");
  EXPECT_EQ(RunText(text, {"--allow-several"}), 0) << program_->Errors();
}

TEST_F(StationRunTest, ASilentServiceIsNoFailureOfTheUnit) {
  StopService();
  const std::string junit = root_.path() + "/record.xml";
  EXPECT_EQ(RunText("title T\nphase P\nstep A\ndo version mpu\ntimeout 0.1 s\nstep B\n"
                    "do bt name x\nverify\ntimeout 0.1 s\nstep C\nwait for service 0 s\n"
                    "stop on failure\nstep D\ndo bt name\n",
                    {"--junit", junit}),
            3);
  EXPECT_PRED2(Contains, program_->Output(), "0 passed, 0 failed, 3 errors, 1 skipped");
  EXPECT_PRED2(Contains, support::ReadFile(junit),
               "tests=\"4\" failures=\"0\" errors=\"3\" skipped=\"1\"");
  EXPECT_PRED2(Contains, support::ReadFile(junit), "<error message=\"no answer within 0.1 s");
}

TEST_F(StationRunTest, APersonAnswersAndEventsTellAtOnce) {
  const std::string text =
      "phase P\nstep A\nconfirm Is the display clear?\nstep B\ndo bt name\nconfirm Is it {n}?\n"
      "stop on failure\nstep C\nwait 9 s\n";
  root_.AddFile("/answers", "# comment\ny\n\nNo\n");
  const std::string with_name = "value n = Car\n" + text;
  const std::vector<std::string> answers = {"--answers", root_.path() + "/answers", "--events",
                                            "-"};
  EXPECT_EQ(RunText(with_name, answers), 1);
  EXPECT_PRED2(Contains, program_->Errors(), "passed   A\n");
  EXPECT_PRED2(Contains, program_->Errors(), "failed   B: answered with no: 'Is it Car?'\n");
  std::istringstream events(program_->Output());
  std::string kinds;
  for (std::string line; std::getline(events, line);) {
    EXPECT_PRED1(tools::IsJson, line);
    kinds += line.substr(10, line.find('"', 10) - 10) + " ";
    if (Contains(line, "\"step\":\"C\"") && Contains(line, "outcome")) {
      EXPECT_PRED2(Contains, line, "\"outcome\":\"skipped\"");
    }
  }
  EXPECT_EQ(kinds,
            "run_start phase_start step_start step_end step_start step_end step_start step_end "
            "phase_end run_end ");
  // Without a person to ask, the outcome is an error: the unit is not to blame.
  EXPECT_EQ(RunText("phase P\nstep A\nconfirm Is it clear?\n"), 3);
  root_.AddFile("/answers", "y\nperhaps\n");
  EXPECT_EQ(RunText(with_name, answers), 2);
  EXPECT_PRED2(Contains, program_->Errors(), "answers:2: 'perhaps' is neither y nor n");
}

TEST_F(StationRunTest, OnATerminalAPersonIsAskedUntilTheAnswerFits) {
  const platform::Descriptor terminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(::unlockpt(terminal.Get()), 0);
  const std::string name = ::ptsname(terminal.Get());
  root_.AddFile("/test.seq", "value serial matches [0-9]{3}\nphase P\nstep A\nconfirm {serial}?\n");
  const auto use_terminal = [&] {
    ::dup2(::open(name.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC), STDIN_FILENO);
  };
  support::Program program(root_, "station", {"run", root_.path() + "/test.seq"}, use_terminal);
  const std::pair<std::string, std::string> talk[] = {
      {"serial: ", "x\n"},
      {"'x' does not match [0-9]{3}\nserial: ", "001\n"},
      {"001? [y/n] ", "perhaps\n"},
      {"001? [y/n] 001? [y/n] ", "y\n"}};
  for (const auto& [asked, typed] : talk) {
    EXPECT_TRUE(support::Eventually([&] { return Contains(program.Output(), asked); })) << asked;
    EXPECT_EQ(::write(terminal.Get(), typed.data(), typed.size()), ssize_t(typed.size()));
  }
  EXPECT_EQ(program.Wait(), 0) << program.Output();
  // What is typed and not entered is no value.
  support::Program left(root_, "station", {"run", root_.path() + "/test.seq"}, use_terminal);
  EXPECT_TRUE(support::Eventually([&] { return Contains(left.Output(), "serial: "); }));
  EXPECT_EQ(::write(terminal.Get(), "001\x04\x04", 5), 5);
  EXPECT_EQ(left.Wait(), 2) << left.Output();
}

TEST_F(StationRunTest, ALoopAsksForEachUnitUntilTheInputEnds) {
  const std::string text =
      "device {serial}\nvalue serial matches [0-9]{3}\nvalue name = N\nphase P\nstep A\ndo bt "
      "name\n"
      "expect name is {serial}\n";
  support::WriteObject("/pps/zelmar/setting/systeminfo", "zmlocalname::002");
  const std::string json = root_.path() + "/{serial}.json";
  EXPECT_EQ(RunText(text, {"--loop", "--json", json}, "001\nx\n 002\r\n003"), 1);
  const std::string output = program_->Output();
  EXPECT_PRED2(Contains, output, "serial: x\n'x' does not match [0-9]{3}\nserial: 002\n");
  EXPECT_PRED2(Contains, output, "\n########    ##########    ######      ######\n");
  EXPECT_PRED2(Contains, output,
               "PASS, device 002\nThis shift: 2 units, 1 passed, 1 failed, 0 err");
  EXPECT_PRED2(Contains, output,
               "FAIL, device 003\nThis shift: 3 units, 1 passed, 2 failed, 0 err");
  EXPECT_PRED2(Contains, support::ReadFile(root_.path() + "/002.json"), "\"outcome\": \"passed\"");
  // A record that is a directory: the unit passed, and its run is not kept.
  EXPECT_EQ(RunText(text, {"--loop", "--record", root_.path() + "/"}, "\xFF\n002\n"), 3);
  EXPECT_PRED2(Contains, program_->Output(), "'\\xFF' is not text in UTF-8\nserial: 002\n");
  EXPECT_PRED2(Contains, program_->Output(),
               "ERROR, device 002\nThis shift: 1 unit, 0 passed, 0 failed, 1 err");
  EXPECT_EQ(RunText(text, {"--loop", "--json", root_.path() + "/one.json"}, "001\n"), 2);
  EXPECT_EQ(RunText(text, {"--loop", "--set", "serial=001"}, "001\n"), 2);
  EXPECT_EQ(RunText(text, {}, "001\n"), 2) << "without a terminal no question is asked";
}

TEST(StationProgress, StaysWithinTheTerminal) {
  std::ostringstream out;
  Console console;
  console.lines_change = true;
  console.width = 20;
  Progress progress(out, console);
  progress.BeginRun({}, 1);
  records::Step step;
  step.name = "\xC3\xA4\xC3\xA4 with a long name";
  progress.BeginStep(step);
  EXPECT_PRED2(Contains, out.str(), "\r\033[K  [1/1] 0.0 s  \xC3\xA4\xC3\xA4 w");
  EXPECT_EQ(out.str().find(" wi"), std::string::npos);
}

TEST_F(StationRunTest, WithoutAUnitTheRestIsSkipped) {
  unit_->Stop();
  EXPECT_EQ(RunText("phase P\nstep A\ndo version mpu\nstep B\ndo bt name\n"), 3);
  EXPECT_PRED2(Contains, program_->Output(), "error    A: no unit runs below");
  EXPECT_PRED2(Contains, program_->Output(), "1 step skipped: there is no unit");
}

}  // namespace
}  // namespace station
