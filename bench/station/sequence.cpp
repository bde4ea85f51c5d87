#include "station/sequence.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "station/pattern.h"
#include "tools/program.h"

namespace station {
namespace {

const int kMostRetries = 10000;
const std::size_t kLongestLine = 2000;
const double kLongestTime = 3600;  // seconds, of any one time in a file

std::string Quoted(const std::string& text) { return "'" + tools::Escape(text) + "'"; }

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Takes the first word off *rest.
std::string TakeWord(std::string* rest) {
  const std::size_t end = rest->find_first_of(" \t");
  std::string word = rest->substr(0, end);
  *rest = end == std::string::npos ? "" : Trim(rest->substr(end));
  return word;
}

// Takes `prefix`, whole words, off *rest; false when it does not begin so.
bool TakePrefix(const std::string& prefix, std::string* rest) {
  if (*rest != prefix && rest->rfind(prefix + " ", 0) != 0) return false;
  *rest = Trim(rest->substr(prefix.size()));
  return true;
}

bool IsName(const std::string& text) {
  if (text.empty() || !std::isalpha(static_cast<unsigned char>(text[0]))) return false;
  return std::all_of(text.begin(), text.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
  });
}

// "2 s": seconds.
bool ParseTime(const std::string& text, double* seconds) {
  std::string rest = text;
  *seconds = ParseNumber(TakeWord(&rest));
  return rest == "s" && *seconds >= 0 && *seconds <= kLongestTime;
}

const FieldInfo* FindInfo(const Command& command, const std::string& field) {
  if (command.reply == nullptr) return nullptr;
  for (const FieldInfo& info : command.reply->fields) {
    if (field == info.name) return &info;
  }
  return nullptr;
}

// Calls `use` with each name in braces and its place.
void ForEachValue(const std::string& text,
                  const std::function<void(const std::string&, std::size_t)>& use) {
  for (std::size_t at = text.find('{'); at != std::string::npos; at = text.find('{', at + 1)) {
    const std::size_t end = text.find('}', at);
    if (end == std::string::npos) return;
    const std::string name = text.substr(at + 1, end - at - 1);
    if (IsName(name)) use(name, at);
  }
}

bool IsPattern(const std::string& text, std::string* problem) {
  const Pattern pattern(text);
  if (pattern.problem().empty()) return true;
  *problem = Quoted(text) + " is not a pattern: " + pattern.problem();
  return false;
}

// One pass over the lines.
class Parser {
 public:
  explicit Parser(Sequence* sequence) : sequence_(sequence) {}

  std::vector<std::string> Parse(const std::string& text) {
    std::size_t start = 0;
    while (start < text.size()) {
      const std::size_t end = std::min(text.find('\n', start), text.size());
      ++line_;
      ParseLine(Trim(text.substr(start, end - start)));
      start = end + 1;
    }
    FinishPhase();
    if (sequence_->phases.empty()) Error("there is no phase");
    return std::move(errors_);
  }

 private:
  void Error(const std::string& reason) { ErrorAt(line_, reason); }
  void ErrorAt(int line, const std::string& reason) {
    errors_.push_back(std::to_string(line) + ": " + reason);
  }

  void ParseLine(std::string rest) {
    if (rest.empty() || rest[0] == '#') return;
    const bool control = std::any_of(rest.begin(), rest.end(),
                                     [](char c) { return c != '\t' && tools::IsControl(c); });
    if (control) return Error("control characters");
    if (rest.size() > kLongestLine) return Error("the line is too long");
    const std::string keyword = TakeWord(&rest);
    using Handler = void (Parser::*)(const std::string&);
    static const std::map<std::string, Handler> outside = {{"title", &Parser::ParseTitle},
                                                           {"device", &Parser::ParseDevice},
                                                           {"value", &Parser::ParseValue},
                                                           {"phase", &Parser::ParsePhase},
                                                           {"step", &Parser::ParseStep}};
    static const std::map<std::string, Handler> inside = {
        {"do", &Parser::ParseDo},         {"expect", &Parser::ParseExpect},
        {"keep", &Parser::ParseKeep},     {"wait", &Parser::ParseWait},
        {"retry", &Parser::ParseRetry},   {"timeout", &Parser::ParseTimeout},
        {"verify", &Parser::ParseVerify}, {"stop", &Parser::ParseStop}};
    if (const auto found = outside.find(keyword); found != outside.end()) {
      (this->*found->second)(rest);
    } else if (const auto part = inside.find(keyword); part != inside.end()) {
      if (!in_step_) return Error(Quoted(keyword) + " belongs into a step");
      (this->*part->second)(rest);
    } else {
      Error("unknown word " + Quoted(keyword));
    }
  }

