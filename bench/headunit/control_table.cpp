#include "control_table.h"

#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <sstream>
#include <vector>

#include "profile.h"
#include "qnx/text.h"

namespace headunit {
namespace {

const std::size_t kLongestLine = 4096;
const char kPpsPrefix[] = "/pps/";
const char kPositioning[] = "gps";  // first word of the lines that need the service
const long kLargestErrno = 4095;
const long kLongestFixPeriod = 3600 * 1000;  // milliseconds

using Words = std::vector<std::string>;
using Parts = ControlledParts;

std::string Ok(const std::string& text = "") { return text.empty() ? "ok" : "ok " + text; }
std::string Error(const std::string& reason) { return "error " + reason; }
std::string Result(const std::string& failure) { return failure.empty() ? Ok() : Error(failure); }

std::string Pair(const char* key, std::uint64_t value) {
  return std::string(key) + " " + std::to_string(value);
}

// Calls act(number) when the whole of `text` is a number from `least` to `most`.
template <typename Act>
std::string WithNumber(const std::string& text, int base, long least, long most, Act act) {
  long value = 0;
  if (!qnx::ParseNumber(text, least, most, &value, base)) {
    return Error("'" + text + "' is not a number from " + std::to_string(least) + " to " +
                 std::to_string(most));
  }
  act(value);
  return Ok();
}

// Calls act(count) for a count of requests.
template <typename Act>
std::string WithCount(const std::string& text, Act act) {
  return WithNumber(text, 10, 0, INT_MAX,
                    [&](long count) { act(static_cast<std::uint32_t>(count)); });
}

std::string ShowStatus(const Parts& parts) {
  const LinkCounters& link = parts.stations->counters();
  const std::string pairs[] = {
      Pair("service", parts.mcu->open_files() > 0 ? 1 : 0),
      Pair("services", parts.mcu->open_files()),
      Pair("stations", parts.stations->stations()),
      Pair("monitors", parts.stations->monitors()),
      Pair("to-service", link.to_service),
      Pair("from-service", link.from_service),
      Pair("dropped", link.dropped),
      Pair("unasked", link.unasked),
      Pair("objects", parts.pps->tree().objects()),
      Pair("pps-files", parts.pps->open_files()),
      Pair("mcu", parts.mcu->bound() ? 1 : 0),
      Pair("pps", parts.pps->bound() ? 1 : 0),
  };
  std::string text;
  for (const std::string& pair : pairs) text += (text.empty() ? "" : " ") + pair;
  return Ok(text);
}

// Freed queues of slow clients stay with the process where blocks in use hold their pages, so the
// memory of the process alone does not show a leak. The bytes in use do.
std::string ShowMemory() {
  malloc_trim(0);
  const struct mallinfo2 heap = mallinfo2();
  return Ok(Pair("heap", heap.uordblks + heap.hblkhd));
}

std::string SlowDown(PpsManager* pps, std::string path, const std::string& milliseconds) {
  const std::size_t prefix = std::strlen(kPpsPrefix);
  if (path.compare(0, prefix, kPpsPrefix) == 0) path.erase(0, prefix - 1);
  return WithNumber(milliseconds, 10, 0, INT_MAX,
                    [&](long delay) { pps->SetDelay(path, std::chrono::milliseconds(delay)); });
}

std::string SetIdentity(I2cBus* i2c, const Words& words) {
  I2cBus::Identity identity;
  for (std::size_t i = 0; i < identity.size(); ++i) {
    const std::string wrong = WithNumber(words[i], 16, 0, UCHAR_MAX, [&](long byte) {
      identity[i] = static_cast<std::uint8_t>(byte);
    });
    if (wrong != Ok()) return Error("'" + words[i] + "' is not a hexadecimal byte");
  }
  i2c->SetIdentity(identity);
  return Ok();
}

std::string ShowI2cCounters(const I2cBus& i2c) {
  const I2cCounters& counters = i2c.counters();
  return Ok(Pair("speeds", counters.speeds) + " " + Pair("sends", counters.sends) + " " +
            Pair("receives", counters.receives) + " " + Pair("transfers", counters.transfers) +
            " " + Pair("speed", i2c.speed()));
}

// A row does what `words` (its name) and their arguments say and returns an answer.
struct Row {
  const char* words;      // one or two, separated by a blank
  const char* arguments;  // as the help shows them
  std::size_t least;      // number of arguments
  std::size_t most;
  const char* help;
  std::string (*act)(const Parts& parts, const Words& arguments);
};

std::string ShowHelp(const std::string& group);

// One row a line; arguments are counted before the row acts.
const Row kRows[] = {
    {"help", "", 0, 0, "this list; 'i2c help' shows only the lines of i2c",
     [](const Parts&, const Words&) { return ShowHelp(""); }},
    {"status", "", 0, 0, "who is connected, and the counters",
     [](const Parts& unit, const Words&) { return ShowStatus(unit); }},
    {"ready", "", 0, 0, "whether the service that the unit starts is connected",
     [](const Parts& unit, const Words&) {
       const bool ready = !unit.starts_service || unit.mcu->open_files() > 0;
       return ready ? Ok() : Error("the service is not connected");
     }},
    {"memory", "", 0, 0, "give free memory back to the host, and tell the bytes in use",
     [](const Parts&, const Words&) { return ShowMemory(); }},
    {"save", "DIR", 1, 1, "write all objects as a profile",
     [](const Parts& unit, const Words& words) {
       return Result(SaveObjects(unit.pps->tree(), words[0]));
     }},
    {"mcu down", "", 0, 0, "take the MCU device away",
     [](const Parts& unit, const Words&) {
       unit.mcu->Close();
       return Ok();
     }},
    {"mcu up", "", 0, 0, "bring it back",
     [](const Parts& unit, const Words&) { return Result(unit.mcu->Bind()); }},
    {"pps down", "", 0, 0, "take the PPS manager away, with its objects",
     [](const Parts& unit, const Words&) {
       unit.pps->Close();
       return Ok();
     }},
    {"pps up", "", 0, 0, "bring it back, and end every other fault of it",
     [](const Parts& unit, const Words&) {
       unit.pps->ClearFaults();
       return Result(unit.pps->Bind());
     }},
    {"pps stall", "", 0, 0, "accept requests, answer none",
     [](const Parts& unit, const Words&) {
       unit.pps->SetStalled(true);
       return Ok();
     }},
    {"pps unstall", "", 0, 0, "answer again",
     [](const Parts& unit, const Words&) {
       unit.pps->SetStalled(false);
       unit.pps->SetMute(false);
       return Ok();
     }},
    {"pps stall-after-open", "", 0, 0, "grant opens, send no text",
     [](const Parts& unit, const Words&) {
       unit.pps->SetMute(true);
       return Ok();
     }},
    {"pps slow", "PATH MS", 2, 2, "hold back the answers for an object; 0 ends it",
     [](const Parts& unit, const Words& words) { return SlowDown(unit.pps, words[0], words[1]); }},
    {"i2c fail-send", "N", 1, 1, "the next N sends fail",
     [](const Parts& unit, const Words& words) {
       return WithCount(words[0], [&](std::uint32_t count) { unit.i2c->FailSends(count); });
     }},
    {"i2c fail-recv", "N", 1, 1, "the next N receives fail",
     [](const Parts& unit, const Words& words) {
       return WithCount(words[0], [&](std::uint32_t count) { unit.i2c->FailReceives(count); });
     }},
    {"i2c speed", "refuse|accept", 1, 1, "refuse or accept a bus speed",
     [](const Parts& unit, const Words& words) {
       const bool refuse = words[0] == "refuse";
       if (!refuse && words[0] != "accept") return Error("usage: i2c speed refuse|accept");
       unit.i2c->SetSpeedRefused(refuse);
       return Ok();
     }},
    {"i2c identity", "HH HH HH HH", 4, 4, "the chip's identity",
     [](const Parts& unit, const Words& words) { return SetIdentity(unit.i2c, words); }},
    {"i2c absent", "", 0, 0, "the bus device cannot be opened",
     [](const Parts& unit, const Words&) {
       unit.i2c->SetAbsent(true);
       return Ok();
     }},
    {"i2c present", "", 0, 0, "it can again",
     [](const Parts& unit, const Words&) {
       unit.i2c->SetAbsent(false);
       return Ok();
     }},
    {"i2c counters", "", 0, 0, "requests since the last reset",
     [](const Parts& unit, const Words&) { return ShowI2cCounters(*unit.i2c); }},
    {"i2c log", "", 0, 0, "the last transfers",
     [](const Parts& unit, const Words&) { return Ok(unit.i2c->Transfers()); }},
    {"i2c reset", "", 0, 0, "no fault, the chip as it was, counters at zero",
     [](const Parts& unit, const Words&) {
       unit.i2c->Reset();
       return Ok();
     }},
    {"sysinfo fail", "[ERRNO]", 0, 1, "every request fails",
     [](const Parts& unit, const Words& words) {
       return WithNumber(words.empty() ? std::to_string(EIO) : words[0], 10, 1, kLargestErrno,
                         [&](long error) { unit.sysinfo->SetFault(static_cast<int>(error)); });
     }},
    {"sysinfo ok", "", 0, 0, "none fails, lengths as burnt in",
     [](const Parts& unit, const Words&) {
       unit.sysinfo->SetFault(0);
       unit.sysinfo->ClearLength();
       return Ok();
     }},
    {"sysinfo show", "", 0, 0, "what is burnt in",
     [](const Parts& unit, const Words&) { return Ok(unit.sysinfo->Describe()); }},
    {"sysinfo length", "N", 1, 1, "the length that reads report",
     [](const Parts& unit, const Words& words) {
       return WithNumber(words[0], 10, INT_MIN, INT_MAX, [&](long length) {
         unit.sysinfo->SetLength(static_cast<std::int32_t>(length));
       });
     }},
    {"gps suspend", "[once]", 0, 1, "suspend positioning: until resumed, or until asked again",
     [](const Parts& unit, const Words& words) {
       if (!words.empty() && words[0] != "once") return Error("usage: gps suspend [once]");
       unit.positioning->Suspend(!words.empty());
       return Ok();
     }},
    {"gps resume", "", 0, 0, "serve the clients that asked",
     [](const Parts& unit, const Words&) {
       unit.positioning->Resume();
       return Ok();
     }},
    {"gps rate", "MS", 1, 1, "a fix every MS instead of the period asked for; 0 ends it",
     [](const Parts& unit, const Words& words) {
       return WithNumber(words[0], 10, 0, kLongestFixPeriod, [&](long period) {
         unit.positioning->SetRate(std::chrono::milliseconds(period));
       });
     }},
    {"gps lose", "", 0, 0, "no satellite is seen",
     [](const Parts& unit, const Words&) {
       unit.positioning->SetLost(true);
       return Ok();
     }},
    {"gps find", "", 0, 0, "they are seen again",
     [](const Parts& unit, const Words&) {
       unit.positioning->SetLost(false);
       return Ok();
     }},
};

// The lines that begin with the word `group`, or all. An error when there are none.
std::string ShowHelp(const std::string& group) {
  static const std::size_t kHelpColumn = 28;
  const std::string beginning = group.empty() ? "" : group + " ";
  std::string text;
  for (const Row& row : kRows) {
    if (std::string(row.words).compare(0, beginning.size(), beginning) != 0) continue;
    std::string usage = std::string(row.words) + " " + row.arguments;
    usage.resize(std::max(usage.size() + 1, kHelpColumn), ' ');
    text += (text.empty() ? "" : "\n") + usage + row.help;
  }
  return text.empty() ? Error("no line begins with '" + group + "'; try 'help'") : Ok(text);
}

}  // namespace

std::string ControlTable::Run(const std::string& line) {
  if (line.size() > kLongestLine) return Error("the line is too long");
  if (line.find('\0') != std::string::npos) return Error("the line holds a zero byte");
  std::istringstream stream(line);
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);
  if (words.empty()) return Error("no words; try 'help'");
  if (words.size() == 2 && words[1] == "help") return ShowHelp(words[0]);

  for (const Row& row : kRows) {
    const std::size_t name_words = std::strchr(row.words, ' ') != nullptr ? 2 : 1;
    if (words.size() < name_words) continue;
    const std::string name = name_words == 2 ? words[0] + " " + words[1] : words[0];
    if (name != row.words) continue;
    if (words[0] == kPositioning && parts_.positioning == nullptr) {
      return Error("no positioning service runs");
    }
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(name_words));
    if (words.size() < row.least || words.size() > row.most) {
      return Error("usage: " + name + (*row.arguments == '\0' ? "" : " ") + row.arguments);
    }
    return row.act(parts_, words);
  }
  return Error("unknown: '" + line + "'; try 'help'");
}

}  // namespace headunit
