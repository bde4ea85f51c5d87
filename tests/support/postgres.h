// A private PostgreSQL server on a Unix socket in a directory of its own.
#ifndef KORVANDIS_TESTS_SUPPORT_POSTGRES_H
#define KORVANDIS_TESTS_SUPPORT_POSTGRES_H

#include <optional>
#include <string>

#include "qnx/child_process.h"

namespace support {

// Ended, and its directory removed, when the object goes.
class Postgres {
 public:
  Postgres();
  ~Postgres();
  Postgres(const Postgres&) = delete;
  Postgres& operator=(const Postgres&) = delete;

  // Empty, or why there is no server here.
  const std::string& problem() const { return problem_; }

  // Starts it, and again after Stop; Stop ends it as a crash of its machine would.
  bool Start();
  void Stop();

  // The address of its database.
  std::string address() const;

 private:
  std::string problem_;
  std::string directory_;
  std::string programs_;
  std::optional<qnx::ChildProcess> server_;
};

}  // namespace support

#endif  // KORVANDIS_TESTS_SUPPORT_POSTGRES_H