  void ParseTitle(const std::string& rest) {
    if (!sequence_->title.empty()) return Error("a second title");
    if (rest.empty()) return Error("title needs a text");
    sequence_->title = rest;
  }

  void ParseDevice(const std::string& rest) {
    if (sequence_->device_line != 0) return Error("a second device");
    if (rest.empty()) return Error("device needs a text");
    sequence_->device = rest;
    sequence_->device_line = line_;
  }

  void ParseValue(const std::string& rest) {
    if (!sequence_->phases.empty()) return Error("values are declared in front of the phases");
    const std::size_t equals = rest.find('=');
    const std::string name = Trim(rest.substr(0, equals));
    if (!IsName(name)) return Error(Quoted(name) + " is not a name");
    Value value;
    value.line = line_;
    value.required = equals == std::string::npos;
    if (!value.required) value.text = Trim(rest.substr(equals + 1));
    if (!sequence_->values.emplace(name, value).second) {
      Error("value " + Quoted(name) + " is there already");
    }
  }

  void ParsePhase(const std::string& rest) {
    FinishPhase();
    if (rest.empty()) return Error("phase needs a name");
    for (const Phase& phase : sequence_->phases) {
      if (phase.name == rest) Error("phase " + Quoted(rest) + " is there already");
    }
    Phase phase;
    phase.line = line_;
    phase.name = rest;
    sequence_->phases.push_back(phase);
  }

  void ParseStep(const std::string& rest) {
    FinishStep();
    if (rest.empty()) return Error("step needs a name");
    if (sequence_->phases.empty()) return Error("a step belongs into a phase");
    Step step;
    step.line = line_;
    step.name = rest;
    sequence_->phases.back().steps.push_back(step);
    in_step_ = true;
  }

  Step& step() { return sequence_->phases.back().steps.back(); }

  void ParseDo(const std::string& rest) {
    if (step().command_line != 0) return Error("a second command in one step");
    step().command_line = line_;
    const std::string problem = SplitWords(rest, &step().words);
    if (!problem.empty()) return Error(problem);
    std::size_t count = 0;
    const std::string mismatch = MatchCommand(step().words, &step().command, &count);
    if (!mismatch.empty()) return Error(mismatch);
    if (!step().command->sent) {
      step().command = nullptr;
      Error(Quoted(rest) + " is no command that is sent to the service");
    }
  }

  void ParseExpect(const std::string& text) {
    std::string rest = text;
    Expectation expectation;
    expectation.line = line_;
    expectation.field = TakeWord(&rest);
    if (TakePrefix("is", &rest)) {
      expectation.kind = Expectation::Kind::kIs;
      // Quotes keep blanks at the ends.
      const bool quoted = rest.size() >= 2 && rest.front() == '"' && rest.back() == '"';
      expectation.texts.push_back(quoted ? rest.substr(1, rest.size() - 2) : rest);
    } else if (TakePrefix("one of", &rest)) {
      expectation.kind = Expectation::Kind::kOneOf;
      const std::string problem = SplitWords(rest, &expectation.texts);
      if (!problem.empty()) return Error(problem);
      if (expectation.texts.empty()) return Error("'one of' needs at least one word");
    } else if (TakePrefix("matches", &rest)) {
      expectation.kind = Expectation::Kind::kMatches;
      if (rest.empty()) return Error("'matches' needs a pattern");
      expectation.texts.push_back(rest);
    } else if (!ParseLimits(rest, &expectation)) {
      return Error(
          "expect FIELD needs one of: is TEXT, one of WORD..., matches PATTERN, from LOW to HIGH, "
          "at "
          "least LOW, at most HIGH");
    }
    step().expectations.push_back(expectation);
  }

