// The page of a summary: what the database counts for its figures, as JSON in the page.
#include <algorithm>
#include <cmath>
#include <map>

#include "json.h"
#include "page.h"
#include "query.h"
#include "records/summary.h"

namespace records {
namespace {

const int kBins = 24;
const std::size_t kMostRuns = 200;
const std::size_t kMostTimes = 120;

class Page {
 public:
  Page(Database& database, const Filter& filter, JsonWriter& json)
      : database_(database), query_(database.inside().sql, filter), filter_(filter), json_(json) {}

  void Write(const Summary& summary) {
    FindTimeWidth();
    json_.Open();
    json_.Text("selection", Selection());
    json_.Key("summary");
    const std::string text = SummaryJson(summary);
    json_.writer().RawValue(text.data(), text.size(), rapidjson::kObjectType);
    WriteTimes();
    json_.List("measurements", summary.measurements, [this](const MeasurementNumbers& numbers) {
      WriteHistogram(numbers);
      WriteCourse(numbers);
    });
    WriteRuns();
    json_.Close();
  }

 private:
  // Which runs the page is about.
  std::string Selection() {
    std::string first;
    std::string last;
    query_.Run(
        "SELECT COALESCE(min(started), ''), COALESCE(max(started), '') FROM run WHERE 1 = 1" +
            query_.condition(),
        [&](const soci::row& row) {
          first = row.get<std::string>(0).substr(0, 10);
          last = row.get<std::string>(1).substr(0, 10);
        });
    std::string text = first.empty() ? "No runs" : "Runs from " + first + " to " + last + " (UTC)";
    if (!filter_.title.empty()) text += ", sequence " + filter_.title;
    if (!filter_.station.empty()) text += ", station " + filter_.station;
    return text;
  }

  // How many characters of a run's start are one place on a time axis: an hour, a day or a month.
  void FindTimeWidth() {
    for (const std::size_t width : {13U, 10U, 7U}) {
      width_ = width;
      long long count = 0;
      query_.Run("SELECT CAST(count(DISTINCT substr(started, 1, " + std::to_string(width) +
                     ")) AS TEXT) FROM run WHERE 1 = 1" + query_.condition(),
                 [&count](const soci::row& row) { count = WholeAt(row, 0); });
      if (count <= static_cast<long long>(kMostTimes)) return;
    }
  }

  std::string TimeColumn() const {
    return "substr(run.started, 1, " + std::to_string(width_) + ")";
  }

  static std::string Shown(std::string time) {
    std::replace(time.begin(), time.end(), 'T', ' ');
    return time.size() == 13 ? time + " h" : time;
  }

  // The devices whose first finished run lies in a time, and how many of them passed it.
  void WriteTimes() {
    struct Counts {
      long long runs = 0, devices = 0, passed = 0;
    };
    std::map<std::string, Counts> times;
    query_.Run(
        "SELECT " + TimeColumn() + ", CAST(count(*) AS TEXT) FROM run WHERE 1 = 1" +
            query_.condition() + " GROUP BY " + TimeColumn(),
        [&times](const soci::row& row) { times[row.get<std::string>(0)].runs = WholeAt(row, 1); });
    query_.Run(
        "SELECT moment, CAST(count(*) AS TEXT),"
        " CAST(sum(CASE WHEN outcome = 'passed' THEN 1 ELSE 0 END) AS TEXT)"
        " FROM (SELECT " +
            TimeColumn() +
            " AS moment, outcome, row_number() OVER"
            " (PARTITION BY device ORDER BY started, id) AS place FROM run WHERE"
            " outcome IN ('passed', 'failed') AND device <> ''" +
            query_.condition() + ") AS finished WHERE place = 1 GROUP BY moment",
        [&times](const soci::row& row) {
          Counts& counts = times[row.get<std::string>(0)];
          counts.devices = WholeAt(row, 1);
          counts.passed = WholeAt(row, 2);
        });
    json_.List("times", times, [this](const auto& time) {
      const Counts& counts = time.second;
      json_.Text("time", Shown(time.first));
      json_.Whole("runs", counts.runs);
      json_.Number("first_pass_yield",
                   counts.devices == 0
                       ? kUnknown
                       : static_cast<double>(counts.passed) / static_cast<double>(counts.devices));
    });
  }

