// A summary as JSON, as comma separated values and as text.
#include <algorithm>
#include <cmath>

#include "json.h"
#include "qnx/text.h"
#include "records/summary.h"

namespace records {
namespace {

const std::size_t kMostSteps = 10;
const std::size_t kMostMeasurements = 10;
// A process with less than 1.33 is watched on most lines.
const double kCapable = 4.0 / 3.0;

// With so many decimal places; with so many digits in all. Empty for what is not known.
std::string Decimals(double number, int places) {
  if (!std::isfinite(number)) return "";
  return qnx::Formatted("%.*f", places, number);
}

std::string Significant(double number, int digits) {
  if (!std::isfinite(number)) return "";
  return qnx::Formatted("%.*g", digits, number);
}

std::string Short(double number) { return Significant(number, 6); }
std::string Exact(double number) { return Significant(number, 15); }

std::string Percent(double share) {
  return std::isfinite(share) ? Decimals(share * 100, 1) + " %" : "none";
}

// A field of a row; quoted where it has to be. What a spreadsheet would take for a formula gets an
// apostrophe in front.
std::string Csv(std::string text) {
  if (!text.empty() && std::string("=+-@\t\r").find(text[0]) != std::string::npos)
    text = "'" + text;
  if (text.find_first_of(",\"\n\r") == std::string::npos) return text;
  for (std::size_t at = 0; (at = text.find('"', at)) != std::string::npos; at += 2) {
    text.insert(at, 1, '"');
  }
  return '"' + text + '"';
}

// A table for a person: columns as wide as their longest text; numbers to the right.
class Table {
 public:
  explicit Table(const std::string& alignment) : alignment_(alignment) {}
  void Row(const std::vector<std::string>& cells) { rows_.push_back(cells); }
  void Print(std::ostream& out) const {
    std::vector<std::size_t> widths(alignment_.size());
    for (const auto& row : rows_) {
      for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    }
    for (const auto& row : rows_) {
      std::string line;
      for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string gap(widths[i] - Width(row[i]), ' ');
        line += "  " + (alignment_[i] == 'r' ? gap + row[i] : row[i] + gap);
      }
      line.erase(line.find_last_not_of(' ') + 1);
      out << line << '\n';
    }
  }

 private:
  // Characters, not bytes.
  static std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
      return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
  }

  std::string alignment_;
  std::vector<std::vector<std::string>> rows_;
};

std::string StepText(const std::string& phase, const std::string& step) {
  return qnx::Escape(phase) + " / " + qnx::Escape(step);
}

void WriteSteps(const Summary& summary, std::ostream& out) {
  std::vector<StepNumbers> steps;
  for (const StepNumbers& step : summary.steps) {
    if (step.failed + step.errors > 0) steps.push_back(step);
  }
  std::stable_sort(steps.begin(), steps.end(), [](const StepNumbers& a, const StepNumbers& b) {
    return a.failed + a.errors > b.failed + b.errors;
  });
  if (steps.empty()) return;
  out << "\nSteps that fail most\n";
  Table table("rrrl");
  table.Row({"failed", "errors", "of runs", "step"});
  for (std::size_t i = 0; i < std::min(steps.size(), kMostSteps); ++i) {
    table.Row({std::to_string(steps[i].failed), std::to_string(steps[i].errors),
               std::to_string(steps[i].runs), StepText(steps[i].phase, steps[i].step)});
  }
  table.Print(out);
}

void WriteMeasurements(const Summary& summary, std::ostream& out) {
  std::vector<MeasurementNumbers> near;
  for (const MeasurementNumbers& numbers : summary.measurements) {
    if (numbers.cpk < kCapable) near.push_back(numbers);
  }
  std::stable_sort(near.begin(), near.end(),
                   [](const auto& a, const auto& b) { return a.cpk < b.cpk; });
  if (near.empty()) return;
  out << "\nMeasurements near their limits (Cpk below " << Decimals(kCapable, 2) << ")\n";
  Table table("rrrrrll");
  table.Row({"Cpk", "mean", "stddev", "low", "high", "unit", "measurement"});
  for (std::size_t i = 0; i < std::min(near.size(), kMostMeasurements); ++i) {
    const MeasurementNumbers& numbers = near[i];
    table.Row({Decimals(numbers.cpk, 2), Short(numbers.mean), Short(numbers.stddev),
               Short(numbers.low), Short(numbers.high), qnx::Escape(numbers.unit),
               StepText(numbers.phase, numbers.step) + ": " + qnx::Escape(numbers.name)});
  }
  table.Print(out);
}

}  // namespace