  static bool ParseLimits(std::string rest, Expectation* expectation) {
    expectation->kind = Expectation::Kind::kLimits;
    if (TakePrefix("from", &rest)) {
      expectation->low = TakeWord(&rest);
      if (!TakePrefix("to", &rest)) return false;
      expectation->high = TakeWord(&rest);
    } else if (TakePrefix("at least", &rest)) {
      expectation->low = TakeWord(&rest);
    } else if (TakePrefix("at most", &rest)) {
      expectation->high = TakeWord(&rest);
    } else {
      return false;
    }
    expectation->unit = rest;
    return !expectation->low.empty() || !expectation->high.empty();
  }

  void ParseKeep(const std::string& text) {
    std::string rest = text;
    Keep keep;
    keep.field = TakeWord(&rest);
    if (!TakePrefix("as", &rest) || !IsName(rest)) return Error("keep needs FIELD as NAME");
    keep.name = rest;
    step().keeps.push_back(keep);
  }

  void ParseWait(const std::string& text) {
    std::string rest = text;
    Wait wait{};
    wait.for_service = TakePrefix("for service", &rest);
    if (!ParseTime(rest, &wait.seconds)) return Error("wait needs a time like 2 s, up to 3600 s");
    step().waits.push_back(wait);
  }

  void ParseRetry(const std::string& text) {
    std::string rest = text;
    const double count = ParseNumber(TakeWord(&rest));
    const bool whole = count >= 1 && count <= kMostRetries && std::floor(count) == count;
    const bool times = TakePrefix("times", &rest) || TakePrefix("time", &rest);
    double pause = 0;
    if (!whole || !times ||
        (!rest.empty() && (!TakePrefix("every", &rest) || !ParseTime(rest, &pause)))) {
      return Error("retry needs COUNT times, or COUNT times every SECONDS s");
    }
    step().retries = static_cast<int>(count);
    step().retry_pause = pause;
  }

  void ParseTimeout(const std::string& rest) {
    if (!ParseTime(rest, &step().timeout) || step().timeout <= 0) {
      Error("timeout needs a time like 5 s, up to 3600 s");
    }
  }

  void ParseVerify(const std::string& rest) {
    if (!rest.empty()) return Error("verify takes nothing");
    step().verify = true;
  }

  void ParseStop(const std::string& rest) {
    if (rest != "on failure") return Error("it reads: stop on failure");
    step().stop_on_failure = true;
  }

  void FinishPhase() {
    FinishStep();
    if (!sequence_->phases.empty() && sequence_->phases.back().steps.empty()) {
      ErrorAt(sequence_->phases.back().line,
              "phase " + Quoted(sequence_->phases.back().name) + " has no steps");
    }
  }

  // What can only be told once the whole step is there.
  void FinishStep() {
    if (!in_step_) return;
    in_step_ = false;
    Step& done = step();
    if (done.command_line == 0) {
      if (done.waits.empty()) ErrorAt(done.line, "step " + Quoted(done.name) + " does nothing");
      if (!done.expectations.empty() || !done.keeps.empty() || done.verify) {
        ErrorAt(done.line, "step " + Quoted(done.name) + " has no command to expect anything of");
      }
      return;
    }
    if (done.command == nullptr) return;  // reported already
    if (done.verify && done.command->proofs.empty()) {
      ErrorAt(done.command_line, Quoted(done.command->words) + " cannot be verified");
    }
    for (Expectation& expectation : done.expectations) CheckField(done, &expectation);
    for (const Keep& keep : done.keeps) {
      if (FindInfo(*done.command, keep.field) == nullptr) {
        ErrorAt(done.line, "keep: " + NoField(*done.command, keep.field));
      }
    }
  }

