// What README, docs and man pages show is what the programs do.
//
// In README.md and docs/*.md the commands ("$ " lines) of all ```console blocks are run as a reader
// runs them: in order, in one shell, in a directory that is empty at first, with one unit of the
// shipped profile and the service on it. What a command prints on standard output and error is
// compared. A line "..." stands for any lines, "..." within a line for any text. A command goes on
// in the next line behind a "\". A fenced block whose first line is ```text NAME (any word for
// text) is a file NAME in the directory of every later block of the document.
//
// In man pages the .EX blocks of the section EXAMPLES are such blocks.
#include <sys/slog.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "support/fixture.h"

namespace support {
namespace {

namespace fs = std::filesystem;

struct Step {
  int line;
  std::string command;
  std::vector<std::string> output;
};

struct Block {
  std::map<std::string, std::string> files;
  std::vector<Step> steps;
};

struct Line {
  int number;
  std::string text;
};

std::vector<Step> ReadSteps(const std::vector<Line>& lines) {
  std::vector<Step> steps;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].text.rfind("$ ", 0) != 0) {
      if (!steps.empty()) steps.back().output.push_back(lines[i].text);
      continue;
    }
    std::string command = lines[i].text.substr(2);
    steps.push_back({lines[i].number, "", {}});
    while (command.back() == '\\' && i + 1 < lines.size()) command += "\n" + lines[++i].text;
    steps.back().command = command;
  }
  return steps;
}

// The text of a line of a man page.
std::string WithoutRoff(std::string text) {
  static const std::pair<const char*, const char*> kEscapes[] = {
      {"\\&", ""}, {"\\-", "-"}, {"\\(aq", "'"}, {"\\(dq", "\""}, {"\\e", "\\"}};
  for (const auto& [escape, character] : kEscapes) {
    for (std::size_t at = 0; (at = text.find(escape, at)) != std::string::npos; ++at) {
      text.replace(at, std::string(escape).size(), character);
    }
  }
  return text;
}

// The blocks of a document that show commands.
std::vector<Block> ReadBlocks(const fs::path& path) {
  const bool is_manual = path.extension() == ".1";
  const std::string begin = is_manual ? ".EX" : "```";
  const std::string end = is_manual ? ".EE" : "```";
  std::vector<Block> blocks;
  std::map<std::string, std::string> files;
  std::ifstream file(path);
  bool examples = !is_manual;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (is_manual && line.rfind(".SH", 0) == 0) examples = line == ".SH EXAMPLES";
    if (!examples || line.rfind(begin, 0) != 0) continue;
    const std::string fence = line.substr(begin.size());
    const std::size_t blank = fence.find(' ');
    std::vector<Line> lines;
    while (std::getline(file, line) && line != end) {
      lines.push_back({++number, is_manual ? WithoutRoff(line) : line});
    }
    ++number;
    if (is_manual || fence == "console") {
      blocks.push_back({files, ReadSteps(lines)});
    } else if (blank != std::string::npos) {
      std::string& content = files[fence.substr(blank + 1)];
      content.clear();
      for (const Line& text : lines) content += text.text + "\n";
    }
  }
  return blocks;
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

// A shell that runs one command after the other in `directory`. What it started in the background
// ends with it.
class Shell {
 public:
  Shell(const fs::path& scratch, const fs::path& directory) : scratch_(scratch) {
    pipe_ = ::popen("exec bash --norc", "w");
    // What a block leaves in its directory for temporary files goes with it.
    Send("export TMPDIR='" + scratch.string() + "'; cd '" + directory.string() + "'\n");
  }
  ~Shell() {
    Send("kill $(jobs -p) 2>/dev/null; wait\n");
    ::pclose(pipe_);
  }
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  // Runs `command`, which sees the status of the one before, and puts what it printed into *output.
  // False when it does not end.
  bool Run(const std::string& command, std::vector<std::string>* output) {
    const std::string base = (scratch_ / std::to_string(++count_)).string();
    Send("{ (exit ${status:-0})\n" + command + "\n} >" + base +
         ".out 2>&1 </dev/null\nstatus=$?\n: >" + base + ".end\n");
    const bool ended = Eventually([&] { return fs::exists(base + ".end"); }, milliseconds(30000));
    std::istringstream text(ReadFile(base + ".out"));
    output->clear();
    for (std::string line; std::getline(text, line);) output->push_back(line);
    return ended;
  }

