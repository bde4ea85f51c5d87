#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "headunit/profiles.h"

namespace headunit {
namespace {

namespace fs = std::filesystem;

const char kDefault[] = "default";
const char kInstalled[] = "../share/korvandis/profiles";  // from the program's folder
const char kOfUser[] = "korvandis/profiles";              // from the user's data
const char kUserData[] = ".local/share";                  // from the user's home

bool IsFolder(const fs::path& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

fs::path InstalledProfiles() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / kInstalled).lexically_normal();
}

// The profile `name` of those that ship, empty when there is none.
std::string ShippedProfile(const std::string& name) {
  for (const fs::path& folder : {InstalledProfiles(), fs::path(KORVANDIS_SOURCE_PROFILES)}) {
    if (IsFolder(folder / name)) return (folder / name).string();
  }
  return "";
}

}  // namespace

std::string DefaultProfile() { return ShippedProfile(kDefault); }

std::string UserProfiles() {
  const char* const data = std::getenv("XDG_DATA_HOME");
  if (data != nullptr && *data == '/') return (fs::path(data) / kOfUser).string();
  const char* const home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') return "";
  return (fs::path(home) / kUserData / kOfUser).string();
}

std::string FindProfile(const std::string& name) {
  if (name.find('/') != std::string::npos || IsFolder(name)) return name;
  const fs::path own = fs::path(UserProfiles()) / name;
  if (IsFolder(own)) return own.string();
  const std::string shipped = ShippedProfile(name);
  return shipped.empty() ? name : shipped;
}

}  // namespace headunit
