// The record of a line, on both kinds of databases.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <list>
#include <sstream>
#include <tuple>

#include "qnx/child_process.h"
#include "records/database.h"
#include "records/spool.h"
#include "records/summary.h"
#include "station/command_line.h"
#include "station/recording.h"
#include "support/fixture.h"
#include "support/postgres.h"

namespace records {
namespace {

using support::Contains;

const Time kStart = std::chrono::system_clock::from_time_t(1763892000);  // 2025-11-23 10:00 UTC
const double kNone = std::numeric_limits<double>::quiet_NaN();

// A run with everything that a run may have, also texts that need care.
Run WholeRun() {
  Run run;
  run.id = NewRunId();
  run.device = "SN'1\";--";
  run.title = "Ende \xC3\xA4";
  run.station = "st1";
  run.program = "1.0.0";
  run.sequence = "/a b/x.seq";
  run.sequence_crc = 0x0000BEEF;
  run.values = {{"serial", "SN"}, {"empty", ""}};
  run.start = kStart;
  run.zone_minutes = -210;
  run.seconds = 1.25;
  run.outcome = Outcome::kFailed;
  Step step;
  step.name = "Read";
  step.outcome = Outcome::kFailed;
  step.command = "gps angle";
  step.problem = "angle is '9\n', not 3";
  step.expected = "from 1 to 3";
  step.start = kStart + std::chrono::milliseconds(1);
  step.seconds = 0.5;
  step.attempts = 2;
  step.request = {0x09, 0x00, 0xFF};
  step.reply = {0x2A};
  step.measurements = {{"angle", "deg", "9\n", 9, 1, kNone, "from 1 to 3", Outcome::kFailed},
                       {"text", "", "\xFF z\0z", kNone, kNone, kNone, "", Outcome::kPassed}};
  Step skipped;
  skipped.name = "Skipped";
  skipped.start = kStart;
  Phase phase;
  phase.name = "First";
  phase.outcome = Outcome::kFailed;
  phase.start = kStart;
  phase.seconds = 0.75;
  phase.steps = {step, skipped};
  Phase empty;
  empty.name = "Empty";
  empty.start = kStart;
  run.phases = {empty, phase};
  run.packets = {{kStart + std::chrono::nanoseconds(123456789), true, {1, 2, 0}}};
  run.log = {{kStart, 4000000000U, 6, 77, "line 1"}};
  return run;
}

std::unique_ptr<Database> Open(const std::string& address) {
  std::string problem;
  auto database = Database::Open(address, Database::Mode::kWrite, &problem);
  EXPECT_NE(database, nullptr) << problem;
  return database;
}

std::size_t CountRuns(const std::string& address) {
  std::vector<RunRow> rows;
  EXPECT_EQ(Open(address)->List({}, 1000000, &rows), "");
  return rows.size();
}

// Each test runs on an SQLite file and on a server.
class Records : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    ::setenv("XDG_STATE_HOME", (root_.path() + "/state").c_str(), 1);
    if (!GetParam()) return;
    server_ = std::make_unique<support::Postgres>();
    if (!std::filesystem::exists("/usr/lib/postgresql")) GTEST_SKIP() << server_->problem();
    ASSERT_EQ(server_->problem(), "");
  }

  std::string Address() const {
    return server_ != nullptr ? server_->address() : root_.path() + "/a line.db";
  }

  // Takes the record away, and brings it back.
  void Break() {
    if (server_ != nullptr) return server_->Stop();
    std::filesystem::rename(Address(), Address() + ".away");
    std::filesystem::create_directory(Address());
  }
  void Repair() {
    if (server_ != nullptr) return static_cast<void>(server_->Start());
    std::filesystem::remove(Address());
    std::filesystem::rename(Address() + ".away", Address());
  }

  support::TempRoot root_;
  std::unique_ptr<support::Postgres> server_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, Records, ::testing::Bool(),
                         [](const auto& kind) { return kind.param ? "PostgreSql" : "Sqlite"; });

TEST_P(Records, AStoredRunComesBackWhole) {
  const records::Run run = WholeRun();
  const auto database = Open(Address());
  long long number = 0;
  ASSERT_EQ(database->Store(run, &number), "");
  long long again = 0;
  ASSERT_EQ(database->Store(run, &again), "") << "a second time changes nothing";
  EXPECT_EQ(number, again);
  records::Run loaded;
  std::string problem;
  ASSERT_TRUE(database->Load(std::to_string(number), &loaded, &problem)) << problem;
  // Bytes that are no text are stored as their escapes; the JSON form holds all of a run.
  records::Run expected = run;
  expected.phases[1].steps[0].measurements[1].text = "\\xFF z";
  EXPECT_EQ(RunJson(loaded), RunJson(expected));
  EXPECT_FALSE(database->Load("no such run", &loaded, &problem));
  EXPECT_EQ(problem, "");
}

