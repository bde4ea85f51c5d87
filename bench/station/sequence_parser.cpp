// Reads sequences and the files they include. step_parser.cpp reads the lines inside a step,
// sequence_limits.cpp the tables of limits.
#include <algorithm>
#include <functional>
#include <map>

#include "sequence_limits.h"
#include "sequence_text.h"
#include "station/pattern.h"
#include "station/sequence.h"
#include "step_parser.h"
#include "tools/program.h"

namespace station {
namespace {

const std::size_t kLongestLine = 2000;
const std::size_t kMostFiles = 100;

// CRC-32 as in Ethernet and zip, continued from `crc`.
std::uint32_t Crc32(std::uint32_t crc, const std::string& text) {
  const std::uint32_t kPolynomial = 0xEDB88320U;
  crc = ~crc;
  for (const char c : text) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? kPolynomial : 0U);
  }
  return ~crc;
}

// `path` as it stands in the file `from`.
std::string BesideFile(const std::string& from, const std::string& path) {
  const std::size_t slash = from.rfind('/');
  if (path[0] == '/' || slash == std::string::npos) return path;
  return from.substr(0, slash + 1) + path;
}

// One pass over the lines of all files.
class Parser {
 public:
  Parser(const SourceReader& read, Sequence* sequence) : read_(read), sequence_(sequence) {}

  std::vector<Mistake> Parse(const std::string& path) {
    ReadLines(path);
    FinishPhase();
    for (const auto& [depth, limits] : limits_) {
      for (const Limit& limit : limits) {
        const std::string problem = ApplyLimit(limit, sequence_);
        if (!problem.empty()) MistakeAt(limit.place, problem);
      }
    }
    place_ = Place{};
    if (sequence_->phases.empty() && whole_) Wrong("there is no phase");
    return std::move(mistakes_);
  }

 private:
  void Wrong(const std::string& reason) { MistakeAt(place_, reason); }
  void MistakeAt(const Place& place, const std::string& reason) {
    mistakes_.push_back({place, reason});
  }

  // Opens a file that `place_` names; false when it cannot be read.
  bool Open(const std::string& path, std::string* text) {
    if (sequence_->files.size() >= kMostFiles) {
      Wrong("more than " + std::to_string(kMostFiles) + " files");
      return false;
    }
    const std::string problem = read_(path, text);
    if (!problem.empty()) {
      Wrong(problem);
      return false;
    }
    place_ = Place{sequence_->files.size(), 0};
    sequence_->files.push_back(path);
    sequence_->crc = Crc32(sequence_->crc, *text);
    // Spreadsheets and editors on Windows begin a file with a byte order mark.
    const std::string mark = "\xEF\xBB\xBF";
    if (text->compare(0, mark.size(), mark) == 0) text->erase(0, mark.size());
    return true;
  }

  // NOLINTNEXTLINE(misc-no-recursion): as deep as there are files.
  void ReadLines(const std::string& path) {
    std::string text;
    open_.push_back(path);
    const Place outer = place_;
    if (Open(path, &text)) {
      for (const std::string& line : qnx::Lines(text)) {
        ++place_.line;
        ParseLine(Trim(line));
      }
    } else {
      whole_ = false;
    }
    place_ = outer;
    open_.pop_back();
  }

  // NOLINTNEXTLINE(misc-no-recursion)
  void ParseLine(std::string rest) {
    if (rest.empty() || rest[0] == '#') return;
    if (HasControls(rest)) return Wrong("control characters");
    if (rest.size() > kLongestLine) return Wrong("the line is too long");
    const std::string keyword = TakeWord(&rest);
    using Handler = void (Parser::*)(const std::string&);
    static const std::map<std::string, Handler> outside = {
        {"title", &Parser::ParseTitle}, {"device", &Parser::ParseDevice},
        {"value", &Parser::ParseValue}, {"include", &Parser::ParseInclude},
        {"phase", &Parser::ParsePhase}, {"limits", &Parser::ParseLimitFile},
        {"step", &Parser::ParseStep}};
    if (const auto found = outside.find(keyword); found != outside.end()) {
      (this->*found->second)(rest);
    } else if (IsStepWord(keyword)) {
      if (!in_step_) return Wrong(Quoted(keyword) + " must be inside a step");
      Step* step = &sequence_->phases.back().steps.back();
      const std::string problem = ParseStepLine(keyword, rest, place_, step);
      if (!problem.empty()) Wrong(problem);
    } else {
      Wrong("unknown word " + Quoted(keyword));
    }
  }

  // An included file gives way to the ones that include it: a variant says what it needs before the
  // include.
  bool GivesWayTo(const Place& earlier) const {
    return earlier.file != place_.file &&
           std::find(open_.begin(), open_.end(), sequence_->files[earlier.file]) != open_.end();
  }