 private:
  void Send(const std::string& text) {
    std::fputs(text.c_str(), pipe_);
    std::fflush(pipe_);
  }

  fs::path scratch_;
  FILE* pipe_;
  int count_ = 0;
};

// Runs the blocks of one document.
void RunDocument(const std::string& document, const std::vector<Block>& blocks) {
  const TempRoot scratch;
  const fs::path directory = fs::path(scratch.path()) / "directory";
  fs::create_directories(directory);
  const TempRoot root;
  headunit::UnitOptions options = WholeUnit();
  options.root = root.path();
  headunit::Unit unit(options);
  ASSERT_EQ(unit.Start(), "");
  Log log(root);
  const Program service(root, "korvandis");
  ASSERT_TRUE(unit.WaitForService(milliseconds(10000)));
  // Not by a question: the examples show the numbers of replies.
  ASSERT_TRUE(Eventually([&] { return log.Has(_SLOG_DEBUG1, "_KRV_[Start]-Start!\n"); }));

  Shell shell(scratch.path(), directory);
  for (const Block& block : blocks) {
    EXPECT_FALSE(block.steps.empty()) << document << ": a block without a '$ ' line";
    for (const auto& [name, content] : block.files) scratch.AddFile("/directory/" + name, content);
    for (const Step& step : block.steps) {
      std::vector<std::string> lines;
      bool ended = true;
      const auto prints_what_is_shown = [&] {
        ended = shell.Run(step.command, &lines);
        return !ended || MatchesAll(step.output, 0, lines, 0);
      };
      // The service logs its last lines about a command after the reply.
      const bool is_log = step.command.rfind("sloginfo", 0) == 0;
      const bool right = is_log ? Eventually(prints_what_is_shown) : prints_what_is_shown();
      if (right && ended) continue;
      std::string shown = ended ? "" : "(does not end)\n";
      for (const std::string& line : lines) shown += line + "\n";
      ADD_FAILURE() << document << ":" << step.line << ": $ " << step.command << "\nprints\n"
                    << shown;
      if (!ended) return;
    }
  }
}

class DocsTest : public ::testing::TestWithParam<std::string> {};

TEST_P(DocsTest, ShowsWhatTheProgramsDo) {
  if (KORVANDIS_EMULATOR[0] != '\0') GTEST_SKIP() << "the programs cannot be started by name";
  std::signal(SIGPIPE, SIG_IGN);  // a block may end its shell
  ::setenv("PATH", (BinDir() + ":" + std::getenv("PATH")).c_str(), 1);
  RunDocument(GetParam(), ReadBlocks(fs::path(SourceDir()) / GetParam()));
}

// The documents that show commands.
std::vector<std::string> Documents() {
  std::vector<std::string> documents;
  const fs::path source = SourceDir();
  std::vector<fs::path> candidates = {source / "README.md"};
  for (const char* directory : {"docs", "docs/man"}) {
    for (const auto& entry : fs::directory_iterator(source / directory)) {
      if (entry.is_regular_file()) candidates.push_back(entry.path());
    }
  }
  for (const auto& path : candidates) {
    if (!ReadBlocks(path).empty()) documents.push_back(path.lexically_relative(source).string());
  }
  return documents;
}

std::string Name(const ::testing::TestParamInfo<std::string>& info) {
  std::string name = fs::path(info.param).filename().string();
  for (char& c : name) {
    if (c == '-' || c == '.') c = '_';
  }
  return name;
}

TEST(Readme, NamesEveryRoom) {
  const std::string text = ReadFile(SourceDir() + "/README.md");
  for (const char* directory : {"", "bench/"}) {
    for (const auto& entry : fs::directory_iterator(SourceDir() + "/" + directory)) {
      const std::string room = directory + entry.path().filename().string() + "/";
      const bool is_room =
          entry.is_directory() && room[0] != '.' && room.compare(0, 5, "build") != 0;
      EXPECT_TRUE(!is_room || room == "bench/" || Contains(text, "`" + room + "`")) << room;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, DocsTest, ::testing::ValuesIn(Documents()), Name);

}  // namespace
}  // namespace support
