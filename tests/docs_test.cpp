// What README and docs show is what the programs do: every command line of a `console` block is run
// on a fresh unit, and its output compared. A line "..." stands for any lines, " ... " within a
// line for any text.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/fixture.h"

namespace support {
namespace {

struct Step {
  int line;
  std::string command;
  std::vector<std::string> output;
};

// The steps of a document's console blocks, in order.
std::vector<Step> ReadSteps(const std::string& path) {
  std::vector<Step> steps;
  std::ifstream file(path);
  std::string line;
  bool inside = false;
  for (int number = 1; std::getline(file, line); ++number) {
    if (line.rfind("```", 0) == 0) {
      inside = line == "```console";
    } else if (inside && line.rfind("$ ", 0) == 0) {
      steps.push_back({number, line.substr(2), {}});
    } else if (inside && !steps.empty()) {
      steps.back().output.push_back(line);
    }
  }
  return steps;
}

// True when `text` is `pattern`, in which "..." stands for any text.
bool Matches(const std::string& pattern, const std::string& text) {
  const std::size_t gap = pattern.find("...");
  if (gap == std::string::npos) return pattern == text;
  if (text.compare(0, gap, pattern, 0, gap) != 0) return false;
  for (std::size_t end = gap; end <= text.size(); ++end) {
    if (Matches(pattern.substr(gap + 3), text.substr(end))) return true;
  }
  return false;
}

bool MatchesAll(const std::vector<std::string>& patterns, std::size_t pattern,
                const std::vector<std::string>& lines, std::size_t line) {
  if (pattern == patterns.size()) return line == lines.size();
  if (patterns[pattern] == "...") {
    for (std::size_t next = line; next <= lines.size(); ++next) {
      if (MatchesAll(patterns, pattern + 1, lines, next)) return true;
    }
    return false;
  }
  return line < lines.size() && Matches(patterns[pattern], lines[line]) &&
         MatchesAll(patterns, pattern + 1, lines, line + 1);
}

std::vector<std::string> OutputOf(const std::string& command) {
  std::vector<std::string> lines;
  FILE* const pipe = ::popen(("exec 2>&1; " + command).c_str(), "r");
  if (pipe == nullptr) return lines;
  std::string output;
  char chunk[4096];
  for (std::size_t count; (count = std::fread(chunk, 1, sizeof(chunk), pipe)) > 0;) {
    output.append(chunk, count);
  }
  ::pclose(pipe);
  std::istringstream text(output);
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

class DocsTest : public ServiceOnUnit, public ::testing::WithParamInterface<std::string> {
 protected:
  DocsTest() : ServiceOnUnit(WholeUnit()) {}
};

TEST_P(DocsTest, ShowsWhatTheProgramsDo) {
  if (KORVANDIS_EMULATOR[0] != '\0') GTEST_SKIP() << "the programs cannot be started by name";
  const std::string source = SourceDir();
  ::setenv("PATH", (BinDir() + ":" + std::getenv("PATH")).c_str(), 1);
  ::setenv("SEQUENCES", (source + "/bench/station/sequences").c_str(), 1);
  ASSERT_EQ(::chdir(root_.path().c_str()), 0);
  const std::vector<Step> steps = ReadSteps(source + "/" + GetParam());
  EXPECT_FALSE(steps.empty());
  for (const Step& step : steps) {
    std::vector<std::string> lines;
    const auto prints_what_is_shown = [&step, &lines] {
      lines = OutputOf(step.command);
      return MatchesAll(step.output, 0, lines, 0);
    };
    // The service logs its last lines about a command after the reply.
    const bool is_log = step.command.rfind("sloginfo", 0) == 0;
    if (is_log ? Eventually(prints_what_is_shown) : prints_what_is_shown()) continue;
    std::string shown;
    for (const std::string& line : lines) shown += line + "\n";
    ADD_FAILURE() << GetParam() << ":" << step.line << ": $ " << step.command << "\nprints\n"
                  << shown;
  }
}

// The documents that show commands.
std::vector<std::string> Documents() {
  std::vector<std::string> documents;
  const std::filesystem::path source = SourceDir();
  std::vector<std::filesystem::path> candidates = {source / "README.md"};
  for (const auto& entry : std::filesystem::directory_iterator(source / "docs")) {
    if (entry.path().extension() == ".md") candidates.push_back(entry.path());
  }
  for (const auto& path : candidates) {
    if (!ReadSteps(path).empty()) documents.push_back(path.lexically_relative(source).string());
  }
  return documents;
}

std::string Name(const ::testing::TestParamInfo<std::string>& info) {
  std::string name = std::filesystem::path(info.param).stem().string();
  for (char& c : name) {
    if (c == '-') c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, DocsTest, ::testing::ValuesIn(Documents()), Name);

}  // namespace
}  // namespace support
