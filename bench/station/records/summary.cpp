// Counting. Each part of a summary is a question of its own; two connections share them.
#include "records/summary.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <map>
#include <thread>

#include "query.h"

namespace records {
namespace {

const int kConnections = 2;

Outcome OutcomeAt(const soci::row& row, std::size_t column) {
  return ParseOutcome(row.get<std::string>(column));
}

// Which devices of a group passed their first and their last finished run. `group` is "" or a
// column of run.
std::string YieldQuery(const Filter& filter, const std::string& group) {
  const std::string partition = "PARTITION BY " + (group.empty() ? "" : group + ", ") + "device ";
  const std::string column = group.empty() ? "''" : group;
  return "SELECT grouped, CAST(count(*) AS TEXT),"
         " CAST(sum(CASE WHEN first_outcome = 'passed' THEN 1 ELSE 0 END) AS TEXT),"
         " CAST(sum(CASE WHEN last_outcome = 'passed' THEN 1 ELSE 0 END) AS TEXT)"
         " FROM (SELECT " +
         column +
         " AS grouped, outcome AS last_outcome,"
         " first_value(outcome) OVER (" +
         partition +
         "ORDER BY started, id) AS first_outcome,"
         " row_number() OVER (" +
         partition +
         "ORDER BY started DESC, id DESC) AS place"
         " FROM run WHERE outcome IN ('passed', 'failed') AND device <> ''" +
         Condition(filter) + ") AS finished WHERE place = 1 GROUP BY grouped";
}

Yield YieldAt(const soci::row& row) {
  return Yield{WholeAt(row, 1), WholeAt(row, 2), WholeAt(row, 3)};
}

void CountRuns(Query& query, Summary* summary) {
  query.Run("SELECT outcome, CAST(count(*) AS TEXT) FROM run WHERE 1 = 1" + query.condition() +
                " GROUP BY outcome",
            [summary](const soci::row& row) {
              const long long count = WholeAt(row, 1);
              summary->runs += count;
              const Outcome outcome = OutcomeAt(row, 0);
              if (outcome == Outcome::kPassed) summary->passed = count;
              if (outcome == Outcome::kFailed) summary->failed = count;
              if (outcome == Outcome::kError) summary->errors = count;
              if (outcome == Outcome::kAborted) summary->aborted = count;
            });
  query.Run(
      "SELECT CAST(count(DISTINCT device) AS TEXT) FROM run WHERE device <> ''" + query.condition(),
      [summary](const soci::row& row) { summary->devices = WholeAt(row, 0); });
  query.Run(YieldQuery(query.filter(), ""),
            [summary](const soci::row& row) { summary->yield = YieldAt(row); });
}

void CountStations(Query& query, Summary* summary) {
  std::map<std::string, StationNumbers> stations;
  // The middle value, or the mean of the two in the middle.
  query.Run(
      "SELECT station, CAST(max(amount) AS TEXT), avg(seconds) FROM (SELECT station, seconds,"
      " row_number() OVER (PARTITION BY station ORDER BY seconds) AS place,"
      " count(*) OVER (PARTITION BY station) AS amount FROM run WHERE 1 = 1" +
          query.condition() +
          ") AS placed WHERE place = (amount + 1) / 2 OR place = amount / 2 + 1"
          " GROUP BY station",
      [&stations](const soci::row& row) {
        StationNumbers& numbers = stations[row.get<std::string>(0)];
        numbers.runs = WholeAt(row, 1);
        numbers.seconds = NumberAt(row, 2);
      });
  query.Run(YieldQuery(query.filter(), "station"), [&stations](const soci::row& row) {
    stations[row.get<std::string>(0)].yield = YieldAt(row);
  });
  for (auto& [name, numbers] : stations) {
    numbers.station = name;
    summary->stations.push_back(numbers);
  }
}

void CountSteps(Query& query, Summary* summary) {
  std::map<long long, std::map<Outcome, long long>> counted;
  query.Run("SELECT CAST(step_name AS TEXT), outcome, CAST(count(*) AS TEXT) FROM step" +
                query.OfSelectedRuns(" WHERE ") + " GROUP BY step_name, outcome",
            [&counted](const soci::row& row) {
              counted[WholeAt(row, 0)][OutcomeAt(row, 1)] += WholeAt(row, 2);
            });
  query.RunUnfiltered(
      "SELECT CAST(id AS TEXT), phase, step FROM step_name ORDER BY id",
      [&counted, summary](const soci::row& row) {
        const auto found = counted.find(WholeAt(row, 0));
        if (found == counted.end()) return;
        StepNumbers numbers{row.get<std::string>(1), row.get<std::string>(2), 0, 0, 0};
        for (const auto& [outcome, count] : found->second) {
          if (outcome != Outcome::kSkipped) numbers.runs += count;
        }
        numbers.failed = found->second[Outcome::kFailed];
        numbers.errors = found->second[Outcome::kError];
        if (numbers.runs > 0) summary->steps.push_back(numbers);
      });
}

// The names that have numbers, in the order of the steps.
std::vector<MeasurementNumbers> MeasurementNames(Query& query) {
  std::vector<MeasurementNumbers> names;
  query.RunUnfiltered(
      "SELECT CAST(m.id AS TEXT), n.phase, n.step, m.name, m.unit FROM measurement_name m JOIN"
      " step_name n ON n.id = m.step_name WHERE EXISTS (SELECT 1 FROM measurement WHERE"
      " measurement_name = m.id AND number IS NOT NULL) ORDER BY n.id, m.id",
      [&names](const soci::row& row) {
        MeasurementNumbers numbers;
        numbers.id = WholeAt(row, 0);
        numbers.phase = row.get<std::string>(1);
        numbers.step = row.get<std::string>(2);
        numbers.name = row.get<std::string>(3);
        numbers.unit = row.get<std::string>(4);
        names.push_back(numbers);
      });
  return names;
}

double Capability(const MeasurementNumbers& numbers) {
  if (!(numbers.stddev > 0)) return kUnknown;
  const double above = (numbers.high - numbers.mean) / (3 * numbers.stddev);
  const double below = (numbers.mean - numbers.low) / (3 * numbers.stddev);
  return std::isnan(above) ? below : std::isnan(below) ? above : std::min(above, below);
}

void CountMeasurement(Query& query, MeasurementNumbers* numbers) {
  const std::string from =
      " FROM measurement WHERE measurement_name = " + std::to_string(numbers->id) +
      " AND number IS NOT NULL" + query.OfSelectedRuns(" AND ");
  double base = 0;
  bool found = false;
  query.Run("SELECT number, low, high" + from + " ORDER BY run DESC LIMIT 1",
            [&](const soci::row& row) {
              found = true;
              base = NumberAt(row, 0);
              numbers->low = NumberAt(row, 1);
              numbers->high = NumberAt(row, 2);
            });
  if (!found) return;
  // The squares are summed of the distances from one of the values: then the difference below loses
  // at most as many bits as the count has, however large the values are beside their spread.
  const std::string distance = "(number - (" + Digits(base) + "))";
  query.Run("SELECT CAST(count(*) AS TEXT), sum(" + distance + "), sum(" + distance + " * " +
                distance + "), min(number), max(number)" + from,
            [&](const soci::row& row) {
              numbers->count = WholeAt(row, 0);
              const auto count = static_cast<double>(numbers->count);
              const double sum = NumberAt(row, 1);
              numbers->mean = base + sum / count;
              const double squares = NumberAt(row, 2) - sum * (sum / count);
              if (count > 1) numbers->stddev = std::sqrt(std::max(squares, 0.0) / (count - 1));
              numbers->min = NumberAt(row, 3);
              numbers->max = NumberAt(row, 4);
            });
  // A spread that rounding alone explains is none.
  if (numbers->min == numbers->max && numbers->count > 1) numbers->stddev = 0;
  numbers->cpk = Capability(*numbers);
}

}  // namespace

std::string Summarise(const std::string& address, const Filter& filter, Summary* summary) {
  std::string problem;
  const auto first = Database::Open(address, Database::Mode::kRead, &problem);
  if (first == nullptr) return problem;
  try {
    Query opening(first->inside().sql, filter);
    summary->measurements = MeasurementNames(opening);
  } catch (const std::exception& error) {
    return Reason(error);
  }

  std::vector<std::function<void(Query&)>> parts = {
      [summary](Query& query) { CountSteps(query, summary); },
      [summary](Query& query) { CountRuns(query, summary); },
      [summary](Query& query) { CountStations(query, summary); }};
  for (MeasurementNumbers& numbers : summary->measurements) {
    parts.emplace_back([&numbers](Query& query) { CountMeasurement(query, &numbers); });
  }
  std::atomic<std::size_t> next{0};
  std::string problems[kConnections];
  const auto count = [&](int worker) {
    const auto database = Database::Open(address, Database::Mode::kRead, &problems[worker]);
    if (database == nullptr) return;
    try {
      Query query(database->inside().sql, filter);
      for (std::size_t part; (part = next++) < parts.size();) parts[part](query);
    } catch (const std::exception& error) {
      problems[worker] = Reason(error);
    }
  };
  std::thread other(count, 1);
  count(0);
  other.join();
  for (const std::string& text : problems) {
    if (!text.empty()) return text;
  }
  const auto empty = [](const MeasurementNumbers& numbers) { return numbers.count == 0; };
  summary->measurements.erase(
      std::remove_if(summary->measurements.begin(), summary->measurements.end(), empty),
      summary->measurements.end());
  return "";
}

}  // namespace records