TEST_P(Records, EightWritersLoseNothing) {
  const int kWriters = 8;
  const int kRuns = 12;
  std::list<qnx::ChildProcess> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([&] {
      int stored = 0;
      for (int i = 0; i < kRuns; ++i) {
        records::Run run = WholeRun();
        // Every other writer brings its new names in the other order.
        if (writer % 2 == 1) std::swap(run.phases[0], run.phases[1]);
        for (Phase& phase : run.phases) phase.name += std::to_string(i);
        if (StoreRun(Address(), run).stored) ++stored;
      }
      return stored;
    });
  }
  for (qnx::ChildProcess& writer : writers) EXPECT_EQ(writer.Wait(support::kSoon), kRuns);
  EXPECT_EQ(CountRuns(Address()), static_cast<std::size_t>(kWriters * kRuns));
}

TEST_P(Records, ARunThatCannotBeStoredWaitsForTheNext) {
  ASSERT_TRUE(StoreRun(Address(), WholeRun()).stored);
  Break();
  const records::Run kept = WholeRun();
  for (int i = 0; i < 2; ++i) {  // twice the same, as after a crash between storing and clearing
    const Stored failed = StoreRun(Address(), kept);
    EXPECT_FALSE(failed.stored);
    EXPECT_PRED2(Contains, failed.problem, "the run is kept in " + SpoolPaths(Address())[0]);
    EXPECT_EQ(failed.problem.find('\\'), std::string::npos) << failed.problem;
  }
  std::ofstream(SpoolPaths(Address())[0], std::ios::app) << "{\"id\":\"cut";
  Repair();
  const Stored next = StoreRun(Address(), WholeRun());
  EXPECT_TRUE(next.stored);
  EXPECT_EQ(next.caught_up, 2U);
  EXPECT_PRED2(Contains, next.problem, "is not a whole run");
  EXPECT_PRED2(Contains, support::ReadFile(SpoolPaths(Address())[0] + ".broken"), "{\"id\":\"cut");
  EXPECT_EQ(CountRuns(Address()), 3U);
  EXPECT_EQ(StoreRun(Address(), WholeRun()).problem, "") << "the spool is empty";
}

TEST(RecordFile, ARunWaitsElsewhereWhereItsRecordHasNoDirectory) {
  const support::TempRoot root;
  ::setenv("XDG_STATE_HOME", (root.path() + "/state").c_str(), 1);
  const std::string record = root.path() + "/none/line.db";
  EXPECT_PRED2(Contains, StoreRun(record, WholeRun()).problem,
               "the run is kept in " + root.path() + "/state/korvandis/");
  std::filesystem::create_directory(root.path() + "/none");
  EXPECT_EQ(StoreRun(record, WholeRun()).caught_up, 1U);
  EXPECT_EQ(CountRuns(record), 2U);
}

TEST_P(Records, AnIdentityBelongsToOneDevice) {
  const auto database = Open(Address());
  EXPECT_EQ(database->Claim("mac", "00:1a:7D:00:00:01", "A", false), "");
  EXPECT_EQ(database->Claim("mac", "001A7D000001", "A", false), "") << "the same device again";
  EXPECT_EQ(database->Claim("uuid", "001A7D000001", "B", false), "") << "another kind";
  EXPECT_PRED2(Contains, database->Claim("mac", "00:1A:7d:00:00:01", "B", false),
               "belongs to device 'A' since 20");
  EXPECT_EQ(database->Claim("mac", "00:1A:7d:00:00:01", "B", true), "");
  EXPECT_EQ(database->Claim("serial", "a", "A", false), "");
  EXPECT_EQ(database->Claim("serial", "A", "B", false), "") << "serial numbers are texts";

  // Of devices that ask at the same time, one gets it.
  std::list<qnx::ChildProcess> askers;
  for (int i = 0; i < 8; ++i) {
    askers.emplace_back([&] {
      return Open(Address())->Claim("uuid", "F", std::to_string(i), false).empty() ? 1 : 0;
    });
  }
  int got = 0;
  for (qnx::ChildProcess& asker : askers) got += asker.Wait(support::kSoon).value_or(2);
  EXPECT_EQ(got, 1);
}

