// Paths behind "/pps" as a client asks for them.
#ifndef KORVANDIS_HEADUNIT_PPS_PATH_H
#define KORVANDIS_HEADUNIT_PPS_PATH_H

#include <cstddef>
#include <string>

namespace headunit {

const std::size_t kDefaultBacklog = 256 * 1024;  // bytes that may wait for a reader

// The options behind '?' in a path.
struct PpsOptions {
  bool wait = false;
  bool delta = false;
  bool server = false;
  std::size_t backlog = kDefaultBacklog;
};

struct PpsRequest {
  std::string path;             // normalised: "/zelmar/system/key", the root is ""
  bool directory_only = false;  // ended with a slash
  PpsOptions options;
};

// Takes a path with its options apart. Returns 0 or an error number.
int ParsePpsRequest(const std::string& rest, PpsRequest* request);

// Of a normalised path: what is above, and the last component.
inline std::string ParentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }
inline std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_PATH_H
