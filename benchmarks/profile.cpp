#include "profile.h"

#include <cctype>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "setup.h"

namespace setup {
namespace {

// So many callers are told of each of these, enough to meet the room that wants it.
const char kTold[] = "12";
const char* const kAllocators[] = {"malloc", "calloc", "realloc"};
// Without system call, but under valgrind, which has no vDSO.
const char* const kClocks[] = {"clock_gettime", "__clock_gettime"};

enum class Room { kShips, kBench, kOther };

Room RoomOf(const std::string& file) {
  static const std::string kShipped[] = {"service/", "framework/", "commands/", "i2c/",
                                         "gps/",     "wire/",      "platform/"};
  // As the compiler was given it: absolute, or relative to the build directory.
  const std::string root = std::string(KORVANDIS_SOURCE_DIR) + "/";
  const std::size_t up = file.rfind("../");
  std::size_t begin = 0;
  if (up != std::string::npos) {
    begin = up + 3;
  } else if (file.compare(0, root.size(), root) == 0) {
    begin = root.size();
  }
  if (file.compare(begin, 10, "bench/qnx/") == 0) return Room::kBench;
  for (const std::string& room : kShipped) {
    if (file.compare(begin, room.size(), room) == 0) return Room::kShips;
  }
  return Room::kOther;
}

// "name=(12) text" gives a text its number, "name=(12)" is the text of that number.
std::string Named(const std::string& line, std::map<std::string, std::string>* names) {
  const std::size_t open = line.find('=') + 1;
  const std::size_t close = line.find(')', open);
  if (line[open] != '(' || close == std::string::npos) return line.substr(open);
  std::string& name = (*names)[line.substr(open, close - open)];
  if (close + 2 < line.size()) name = line.substr(close + 2);
  return name;
}

// The numbers of a cost line behind its position: instructions and system calls.
Cost Costs(const std::string& line) {
  std::istringstream words(line);
  std::string position;
  Cost cost;
  words >> position >> cost.instructions >> cost.calls;
  return cost;
}

bool StartsWith(const std::string& text, const char* start) { return text.rfind(start, 0) == 0; }

template <std::size_t Count>
bool IsOneOf(const std::string& name, const char* const (&names)[Count]) {
  return std::find(names, names + Count, name) != names + Count;
}

struct Call {
  std::string from, to;
  double count;
  Cost inclusive;
};

}  // namespace

Cost& Cost::operator+=(const Cost& other) {
  instructions += other.instructions;
  allocations += other.allocations;
  calls += other.calls;
  return *this;
}

Cost& Cost::operator-=(const Cost& other) {
  instructions -= other.instructions;
  allocations -= other.allocations;
  calls -= other.calls;
  return *this;
}

Cost Cost::operator/(double divisor) const {
  Cost cost;
  cost.instructions = instructions / divisor;
  cost.allocations = allocations / divisor;
  cost.calls = calls / divisor;
  return cost;
}

std::string ProfileOptions(const std::string& file, const std::string& marker) {
  std::string options =
      "--tool=callgrind\n--quiet\n--collect-systime=yes\n--callgrind-out-file=" + file +
      "\n--dump-before=" + marker;
  const auto tell_callers = [&options](const char* function) {
    options += std::string("\n--separate-callers") + kTold + "=" + function;
  };
  for (const char* const function : kAllocators) tell_callers(function);
  for (const char* const function : kClocks) tell_callers(function);
  return options;
}

Split ReadProfile(const std::string& file) {
  std::ifstream input(file);
  if (!input) Fail("no profile " + file);
  std::map<std::string, std::string> files, functions;  // by number
  std::map<std::string, Room> rooms;                    // of a function without its callers
  std::vector<Call> calls;
  std::string current_file, current;
  Split split;
  const auto plain = [](const std::string& function) {
    return function.substr(0, function.find('\''));
  };
  for (std::string line; std::getline(input, line);) {
    if (StartsWith(line, "fl=")) {
      current_file = Named(line, &files);
    } else if (StartsWith(line, "fi=") || StartsWith(line, "fe=") || StartsWith(line, "cfi=") ||
               StartsWith(line, "cfl=") || StartsWith(line, "ob=") || StartsWith(line, "cob=")) {
      if (line.find("ob=") == std::string::npos) Named(line, &files);
    } else if (StartsWith(line, "fn=")) {
      current = plain(Named(line, &functions));
      rooms[current] = RoomOf(current_file);
    } else if (StartsWith(line, "cfn=")) {
      calls.push_back({current, Named(line, &functions), 0, {}});
    } else if (StartsWith(line, "calls=")) {
      calls.back().count = std::strtod(line.c_str() + 6, nullptr);
      std::getline(input, line);
      calls.back().inclusive = Costs(line);
    } else if (!line.empty() && (std::isdigit(static_cast<unsigned char>(line[0])) != 0 ||
                                 line[0] == '+' || line[0] == '-' || line[0] == '*')) {
      split.ships += Costs(line);
    }
  }
  bool known = false;
  for (const Call& call : calls) {
    known = known || rooms[call.from] == Room::kShips;
    if (rooms[call.from] == Room::kShips && rooms[plain(call.to)] == Room::kBench) {
      split.bench += call.inclusive;
      split.ships -= call.inclusive;
    }
    const bool allocates = IsOneOf(plain(call.to), kAllocators);
    if (!allocates && !IsOneOf(plain(call.to), kClocks)) continue;
    bool wanted_by_bench = rooms[call.from] == Room::kBench;
    std::istringstream callers(call.to);
    for (std::string caller; std::getline(callers, caller, '\'');) {
      wanted_by_bench = wanted_by_bench || rooms[caller] == Room::kBench;
    }
    Cost& cost = wanted_by_bench ? split.bench : split.ships;
    if (allocates) {
      cost.allocations += call.count;
    } else {
      cost.calls -= call.count;
    }
  }
  if (!known) Fail("the program under test has no debug information");
  return split;
}

}  // namespace setup
