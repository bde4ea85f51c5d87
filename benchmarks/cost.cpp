// The cost of one request of each sub-command in the steady state, in counts, which do not depend
// on how busy the machine is: instructions, heap allocations and system calls, as callgrind sees
// them.
//
// Usage: cost [--update]. Prints the table on standard error and compares it with cost.expected,
// beside this file: exit status 1 when what ships allocates more, makes more system calls or takes
// 5 % more instructions, or when a row is missing. --update instead writes into cost.expected the
// rows that are dearer or missing, and takes out those that are no longer measured.
#include <map>
#include <memory>
#include <sstream>

#include "profile.h"
#include "requests.h"
#include "setup.h"

namespace {

const int kWarmUp = 3;
const int kRequests = 8;
const double kMoreInstructions = 1.05;
const double kRounding = 0.05;  // of the counts, which are shown with one digit

// Opens and closes a window: it does nothing, and nothing else enters this function.
const setup::Bytes kMarker = wire::BuildRequest(setup::kKeyCommand, 0, {});
const char kMarkerFunction[] = "CmdKey::Work(pkg*)";

struct Row {
  std::string key;  // command and sub-command
  std::string words;
  setup::Bytes request;
  setup::Split split;
};

// The first row of the table for each sub-command.
std::vector<Row> Rows() {
  std::vector<Row> rows;
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    const wire::CommandSpec& spec = wire::kCommands[i];
    const std::string key = std::to_string(spec.command) + "/" + std::to_string(spec.sub_command);
    if (spec.command == setup::kKeyCommand) continue;
    if (std::any_of(rows.begin(), rows.end(), [&](const Row& row) { return row.key == key; })) {
      continue;
    }
    rows.push_back({key, spec.words, setup::RequestOf(spec, 1), {}});
  }
  return rows;
}

class Measurement {
 public:
  Measurement() : profile_(unit_.root() + "/profile"), service_(unit_.root(), Words()) {
    unit_.WaitForService(true);
    station_ = std::make_unique<setup::Station>();
  }

  void Run(std::vector<Row>* rows) {
    Window({});
    for (const Row& row : *rows) Window(row.request);
    service_.Terminate();
    const setup::Split marker = Read(0);
    for (std::size_t i = 0; i < rows->size(); ++i) {
      setup::Split& split = (*rows)[i].split;
      split = Read(i + 1);
      split.ships -= marker.ships;
      split.bench -= marker.bench;
      split = {split.ships / kRequests, split.bench / kRequests};
    }
  }

 private:
  std::vector<std::string> Words() const {
    std::vector<std::string> words = {"valgrind"};
    std::istringstream options(setup::ProfileOptions(profile_, kMarkerFunction));
    for (std::string option; std::getline(options, option);) words.push_back(option);
    words.push_back(setup::BinaryPath("korvandis"));
    return words;
  }

  // Two dumps: the second has `kRequests` times `request` and one marker.
  void Window(const setup::Bytes& request) {
    for (int i = 0; i < kWarmUp && !request.empty(); ++i) station_->Send(request);
    station_->Settle();
    station_->Send(kMarker);
    for (int i = 0; i < kRequests && !request.empty(); ++i) station_->Send(request);
    station_->Send(kMarker);
    station_->Settle();
  }

  setup::Split Read(std::size_t window) const {
    return setup::ReadProfile(profile_ + "." + std::to_string(2 * window + 2));
  }

  const setup::Unit unit_{{"--no-services"}};
  const std::string profile_;
  setup::Process service_;
  std::unique_ptr<setup::Station> station_;
};

std::string Line(const Row& row) {
  const setup::Cost& a = row.split.ships;
  const setup::Cost& b = row.split.bench;
  return qnx::Formatted("%-6s %-24s %8.0f %5.1f %5.1f %10.0f %5.1f %5.1f", row.key.c_str(),
                        row.words.c_str(), a.instructions, a.allocations, a.calls, b.instructions,
                        b.allocations, b.calls);
}

const char kHead[] =
    "# One request in the steady state: instructions, heap allocations and system calls of what\n"
    "# ships, and of bench/qnx in its place here. `benchmarks/run cost --update` writes this "
    "file.\n"
    "#                                    what ships              bench/qnx\n";

// The three figures of what ships in a line of the table.
setup::Cost Allowed(const std::string& line) {
  setup::Cost cost;
  if (line.size() > 31) {
    std::istringstream(line.substr(31)) >> cost.instructions >> cost.allocations >> cost.calls;
  }
  return cost;
}

// The lines of the table in `file`, by the keys of their rows.
std::map<std::string, std::string> ReadTable(const std::string& file) {
  std::map<std::string, std::string> table;
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    if (line[0] != '#') table[line.substr(0, line.find(' '))] = line;
  }
  return table;
}

// Why a row does not keep to its line, which is empty when there is none; null when it does.
const char* WhyDearer(const Row& row, const std::string& line) {
  const setup::Cost& cost = row.split.ships;
  const setup::Cost allowed = Allowed(line);
  if (line.empty()) return "is not in the table";
  if (cost.instructions > allowed.instructions * kMoreInstructions) {
    return "takes over 5 % more instructions";
  }
  if (cost.allocations > allowed.allocations + kRounding) return "allocates more";
  if (cost.calls > allowed.calls + kRounding) return "makes more system calls";
  return nullptr;
}

// Says what is dearer than in the table; true when nothing is.
bool Compare(const std::vector<Row>& rows, std::map<std::string, std::string> table) {
  bool cheap = true;
  for (const Row& row : rows) {
    const char* const reason = WhyDearer(row, table[row.key]);
    if (reason == nullptr) continue;
    cheap = false;
    std::fprintf(stderr, "%s (%s) %s; if it is meant: benchmarks/run cost --update\n",
                 row.key.c_str(), row.words.c_str(), reason);
  }
  return cheap;
}

int Run(int argc, char** argv) {
  const std::string expected = std::string(KORVANDIS_SOURCE_DIR) + "/benchmarks/cost.expected";
  const bool update = argc == 2 && argv[1] == std::string("--update");
  if (argc > 1 && !update) setup::Fail("usage: cost [--update]");
  std::vector<Row> rows = Rows();
  Measurement().Run(&rows);
  std::map<std::string, std::string> before = ReadTable(expected);
  std::string table = kHead;
  std::string updated = kHead;
  for (const Row& row : rows) {
    table += Line(row) + "\n";
    const std::string& line = before[row.key];
    updated += (WhyDearer(row, line) == nullptr ? line : Line(row)) + "\n";
  }
  std::fputs(table.c_str(), stderr);
  if (update) {
    std::ofstream(expected) << updated;
    return 0;
  }
  const bool cheap = Compare(rows, before);
  setup::Row("cost of each request / `benchmarks/cost.expected`", cheap ? "as before" : "more",
             "no call, no allocation, no 5 % more", cheap);
  return cheap ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
