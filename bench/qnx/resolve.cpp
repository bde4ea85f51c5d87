#include "resolve.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "qnx/unit_root.h"

namespace qnx {
namespace {

// The directory that stands for '/', without its trailing slashes; its length goes to *length.
const char* Root(std::size_t* length) {
  const char* root = std::getenv(kRootVariable);
  if (root == nullptr) root = "";
  *length = std::strlen(root);
  while (*length > 0 && root[*length - 1] == '/') --*length;
  return root;
}

}  // namespace

bool HostPath(const char* path, char* host, unsigned long size) {
  if (path == nullptr || path[0] == '\0') {
    errno = path == nullptr ? EFAULT : ENOENT;
    return false;
  }
  std::size_t root_length = 0;
  const char* root = Root(&root_length);
  if (path[0] != '/') root_length = 0;
  const std::size_t length = std::strlen(path);
  if (root_length + length >= size) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(host, root, root_length);
  std::memcpy(host + root_length, path, length + 1);
  return true;
}

bool Resolve(const char* path, ResolvedPath* resolved) {
  resolved->rest = nullptr;
  if (!HostPath(path, resolved->path, sizeof(resolved->path))) return false;
  // The root itself is a plain directory: the walk begins behind it.
  char* walk = resolved->path + (std::strlen(resolved->path) - std::strlen(path));
  while (*walk == '/') ++walk;
  while (*walk != '\0') {
    char* end = walk + std::strcspn(walk, "/");
    const char kept = *end;
    *end = '\0';
    struct stat status;
    const int error = ::stat(resolved->path, &status) == 0 ? 0 : errno;
    *end = kept;
    if (error != 0) return true;  // the ordinary call meets the same error and reports it
    if (S_ISSOCK(status.st_mode)) {
      std::memcpy(resolved->tail, end, std::strlen(end) + 1);
      *end = '\0';
      resolved->rest = resolved->tail;
      return true;
    }
    walk = end + std::strspn(end, "/");
  }
  return true;
}

}  // namespace qnx
