// A temporary root for the targets that need a unit or a socket.
#ifndef KORVANDIS_FUZZ_TEMP_ROOT_H
#define KORVANDIS_FUZZ_TEMP_ROOT_H

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "input.h"

namespace fuzz {

// A new directory, which HEADUNIT_ROOT names and the process works in. It goes with the object; a
// crash leaves it, in the directory that TMPDIR names.
class TempRoot {
 public:
  TempRoot() {
    path_ = (std::filesystem::temp_directory_path() / "korvandis-fuzz-XXXXXX").string();
    Require(::mkdtemp(path_.data()) != nullptr, "there is room for a temporary directory");
    ::setenv("HEADUNIT_ROOT", path_.c_str(), 1);
  }
  ~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace fuzz

#endif  // KORVANDIS_FUZZ_TEMP_ROOT_H
