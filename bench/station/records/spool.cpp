// Runs that wait for their record.
#include "records/spool.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "qnx/text.h"
#include "records/database.h"
#include "tools/program.h"

namespace records {
namespace {

const std::size_t kChunkSize = 65536;  // of one read

// FNV-1a, 32 bits: tells the spools of several servers apart.
std::string ShortHash(const std::string& text) {
  std::uint32_t hash = 2166136261U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return qnx::Formatted("%08x", hash);
}

std::string StateDirectory() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') return std::string(state) + "/korvandis";
  const char* home = std::getenv("HOME");
  return std::string(home != nullptr && *home == '/' ? home : "/var/tmp") +
         "/.local/state/korvandis";
}

// The spool, opened and locked against every other process: only while it is read or written, never
// during a wait for the record, so that another process can add a run at once.
class Spool {
 public:
  explicit Spool(const std::string& path) : path_(path) {}

  // Returns an empty text, or why not.
  std::string OpenForAppending() { return Open(O_APPEND | O_CREAT); }
  std::string OpenForReading() { return Open(0); }

  std::string Text() const {
    std::string text;
    char chunk[kChunkSize];
    off_t at = 0;
    for (ssize_t count; (count = ::pread(file_.Get(), chunk, sizeof(chunk), at)) > 0; at += count) {
      text.append(chunk, static_cast<std::size_t>(count));
    }
    return text;
  }

  // Adds a line. A line that a killed process left unfinished is ended first.
  std::string Append(const std::string& line) const {
    const std::string text = "\n" + line + "\n";
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t count = ::write(file_.Get(), text.data() + done, text.size() - done);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return std::strerror(errno);
      done += static_cast<std::size_t>(count);
    }
    return ::fsync(file_.Get()) == 0 ? "" : std::strerror(errno);
  }

  bool Clear() const { return ::ftruncate(file_.Get(), 0) == 0; }

 private:
  std::string Open(int flags) {
    file_.Reset(::open(path_.c_str(), O_RDWR | O_CLOEXEC | flags, 0600));
    if (!file_.IsOpen()) return std::strerror(errno);
    while (::flock(file_.Get(), LOCK_EX) != 0) {
      if (errno != EINTR) return std::strerror(errno);
    }
    return "";
  }

  std::string path_;
  platform::Descriptor file_;
};

void AddSentence(const std::string& sentence, std::string* text) {
  *text += (text->empty() ? "" : "; ") + sentence;
}

std::string ReadSpool(const std::string& path) {
  Spool spool(path);
  return spool.OpenForReading().empty() ? spool.Text() : "";
}

// Stores every run of the spool. The spool is emptied only when all of them are in the record, so
// that a process that is killed meanwhile loses nothing; a run is never stored twice.
void CatchUp(Database* database, const std::string& path, const Patience& patience,
             Stored* result) {
  const std::string text = ReadSpool(path);
  bool all = true;
  for (const std::string& line : qnx::Lines(text)) {
    if (line.empty()) continue;
    if (patience.IsOver()) return;
    Run run;
    std::string problem;
    if (ParseRunJson(line, &run)) {
      problem = database->Store(run, nullptr);
      if (problem.empty()) ++result->caught_up;
    } else {
      // Half a line is kept for a person to look at.
      Spool broken(path + ".broken");
      problem = broken.OpenForAppending();
      if (problem.empty()) problem = broken.Append(line);
      AddSentence("a line of " + qnx::Escape(path) + " is not a whole run and was moved to " +
                      qnx::Escape(path) + ".broken",
                  &result->problem);
    }
    if (problem.empty()) continue;
    all = false;
    if (patience.IsOver()) return;  // the new run waits for the same reason, and tells it
    AddSentence("a run of " + qnx::Escape(path) + " is still not stored: " + problem,
                &result->problem);
  }
  if (!all || text.empty()) return;
  Spool spool(path);
  // What another process has added meanwhile waits for the next time, with all before it.
  if (!spool.OpenForReading().empty() || spool.Text() != text) return;
  if (!spool.Clear()) AddSentence(std::strerror(errno), &result->problem);
}

}  // namespace

std::vector<std::string> SpoolPaths(const std::string& address) {
  if (IsServer(address)) {
    return {StateDirectory() + "/" + ShortHash(WithoutPassword(address)) + ".spool"};
  }
  const std::string absolute = std::filesystem::absolute(address).lexically_normal().string();
  return {address + ".spool", StateDirectory() + "/" + ShortHash(absolute) + ".spool"};
}

Stored StoreRun(const std::string& address, const Run& run, Patience* patience) {
  Stored result;
  Patience own;
  if (patience == nullptr) patience = &own;
  const std::vector<std::string> paths = SpoolPaths(address);
  std::string problem;
  const std::unique_ptr<Database> database =
      Database::Open(address, Database::Mode::kWrite, &problem, patience);
  if (database != nullptr) {
    for (const std::string& path : paths) CatchUp(database.get(), path, *patience, &result);
    // A server would let this run wait as long again.
    if (IsServer(address) && patience->IsOver()) {
      problem = patience->Reason();
    } else {
      problem = database->Store(run, &result.number);
    }
    result.stored = problem.empty();
    if (result.stored) return result;
  }
  AddSentence(problem, &result.problem);
  std::error_code ignored;  // opening the spool tells
  std::filesystem::create_directories(StateDirectory(), ignored);
  for (const std::string& path : paths) {
    Spool spool(path);
    std::string reason = spool.OpenForAppending();
    if (reason.empty()) reason = spool.Append(RunJson(run));
    if (reason.empty()) {
      AddSentence(
          "the run is kept in " + qnx::Escape(path) + " and will be stored with the next one",
          &result.problem);
      return result;
    }
    AddSentence(qnx::Escape(path) + ": " + reason, &result.problem);
  }
  AddSentence("the run is lost", &result.problem);
  return result;
}

}  // namespace records
