#include "support/postgres.h"

#include <pwd.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "support/fixture.h"

namespace support {
namespace {

// The server refuses to run as root: there it runs as the user of Debian's package.
void BecomeServerUser() {
  if (::geteuid() != 0) return;
  const passwd* const user = ::getpwnam("postgres");
  if (user == nullptr || ::setgid(user->pw_gid) != 0 || ::setuid(user->pw_uid) != 0) ::_exit(126);
}

// Starts a program with its output in a file of `directory`.
pid_t Start(const std::string& directory, const std::vector<std::string>& arguments) {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  BecomeServerUser();
  if (::chdir(directory.c_str()) != 0) ::_exit(126);
  if (std::freopen("output", "a", stdout) == nullptr || ::dup2(1, 2) != 2) ::_exit(126);
  std::vector<char*> pointers;
  for (const std::string& argument : arguments)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  ::execv(pointers[0], pointers.data());
  ::_exit(127);
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
  int status = 0;
  ::waitpid(
      support::Start(directory_, {programs_ + "/initdb", "-D", directory_ + "/data", "-U",
                                  "korvandis", "-E", "UTF8", "--locale=C", "-A", "trust", "-N"}),
      &status, 0);
  if (status != 0 || !Start())
    problem_ = "the server does not start:\n" + ReadFile(directory_ + "/output");
}

Postgres::~Postgres() {
  Stop();
  if (!directory_.empty()) std::filesystem::remove_all(directory_);
}

bool Postgres::Start() {
  pid_ = support::Start(directory_, {programs_ + "/postgres", "-D", directory_ + "/data", "-k",
                                     directory_, "-c", "listen_addresses=", "-F"});
  const std::string ready = directory_ + "/data/postmaster.pid";
  return Eventually([&] { return Contains(ReadFile(ready), "ready"); });
}

void Postgres::Stop() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGQUIT);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::string Postgres::address() const {
  return "postgresql://korvandis@/postgres?host=" + directory_;
}

}  // namespace support
