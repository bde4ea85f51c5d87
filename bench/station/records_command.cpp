// `station records`, `station history` and `station summary`.

#include <fstream>

#include "builtin.h"
#include "qnx/text.h"
#include "records/database.h"
#include "records/summary.h"
#include "run_keeper.h"
#include "station/packet_text.h"
#include "station/progress.h"
#include "station/recording.h"
#include "tools/program.h"

namespace station {
namespace {

const long kMostRuns = 20;
const long kMostHistory = 100000;

// Takes the runs that the options select. Returns what is wrong with them, or nothing.
std::string TakeFilter(const Context& context, records::Filter* filter) {
  const Invocation& invocation = context.invocation;
  if (RecordAddress(context.invocation).empty())
    return "--record DB is missing, and KORVANDIS_RECORD is not set";
  filter->title = invocation.Get("--title");
  filter->station = invocation.Get("--station");
  filter->device = invocation.Get("--device");
  for (const auto& [option, time] :
       {std::pair{"--since", &filter->since}, std::pair{"--until", &filter->until}}) {
    if (invocation.Has(option) && !records::ParseMoment(invocation.Get(option), time)) {
      return std::string(option) + " needs a time such as 2026-11-23 or '2026-11-23 06:00', not " +
             qnx::Quoted(invocation.Get(option));
    }
  }
  return "";
}

std::string Seconds(double seconds, int places = 1) {
  return qnx::Formatted("%.*f s", places, seconds);
}

const std::size_t kVerdictWidth = 8;

std::string Verdict(const Context& context, records::Outcome outcome,
                    std::size_t width = kVerdictWidth) {
  std::string text = records::OutcomeText(outcome);
  text.resize(std::max(text.size(), width), ' ');
  return Coloured(ConsoleOf(context.out), outcome, text);
}

void PrintRow(Context& context, const records::RunRow& run) {
  context.out << run.number << "  " << Verdict(context, records::ParseOutcome(run.outcome)) << ' '
              << records::ZoneText(run.started, run.zone_minutes) << "  " << Seconds(run.seconds)
              << "  " << qnx::Escape(run.station) << "  "
              << (run.device.empty() ? "-" : qnx::Escape(run.device)) << "  "
              << qnx::Escape(run.title) << '\n';
  for (const std::string& line : qnx::Lines(run.failed)) {
    context.out << "    " << qnx::Escape(line) << '\n';
  }
}

int List(Context& context, const records::Filter& filter, long most) {
  std::string problem;
  const auto database = records::Database::Open(RecordAddress(context.invocation),
                                                records::Database::Mode::kRead, &problem);
  std::vector<records::RunRow> rows;
  if (database != nullptr) problem = database->List(filter, static_cast<std::size_t>(most), &rows);
  if (!problem.empty()) return Complain(context, problem);
  for (const records::RunRow& row : rows) PrintRow(context, row);
  if (!rows.empty()) return tools::kExitRight;
  return Complain(context, "no run is recorded that fits");
}

void ShowStep(Context& context, const records::Step& step) {
  context.out << "  " << Verdict(context, step.outcome) << ' ' << qnx::Escape(step.name);
  if (!step.command.empty()) context.out << ": " << qnx::Escape(step.command);
  if (step.outcome != records::Outcome::kSkipped) {
    context.out << ", " << Seconds(step.seconds, 3);
    if (step.attempts > 1) context.out << ", " << step.attempts << " attempts";
  }
  context.out << '\n';
  if (!step.problem.empty()) context.out << "             " << qnx::Escape(step.problem) << '\n';
  for (const records::Measurement& measurement : step.measurements) {
    context.out << "             " << qnx::Escape(measurement.name) << ' '
                << qnx::Escape(measurement.text) << (measurement.unit.empty() ? "" : " ")
                << qnx::Escape(measurement.unit);
    if (!measurement.expected.empty()) {
      context.out << ", expected " << qnx::Escape(measurement.expected);
    }
    context.out << '\n';
  }
}

std::uint64_t Nanoseconds(records::Time time) {
  return static_cast<std::uint64_t>(records::Nanoseconds(time));
}

qnx::Direction DirectionOf(const records::Packet& packet) {
  return packet.from_service ? qnx::Direction::kFromService : qnx::Direction::kToService;
}

void Show(Context& context, const records::Run& run) {
  context.out << qnx::Escape(run.title) << ", device "
              << (run.device.empty() ? "-" : qnx::Escape(run.device)) << ": "
              << Verdict(context, run.outcome, 0) << "\nrun " << run.id << "\nbegan "
              << records::ZoneText(records::UtcText(run.start), run.zone_minutes) << ", took "
              << Seconds(run.seconds, 3) << "\nstation " << qnx::Escape(run.station) << ", program "
              << qnx::Escape(run.program) << "\nsequence " << qnx::Escape(run.sequence)
              << ", CRC-32 " << qnx::Formatted("%08X", run.sequence_crc) << '\n';
  for (const auto& [name, value] : run.values) {
    context.out << "value " << qnx::Escape(name) << " = " << qnx::Escape(value) << '\n';
  }
  for (const records::Phase& phase : run.phases) {
    context.out << '\n' << qnx::Escape(phase.name) << '\n';
    for (const records::Step& step : phase.steps) ShowStep(context, step);
  }
  if (!run.packets.empty()) context.out << "\nPackets\n";
  for (const records::Packet& packet : run.packets) {
    context.out << "  " << tools::ClockTime(Nanoseconds(packet.time))
                << (packet.from_service ? " < " : " > ") << Hex(packet.bytes) << "  # "
                << DescribePacket(DirectionOf(packet), packet.bytes) << '\n';
  }
  if (!run.log.empty()) context.out << "\nLog of the unit\n";
  for (const records::LogLine& line : run.log) {
    const std::string text = line.text.substr(0, line.text.find_last_not_of(" \n") + 1);
    context.out << "  " << tools::ClockTime(Nanoseconds(line.time)) << "  " << line.severity << "  "
                << qnx::Escape(text) << '\n';
  }
}

int WritePcap(Context& context, const records::Run& run, const std::string& path) {
  if (run.packets.empty()) return Complain(context, "the record has no packets of this run");
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << RecordingHead(RecordingFormat::kPcap);
  for (const records::Packet& packet : run.packets) {
    file << RecordingEntry(
        RecordingFormat::kPcap,
        RecordedPacket{Nanoseconds(packet.time), DirectionOf(packet), packet.bytes});
  }
  file.close();
  if (!file.good()) return Complain(context, qnx::Quoted(path) + " cannot be written");
  context.out << run.packets.size() << " packets in " << qnx::Escape(path) << '\n';
  return tools::kExitRight;
}

}  // namespace

int RunRecords(Context& context) {
  const Invocation& invocation = context.invocation;
  records::Filter filter;
  const std::string wrong = TakeFilter(context, &filter);
  if (!wrong.empty()) return UsageError(context, wrong);
  long most = kMostRuns;
  if (invocation.Has("--most") &&
      !qnx::ParseNumber(invocation.Get("--most"), 1, kMostHistory, &most)) {
    return UsageError(context, "--most needs a number of runs");
  }
  if (!invocation.Has("--show")) {
    if (invocation.Has("--pcap")) return UsageError(context, "--pcap needs --show RUN");
    return List(context, filter, most);
  }
  std::string problem;
  const auto database = records::Database::Open(RecordAddress(context.invocation),
                                                records::Database::Mode::kRead, &problem);
  if (database == nullptr) return Complain(context, problem);
  records::Run run;
  if (!database->Load(invocation.Get("--show"), &run, &problem)) {
    if (problem.empty()) problem = "there is no run " + qnx::Quoted(invocation.Get("--show"));
    return Complain(context, problem);
  }
  if (invocation.Has("--pcap")) return WritePcap(context, run, invocation.Get("--pcap"));
  Show(context, run);
  return tools::kExitRight;
}

int RunHistory(Context& context) {
  records::Filter filter;
  const std::string wrong = TakeFilter(context, &filter);
  if (!wrong.empty()) return UsageError(context, wrong);
  filter.device = context.invocation.arguments[0];
  return List(context, filter, kMostHistory);
}

int RunSummary(Context& context) {
  const Invocation& invocation = context.invocation;
  records::Filter filter;
  const std::string wrong = TakeFilter(context, &filter);
  if (!wrong.empty()) return UsageError(context, wrong);
  if (invocation.Has("--json") && invocation.Has("--csv")) {
    return UsageError(context, "--json and --csv exclude each other");
  }
  records::Summary summary;
  std::string problem = records::Summarise(RecordAddress(context.invocation), filter, &summary);
  if (!problem.empty()) return Complain(context, problem);
  if (invocation.Has("--html")) {
    const std::string path = invocation.Get("--html");
    std::ofstream file(path, std::ios::trunc);
    problem = records::WriteSummaryPage(RecordAddress(context.invocation), filter, summary, file);
    file.close();
    if (problem.empty() && !file.good()) problem = qnx::Quoted(path) + " cannot be written";
    if (!problem.empty()) return Complain(context, problem);
  }
  if (invocation.Has("--json")) {
    context.out << records::SummaryJson(summary) << '\n';
  } else if (invocation.Has("--csv")) {
    records::WriteSummaryCsv(summary, context.out);
  } else if (!invocation.Has("--html")) {
    records::WriteSummaryText(summary, ConsoleOf(context.out).colour, context.out);
  }
  return tools::kExitRight;
}

}  // namespace station
