#include "step_parser.h"

#include <cmath>

#include "sequence_limits.h"
#include "sequence_text.h"

namespace station {
namespace {

const int kMostRetries = 10000;
const double kLongestTime = 3600;  // seconds, of any one time in a file

// "2 s": seconds.
bool ParseTime(const std::string& text, double* seconds) {
  std::string rest = text;
  *seconds = qnx::ParseReal(TakeWord(&rest));
  return rest == "s" && *seconds >= 0 && *seconds <= kLongestTime;
}

std::string ParseDo(const std::string& rest, const Place& place, Step* step) {
  if (step->command_place.line != 0) return "a second command in one step";
  step->command_place = place;
  std::string problem = SplitWords(rest, &step->words);
  if (!problem.empty()) return problem;
  std::size_t count = 0;
  std::string mismatch = MatchCommand(step->words, &step->command, &count);
  if (!mismatch.empty()) return mismatch;
  if (step->command->sent) return "";
  step->command = nullptr;
  return Quoted(rest) + " is not a command that is sent to the service";
}

bool ParseLimits(std::string rest, Expectation* expectation) {
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

std::string ParseExpect(const std::string& text, const Place& place, Step* step) {
  std::string rest = text;
  Expectation expectation;
  expectation.place = place;
  expectation.field = TakeWord(&rest);
  if (TakePrefix("is", &rest)) {
    expectation.kind = Expectation::Kind::kIs;
    // Quotes keep blanks at the ends.
    const bool quoted = rest.size() >= 2 && rest.front() == '"' && rest.back() == '"';
    expectation.texts.push_back(quoted ? rest.substr(1, rest.size() - 2) : rest);
  } else if (TakePrefix("one of", &rest)) {
    expectation.kind = Expectation::Kind::kOneOf;
    std::string problem = SplitWords(rest, &expectation.texts);
    if (!problem.empty()) return problem;
    if (expectation.texts.empty()) return "'one of' needs at least one word";
  } else if (TakePrefix("matches", &rest)) {
    expectation.kind = Expectation::Kind::kMatches;
    if (rest.empty()) return "'matches' needs a pattern";
    expectation.texts.push_back(rest);
  } else if (!ParseLimits(rest, &expectation)) {
    return "expect FIELD needs one of: is TEXT, one of WORD..., matches PATTERN, from LOW to HIGH, "
           "at least LOW, at most HIGH";
  }
  step->expectations.push_back(expectation);
  return "";
}

std::string ParseKeep(const std::string& text, const Place& /*place*/, Step* step) {
  std::string rest = text;
  Keep keep;
  keep.field = TakeWord(&rest);
  if (!TakePrefix("as", &rest) || !IsName(rest)) return "keep needs FIELD as NAME";
  keep.name = rest;
  step->keeps.push_back(keep);
  return "";
}

std::string ParseWait(const std::string& text, const Place& /*place*/, Step* step) {
  std::string rest = text;
  Wait wait{};
  wait.for_service = TakePrefix("for service", &rest);
  const bool right = ParseTime(rest, &wait.seconds);
  step->waits.push_back(wait);
  return right ? "" : "wait needs a time like 2 s, up to 3600 s";
}

std::string ParseRetry(const std::string& text, const Place& /*place*/, Step* step) {
  std::string rest = text;
  const double count = qnx::ParseReal(TakeWord(&rest));
  const bool whole = count >= 1 && count <= kMostRetries && std::floor(count) == count;
  const bool times = TakePrefix("times", &rest) || TakePrefix("time", &rest);
  double pause = 0;
  if (!whole || !times ||
      (!rest.empty() && (!TakePrefix("every", &rest) || !ParseTime(rest, &pause)))) {
    return "retry needs COUNT times, or COUNT times every SECONDS s";
  }
  step->retries = static_cast<int>(count);
  step->retry_pause = pause;
  return "";
}

std::string ParseTimeout(const std::string& rest, const Place& /*place*/, Step* step) {
  const bool right = ParseTime(rest, &step->timeout) && step->timeout > 0;
  return right ? "" : "timeout needs a time like 5 s, up to 3600 s";
}

std::string ParseVerify(const std::string& rest, const Place& /*place*/, Step* step) {
  step->verify = true;
  return rest.empty() ? "" : "verify takes nothing";
}

std::string ParseStop(const std::string& rest, const Place& /*place*/, Step* step) {
  step->stop_on_failure = true;
  return rest == "on failure" ? "" : "it reads: stop on failure";
}

std::string ParseConfirm(const std::string& rest, const Place& place, Step* step) {
  if (!step->question.empty()) return "a second question in one step";
  step->question = rest;
  step->question_place = place;
  return rest.empty() ? "confirm needs a question" : "";
}

using Handler = std::string (*)(const std::string&, const Place&, Step*);

const std::map<std::string, Handler>& Handlers() {
  static const std::map<std::string, Handler> handlers = {
      {"do", ParseDo},         {"expect", ParseExpect}, {"keep", ParseKeep},
      {"wait", ParseWait},     {"retry", ParseRetry},   {"timeout", ParseTimeout},
      {"verify", ParseVerify}, {"stop", ParseStop},     {"confirm", ParseConfirm}};
  return handlers;
}

}  // namespace

bool IsStepWord(const std::string& word) { return Handlers().count(word) != 0; }

std::string ParseStepLine(const std::string& word, const std::string& rest, const Place& place,
                          Step* step) {
  return Handlers().at(word)(rest, place, step);
}

void FinishStepLines(Step* step, std::vector<Mistake>* mistakes) {
  const auto wrong = [&](const Place& place, const std::string& reason) {
    mistakes->push_back({place, reason});
  };
  const std::string name = "step " + Quoted(step->name);
  if (step->command_place.line == 0) {
    const bool acts = !step->waits.empty() || step->question_place.line != 0;
    if (!acts) wrong(step->place, name + " does nothing");
    if (!step->expectations.empty() || !step->keeps.empty() || step->verify) {
      wrong(step->place, name + " has no command to expect anything of");
    }
    return;
  }
  if (step->command == nullptr) return;  // reported already
  if (step->verify && step->command->proofs.empty()) {
    wrong(step->command_place, Quoted(step->command->words) + " cannot be verified");
  }
  for (Expectation& expectation : step->expectations) {
    const std::string problem = CheckField(*step->command, &expectation);
    if (!problem.empty()) wrong(expectation.place, problem);
  }
  for (const Keep& keep : step->keeps) {
    if (FindInfo(*step->command, keep.field) == nullptr) {
      wrong(step->place, "keep: " + NoField(*step->command, keep.field));
    }
  }
}

}  // namespace station
