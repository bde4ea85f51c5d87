#include "control_client.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

#include "fail.h"
#include "platform/io.h"
#include "qnx/bench_link.h"
#include "qnx/manager_socket.h"
#include "qnx/text.h"
#include "qnx/unit_root.h"

namespace headunit {
namespace {

const char kOk[] = "ok";
const char kErrorPrefix[] = "error ";
const char kReadyLine[] = "ready";
const char kSaveWord[] = "save";  // its argument is a path of this process
const long kDefaultWait = 10;     // seconds
const long kLongestWait = 24 * 3600;
const std::chrono::milliseconds kPause{20};  // between two looks at a unit

// Sends one line; true when the unit carried it out. *answer is its text, or what is wrong.
bool Ask(const std::string& line, std::string* answer) {
  const platform::Descriptor connection(platform::open(qnx::kControlPath, O_RDWR));
  if (!connection.IsOpen()) {
    *answer = std::strerror(errno);
    return false;
  }
  const bool sent = platform::write(connection.Get(), line.data(), line.size()) >= 0;
  const int read = sent ? qnx::ReadMessage(connection.Get(), answer) : -1;
  if (read <= 0) {
    *answer = std::string("no answer: ") + (read < 0 ? std::strerror(errno) : "end");
    return false;
  }
  const bool ok = answer->compare(0, std::strlen(kOk), kOk) == 0;
  const std::size_t prefix = ok ? std::strlen(kOk) + 1 : std::strlen(kErrorPrefix);
  if (answer->size() > prefix) answer->erase(0, prefix);
  return ok;
}

std::string WhyNot(const std::string& answer) {
  const std::string reason = qnx::WhyNoUnit();
  return reason.empty() ? answer : reason;
}

}  // namespace

int Control(std::vector<std::string> words) {
  if (words.size() == 2 && words[0] == kSaveWord) {
    std::error_code error;
    words[1] = std::filesystem::absolute(words[1], error).string();
  }
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  if (line.empty()) line = "help";
  std::string answer;
  if (!Ask(line, &answer)) return Fail(WhyNot(answer));
  if (std::printf("%s\n", answer.c_str()) < 0 || std::fflush(stdout) != 0) {
    return Fail(std::string("standard output: ") + std::strerror(errno));
  }
  return 0;
}

int AwaitUnit(const std::vector<std::string>& words) {
  long seconds = kDefaultWait;
  if (words.size() > 1 ||
      (words.size() == 1 && !qnx::ParseNumber(words[0], 0, kLongestWait, &seconds))) {
    return Misuse("wait takes a number of seconds");
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::string answer;
  while (!Ask(kReadyLine, &answer)) {
    if (std::chrono::steady_clock::now() >= deadline) return Fail(WhyNot(answer));
    std::this_thread::sleep_for(kPause);
  }
  return 0;
}

}  // namespace headunit
