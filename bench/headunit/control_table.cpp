#include "control_table.h"

#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "profile.h"

namespace headunit {
namespace {

const std::size_t kLongestLine = 4096;
const std::size_t kLongestQueue = 1 << 20;  // answers to somebody who asks and never reads
const char kPpsPrefix[] = "/pps";
const char kPositioning[] = "gps";  // first word of the lines that need the service
const char kOk[] = "ok";

std::string Ok(const std::string& text) { return text.empty() ? kOk : "ok " + text; }
std::string Error(const std::string& reason) { return "error " + reason; }
std::string Result(const std::string& failure) { return failure.empty() ? kOk : Error(failure); }

// The whole of `text` as a number from `least` to `most`.
bool ParseNumber(const std::string& text, int base, long least, long most, long* number) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, base);
  if (text.empty() || *end != '\0' || errno != 0 || value < least || value > most) return false;
  *number = value;
  return true;
}

std::string NotANumber(const std::string& text, long least, long most) {
  return Error("'" + text + "' is no number from " + std::to_string(least) + " to " +
               std::to_string(most));
}

std::string Pair(const char* key, std::uint64_t value) {
  return std::string(key) + " " + std::to_string(value);
}

}  // namespace

// One row a line; arguments are counted before the row acts.
const ControlTable::Row ControlTable::kRows[] = {
    {"help", "", 0, 0, "this list", &ControlTable::Help},
    {"status", "", 0, 0, "who is connected, and the counters", &ControlTable::Status},
    {"memory", "", 0, 0, "give free memory back to the host, and tell the bytes in use",
     &ControlTable::Memory},
    {"save", "DIR", 1, 1, "write all objects as a profile", &ControlTable::Save},
    {"mcu down", "", 0, 0, "take the MCU device away", &ControlTable::McuDown},
    {"mcu up", "", 0, 0, "bring it back", &ControlTable::McuUp},
    {"pps down", "", 0, 0, "take the PPS manager away, with its objects", &ControlTable::PpsDown},
    {"pps up", "", 0, 0, "bring it back, and end every other fault of it", &ControlTable::PpsUp},
    {"pps stall", "", 0, 0, "accept requests, answer none", &ControlTable::PpsStall},
    {"pps unstall", "", 0, 0, "answer again", &ControlTable::PpsUnstall},
    {"pps stall-after-open", "", 0, 0, "grant opens, send no text",
     &ControlTable::PpsStallAfterOpen},
    {"pps slow", "PATH MS", 2, 2, "hold back the answers for an object; 0 ends it",
     &ControlTable::PpsSlow},
    {"i2c fail-send", "N", 1, 1, "the next N sends fail", &ControlTable::I2cFailSend},
    {"i2c fail-recv", "N", 1, 1, "the next N receives fail", &ControlTable::I2cFailReceive},
    {"i2c speed", "refuse|accept", 1, 1, "what becomes of the bus speed", &ControlTable::I2cSpeed},
    {"i2c identity", "HH HH HH HH", 4, 4, "the chip's identity", &ControlTable::I2cIdentity},
    {"i2c absent", "", 0, 0, "the bus device cannot be opened", &ControlTable::I2cAbsent},
    {"i2c present", "", 0, 0, "it can again", &ControlTable::I2cPresent},
    {"i2c counters", "", 0, 0, "requests since the last reset", &ControlTable::I2cShowCounters},
    {"i2c log", "", 0, 0, "the last transfers", &ControlTable::I2cShowLog},
    {"i2c reset", "", 0, 0, "no fault, the chip as it was, counters at zero",
     &ControlTable::I2cReset},
    {"sysinfo fail", "[ERRNO]", 0, 1, "every request fails", &ControlTable::SysInfoFail},
    {"sysinfo ok", "", 0, 0, "none fails, lengths as burnt in", &ControlTable::SysInfoOk},
    {"sysinfo show", "", 0, 0, "what is burnt in", &ControlTable::SysInfoShow},
    {"sysinfo length", "N", 1, 1, "the length that reads report", &ControlTable::SysInfoLength},
    {"gps suspend", "[once]", 0, 1, "suspend positioning: until resumed, or until asked again",
     &ControlTable::GpsSuspend},
    {"gps resume", "", 0, 0, "serve those who asked", &ControlTable::GpsResume},
    {"gps rate", "MS", 1, 1, "a fix every MS instead of the period asked for; 0 ends it",
     &ControlTable::GpsRate},
    {"gps lose", "", 0, 0, "no satellite is seen", &ControlTable::GpsLose},
    {"gps find", "", 0, 0, "they are seen again", &ControlTable::GpsFind},
};

ControlTable::ControlTable(const ControlledParts& parts) : parts_(parts) {}

