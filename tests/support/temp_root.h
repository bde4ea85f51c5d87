// A temporary root for tests, fuzz targets and benchmarks.
#ifndef KORVANDIS_TESTS_SUPPORT_TEMP_ROOT_H
#define KORVANDIS_TESTS_SUPPORT_TEMP_ROOT_H

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace support {

// A new directory that HEADUNIT_ROOT names as long as this object lives, and that goes with it. It
// lies in the directory that TMPDIR names, where a crash leaves it. Throws when there is no room.
class TempRoot {
 public:
  TempRoot() : path_((std::filesystem::temp_directory_path() / "korvandis-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary directory");
    ::setenv("HEADUNIT_ROOT", path_.c_str(), 1);
  }
  ~TempRoot() {
    ::unsetenv("HEADUNIT_ROOT");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  const std::string& path() const { return path_; }

  // Writes a file below the root, with the directories above it.
  void AddFile(const std::string& path, const std::string& content, mode_t mode = 0644) const {
    const std::filesystem::path host = path_ + path;
    std::filesystem::create_directories(host.parent_path());
    std::ofstream(host, std::ios::binary) << content;
    ::chmod(host.c_str(), mode);
  }

 private:
  std::string path_;
};

}  // namespace support

#endif  // KORVANDIS_TESTS_SUPPORT_TEMP_ROOT_H