// A run of one device that measures `speed` (and a text), at a minute.
records::Run Measured(const std::string& device, const std::string& station, int minute,
                      Outcome outcome, double speed, double high = 10) {
  records::Run run;
  run.id = NewRunId();
  run.device = device;
  run.title = minute < 100 ? "Line" : "Other";
  run.station = station;
  run.start = kStart + std::chrono::minutes(minute);
  run.seconds = minute;
  run.outcome = outcome;
  Step step;
  step.name = "Drive";
  step.outcome = outcome;
  step.start = run.start;
  step.measurements = {{"speed", "km/h", "", speed, kNone, high, "", Outcome::kPassed},
                       {"name", "", "x", kNone, kNone, kNone, "", Outcome::kPassed}};
  Step skipped;
  skipped.name = "Never";
  Phase phase;
  phase.name = "P";
  phase.steps = {step, skipped};
  run.phases = {phase};
  return run;
}

TEST_P(Records, TheSummaryCountsWhatIsThere) {
  const auto database = Open(Address());
  // The values are large beside their spread: sums of plain squares would find no spread.
  const double kBase = 1e9;
  const std::vector<records::Run> runs = {
      Measured("A", "east", 1, Outcome::kFailed, kBase + 1, kBase + 9),
      Measured("A", "west", 3, Outcome::kPassed, kBase + 2, kBase + 9),
      Measured("B", "east", 2, Outcome::kPassed, kBase + 3, kBase + 9),
      Measured("C", "east", 4, Outcome::kError, kBase + 6, kBase + 8),
      Measured("", "east", 9, Outcome::kFailed, kNone),
      Measured("D", "we,\"st", 5, Outcome::kAborted, kNone),
      Measured("B", "east", 100, Outcome::kFailed, kBase + 100, kBase)};
  // Not in the order of their times: a station that was cut off stores its runs later.
  for (const std::size_t i : {6U, 1U, 0U, 5U, 2U, 4U, 3U})
    ASSERT_EQ(database->Store(runs[i], nullptr), "");

  Summary summary;
  Filter filter;
  filter.title = "Line";
  ASSERT_EQ(Summarise(Address(), filter, &summary), "");
  // A first failed, then passed; B passed; C and D never finished; one run has no device.
  EXPECT_EQ(SummaryJson(summary),
            R"({"runs":6,"devices":4,"passed":2,"failed":2,"errors":1,"aborted":1,)"
            R"("first_pass_yield":0.5,"final_yield":1.0,"stations":[)"
            R"({"station":"east","runs":4,"first_pass_yield":0.5,"seconds":3.0},)"
            R"({"station":"we,\"st","runs":1,"first_pass_yield":null,"seconds":5.0},)"
            R"({"station":"west","runs":1,"first_pass_yield":1.0,"seconds":3.0}],)"
            R"("steps":[{"phase":"P","step":"Drive","runs":6,"failed":2,"errors":1}],)"
            R"("measurements":[{"phase":"P","step":"Drive","name":"speed","unit":"km/h","count":4,)"
            R"("mean":1000000003.0,"stddev":2.160246899469287,"min":1000000001.0,)"
            R"("max":1000000006.0,"low":null,"high":1000000008.0,"cpk":0.7715167498104595}]})");
  std::ostringstream csv;
  WriteSummaryCsv(summary, csv);
  EXPECT_PRED2(Contains, csv.str(), "\nstation,\"we,\"\"st\",,,,,1,");
  EXPECT_PRED2(Contains, csv.str(), "\nstep,,P,Drive,,,6,,,2,1,");
  std::istringstream rows(csv.str());
  for (std::string row; std::getline(rows, row);) {
    const auto commas = std::count(row.begin(), row.end(), ',');
    EXPECT_EQ(commas, Contains(row, "we,") ? 23 : 22) << row;
  }

  for (const auto& [since, until, count] :
       {std::tuple{"2025-11-23T10:03:00Z", "", 5}, std::tuple{"", "2025-11-23T10:03:00Z", 2},
        std::tuple{"2025-11-23T10:04:00Z", "2025-11-23T10:05:00Z", 1},
        std::tuple{"2030-01-01", "", 0}}) {
    Filter times;
    EXPECT_EQ(ParseMoment(since, &times.since), *since != '\0');
    EXPECT_EQ(ParseMoment(until, &times.until), *until != '\0');
    Summary part;
    ASSERT_EQ(Summarise(Address(), times, &part), "");
    EXPECT_EQ(part.runs, count) << since << ' ' << until;
    EXPECT_EQ(part.steps.size(), count == 0 ? 0U : 1U);
  }

  std::vector<RunRow> rows_of_a;
  Filter device;
  device.device = "A";
  ASSERT_EQ(database->List(device, 10, &rows_of_a), "");
  ASSERT_EQ(rows_of_a.size(), 2U);
  EXPECT_EQ(rows_of_a[0].station, "west") << "the newest first";
  EXPECT_EQ(rows_of_a[1].failed, "P / Drive: ");
}

