#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/program.h"

namespace station {
namespace {

const std::size_t kPartSize = 65536;  // of one read

}  // namespace

std::string ReadFile(const std::string& path, std::string* text) {
  const std::string shown = tools::Quoted(path) + ": ";
  const platform::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) return shown + std::strerror(errno);
  if (S_ISDIR(status.st_mode)) return shown + std::strerror(EISDIR);
  char part[kPartSize];
  ssize_t count;
  while ((count = ::read(file.Get(), part, sizeof(part))) > 0) {
    text->append(part, static_cast<std::size_t>(count));
    if (text->size() > kLargestFile) return shown + std::strerror(EFBIG);
  }
  return count < 0 ? shown + std::strerror(errno) : "";
}

}  // namespace station