  void ParseTitle(const std::string& rest) {
    if (rest.empty()) return Wrong("title needs a text");
    if (sequence_->title.empty()) {
      sequence_->title = rest;
      title_place_ = place_;
    } else if (!GivesWayTo(title_place_)) {
      Wrong("a second title");
    }
  }

  void ParseDevice(const std::string& rest) {
    if (rest.empty()) return Wrong("device needs a text");
    if (sequence_->device.empty()) {
      sequence_->device = rest;
      sequence_->device_place = place_;
    } else if (!GivesWayTo(sequence_->device_place)) {
      Wrong("a second device");
    }
  }

  void ParseValue(const std::string& text) {
    if (!sequence_->phases.empty()) return Wrong("values must be declared before the phases");
    std::string rest = text;
    const std::string name = rest.substr(0, rest.find_first_of(" \t="));
    rest = Trim(rest.substr(name.size()));
    if (!IsName(name)) return Wrong(Quoted(name) + " is not a name");
    Value value;
    value.place = place_;
    if (rest[0] == '=') {
      value.required = false;
      value.text = Trim(rest.substr(1));
    } else if (TakePrefix("matches", &rest)) {
      value.pattern = rest;
      const Pattern pattern(rest);
      if (rest.empty() || !pattern.problem().empty()) {
        Wrong("'" + AsWritten(rest) + "' is not a pattern" +
              (rest.empty() ? "" : ": " + pattern.problem()));
      }
    } else if (!rest.empty()) {
      Wrong("it reads: value NAME, value NAME = TEXT or value NAME matches PATTERN");
    }
    const auto [known, added] = sequence_->values.emplace(name, value);
    if (added) {
      sequence_->value_names.push_back(name);
    } else if (!GivesWayTo(known->second.place)) {
      Wrong("value " + Quoted(name) + " is declared already");
    }
  }

  // NOLINTNEXTLINE(misc-no-recursion)
  void ParseInclude(const std::string& rest) {
    FinishStep();
    if (rest.empty()) return Wrong("include needs a file");
    const std::string path = BesideFile(sequence_->files[place_.file], rest);
    if (std::find(open_.begin(), open_.end(), path) != open_.end()) {
      return Wrong(Quoted(rest) + " includes itself");
    }
    ReadLines(path);
  }

  void ParseLimitFile(const std::string& rest) {
    FinishStep();
    if (rest.empty()) return Wrong("limits needs a file");
    const Place outer = place_;
    std::string text;
    if (Open(BesideFile(sequence_->files[place_.file], rest), &text)) {
      ReadLimits(text, place_.file, &limits_[open_.size()], &mistakes_);
    }
    place_ = outer;
  }

  void ParsePhase(const std::string& rest) {
    FinishPhase();
    Phase phase;
    phase.place = place_;
    phase.name = rest;
    const std::string kAlways = "always";
    const std::size_t blank = rest.find_last_of(" \t");
    if (blank != std::string::npos && rest.substr(blank + 1) == kAlways) {
      phase.always = true;
      phase.name = Trim(rest.substr(0, blank));
    }
    if (phase.name.empty()) return Wrong("phase needs a name");
    for (const Phase& other : sequence_->phases) {
      if (phase.name == other.name) Wrong("phase " + Quoted(phase.name) + " is there already");
    }
    sequence_->phases.push_back(phase);
  }

  void ParseStep(const std::string& rest) {
    FinishStep();
    if (sequence_->phases.empty()) return Wrong("a step must be inside a phase");
    if (rest.empty()) Wrong("step needs a name");
    Step step;
    step.place = place_;
    step.name = rest;
    sequence_->phases.back().steps.push_back(step);
    in_step_ = true;
  }

  void FinishPhase() {
    FinishStep();
    if (!sequence_->phases.empty() && sequence_->phases.back().steps.empty()) {
      MistakeAt(sequence_->phases.back().place,
                "phase " + Quoted(sequence_->phases.back().name) + " has no steps");
    }
  }

  void FinishStep() {
    if (!in_step_) return;
    in_step_ = false;
    FinishStepLines(&sequence_->phases.back().steps.back(), &mistakes_);
  }

  const SourceReader& read_;
  Sequence* sequence_;
  std::vector<Mistake> mistakes_;
  // By how many files are open: those of an included file first, so that its variant's replace
  // them.
  std::map<std::size_t, std::vector<Limit>, std::greater<>> limits_;
  std::vector<std::string> open_;  // the file that is being read and those that include it
  Place place_;
  Place title_place_;
  bool in_step_ = false;
  bool whole_ = true;  // every included file could be read
};

}  // namespace

std::vector<Mistake> ReadSequence(const std::string& path, const SourceReader& read,
                                  Sequence* sequence) {
  return Parser(read, sequence).Parse(path);
}

}  // namespace station