TEST(RecordFile, AWrongFileIsTold) {
  const support::TempRoot root;
  std::ofstream(root.path() + "/text") << std::string(5000, 'x');
  for (const auto& [path, reason] :
       {std::pair{"/text", "not a database"}, std::pair{"/none/line.db", "unable to open"},
        std::pair{"/", "not a file"}}) {
    std::string problem;
    EXPECT_EQ(Database::Open(root.path() + path, Database::Mode::kWrite, &problem), nullptr);
    EXPECT_PRED2(Contains, problem, reason);
  }
  std::string problem;
  EXPECT_EQ(Database::Open(root.path() + "/missing", Database::Mode::kRead, &problem), nullptr);
  EXPECT_FALSE(std::filesystem::exists(root.path() + "/missing")) << "looking creates nothing";
}

TEST(RecordTimes, AreReadAsAPersonWritesThem) {
  ::setenv("TZ", "UTC-2", 1);
  std::string utc;
  for (const auto& [text, expected] :
       {std::pair{"2026-11-23", "2026-11-22T22:00:00.000Z"},
        std::pair{"2026-11-23 12:30", "2026-11-23T10:30:00.000Z"},
        std::pair{"2026-11-23T12:30:05Z", "2026-11-23T12:30:05.000Z"},
        std::pair{"2026-11-23T12:30:05-01:30", "2026-11-23T14:00:05.000Z"}}) {
    EXPECT_TRUE(ParseMoment(text, &utc)) << text;
    EXPECT_EQ(utc, expected);
  }
  for (const char* text : {"", "23.11.2026", "2026-02-30", "2026-11-23x", "2026-11-23 25:00",
                           "2026-11-23 12:00:00+", "9999-12-31"}) {
    EXPECT_FALSE(ParseMoment(text, &utc)) << text;
  }
  EXPECT_EQ(ZoneText("2026-11-22T23:59:00.000Z", 90), "2026-11-23 01:29:00 +01:30");
}

// `station run --record` against a unit, and what the station tells of it afterwards.
class RecordedRuns : public support::ServiceOnUnit {
 protected:
  RecordedRuns() : ServiceOnUnit(support::WholeUnit()) {
    root_.AddFile("/line.seq",
                  "title Line\ndevice {board}\nvalue board\nvalue uuid\nvalue low = 0\n"
                  "phase Identity\nstep Serial\n  do serial {board}\n"
                  "step UUID\n  do uuid {uuid}\n  verify\n"
                  "phase Position\nstep Speed\n  do gps speed\n  expect speed from {low} to 200\n");
  }

  // Exit status of `station` with these arguments; output and errors in out_.
  int Station(const std::string& line) {
    std::ostringstream out;
    const int status = station::Run(support::Arguments(line), out, out);
    out_ = out.str();
    return status;
  }
  int RunLine(const std::string& board, const std::string& uuid, const std::string& more = "") {
    return Station("run " + root_.path() + "/line.seq --record " + record_ +
                   " --station S1 --set board=" + board + " --set uuid=" + uuid + " " + more);
  }

  const std::string record_ = root_.path() + "/line.db";
  std::string out_;
};

