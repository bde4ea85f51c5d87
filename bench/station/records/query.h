// Questions about the runs that a filter selects; for this room only.
#ifndef KORVANDIS_RECORDS_QUERY_H
#define KORVANDIS_RECORDS_QUERY_H

#include <climits>
#include <limits>
#include <string>

#include "qnx/text.h"
#include "session.h"

namespace records {

// A whole number that the question casts to text: the databases differ in how wide a sum is.
inline long long WholeAt(const soci::row& row, std::size_t column) {
  const auto text = row.get<std::string>(column);
  long long number = 0;
  if (!qnx::ParseNumber(text, LLONG_MIN, LLONG_MAX, &number)) {
    throw soci::soci_error(qnx::Quoted(text) + " is not a whole number");
  }
  return number;
}

// NaN for null. An expression has no declared type: SQLite gives a sum of whole numbers as one.
inline double NumberAt(const soci::row& row, std::size_t column) {
  if (row.get_indicator(column) == soci::i_null) return std::numeric_limits<double>::quiet_NaN();
  switch (row.get_properties(column).get_data_type()) {
    case soci::dt_double:
      return row.get<double>(column);
    case soci::dt_integer:
      return row.get<int>(column);
    case soci::dt_long_long:
      return static_cast<double>(row.get<long long>(column));
    default:
      return qnx::ParseReal(row.get<std::string>(column));
  }
}

// The number, exactly, as SQL writes it.
inline std::string Digits(double number) { return qnx::Formatted("%.17e", number); }

// All of it throws soci_error.
class Query {
 public:
  Query(soci::session& sql, const Filter& filter) : sql_(sql), filter_(filter) {}

  const Filter& filter() const { return filter_; }

  // " AND run.title = ..." for questions about the table run.
  std::string condition() const { return Condition(filter_); }

  // The same for tables with a column run, behind `before` (" WHERE "); empty without a filter.
  std::string OfSelectedRuns(const std::string& before) const {
    if (filter_.empty()) return "";
    return before + "run IN (SELECT run.id FROM run WHERE 1 = 1" + condition() + ")";
  }

  // Asks and calls `take` with each row. The text has the filter's condition exactly once.
  template <typename Take>
  void Run(const std::string& text, Take take) {
    Ask(text, filter_, take);
  }
  template <typename Take>
  void RunUnfiltered(const std::string& text, Take take) {
    Ask(text, Filter(), take);
  }

 private:
  template <typename Take>
  void Ask(const std::string& text, const Filter& filter, Take take) {
    soci::row row;
    soci::statement statement(sql_);
    Bind(filter, &statement);
    statement.exchange(soci::into(row));
    statement.alloc();
    statement.prepare(text);
    statement.define_and_bind();
    for (bool more = statement.execute(true); more; more = statement.fetch()) take(row);
  }

  soci::session& sql_;
  const Filter& filter_;
};

}  // namespace records

#endif  // KORVANDIS_RECORDS_QUERY_H
