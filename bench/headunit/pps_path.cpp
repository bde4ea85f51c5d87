#include "pps_path.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "qnx/text.h"

namespace headunit {
namespace {

const std::size_t kBytesPerKilobyte = 1024;
const std::size_t kLargestBacklog = 64 * 1024;  // kilobytes

PpsOptions ParseOptions(const std::string& text) {
  static const std::string kBacklog = "backlog=";
  PpsOptions options;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::string option = text.substr(begin, end - begin);
    begin = end + 1;
    if (option == "wait") options.wait = true;
    if (option == "delta") options.delta = true;
    if (option == "server") options.server = true;
    if (option.compare(0, kBacklog.size(), kBacklog) != 0) continue;
    const std::string digits = option.substr(kBacklog.size());
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) continue;
    std::size_t kilobytes = kLargestBacklog;  // of a number that is larger
    qnx::ParseNumber(digits, 0, kLargestBacklog, &kilobytes);
    options.backlog = kilobytes * kBytesPerKilobyte;
  }
  return options;
}

}  // namespace

int ParsePpsRequest(const std::string& rest, PpsRequest* request) {
  const std::size_t options = rest.find('?');
  if (options != std::string::npos) request->options = ParseOptions(rest.substr(options + 1));
  const std::string path = rest.substr(0, options);

  request->directory_only = path.empty() || path.back() == '/';
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string name = path.substr(begin, end - begin);
    begin = end + 1;
    if (name.empty() || name == ".") continue;
    if (name == "..") {
      if (!request->path.empty()) request->path = ParentOf(request->path);
      continue;
    }
    if (name.size() > NAME_MAX) return ENAMETOOLONG;
    if (name.find('\n') != std::string::npos) return EINVAL;  // would break the "@name" line
    request->path += '/';
    request->path += name;
  }
  return 0;
}

}  // namespace headunit