TEST_F(RecordedRuns, KeepWhatAPersonAsksForLater) {
  EXPECT_EQ(RunLine("B1", "U1"), 0) << out_;
  EXPECT_PRED2(Contains, out_, "Recorded as run 1\n");
  EXPECT_EQ(RunLine("B2", "U2", "--set low=100"), 1);

  // The last run failed: its packets and what the service logged meanwhile are there.
  EXPECT_EQ(Station("records --show 2 --record " + record_), 0);
  for (const char* part :
       {"Line, device B2: failed", "station S1, program 1.", "line.seq, CRC-32 ", "value uuid = U2",
        "passed   UUID: uuid U2", "text U2", "failed   Speed: gps speed", "not from 100 to 200",
        " > 09 00 00 00 ", "# gps speed", "_KRV_[CmdWork]-CmdWork for m_cmd=5,m_subCmd= 3\n"}) {
    EXPECT_PRED2(Contains, out_, part);
  }
  EXPECT_EQ(Station("records --show 2 --pcap " + root_.path() + "/run.pcap --record " + record_),
            0);
  std::vector<station::RecordedPacket> packets;
  std::string cut;
  EXPECT_EQ(station::ParseRecording(support::ReadFile(root_.path() + "/run.pcap"), &packets, &cut),
            "");
  EXPECT_EQ(packets.size(), 6U) << "two writes, two questions and their replies";
  // A run that passed has neither.
  EXPECT_EQ(Station("records --show 1 --record " + record_), 0);
  EXPECT_EQ(out_.find("Packets"), std::string::npos);
  EXPECT_EQ(Station("records --show 1 --pcap x --record " + record_), 1);
  EXPECT_EQ(Station("records --show 3 --record " + record_), 1);

  EXPECT_EQ(Station("history B2 --record " + record_), 0);
  EXPECT_PRED2(Contains, out_, "S1  B2  Line\n    Position / Speed: speed is");
  EXPECT_EQ(out_.find("B1"), std::string::npos);
  ::setenv("KORVANDIS_RECORD", record_.c_str(), 1);
  EXPECT_EQ(Station("summary"), 0);
  ::unsetenv("KORVANDIS_RECORD");
  EXPECT_PRED2(Contains, out_, "First-pass yield 50.0 %, final yield 50.0 %, of 2 devices");
  EXPECT_PRED2(Contains, out_, "1       0        2  Position / Speed");
  EXPECT_EQ(Station("summary"), 2) << "no record is named";
  EXPECT_EQ(Station("summary --since yesterday --record " + record_), 2);
  EXPECT_EQ(Station("records --pcap x --record " + record_), 2);
}

TEST_F(RecordedRuns, NoTwoDevicesGetOneIdentity) {
  EXPECT_EQ(RunLine("B1", "U1"), 0) << out_;
  EXPECT_EQ(RunLine("B2", "U1"), 3);
  EXPECT_PRED2(Contains, out_, "uuid 'U1' belongs to device 'B1'");
  EXPECT_EQ(RunLine("B1", "U1"), 0) << "a unit may be tested again: " << out_;
  EXPECT_EQ(RunLine("B2", "U2"), 0) << out_;
  EXPECT_EQ(RunLine("B3", "U2"), 3);
  EXPECT_EQ(Station("uuid"), 0);
  EXPECT_EQ(out_, "U2\n") << "nothing was written for B3";
  EXPECT_EQ(RunLine("B3", "U1", "--allow-duplicate"), 0) << out_;
}

TEST_F(RecordedRuns, ARunThatIsNotStoredIsAnError) {
  std::filesystem::create_directory(record_);
  EXPECT_EQ(RunLine("B1", "U1"), 3);
  EXPECT_PRED2(Contains, out_, "the record cannot be asked whether another device has this serial");
  EXPECT_EQ(RunLine("B1", "U1", "--allow-duplicate"), 3) << "it passed, and is not recorded";
  EXPECT_PRED2(Contains, out_,
               "not recorded: the record " + record_ + ": it is not a file; the run is kept in");
  EXPECT_EQ(RunLine("B1", "U1", "--allow-duplicate --set low=100"), 1);
  std::filesystem::remove(record_);
  EXPECT_EQ(RunLine("B1", "U1"), 0);
  EXPECT_PRED2(Contains, out_, "Recorded as run 4, with 3 that waited\n");
  // Another program has the record locked: the station says so, and a signal ends the wait.
  sqlite3* other = nullptr;
  sqlite3_open(record_.c_str(), &other);
  sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  support::Program waiting(root_, "station",
                           {"run", root_.path() + "/line.seq", "--only", "Position", "--set",
                            "board=B1", "--record", record_});
  EXPECT_TRUE(support::Eventually([&] { return Contains(waiting.Errors(), "waiting for the"); }));
  waiting.Signal(SIGINT);
  EXPECT_EQ(waiting.Wait(support::milliseconds(5000)), 130);
  EXPECT_PRED2(Contains, waiting.Errors(), "had the record locked; the run is kept in");
  sqlite3_close(other);
  // A verdict that cannot be shown is not the unit's fault either.
  std::ofstream full("/dev/full");
  const std::string line = "run " + root_.path() + "/line.seq --only Position --set board=B1";
  EXPECT_EQ(station::Run(support::Arguments(line), full, full), 3);
}

}  // namespace
}  // namespace records
