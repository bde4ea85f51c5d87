// In the place of the record store, where it is not built.
#include "records/database.h"
#include "records/spool.h"
#include "records/summary.h"

namespace records {

struct Database::Inside {};

Database::Database() = default;
Database::~Database() = default;

std::unique_ptr<Database> Database::Open(const std::string&, Mode, std::string* problem,
                                         Patience*) {
  *problem = "this program was built without the record store";
  return nullptr;
}

std::string Database::Store(const Run&, long long*) { return ""; }
std::string Database::Claim(const std::string&, const std::string&, const std::string&, bool) {
  return "";
}
std::string Database::List(const Filter&, std::size_t, std::vector<RunRow>*) { return ""; }
bool Database::Load(const std::string&, Run*, std::string*) { return false; }

Stored StoreRun(const std::string& address, const Run&, Patience*) {
  Stored result;
  Database::Open(address, Database::Mode::kWrite, &result.problem);
  return result;
}

std::string Summarise(const std::string& address, const Filter&, Summary*) {
  std::string problem;
  Database::Open(address, Database::Mode::kRead, &problem);
  return problem;
}

std::string WriteSummaryPage(const std::string&, const Filter&, const Summary&, std::ostream&) {
  return "";
}

}  // namespace records
