#include "profile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "qnx/descriptor.h"

namespace headunit {
namespace {

namespace fs = std::filesystem;

// Editors leave such files beside the ones they edit.
bool IsLeftover(const fs::path& path) {
  const std::string name = path.filename().string();
  return name.empty() || name.front() == '.' || name.back() == '~' || name.front() == '#';
}

// Calls visit(path) for each file below `folder`, until it returns a text.
template <typename Visit>
std::string ForEachFileBelow(const fs::path& folder, Visit visit) {
  std::error_code error;
  if (!fs::exists(folder, error)) return "";
  fs::recursive_directory_iterator entry(folder, error);
  while (!error && entry != fs::recursive_directory_iterator()) {
    if (entry->is_regular_file(error) && !IsLeftover(entry->path())) {
      std::string failure = visit(entry->path());
      if (!failure.empty()) return failure;
    }
    if (!error) entry.increment(error);
  }
  return error ? folder.string() + ": " + error.message() : "";
}

}  // namespace

std::string LoadObjects(const std::string& profile, PpsManager* pps) {
  std::error_code error;
  if (!fs::is_directory(profile, error)) return profile + ": no such profile folder";
  const fs::path folder = fs::path(profile) / "pps";
  return ForEachFileBelow(folder, [&](const fs::path& path) -> std::string {
    std::string text;
    if (!ReadWholeFile(path.string(), &text)) return path.string() + ": cannot be read";
    const std::string object = "/" + path.lexically_relative(folder).generic_string();
    const std::string failure = pps->Load(object, text);
    return failure.empty() ? "" : path.string() + ": " + failure;
  });
}

std::string InstallFiles(const std::string& profile, const std::string& root) {
  const fs::path folder = fs::path(profile) / "root";
  return ForEachFileBelow(folder, [&](const fs::path& path) -> std::string {
    const fs::path target = fs::path(root) / path.lexically_relative(folder);
    std::error_code error;
    fs::create_directories(target.parent_path(), error);
    if (!error) fs::copy_file(path, target, fs::copy_options::skip_existing, error);
    return error ? target.string() + ": " + error.message() : "";
  });
}

std::string SaveObjects(const PpsTree& objects, const std::string& folder) {
  std::error_code made;
  fs::create_directories(folder + "/pps", made);
  if (made) return folder + ": " + made.message();
  std::string failure;
  objects.ForEach([&](const std::string& path, const PpsObject& object) {
    if (!failure.empty()) return;
    const fs::path file(folder + "/pps" + path);
    std::string text;
    for (const auto& attribute : object.attributes)
      text += attribute.first + ":" + attribute.second + "\n";
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    if (error) {
      failure = file.string() + ": " + error.message();
    } else if (!ReplaceFile(file.string(), text, false)) {
      failure = file.string() + ": " + std::strerror(errno);
    }
  });
  return failure;
}

bool ReadWholeFile(const std::string& path, std::string* text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::ostringstream whole;
  whole << file.rdbuf();
  *text = whole.str();
  return !file.bad();
}

bool ReplaceFile(const std::string& path, const std::string& text, bool durable) {
  const std::string fresh = path + ".new";
  qnx::Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!file.is_open()) return false;
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(file.get(), text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  if (durable && fsync(file.get()) != 0) return false;
  file.Reset();
  return std::rename(fresh.c_str(), path.c_str()) == 0;
}

}  // namespace headunit
