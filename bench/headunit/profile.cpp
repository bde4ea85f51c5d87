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

#include "platform/descriptor.h"
#include "wire/hex.h"

namespace headunit {
namespace {

namespace fs = std::filesystem;

const mode_t kFileMode = 0666;

// Editors leave such files beside the ones they edit.
bool IsLeftover(const fs::path& path) {
  const std::string name = path.filename().string();
  return name.empty() || name.front() == '.' || name.back() == '~' || name.front() == '#';
}

// How an object's name stands in the name of its file where it looks like a leftover: "%2E" and the
// like for its first or last character, and "%25" for a percent sign.
const char kEscaped[] = ".#~%";

std::string FileName(const std::string& name) {
  std::string file;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const bool escaped =
        c == '%' || (i == 0 && (c == '.' || c == '#')) || (i + 1 == name.size() && c == '~');
    if (escaped) {
      const auto byte = static_cast<unsigned char>(c);
      file += {'%', wire::UpperHexDigit(byte >> 4U), wire::UpperHexDigit(byte)};
    } else {
      file += c;
    }
  }
  return file;
}

std::string ObjectName(const std::string& file) {
  std::string name;
  for (std::size_t i = 0; i < file.size(); ++i) {
    char c = file[i];
    for (const char* escaped = kEscaped; c == '%' && *escaped != '\0'; ++escaped) {
      if (file.compare(i, 3, FileName(std::string(1, *escaped))) != 0) continue;
      name += *escaped;
      i += 2;
      c = '\0';
    }
    if (c != '\0') name += c;
  }
  return name;
}

// Each component of `path` by `change`.
template <typename Change>
std::string ForEachName(const fs::path& path, Change change) {
  std::string changed;
  for (const fs::path& name : path) changed += "/" + change(name.string());
  return changed;
}

bool WriteFile(const std::string& path, const std::string& text, bool durable) {
  const platform::Descriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode));
  if (!file.IsOpen()) return false;
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(file.Get(), text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return !durable || fsync(file.Get()) == 0;
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
    const std::string object = ForEachName(path.lexically_relative(folder), ObjectName);
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
    const fs::path file(folder + "/pps" + ForEachName(path.substr(1), FileName));
    std::string text = FormatPpsObject(object.name, object.options, object.attributes);
    if (object.options.empty()) text.erase(0, text.find('\n') + 1);  // the file's name says it
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
  // Beside the file, with a name that is never too long.
  const std::string fresh = (fs::path(path).parent_path() / ".headunit.new").string();
  const bool replaced =
      WriteFile(fresh, text, durable) && std::rename(fresh.c_str(), path.c_str()) == 0;
  const int error = errno;
  if (!replaced) unlink(fresh.c_str());
  errno = error;
  return replaced;
}

}  // namespace headunit