std::string SummaryJson(const Summary& summary) {
  JsonWriter json;
  json.Open();
  json.Whole("runs", summary.runs);
  json.Whole("devices", summary.devices);
  json.Whole("passed", summary.passed);
  json.Whole("failed", summary.failed);
  json.Whole("errors", summary.errors);
  json.Whole("aborted", summary.aborted);
  json.Number("first_pass_yield", summary.yield.First());
  json.Number("final_yield", summary.yield.Final());
  json.List("stations", summary.stations, [&json](const StationNumbers& numbers) {
    json.Text("station", numbers.station);
    json.Whole("runs", numbers.runs);
    json.Number("first_pass_yield", numbers.yield.First());
    json.Number("seconds", numbers.seconds);
  });
  json.List("steps", summary.steps, [&json](const StepNumbers& numbers) {
    json.Text("phase", numbers.phase);
    json.Text("step", numbers.step);
    json.Whole("runs", numbers.runs);
    json.Whole("failed", numbers.failed);
    json.Whole("errors", numbers.errors);
  });
  json.List("measurements", summary.measurements, [&json](const MeasurementNumbers& numbers) {
    json.Text("phase", numbers.phase);
    json.Text("step", numbers.step);
    json.Text("name", numbers.name);
    json.Text("unit", numbers.unit);
    json.Whole("count", numbers.count);
    json.Number("mean", numbers.mean);
    json.Number("stddev", numbers.stddev);
    json.Number("min", numbers.min);
    json.Number("max", numbers.max);
    json.Number("low", numbers.low);
    json.Number("high", numbers.high);
    json.Number("cpk", numbers.cpk);
  });
  json.Close();
  return json.text();
}

void WriteSummaryCsv(const Summary& summary, std::ostream& out) {
  out << "row,station,phase,step,name,unit,runs,devices,passed,failed,errors,aborted,"
         "first_pass_yield,final_yield,seconds,count,mean,stddev,min,max,low,high,cpk\n";
  out << "all,,,,,," << summary.runs << ',' << summary.devices << ',' << summary.passed << ','
      << summary.failed << ',' << summary.errors << ',' << summary.aborted << ','
      << Exact(summary.yield.First()) << ',' << Exact(summary.yield.Final()) << ",,,,,,,,,\n";
  for (const StationNumbers& numbers : summary.stations) {
    out << "station," << Csv(numbers.station) << ",,,,," << numbers.runs << ",,,,,,"
        << Exact(numbers.yield.First()) << ",," << Exact(numbers.seconds) << ",,,,,,,,\n";
  }
  for (const StepNumbers& numbers : summary.steps) {
    out << "step,," << Csv(numbers.phase) << ',' << Csv(numbers.step) << ",,," << numbers.runs
        << ",,," << numbers.failed << ',' << numbers.errors << ",,,,,,,,,,,,\n";
  }
  for (const MeasurementNumbers& numbers : summary.measurements) {
    out << "measurement,," << Csv(numbers.phase) << ',' << Csv(numbers.step) << ','
        << Csv(numbers.name) << ',' << Csv(numbers.unit) << ",,,,,,,,,," << numbers.count;
    for (const double number : {numbers.mean, numbers.stddev, numbers.min, numbers.max, numbers.low,
                                numbers.high, numbers.cpk}) {
      out << ',' << Exact(number);
    }
    out << '\n';
  }
}

void WriteSummaryText(const Summary& summary, bool colour, std::ostream& out) {
  const auto coloured = [colour](const char* code, const std::string& text) {
    return colour ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
  };
  const double first = summary.yield.First();
  out << "First-pass yield " << coloured(first < 0.95 ? "31" : "32", Percent(first))
      << ", final yield " << Percent(summary.yield.Final()) << ", of "
      << qnx::Counted(summary.devices, "device", "devices") << '\n'
      << qnx::Counted(summary.runs, "run", "runs") << ": " << summary.passed << " passed, "
      << summary.failed << " failed, " << qnx::Counted(summary.errors, "error", "errors") << ", "
      << summary.aborted << " aborted\n";
  if (!summary.stations.empty()) {
    out << "\nStations\n";
    Table table("lrrr");
    table.Row({"station", "runs", "first pass", "median s"});
    for (const StationNumbers& numbers : summary.stations) {
      table.Row({qnx::Escape(numbers.station), std::to_string(numbers.runs),
                 Percent(numbers.yield.First()), Decimals(numbers.seconds, 1)});
    }
    table.Print(out);
  }
  WriteSteps(summary, out);
  WriteMeasurements(summary, out);
}

}  // namespace records
