// Opening a record, and what all of its users share.
#include "records/database.h"

#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "qnx/text.h"
#include "session.h"

namespace records {
namespace {

// Seconds that a server may take to accept a connection.
const char kConnectSeconds[] = "10";
// The longest wait of one statement for a lock of a server.
const char kLockTimeout[] = "SET lock_timeout TO '10s'";

// Between two looks at an SQLite file that another program has locked.
const std::chrono::milliseconds kPause(20);
const char kLockNotAvailable[] = "55P03";  // of a server: the lock timeout passed
const int kPrimaryResult = 0xFF;           // of a result of SQLite; the bits above tell more

// SQLite calls it again and again while another program has the file locked.
int WaitForLock(void* patience, int /*calls*/) {
  return static_cast<Patience*>(patience)->Pause(kPause) ? 1 : 0;
}

void OpenFile(const std::string& path, Database::Inside& inside) {
  inside.sql.open(soci::sqlite3, "dbname=\"" + path + "\"");
  const auto* const backend = static_cast<soci::sqlite3_session_backend*>(inside.sql.get_backend());
  sqlite_api::sqlite3_busy_handler(backend->conn_, WaitForLock, inside.patience);
}

// Why a path cannot be read as a record, or nothing.
std::string CheckPath(const std::string& path, Database::Mode mode) {
  struct stat status {};
  if (path.find('"') != std::string::npos) return "a path must not have a '\"'";
  if (::stat(path.c_str(), &status) != 0) {
    if (mode == Database::Mode::kWrite && errno == ENOENT) return "";
    return std::strerror(errno);
  }
  return S_ISREG(status.st_mode) ? "" : "it is not a file";
}

// Connects and looks at the tables. Throws.
void Connect(const std::string& address, Database::Mode mode, Database::Inside& inside) {
  if (inside.server) {
    // A server that does not answer is told after a while, unless the address says otherwise.
    ::setenv("PGCONNECT_TIMEOUT", kConnectSeconds, 0);
    inside.sql.open(soci::postgresql, address);
    inside.sql << "SET client_encoding TO 'UTF8'";
    inside.sql << "SET client_min_messages TO warning";
    inside.sql << kLockTimeout;
  } else {
    OpenFile(address, inside);
  }
  if (mode == Database::Mode::kWrite) CreateTables(inside);
  CheckVersion(inside);
}

bool IsBusy(const std::exception& error) {
  const auto* const busy = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
  return busy != nullptr && (busy->result() & kPrimaryResult) == SQLITE_BUSY;
}

}  // namespace

Database::Database() : inside_(std::make_unique<Inside>()) {}
Database::~Database() = default;

std::unique_ptr<Database> Database::Open(const std::string& address, Mode mode,
                                         std::string* problem, Patience* patience) {
  std::unique_ptr<Database> database(new Database());
  Inside& inside = *database->inside_;
  inside.server = IsServer(address);
  if (patience != nullptr) inside.patience = patience;
  const std::string shown = "the record " + qnx::Escape(WithoutPassword(address));
  if (!inside.server) {
    const std::string wrong = CheckPath(address, mode);
    if (!wrong.empty()) {
      *problem = shown + ": " + wrong;
      return nullptr;
    }
  }
  while (true) {
    try {
      Connect(address, mode, inside);
      problem->clear();
      return database;
    } catch (const std::exception& error) {
      *problem = shown + ": " + Reason(inside, error);
      // While one program makes a new file ready, SQLite tells another one that it is locked
      // without a call of WaitForLock.
      if (!IsBusy(error) || !inside.patience->Pause(kPause)) return nullptr;
    }
    inside.sql.close();
  }
}

Writing::Writing(Database::Inside& inside) : inside_(inside) {
  // An SQLite transaction that begins by reading cannot wait for another writer later.
  inside_.sql << (inside_.server ? "BEGIN" : "BEGIN IMMEDIATE");
}

Writing::~Writing() {
  if (!open_) return;
  try {
    inside_.sql << "ROLLBACK";
  } catch (const std::exception&) {
    // The connection is gone, and the transaction with it.
  }
}

void Writing::Commit() {
  inside_.sql << "COMMIT";
  open_ = false;
}

std::string Condition(const Filter& filter) {
  std::string text;
  if (!filter.title.empty()) text += " AND run.title = :title";
  if (!filter.station.empty()) text += " AND run.station = :station";
  if (!filter.since.empty()) text += " AND run.started >= :since";
  if (!filter.until.empty()) text += " AND run.started < :until";
  if (!filter.device.empty()) text += " AND run.device = :device";
  return text;
}

void Bind(const Filter& filter, soci::statement* statement) {
  if (!filter.title.empty()) statement->exchange(soci::use(filter.title, "title"));
  if (!filter.station.empty()) statement->exchange(soci::use(filter.station, "station"));
  if (!filter.since.empty()) statement->exchange(soci::use(filter.since, "since"));
  if (!filter.until.empty()) statement->exchange(soci::use(filter.until, "until"));
  if (!filter.device.empty()) statement->exchange(soci::use(filter.device, "device"));
}

std::string Storable(const std::string& text) {
  std::string storable;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = qnx::Utf8Length(std::string_view(text).substr(at));
    if (length == 0 || text[at] == '\0') {
      storable += qnx::EscapeByte(text[at++]);
    } else {
      storable.append(text, at, length);
      at += length;
    }
  }
  return storable;
}

std::string Reason(const std::exception& error) {
  // what() repeats the statement with its values behind the reason.
  const auto* const known = dynamic_cast<const soci::soci_error*>(&error);
  // A server's message has several lines, indented by tabs.
  std::istringstream words(known != nullptr ? known->get_error_message() : error.what());
  std::string text;
  for (std::string word; words >> word;) text += (text.empty() ? "" : " ") + word;
  return qnx::Escape(text);
}

std::string Reason(const Database::Inside& inside, const std::exception& error) {
  const auto* const server = dynamic_cast<const soci::postgresql_soci_error*>(&error);
  const bool locked = server != nullptr ? server->sqlstate() == kLockNotAvailable
                                        : IsBusy(error) && inside.patience->IsOver();
  return locked ? inside.patience->Reason() : Reason(error);
}

}  // namespace records
