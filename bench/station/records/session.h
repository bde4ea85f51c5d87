// The connection behind a Database; for this room only.
#ifndef KORVANDIS_RECORDS_SESSION_H
#define KORVANDIS_RECORDS_SESSION_H

#include <soci/soci.h>

#include <string>

#include "records/database.h"

namespace records {

struct Database::Inside {
  Patience own;
  Patience* patience = &own;
  soci::session sql;
  bool server = false;
};

// Begins a transaction that writes, ends it in order or takes everything back.
class Writing {
 public:
  explicit Writing(Database::Inside& inside);
  ~Writing();
  Writing(const Writing&) = delete;
  Writing& operator=(const Writing&) = delete;
  void Commit();

 private:
  Database::Inside& inside_;
  bool open_ = true;
};

// Creates the tables that are missing. Throws soci_error.
void CreateTables(Database::Inside& inside);

// Throws soci_error when the tables are missing, or are not the ones that this program knows.
void CheckVersion(Database::Inside& inside);

// " AND title = :title ..." for the parts of the filter that are set; every name is bound by Bind.
std::string Condition(const Filter& filter);

// Binds the values that Condition names.
void Bind(const Filter& filter, soci::statement* statement);

// A text that every database takes: bytes that are no UTF-8, and NUL, become \xNN.
std::string Storable(const std::string& text);

// One line of what a database says; of a lock that did not go in time, in the station's words.
std::string Reason(const std::exception& error);
std::string Reason(const Database::Inside& inside, const std::exception& error);

}  // namespace records

#endif  // KORVANDIS_RECORDS_SESSION_H
