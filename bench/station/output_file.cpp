#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace station {
namespace {

const int kMoment = 20;      // milliseconds between two looks at a FIFO
const int kFileMode = 0666;  // less what the process masks
const int kFlags = O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

}  // namespace

std::string OutputFile::Open(const std::string& path, bool force) {
  path_ = path;
  int flags = kFlags | O_CREAT | (force ? O_TRUNC : O_EXCL);
  while (true) {
    file_.Reset(::open(path.c_str(), flags, kFileMode));
    if (file_.IsOpen()) break;
    // A device or a FIFO that is there already loses nothing when it is written to.
    if (errno == EEXIST) {
      struct stat status {};
      if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        return Problem("exists already; --force overwrites it");
      }
      flags = kFlags;
    } else if (errno != ENXIO) {
      return Problem(std::strerror(errno));
    } else if (!WaitAMoment()) {
      return Problem("interrupted before anything read from it");
    }
  }
  return "";
}

std::string OutputFile::Write(const std::string& text) {
  for (std::size_t written = 0; written < text.size();) {
    const ssize_t count = ::write(file_.Get(), text.data() + written, text.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EAGAIN && errno != EINTR) {
      return Problem(std::strerror(errno));
    } else if (!WaitAMoment()) {
      return Problem("interrupted while nothing read from it");
    }
  }
  return "";
}

bool OutputFile::WaitAMoment() {
  interrupt_->Wait(-1, kMoment);
  return !interrupt_->Pending();
}

std::string OutputFile::Problem(const std::string& reason) const {
  return tools::Quoted(path_) + ": " + reason;
}

}  // namespace station
