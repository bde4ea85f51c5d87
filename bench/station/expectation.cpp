#include "station/expectation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sequence_text.h"
#include "station/pattern.h"

namespace station {
namespace {

const double kNone = std::numeric_limits<double>::quiet_NaN();

std::string Filled(const std::string& text, const Values& values) {
  std::string filled;
  std::string missing;
  FillValues(text, values, &filled, &missing);
  return filled;
}

std::string RangeText(const FieldInfo& info) {
  if (info.choices != nullptr) return "only: " + WordList(info.choices);
  if (std::isinf(info.lowest) || std::isinf(info.highest)) return "only numbers";
  return qnx::Formatted("only numbers from %.15g to %.15g", info.lowest, info.highest);
}

// True when a field can ever be this text.
bool CanBe(const FieldInfo& info, const std::string& text) {
  if (info.choices != nullptr) {
    const wire::Choice* choice = info.choices;
    while (choice->word != nullptr && text != choice->word) ++choice;
    return choice->word != nullptr;
  }
  const double number = qnx::ParseReal(text);
  return !info.numeric || (number >= info.lowest && number <= info.highest);
}

}  // namespace

std::string DescribeExpectation(const Expectation& expectation, const Values& values) {
  const auto fill = [&](const std::string& text) { return AsWritten(Filled(text, values)); };
  std::string text;
  switch (expectation.kind) {
    case Expectation::Kind::kIs:
      return "'" + fill(expectation.texts[0]) + "'";
    case Expectation::Kind::kOneOf:
      for (const std::string& word : expectation.texts) {
        text += (text.empty() ? "one of '" : ", '") + fill(word) + "'";
      }
      return text;
    case Expectation::Kind::kMatches:
      return "matching " + fill(expectation.texts[0]);
    case Expectation::Kind::kLimits:
      break;
  }
  if (expectation.high.empty()) {
    text = "at least " + fill(expectation.low);
  } else if (expectation.low.empty()) {
    text = "at most " + fill(expectation.high);
  } else {
    text = "from " + fill(expectation.low) + " to " + fill(expectation.high);
  }
  return expectation.unit.empty() ? text : text + " " + expectation.unit;
}

std::string MissingValue(const Expectation& expectation, const Values& values) {
  std::vector<std::string> texts = expectation.texts;
  texts.push_back(expectation.low);
  texts.push_back(expectation.high);
  std::string filled;
  std::string missing;
  for (const std::string& text : texts) {
    if (!FillValues(text, values, &filled, &missing)) break;
  }
  return missing;
}

double LimitNumber(const std::string& limit, const Values& values) {
  std::string filled;
  std::string missing;
  if (limit.empty() || !FillValues(limit, values, &filled, &missing)) return kNone;
  return qnx::ParseReal(filled);
}

bool Holds(const Expectation& expectation, const Field& field, const Values& values,
           std::string* problem) {
  const std::string missing = MissingValue(expectation, values);
  if (!missing.empty()) {
    *problem = "there is no value " + Quoted(missing);
    return false;
  }
  if (expectation.kind == Expectation::Kind::kMatches) {
    const std::string filled = Filled(expectation.texts[0], values);
    const Pattern pattern(filled);
    if (!pattern.problem().empty()) {
      *problem = "'" + AsWritten(filled) + "' is not a pattern: " + pattern.problem();
    }
    return pattern.Matches(field.text);
  }
  if (expectation.kind != Expectation::Kind::kLimits) {
    return std::any_of(expectation.texts.begin(), expectation.texts.end(),
                       [&](const std::string& text) {
                         const std::string filled = Filled(text, values);
                         return filled == field.text ||
                                (field.info->numeric && qnx::ParseReal(filled) == field.number);
                       });
  }
  // A field that is not a number is within no limits.
  bool within = !std::isnan(field.number);
  for (const std::string* limit : {&expectation.low, &expectation.high}) {
    if (limit->empty()) continue;
    const double number = LimitNumber(*limit, values);
    if (std::isnan(number)) {
      *problem = Quoted(Filled(*limit, values)) + " is not a number";
      return false;
    }
    within =
        within && (limit == &expectation.low ? field.number >= number : field.number <= number);
  }
  return within;
}

std::string Impossible(const Expectation& expectation, const FieldInfo& info,
                       const Values& values) {
  using Kind = Expectation::Kind;
  if (!MissingValue(expectation, values).empty()) return "";
  if (expectation.kind == Kind::kIs || expectation.kind == Kind::kOneOf) {
    std::string never;
    for (const std::string& text : expectation.texts) {
      const std::string filled = Filled(text, values);
      if (!CanBe(info, filled)) never += (never.empty() ? "" : " or ") + Quoted(filled);
    }
    if (!never.empty()) return Quoted(info.name) + " is never " + never + ", " + RangeText(info);
  } else if (expectation.kind == Kind::kMatches) {
    const std::string filled = Filled(expectation.texts[0], values);
    const Pattern pattern(filled);
    if (!pattern.problem().empty()) {
      return "'" + AsWritten(filled) + "' is not a pattern: " + pattern.problem();
    }
  } else {
    for (const std::string* limit : {&expectation.low, &expectation.high}) {
      if (!limit->empty() && std::isnan(LimitNumber(*limit, values))) {
        return Quoted(Filled(*limit, values)) + " is not a number";
      }
    }
    const double low = LimitNumber(expectation.low, values);
    const double high = LimitNumber(expectation.high, values);
    if (low > high) return "the lower limit is above the upper one";
    if (low > info.highest || high < info.lowest) {
      return Quoted(info.name) + " is never " + DescribeExpectation(expectation, values) + ", " +
             RangeText(info);
    }
  }
  return "";
}

}  // namespace station
