#include "pps_watch.h"

#include <fcntl.h>
#include <sys/epoll.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <set>
#include <utility>

#include "platform/io.h"
#include "qnx/unit_root.h"
#include "tools/pps_object.h"
#include "tools/program.h"

namespace tools {
namespace {

const int kListTime = 200;  // milliseconds: a directory cannot be waited for

std::uint64_t Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
}

// The objects that are followed.
class Watcher {
 public:
  explicit Watcher(bool times) : times_(times), ready_(::epoll_create1(EPOLL_CLOEXEC)) {}

  // Adds an object or a directory with what it holds. Returns 0 or an error number.
  int Add(const std::string& path) {
    const int error = Follow(path);
    if (error != EISDIR) return error;
    directories_.push_back(path);
    return List(path);
  }

  int Run() {
    Interrupt interrupt;
    const bool headed = times_ || files_.size() > 1 || !directories_.empty();
    auto listed = std::chrono::steady_clock::now();
    while (std::cout.good() && (!files_.empty() || !directories_.empty())) {
      const bool readable = interrupt.Wait(ready_.Get(), directories_.empty() ? -1 : kListTime);
      if (interrupt.Pending()) return kExitRight;
      epoll_event event{};
      if (readable && ::epoll_wait(ready_.Get(), &event, 1, 0) == 1) {
        PrintNext(event.data.fd, headed);
      }
      if (std::chrono::steady_clock::now() - listed < std::chrono::milliseconds(kListTime))
        continue;
      for (const std::string& directory : directories_) {
        const int error = List(directory);
        if (error != 0) return ReportFailure(directory, error);
      }
      listed = std::chrono::steady_clock::now();
    }
    return kExitWrong;
  }

 private:
  struct File {
    std::string path;
    platform::Descriptor descriptor;
  };

  int Follow(const std::string& path) {
    platform::Descriptor file(platform::open((path + "?wait,delta").c_str(), O_RDONLY));
    if (!file.IsOpen()) return errno;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = file.Get();
    if (::epoll_ctl(ready_.Get(), EPOLL_CTL_ADD, file.Get(), &event) != 0) return errno;
    const int number = file.Get();
    files_[number] = File{path, std::move(file)};
    followed_.insert(path);
    return 0;
  }

  // Follows the objects below `directory` that are not followed yet.
  int List(const std::string& directory) {
    std::vector<std::string> names;
    const int error = ListBelow(directory, &names);
    for (const std::string& name : names) {
      const std::string path = directory + "/" + name;
      if (name.back() == '/' || followed_.count(path) != 0) continue;
      const int refused = Follow(path);
      if (refused != 0 && refused != ENOENT) return refused;
    }
    return error;
  }

  // Prints the next message of a file, which is closed at its end.
  void PrintNext(int number, bool headed) {
    const auto found = files_.find(number);
    if (found == files_.end()) return;
    File& file = found->second;
    std::string text;
    const int result = ReadMessage(number, &text);
    if (result > 0) {
      if (times_) std::cout << ClockTime(Now()) << ' ';
      if (headed) std::cout << file.path << '\n';
      std::cout << text << (text.back() == '\n' ? "" : "\n");
      std::cout.flush();
      return;
    }
    const std::string no_unit = qnx::WhyNoUnit();
    if (!no_unit.empty()) {
      std::cerr << "pps: " << file.path << ": the unit is gone\n";
    } else if (result < 0) {
      ReportFailure(file.path, errno);
    } else if (directories_.empty()) {
      std::cerr << "pps: " << file.path << " was removed\n";
    }
    followed_.erase(file.path);
    files_.erase(found);
  }

  const bool times_;
  platform::Descriptor ready_;
  std::map<int, File> files_;       // by descriptor
  std::set<std::string> followed_;  // their paths
  std::vector<std::string> directories_;
};

}  // namespace

int ReportFailure(const std::string& path, int error) {
  std::string reason = path + ": " + std::strerror(error);
  if (error == EIO) reason = path + ": the unit's PPS manager does not answer";
  const std::string no_unit = qnx::WhyNoUnit();
  std::cerr << "pps: " << (no_unit.empty() ? reason : no_unit) << '\n';
  return kExitWrong;
}

int WatchObjects(const std::vector<std::string>& paths, bool times) {
  Watcher watcher(times);
  for (const std::string& path : paths) {
    const int error = watcher.Add(path);
    if (error != 0) return ReportFailure(path, error);
  }
  return watcher.Run();
}

}  // namespace tools
