// Round trip of a version query through the service, beside the same through
// benchmarks/minimal_service.
//
// Usage: round_trip [ROUNDS [QUERIES]]. In each round both programs in turn are started on the same
// unit, asked, and ended. A pair gives one ratio of its medians; the result is the median of the
// pairs.
#include "qnx/slog_ring.h"
#include "setup.h"

namespace {

const double kGoal = 1.25;
const int kWarmUp = 300;  // queries

// The traces of one program that is asked once.
struct Traces {
  setup::Bytes reply;
  std::vector<std::string> log;
  std::string errors;
};

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

Traces AskOnce(const setup::Unit& unit, const std::string& program) {
  Traces traces;
  const std::string errors = unit.root() + "/errors";
  setup::fs::remove(errors);
  {
    const setup::Process process(unit.root(), {program}, "/dev/null", errors);
    unit.WaitForService(true);
    qnx::SlogReader reader;
    if (reader.Open(unit.root() + qnx::kSlogPath) != 0) setup::Fail("no log ring");
    // The log lines of the start may come a moment later than the open device.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    reader.SkipToEnd();
    const std::size_t before = ReadFile(errors).size();
    setup::Station station;
    traces.reply = station.Ask(setup::kVersionQuery);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    qnx::SlogLine line;
    std::uint64_t lost = 0;
    while (reader.Next(&line, &lost) == qnx::SlogReader::Result::kLine) {
      traces.log.push_back(std::to_string(line.severity) + " " + line.text);
    }
    traces.errors = ReadFile(errors).substr(before);
  }
  unit.WaitForService(false);
  return traces;
}

void CheckSameWork(const setup::Unit& unit, const std::string& service,
                   const std::string& minimal) {
  const Traces a = AskOnce(unit, service);
  const Traces b = AskOnce(unit, minimal);
  if (a.reply != b.reply) setup::Fail("the two programs reply differently");
  if (a.errors != b.errors) setup::Fail("the two write different errors:\n" + a.errors + b.errors);
  if (a.log != b.log) {
    for (std::size_t i = 0; i < std::max(a.log.size(), b.log.size()); ++i) {
      std::fprintf(stderr, "%s\n%s\n", i < a.log.size() ? a.log[i].c_str() : "-",
                   i < b.log.size() ? b.log[i].c_str() : "-");
    }
    setup::Fail("the two log different lines");
  }
  wire::Reply reply{};
  if (!wire::ParseReply(a.reply, &reply) || reply.data.empty())
    setup::Fail("the reply is not a version");
  std::fprintf(stderr, "both: a reply of %zu bytes, %zu lines to the ring, %td to standard error\n",
               a.reply.size(), a.log.size(), std::count(a.errors.begin(), a.errors.end(), '\n'));
}

struct Cost {
  double round_trip;  // median, seconds
  double processor;   // a query, seconds, of the program's own threads
};

Cost Measure(const setup::Unit& unit, const std::string& program, long queries) {
  Cost cost{};
  {
    const setup::Process process(unit.root(), {program});
    unit.WaitForService(true);
    setup::Station station;
    for (int i = 0; i < kWarmUp; ++i) station.Ask(setup::kVersionQuery);
    std::vector<double> times;
    const double before = process.ProcessorTime();
    for (long i = 0; i < queries; ++i) {
      const auto start = setup::Clock::now();
      station.Ask(setup::kVersionQuery);
      times.push_back(setup::Seconds(setup::Clock::now() - start));
    }
    cost.processor = (process.ProcessorTime() - before) / static_cast<double>(queries);
    cost.round_trip = setup::Median(std::move(times));
  }
  unit.WaitForService(false);
  return cost;
}

int Run(int argc, char** argv) {
  const long rounds = setup::Argument(argc, argv, 1, 41);
  const long queries = setup::Argument(argc, argv, 2, 1000);
  // Without the services behind the objects, so that no other thread is at work.
  const setup::Unit unit({"--no-services"});
  const std::string service = setup::BinaryPath("korvandis");
  const std::string minimal =
      (setup::fs::read_symlink("/proc/self/exe").parent_path() / "minimal_service").string();
  CheckSameWork(unit, service, minimal);

  std::vector<double> ratios, processor_ratios, ours, theirs;
  for (long i = 0; i < rounds; ++i) {
    const Cost a = Measure(unit, service, queries);
    const Cost b = Measure(unit, minimal, queries);
    ratios.push_back(a.round_trip / b.round_trip);
    processor_ratios.push_back(a.processor / b.processor);
    ours.push_back(a.round_trip);
    theirs.push_back(b.round_trip);
  }
  const auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
  std::fprintf(stderr, "service %.1f us, minimal %.1f us; %ld pairs, ratios from %.2f to %.2f\n",
               setup::Median(ours) * 1e6, setup::Median(theirs) * 1e6, rounds, *least, *most);
  const double ratio = setup::Median(ratios);
  setup::Row("round trip of a version query / minimal program", setup::Number(ratio, 2),
             "at most 1.25", ratio <= kGoal);
  setup::Row("processor time of the service for it / minimal program's",
             setup::Number(setup::Median(processor_ratios), 2), "", true);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
