#include "import_command.h"

#include <cerrno>
#include <cstring>

#include "fail.h"
#include "headunit/profiles.h"
#include "qnx/text.h"

namespace headunit {

int Import(const std::vector<std::string>& words) {
  std::string dump;
  std::string name;
  std::string to = UserProfiles();
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::string* const text = words[i] == "--name" ? &name : words[i] == "--to" ? &to : &dump;
    if (text == &dump && (!dump.empty() || words[i].compare(0, 1, "-") == 0)) {
      return Misuse("unknown argument '" + words[i] + "'");
    }
    if (text != &dump && ++i == words.size()) return Misuse(words[i - 1] + " needs a value");
    *text = words[i];
  }
  if (dump.empty()) return Misuse("import needs the directory of the dump");
  if (name.empty() || name[0] == '.' || name.find('/') != name.npos) {
    return Misuse("import needs --name NAME, the name of a folder");
  }
  if (to.empty()) return Fail("no home directory for profiles: give --to DIR");

  ImportReport report;
  const std::string profile = to + "/" + name;
  const std::string failure = ImportDump(dump, profile, &report);
  if (!failure.empty()) return Fail(failure);
  for (const std::string& file : report.left_out) {
    std::printf("left out %s\n", qnx::Escape(file).c_str());
  }
  std::printf("imported %zu objects, left out %zu files: %s\n", report.objects,
              report.left_out.size(), profile.c_str());
  if (std::fflush(stdout) == 0) return 0;
  return Fail(std::string("standard output: ") + std::strerror(errno));
}

}  // namespace headunit