  void CheckField(const Step& done, Expectation* expectation) {
    const FieldInfo* info = FindInfo(*done.command, expectation->field);
    if (info == nullptr) {
      return ErrorAt(expectation->line, NoField(*done.command, expectation->field));
    }
    if (expectation->kind == Expectation::Kind::kLimits) {
      if (!info->numeric) {
        ErrorAt(expectation->line, Quoted(expectation->field) + " is a text and has no limits");
      }
      if (!expectation->unit.empty() && expectation->unit != info->unit) {
        const std::string unit =
            *info->unit == '\0' ? "has no unit" : std::string("is in ") + info->unit;
        ErrorAt(expectation->line,
                Quoted(expectation->field) + " " + unit + ", not in " + Quoted(expectation->unit));
      }
    }
    expectation->unit = info->unit;
  }

  static std::string NoField(const Command& command, const std::string& field) {
    if (command.reply == nullptr) return Quoted(command.words) + " is not answered";
    std::string names;
    for (const FieldInfo& info : command.reply->fields) {
      names += (names.empty() ? "" : ", ") + std::string(info.name);
    }
    return "the answer to " + Quoted(command.words) + " has no " + Quoted(field) +
           ", only: " + names;
  }

  Sequence* sequence_;
  std::vector<std::string> errors_;
  int line_ = 0;
  bool in_step_ = false;
};

// One pass over the steps in the order of their run.
class Checker {
 public:
  Checker(const Sequence& sequence, const Values& given, const std::set<std::string>& phases)
      : sequence_(sequence),
        phases_(phases),
        values_(StartValues(sequence, given)),
        given_(given) {}

  std::vector<std::string> Check() {
    for (const auto& [name, text] : given_) {
      if (sequence_.values.count(name) == 0) errors_.push_back("there is no value " + Quoted(name));
    }
    for (const auto& [name, value] : sequence_.values) {
      if (values_.count(name) == 0) {
        errors_.push_back("value " + Quoted(name) + " is missing: give it with --set " + name +
                          "=...");
      }
    }
    for (const std::string& name : phases_) {
      const bool there = std::any_of(sequence_.phases.begin(), sequence_.phases.end(),
                                     [&](const Phase& phase) { return phase.name == name; });
      if (!there) errors_.push_back("there is no phase " + Quoted(name));
    }
    CheckText(sequence_.device_line, sequence_.device);
    for (const Phase& phase : sequence_.phases) {
      if (!phases_.empty() && phases_.count(phase.name) == 0) continue;
      for (const Step& step : phase.steps) CheckStep(step);
    }
    return std::move(errors_);
  }

 private:
  void Error(int line, const std::string& reason) {
    errors_.push_back(std::to_string(line) + ": " + reason);
  }

  // True when every value in the text is known now; reports the ones that never will be.
  bool CheckText(int line, const std::string& text) {
    bool known = true;
    ForEachValue(text, [&](const std::string& name, std::size_t) {
      if (values_.count(name) != 0) return;
      known = false;
      // A missing value of the command line has been reported.
      if (kept_.count(name) != 0 || sequence_.values.count(name) != 0) return;
      Error(line, "nothing in front of this gives a value " + Quoted(name));
    });
    return known;
  }

  std::string Filled(const std::string& text) const {
    std::string filled;
    std::string missing;
    FillValues(text, values_, &filled, &missing);
    return filled;
  }

  void CheckStep(const Step& step) {
    if (step.command == nullptr) return;
    bool known = true;
    std::vector<std::string> words;
    for (const std::string& word : step.words) {
      known = CheckText(step.command_line, word) && known;
      words.push_back(Filled(word));
    }
    Invocation invocation;
    const std::string problem = known ? ParseInvocation(words, &invocation) : "";
    if (!problem.empty()) Error(step.command_line, problem);
    for (const Expectation& expectation : step.expectations) CheckExpectation(expectation);
    for (const Keep& keep : step.keeps) {
      kept_.insert(keep.name);
      values_.erase(keep.name);
    }
  }