std::string ControlTable::Run(const std::string& line) {
  if (line.size() > kLongestLine) return Error("the line is too long");
  if (line.find('\0') != std::string::npos) return Error("the line holds a zero byte");
  std::istringstream stream(line);
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);
  if (words.empty()) return Error("no words; try 'help'");

  for (const Row& row : kRows) {
    const bool pair = std::strchr(row.words, ' ') != nullptr;
    const std::size_t name_words = pair ? 2 : 1;
    if (words.size() < name_words) continue;
    const std::string name = pair ? words[0] + " " + words[1] : words[0];
    if (name != row.words) continue;
    if (words[0] == kPositioning && positioning_ == nullptr) {
      return Error("no positioning service runs");
    }
    const Words arguments(words.begin() + static_cast<std::ptrdiff_t>(name_words), words.end());
    if (arguments.size() < row.least || arguments.size() > row.most) {
      return Error("usage: " + name + (*row.arguments == '\0' ? "" : " ") + row.arguments);
    }
    return (this->*row.act)(arguments);
  }
  return Error("unknown: '" + line + "'; try 'help'");
}

std::string ControlTable::Help(const Words&) {
  static const std::size_t kHelpColumn = 28;
  std::string text;
  for (const Row& row : kRows) {
    std::string usage = std::string(row.words) + " " + row.arguments;
    usage.resize(std::max(usage.size() + 1, kHelpColumn), ' ');
    text += (text.empty() ? "" : "\n") + usage + row.help;
  }
  return Ok(text);
}

std::string ControlTable::Status(const Words&) {
  const LinkCounters& link = parts_.stations->counters();
  const std::string pairs[] = {
      Pair("service", parts_.mcu->open_files() > 0 ? 1 : 0),
      Pair("stations", parts_.stations->stations()),
      Pair("monitors", parts_.stations->monitors()),
      Pair("to-service", link.to_service),
      Pair("from-service", link.from_service),
      Pair("dropped", link.dropped),
      Pair("unasked", link.unasked),
      Pair("objects", parts_.pps->objects()),
      Pair("pps-files", parts_.pps->open_files()),
      Pair("mcu", parts_.mcu->bound() ? 1 : 0),
      Pair("pps", parts_.pps->bound() ? 1 : 0),
  };
  std::string text;
  for (const std::string& pair : pairs) text += (text.empty() ? "" : " ") + pair;
  return Ok(text);
}

// What waited for a slow client is freed, but stays with the process, and blocks in use among it
// hold their pages: two looks at the process alone do not tell whether something was lost.
std::string ControlTable::Memory(const Words&) {
  malloc_trim(0);
  const struct mallinfo2 heap = mallinfo2();
  return Ok(Pair("heap", heap.uordblks + heap.hblkhd));
}

std::string ControlTable::Save(const Words& arguments) {
  return Result(SaveObjects(*parts_.pps, arguments[0]));
}

std::string ControlTable::McuDown(const Words&) {
  parts_.mcu->Close();
  return kOk;
}

std::string ControlTable::McuUp(const Words&) { return Result(parts_.mcu->Bind()); }

std::string ControlTable::PpsDown(const Words&) {
  parts_.pps->Close();
  return kOk;
}

std::string ControlTable::PpsUp(const Words&) {
  parts_.pps->ClearFaults();
  return Result(parts_.pps->Bind());
}

std::string ControlTable::PpsStall(const Words&) {
  parts_.pps->SetStalled(true);
  return kOk;
}

std::string ControlTable::PpsUnstall(const Words&) {
  parts_.pps->SetStalled(false);
  parts_.pps->SetMute(false);
  return kOk;
}

std::string ControlTable::PpsStallAfterOpen(const Words&) {
  parts_.pps->SetMute(true);
  return kOk;
}

std::string ControlTable::PpsSlow(const Words& arguments) {
  long milliseconds = 0;
  if (!ParseNumber(arguments[1], 10, 0, INT_MAX, &milliseconds)) {
    return NotANumber(arguments[1], 0, INT_MAX);
  }
  std::string path = arguments[0];
  const std::string prefix = std::string(kPpsPrefix) + "/";
  if (path.compare(0, prefix.size(), prefix) == 0) path.erase(0, prefix.size() - 1);
  parts_.pps->SetDelay(path, std::chrono::milliseconds(milliseconds));
  return kOk;
}

std::string ControlTable::I2cFailSend(const Words& arguments) {
  long count = 0;
  if (!ParseNumber(arguments[0], 10, 0, INT_MAX, &count)) {
    return NotANumber(arguments[0], 0, INT_MAX);
  }
  parts_.i2c->FailSends(static_cast<std::uint32_t>(count));
  return kOk;
}

