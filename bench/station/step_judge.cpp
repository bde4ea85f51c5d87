#include "step_judge.h"

#include <cmath>

#include "station/expectation.h"

namespace station {
namespace {

using records::Outcome;

// The outcome of the exchange itself. A service that does not answer says nothing about the unit.
Outcome OutcomeOf(const Exchange& exchange) {
  switch (exchange.outcome) {
    case Exchange::Outcome::kRight:
      return Outcome::kPassed;
    case Exchange::Outcome::kWrong:
    case Exchange::Outcome::kUnproven:
      return Outcome::kFailed;
    case Exchange::Outcome::kUnanswered:
    case Exchange::Outcome::kUnreachable:
      break;
  }
  return Outcome::kError;
}

void Append(const char* between, const std::string& text, std::string* list) {
  *list += (list->empty() ? "" : between) + text;
}

records::Measurement Measure(const Field& field) {
  records::Measurement measurement;
  measurement.name = field.info->name;
  measurement.unit = field.info->unit;
  measurement.text = field.text;
  if (field.info->numeric) measurement.number = field.number;
  return measurement;
}

// Holds one expectation against its field and adds it to the measurement. Returns what is wrong, or
// nothing.
std::string Hold(const Expectation& expectation, const Field& field, const Values& values,
                 records::Measurement* measurement) {
  const std::string expected = DescribeExpectation(expectation, values);
  Append(" and ", expected, &measurement->expected);
  const double low = LimitNumber(expectation.low, values);
  const double high = LimitNumber(expectation.high, values);
  // Of several limits the narrowest.
  if (!(measurement->low >= low) && !std::isnan(low)) measurement->low = low;
  if (!(measurement->high <= high) && !std::isnan(high)) measurement->high = high;
  std::string problem;
  if (Holds(expectation, field, values, &problem)) return "";
  measurement->outcome = Outcome::kFailed;
  return expectation.field + " is '" + tools::Escape(field.text) + "', not " +
         (problem.empty() ? expected : "decidable: " + problem);
}

void MeasureReadBack(const Exchange& exchange, records::Step* record) {
  for (const ReadBack& read : exchange.read_back) {
    records::Measurement measurement;
    measurement.name = read.name;
    measurement.text = read.text;
    measurement.number = read.number;
    measurement.expected = tools::Quoted(read.expected);
    if (read.text != read.expected) {
      measurement.outcome = Outcome::kFailed;
      Append(", ", read.name + " " + measurement.expected, &record->expected);
    }
    record->measurements.push_back(measurement);
  }
}

}  // namespace

void JudgeStep(const Step& step, const Exchange& exchange, const Values& values,
               records::Step* record) {
  record->request = exchange.request;
  record->reply = exchange.reply;
  record->outcome = OutcomeOf(exchange);
  record->problem = exchange.problem;
  record->expected.clear();
  record->measurements.clear();
  for (const Field& field : exchange.answer.fields) {
    records::Measurement measurement = Measure(field);
    for (const Expectation& expectation : step.expectations) {
      if (expectation.field != field.info->name) continue;
      const std::string problem = Hold(expectation, field, values, &measurement);
      if (problem.empty()) continue;
      Append(", ", expectation.field + " " + DescribeExpectation(expectation, values),
             &record->expected);
      if (record->outcome == Outcome::kPassed) record->problem = problem;
      record->outcome = Outcome::kFailed;
    }
    record->measurements.push_back(measurement);
  }
  MeasureReadBack(exchange, record);
}

}  // namespace station