  void CheckExpectation(const Expectation& expectation) {
    std::string problem;
    for (const std::string& text : expectation.texts) {
      if (CheckText(expectation.line, text) && expectation.kind == Expectation::Kind::kMatches &&
          !IsPattern(Filled(text), &problem)) {
        Error(expectation.line, problem);
      }
    }
    double limits[2];
    const std::string* texts[] = {&expectation.low, &expectation.high};
    for (int i = 0; i < 2; ++i) {
      limits[i] = std::numeric_limits<double>::quiet_NaN();
      if (texts[i]->empty() || !CheckText(expectation.line, *texts[i])) continue;
      limits[i] = ParseNumber(Filled(*texts[i]));
      if (std::isnan(limits[i])) Error(expectation.line, Quoted(*texts[i]) + " is not a number");
    }
    if (limits[0] > limits[1]) Error(expectation.line, "the lower limit is above the upper one");
  }

  const Sequence& sequence_;
  const std::set<std::string>& phases_;
  Values values_;  // known now
  const Values& given_;
  std::set<std::string> kept_;  // known once the run is there
  std::vector<std::string> errors_;
};

}  // namespace

std::vector<std::string> ParseSequence(const std::string& text, Sequence* sequence) {
  return Parser(sequence).Parse(text);
}

std::vector<std::string> CheckSequence(const Sequence& sequence, const Values& given,
                                       const std::set<std::string>& phases) {
  return Checker(sequence, given, phases).Check();
}

Values StartValues(const Sequence& sequence, const Values& given) {
  Values values = given;
  for (const auto& [name, value] : sequence.values) {
    if (!value.required) values.emplace(name, value.text);
  }
  return values;
}

bool FillValues(const std::string& text, const Values& values, std::string* filled,
                std::string* missing) {
  filled->clear();
  missing->clear();
  std::size_t done = 0;
  ForEachValue(text, [&](const std::string& name, std::size_t at) {
    const auto value = values.find(name);
    if (value == values.end()) {
      *missing = name;
      return;
    }
    *filled += text.substr(done, at - done) + value->second;
    done = at + name.size() + 2;
  });
  *filled += text.substr(done);
  return missing->empty();
}

std::string DescribeExpectation(const Expectation& expectation, const Values& values) {
  const auto fill = [&](const std::string& text) {
    std::string filled;
    std::string missing;
    FillValues(text, values, &filled, &missing);
    return filled;
  };
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

bool Holds(const Expectation& expectation, const Field& field, const Values& values,
           std::string* problem) {
  std::string filled;
  std::string missing;
  const auto fill = [&](const std::string& text) {
    if (FillValues(text, values, &filled, &missing)) return true;
    *problem = "there is no value " + Quoted(missing);
    return false;
  };
  if (expectation.kind == Expectation::Kind::kMatches) {
    if (!fill(expectation.texts[0]) || !IsPattern(filled, problem)) return false;
    return Pattern(filled).Matches(field.text);
  }
  if (expectation.kind != Expectation::Kind::kLimits) {
    for (const std::string& text : expectation.texts) {
      if (!fill(text)) return false;
      if (filled == field.text) return true;
      if (field.info->numeric && ParseNumber(filled) == field.number) return true;
    }
    return false;
  }
  // A field that is no number is within no limits.
  bool within = !std::isnan(field.number);
  for (const std::string* limit : {&expectation.low, &expectation.high}) {
    if (limit->empty()) continue;
    if (!fill(*limit)) return false;
    const double number = ParseNumber(filled);
    if (std::isnan(number)) {
      *problem = Quoted(filled) + " is not a number";
      return false;
    }
    within =
        within && (limit == &expectation.low ? field.number >= number : field.number <= number);
  }
  return within;
}

}  // namespace station
