#include <algorithm>
#include <filesystem>
#include <system_error>

#include "event_loop.h"
#include "headunit/profiles.h"
#include "pps_manager.h"
#include "profile.h"

namespace headunit {
namespace {

namespace fs = std::filesystem;

// Files that the PPS manager of a unit shows in each directory, and that are not objects.
const char* const kSpecialFiles[] = {".all", ".notify"};

bool IsSpecial(const std::string& name) {
  return std::find(std::begin(kSpecialFiles), std::end(kSpecialFiles), name) !=
         std::end(kSpecialFiles);
}

// Enters the file `path` of the dump as the object `object`. Returns why it is left out.
std::string ImportFile(const fs::directory_entry& path, const std::string& object,
                       PpsManager* pps) {
  std::error_code error;
  std::string text;
  if (IsSpecial(path.path().filename().string())) return "a special file of its directory";
  if (path.is_symlink(error) || !path.is_regular_file(error)) return "not a plain file";
  if (object.find('?') != std::string::npos) return "not a name for an object";
  if (!ReadWholeFile(path.path().string(), &text)) return "cannot be read";
  if (text.find('\0') != std::string::npos) return "binary data";
  return pps->Load(object, text);
}

}  // namespace

std::string ImportDump(const std::string& dump, const std::string& profile, ImportReport* report) {
  std::error_code error;
  if (!fs::is_directory(dump, error)) return dump + ": no such directory";
  if (fs::exists(profile, error)) return profile + " exists already";

  std::vector<fs::directory_entry> files;
  fs::recursive_directory_iterator entry(dump, error);
  while (!error && entry != fs::recursive_directory_iterator()) {
    if (entry->is_symlink() || !entry->is_directory()) files.push_back(*entry);
    entry.increment(error);
  }
  if (error) return dump + ": " + error.message();
  std::sort(files.begin(), files.end());

  EventLoop loop;  // never started: the manager only holds the objects
  PpsManager pps(&loop, "");
  for (const fs::directory_entry& file : files) {
    const std::string path = file.path().lexically_relative(dump).generic_string();
    const std::string reason = ImportFile(file, "/" + path, &pps);
    if (!reason.empty()) report->left_out.push_back(path + ": " + reason);
  }
  report->objects = pps.tree().objects();
  return SaveObjects(pps.tree(), profile);
}

}  // namespace headunit
