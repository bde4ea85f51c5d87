#include "support/postgres.h"

#include <pwd.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <utility>
#include <vector>

#include "support/fixture.h"

namespace support {
namespace {

const milliseconds kLongest(60000);  // for the steps of a server

// The server refuses to run as root: there it runs as the user of Debian's package.
void BecomeServerUser() {
  if (::geteuid() != 0) return;
  const passwd* const user = ::getpwnam("postgres");
  if (user == nullptr || ::setgid(user->pw_gid) != 0 || ::setuid(user->pw_uid) != 0) ::_exit(126);
}

// A program with its output in a file of `directory`.
qnx::ChildOptions InDirectory(const std::string& directory, std::vector<std::string> words) {
  qnx::ChildOptions options;
  options.words = std::move(words);
  options.directory = directory;
  options.output = options.errors = directory + "/output";
  options.before_exec = BecomeServerUser;
  return options;
}

}  // namespace

Postgres::Postgres() {
  const char* const kPackage = "/usr/lib/postgresql";
  if (!std::filesystem::exists(kPackage)) {
    problem_ = "Debian's package 'postgresql' is not installed";
    return;
  }
  for (const auto& entry : std::filesystem::directory_iterator(
           kPackage, std::filesystem::directory_options::skip_permission_denied)) {
    if (std::filesystem::exists(entry.path() / "bin/initdb")) programs_ = entry.path() / "bin";
  }
  char name[] = "/tmp/korvandis-postgres-XXXXXX";
  if (::mkdtemp(name) == nullptr) {
    problem_ = "no temporary directory";
    return;
  }
  directory_ = name;
  const passwd* const user = ::getpwnam("postgres");
  if (::geteuid() == 0 && (user == nullptr || ::chown(name, user->pw_uid, user->pw_gid) != 0)) {
    problem_ = "there is no user 'postgres' to run the server";
    return;
  }
  qnx::ChildProcess setup(
      InDirectory(directory_, {programs_ + "/initdb", "-D", directory_ + "/data", "-U", "korvandis",
                               "-E", "UTF8", "--locale=C", "-A", "trust", "-N"}));
  if (setup.Wait(kLongest).value_or(-1) != 0 || !Start())
    problem_ = "the server does not start:\n" + ReadFile(directory_ + "/output");
}

Postgres::~Postgres() {
  Stop();
  if (!directory_.empty()) std::filesystem::remove_all(directory_);
}

bool Postgres::Start() {
  server_.emplace(InDirectory(directory_, {programs_ + "/postgres", "-D", directory_ + "/data",
                                           "-k", directory_, "-c", "listen_addresses=", "-F"}));
  const std::string ready = directory_ + "/data/postmaster.pid";
  return Eventually([&] { return Contains(ReadFile(ready), "ready"); });
}

void Postgres::Stop() {
  if (!server_) return;
  server_->Signal(SIGQUIT);
  server_->Wait(kLongest);
  server_.reset();
}

std::string Postgres::address() const {
  return "postgresql://korvandis@/postgres?host=" + directory_;
}

}  // namespace support
