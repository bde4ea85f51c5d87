#include "sequence_limits.h"

#include <algorithm>

#include "sequence_text.h"
#include "tools/program.h"

namespace station {
namespace {

const std::size_t kColumns = 5;

// The cells of a line: commas between them, "..." around one that holds a comma, "" for a quote in
// it. False when a quote is not closed.
bool SplitCells(const std::string& line, std::vector<std::string>* cells) {
  std::string cell;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
      cell += line[++i];
    } else if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      cells->push_back(Trim(cell));
      cell.clear();
    } else {
      cell += c;
    }
  }
  cells->push_back(Trim(cell));
  return !quoted;
}

}  // namespace

void ReadLimits(const std::string& text, std::size_t file, std::vector<Limit>* limits,
                std::vector<Mistake>* mistakes) {
  Place place{file, 0};
  for (const std::string& whole : qnx::Lines(text)) {
    const std::string line = Trim(whole);
    ++place.line;
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> cells;
    if (HasControls(line) || !SplitCells(line, &cells) || cells.size() != kColumns) {
      mistakes->push_back({place, "a limit reads: PHASE, STEP, FIELD, LOW, HIGH"});
      continue;
    }
    Limit limit{place, cells[0], cells[1], cells[2], cells[3], cells[4]};
    // The line that a table begins with.
    const bool heading = limit.phase == "phase" && limit.step == "step" && limit.field == "field";
    if (heading) continue;
    if (limit.low.empty() && limit.high.empty()) {
      mistakes->push_back({place, "a limit needs LOW, HIGH or both"});
      continue;
    }
    const bool again = std::any_of(limits->begin(), limits->end(), [&](const Limit& other) {
      return other.place.file == file && other.phase == limit.phase && other.step == limit.step &&
             other.field == limit.field;
    });
    if (again) {
      mistakes->push_back({place, "this field of this step has its limits already"});
    }
    limits->push_back(limit);
  }
}

std::string ApplyLimit(const Limit& limit, Sequence* sequence) {
  const auto phase = std::find_if(sequence->phases.begin(), sequence->phases.end(),
                                  [&](const Phase& one) { return one.name == limit.phase; });
  if (phase == sequence->phases.end()) return "there is no phase " + Quoted(limit.phase);
  const auto named = [&](const Step& one) { return one.name == limit.step; };
  const auto step = std::find_if(phase->steps.begin(), phase->steps.end(), named);
  if (step == phase->steps.end()) {
    return "phase " + Quoted(limit.phase) + " has no step " + Quoted(limit.step);
  }
  if (std::count_if(phase->steps.begin(), phase->steps.end(), named) > 1) {
    return "phase " + Quoted(limit.phase) + " has several steps " + Quoted(limit.step);
  }
  if (step->command == nullptr) {
    return step->command_place.line != 0 ? "" : "step " + Quoted(limit.step) + " has no command";
  }
  Expectation expectation;
  expectation.place = limit.place;
  expectation.field = limit.field;
  expectation.kind = Expectation::Kind::kLimits;
  expectation.low = limit.low;
  expectation.high = limit.high;
  std::string problem = CheckField(*step->command, &expectation);
  if (!problem.empty()) return problem;
  // A second line of the same file is a mistake: both stay, so that both are checked.
  const auto replaced = [&](const Expectation& other) {
    return other.field == limit.field && other.kind == Expectation::Kind::kLimits &&
           other.place.file != limit.place.file;
  };
  std::vector<Expectation>& all = step->expectations;
  const auto place = std::find_if(all.begin(), all.end(), replaced) - all.begin();
  all.erase(std::remove_if(all.begin(), all.end(), replaced), all.end());
  all.insert(all.begin() + place, expectation);
  return "";
}

const FieldInfo* FindInfo(const Command& command, const std::string& field) {
  if (command.reply == nullptr) return nullptr;
  for (const FieldInfo& info : command.reply->fields) {
    if (field == info.name) return &info;
  }
  return nullptr;
}

std::string NoField(const Command& command, const std::string& field) {
  if (command.reply == nullptr) return Quoted(command.words) + " is not answered";
  std::string names;
  for (const FieldInfo& info : command.reply->fields) {
    names += (names.empty() ? "" : ", ") + std::string(info.name);
  }
  return "the answer to " + Quoted(command.words) + " has no " + Quoted(field) + ", only: " + names;
}

std::string CheckField(const Command& command, Expectation* expectation) {
  const FieldInfo* info = FindInfo(command, expectation->field);
  if (info == nullptr) return NoField(command, expectation->field);
  const std::string unit = expectation->unit;
  expectation->unit = info->unit;
  if (expectation->kind != Expectation::Kind::kLimits) return "";
  if (!info->numeric) return Quoted(expectation->field) + " is a text and has no limits";
  if (unit.empty() || unit == info->unit) return "";
  return Quoted(expectation->field) +
         (*info->unit == '\0' ? " has no unit, not "
                              : std::string(" is in ") + info->unit + ", not in ") +
         Quoted(unit);
}

}  // namespace station