  static std::string Values(const MeasurementNumbers& numbers) {
    return " measurement_name = " + std::to_string(numbers.id) + " AND number IS NOT NULL";
  }

  void WriteHistogram(const MeasurementNumbers& numbers) {
    double from = std::fmin(numbers.min, numbers.low);
    const double end = std::fmax(numbers.max, numbers.high);
    double width = (end - from) / kBins;
    if (!(width > 0) || !std::isfinite(width)) {
      width = std::max(std::fabs(from) * 1e-6, 1e-6);
      from -= width * kBins / 2;
    }
    // SQLite's cast cuts a number off, PostgreSQL's rounds it; here it is never negative.
    const std::string quotient = "(number - (" + Digits(from) + ")) / " + Digits(width);
    const std::string bin = database_.inside().server
                                ? "CAST(CAST(floor(" + quotient + ") AS BIGINT) AS TEXT)"
                                : "CAST(CAST(" + quotient + " AS INTEGER) AS TEXT)";
    std::vector<long long> bins(kBins);
    query_.Run("SELECT " + bin + " AS bin, CAST(count(*) AS TEXT) FROM measurement WHERE" +
                   Values(numbers) + query_.OfSelectedRuns(" AND ") + " GROUP BY bin",
               [&bins](const soci::row& row) {
                 const long long last = kBins - 1;
                 bins[static_cast<std::size_t>(std::clamp(WholeAt(row, 0), 0LL, last))] +=
                     WholeAt(row, 1);
               });
    json_.Number("from", from);
    json_.Number("width", width);
    json_.Key("bins");
    json_.writer().StartArray();
    for (const long long count : bins) json_.writer().Int64(count);
    json_.writer().EndArray();
  }

  void WriteCourse(const MeasurementNumbers& numbers) {
    json_.Key("course");
    json_.writer().StartArray();
    query_.Run("SELECT " + TimeColumn() +
                   " AS moment, CAST(count(*) AS TEXT), avg(number),"
                   " min(number), max(number) FROM measurement JOIN run ON run.id = measurement.run"
                   " WHERE" +
                   Values(numbers) + query_.condition() + " GROUP BY moment ORDER BY moment",
               [this](const soci::row& row) {
                 json_.Open();
                 json_.Text("time", Shown(row.get<std::string>(0)));
                 json_.Whole("count", WholeAt(row, 1));
                 json_.Number("mean", NumberAt(row, 2));
                 json_.Number("min", NumberAt(row, 3));
                 json_.Number("max", NumberAt(row, 4));
                 json_.Close();
               });
    json_.writer().EndArray();
  }

  void WriteRuns() {
    std::vector<RunRow> rows;
    const std::string problem = database_.List(filter_, kMostRuns, &rows);
    if (!problem.empty()) throw soci::soci_error(problem);
    json_.List("runs", rows, [this](const RunRow& run) {
      json_.Whole("number", run.number);
      json_.Text("began", ZoneText(run.started, run.zone_minutes));
      json_.Text("device", run.device);
      json_.Text("station", run.station);
      json_.Text("title", run.title);
      json_.Number("seconds", run.seconds);
      json_.Text("outcome", run.outcome);
      json_.Text("failed", run.failed);
    });
  }

  Database& database_;
  Query query_;
  const Filter& filter_;
  JsonWriter& json_;
  std::size_t width_ = 10;
};

}  // namespace

std::string WriteSummaryPage(const std::string& address, const Filter& filter,
                             const Summary& summary, std::ostream& out) {
  std::string problem;
  const auto database = Database::Open(address, Database::Mode::kRead, &problem);
  if (database == nullptr) return problem;
  JsonWriter json;
  try {
    Page(*database, filter, json).Write(summary);
  } catch (const std::exception& error) {
    return Reason(error);
  }
  out << kPageHead;
  // A "<" in the data could end the script element that holds it.
  const std::string data = json.text();
  for (const char c : data) {
    if (c == '<') {
      out << "\\u003c";
    } else {
      out << c;
    }
  }
  out << kPageTail;
  return "";
}

}  // namespace records
