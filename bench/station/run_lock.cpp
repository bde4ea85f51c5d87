#include "run_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "qnx/unit_root.h"

namespace station {
namespace {

const char kLockFile[] = "/.station-run";
const mode_t kEverybody = 0666;  // any user may run the station

const std::size_t kHolderSize = 64;  // of the text that names a run, with its end

std::string NowText() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  if (::localtime_r(&now, &parts) == nullptr) return "";
  return qnx::Formatted("%04d-%02d-%02d %02d:%02d:%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                        parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

}  // namespace

RunLock::~RunLock() {
  // The next run must not be told of this one.
  if (file_.IsOpen() && ::ftruncate(file_.Get(), 0) != 0) return;
}

std::string RunLock::Take() {
  const std::string path = qnx::UnitRoot() + kLockFile;
  platform::Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kEverybody));
  if (!file.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) return "";
  if (!file.IsOpen()) {
    return "the unit cannot be locked: " + tools::Escape(path) + ": " + std::strerror(errno);
  }
  if (::flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
    char text[kHolderSize] = "";
    const ssize_t size = ::read(file.Get(), text, sizeof(text) - 1);
    const std::string holder(text, size > 0 ? static_cast<std::size_t>(size) : 0);
    return "another run has the unit" + (holder.empty() ? "" : ": " + tools::Escape(holder));
  }
  // Another user's run may take the unit next.
  ::fchmod(file.Get(), kEverybody);
  const std::string holder = "process " + std::to_string(::getpid()) + ", started " + NowText();
  if (::ftruncate(file.Get(), 0) != 0 ||
      ::pwrite(file.Get(), holder.data(), holder.size(), 0) < 0) {
    return "the unit cannot be locked: " + tools::Escape(path) + ": " + std::strerror(errno);
  }
  file_ = std::move(file);
  return "";
}

}  // namespace station