std::string ControlTable::I2cFailReceive(const Words& arguments) {
  long count = 0;
  if (!ParseNumber(arguments[0], 10, 0, INT_MAX, &count)) {
    return NotANumber(arguments[0], 0, INT_MAX);
  }
  parts_.i2c->FailReceives(static_cast<std::uint32_t>(count));
  return kOk;
}

std::string ControlTable::I2cSpeed(const Words& arguments) {
  const bool refuse = arguments[0] == "refuse";
  if (!refuse && arguments[0] != "accept") return Error("usage: i2c speed refuse|accept");
  parts_.i2c->SetSpeedRefused(refuse);
  return kOk;
}

std::string ControlTable::I2cIdentity(const Words& arguments) {
  I2cBus::Identity identity;
  for (std::size_t i = 0; i < identity.size(); ++i) {
    long byte = 0;
    if (!ParseNumber(arguments[i], 16, 0, UCHAR_MAX, &byte)) {
      return Error("'" + arguments[i] + "' is no hexadecimal byte");
    }
    identity[i] = static_cast<std::uint8_t>(byte);
  }
  parts_.i2c->SetIdentity(identity);
  return kOk;
}

std::string ControlTable::I2cAbsent(const Words&) {
  parts_.i2c->SetAbsent(true);
  return kOk;
}

std::string ControlTable::I2cPresent(const Words&) {
  parts_.i2c->SetAbsent(false);
  return kOk;
}

std::string ControlTable::I2cShowCounters(const Words&) {
  const I2cCounters& counters = parts_.i2c->counters();
  return Ok(Pair("speeds", counters.speeds) + " " + Pair("sends", counters.sends) + " " +
            Pair("receives", counters.receives) + " " + Pair("transfers", counters.transfers) +
            " " + Pair("speed", parts_.i2c->speed()));
}

std::string ControlTable::I2cShowLog(const Words&) { return Ok(parts_.i2c->Transfers()); }

std::string ControlTable::I2cReset(const Words&) {
  parts_.i2c->Reset();
  return kOk;
}

std::string ControlTable::SysInfoFail(const Words& arguments) {
  static const long kLargestErrno = 4095;
  long error = EIO;
  if (!arguments.empty() && !ParseNumber(arguments[0], 10, 1, kLargestErrno, &error)) {
    return NotANumber(arguments[0], 1, kLargestErrno);
  }
  parts_.sysinfo->SetFault(static_cast<int>(error));
  return kOk;
}

std::string ControlTable::SysInfoOk(const Words&) {
  parts_.sysinfo->SetFault(0);
  parts_.sysinfo->ClearLength();
  return kOk;
}

std::string ControlTable::SysInfoShow(const Words&) { return Ok(parts_.sysinfo->Describe()); }

std::string ControlTable::SysInfoLength(const Words& arguments) {
  long length = 0;
  if (!ParseNumber(arguments[0], 10, INT_MIN, INT_MAX, &length)) {
    return NotANumber(arguments[0], INT_MIN, INT_MAX);
  }
  parts_.sysinfo->SetLength(static_cast<std::int32_t>(length));
  return kOk;
}

std::string ControlTable::GpsSuspend(const Words& arguments) {
  if (!arguments.empty() && arguments[0] != "once") return Error("usage: gps suspend [once]");
  positioning_->Suspend(!arguments.empty());
  return kOk;
}

std::string ControlTable::GpsResume(const Words&) {
  positioning_->Resume();
  return kOk;
}

std::string ControlTable::GpsRate(const Words& arguments) {
  static const long kLongestPeriod = 3600 * 1000;
  long milliseconds = 0;
  if (!ParseNumber(arguments[0], 10, 0, kLongestPeriod, &milliseconds)) {
    return NotANumber(arguments[0], 0, kLongestPeriod);
  }
  positioning_->SetRate(std::chrono::milliseconds(milliseconds));
  return kOk;
}

std::string ControlTable::GpsLose(const Words&) {
  positioning_->SetLost(true);
  return kOk;
}

std::string ControlTable::GpsFind(const Words&) {
  positioning_->SetLost(false);
  return kOk;
}

ControlConnector::ControlConnector(EventLoop* loop, std::string path, ControlTable* table)
    : ResourceManager(loop, std::move(path)), control_table_(table) {}

ControlConnector::~ControlConnector() { Close(); }

int ControlConnector::OnOpen(const std::string& rest, std::uint32_t flags,
                             std::unique_ptr<OpenFile>* file) {
  if (!rest.empty()) return ENOTDIR;
  *file = std::make_unique<OpenFile>(flags);
  return 0;
}

void ControlConnector::OnMessage(OpenFile* file, const std::string& message) {
  file->SendWithin(control_table_->Run(message), kLongestQueue);
}

}  // namespace headunit
