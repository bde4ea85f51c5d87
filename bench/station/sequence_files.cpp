#include "sequence_files.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "qnx/text.h"

namespace station {
namespace {

namespace fs = std::filesystem;

const char kExtension[] = ".seq";
// From the program's directory: where it is installed, and where it is built.
const char kSequences[] = "../share/korvandis/sequences";

}  // namespace

std::string FindSequence(const std::string& name, std::string* path) {
  std::error_code error;
  *path = name;
  if (name.find('/') != std::string::npos || fs::exists(name, error)) return "";
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  const fs::path directory = (program.parent_path() / kSequences).lexically_normal();
  std::vector<std::string> shipped;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    if (entry.path().extension() == kExtension) shipped.push_back(entry.path().stem());
  }
  if (std::find(shipped.begin(), shipped.end(), name) != shipped.end()) {
    *path = (directory / (name + kExtension)).string();
    return "";
  }
  std::sort(shipped.begin(), shipped.end());
  std::string list;
  for (const std::string& one : shipped) list += (list.empty() ? "" : ", ") + one;
  return "there is no file and no shipped sequence " + qnx::Quoted(name) +
         (list.empty() ? "" : ", only: " + list);
}

}  // namespace station
