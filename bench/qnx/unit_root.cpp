#include "qnx/unit_root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/descriptor.h"
#include "platform/io.h"
#include "qnx/bench_link.h"

namespace qnx {
namespace {

// The working directory with a slash behind it.
std::string WorkingDirectory() {
  char path[PATH_MAX];
  if (::getcwd(path, sizeof(path)) == nullptr) return "";
  return std::strcmp(path, "/") == 0 ? "/" : std::string(path) + "/";
}

}  // namespace

std::string UnitRoot() {
  const char* const variable = std::getenv(kRootVariable);
  return variable != nullptr ? variable : "";
}

std::string WhyNoUnit() {
  const std::string given = UnitRoot();
  std::string root = given.empty() ? "/" : given;
  std::string note;
  if (given.empty()) {
    note = " (HEADUNIT_ROOT is not set)";
  } else if (given[0] != '/') {
    root = WorkingDirectory() + given;
    note = " (HEADUNIT_ROOT is '" + given + "', relative to the working directory)";
  }

  struct stat status;
  if (::stat(root.c_str(), &status) != 0) {
    return "the unit's root " + root + ": " + std::strerror(errno) + note;
  }
  if (!S_ISDIR(status.st_mode)) return "the unit's root " + root + " is not a directory" + note;
  const platform::Descriptor control(platform::open(kControlPath, O_RDWR));
  if (control.IsOpen()) return "";
  const int error = errno;
  if (error == EIO) return "the unit below " + root + " does not answer" + note;
  if (error == ENOENT || error == ENOTDIR) {
    return "no unit runs below " + root + note + "; 'headunit' starts one";
  }
  return "the unit below " + root + ": " + std::strerror(error) + note;
}

}  // namespace qnx
