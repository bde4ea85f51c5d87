// Goes over the steps of a sequence in the order of their run, with the values that are known.
#include <algorithm>
#include <tuple>

#include "sequence_limits.h"
#include "sequence_text.h"
#include "station/expectation.h"
#include "station/pattern.h"
#include "tools/program.h"

namespace station {
namespace {

class Checker {
 public:
  Checker(const Sequence& sequence, const Values& given, const std::set<std::string>& phases,
          bool asked)
      : sequence_(sequence),
        phases_(phases),
        values_(StartValues(sequence, given)),
        given_(given),
        asked_(asked) {}

  std::vector<Mistake> Check() {
    CheckValues();
    for (const std::string& name : phases_) {
      const bool there = std::any_of(sequence_.phases.begin(), sequence_.phases.end(),
                                     [&](const Phase& phase) { return phase.name == name; });
      if (!there) Wrong(Place{}, "there is no phase " + Quoted(name));
    }
    CheckText(sequence_.device_place, sequence_.device);
    for (const Phase& phase : sequence_.phases) {
      if (!phases_.empty() && phases_.count(phase.name) == 0) continue;
      for (const Step& step : phase.steps) CheckStep(step);
    }
    return std::move(mistakes_);
  }

 private:
  void Wrong(const Place& place, const std::string& reason) {
    mistakes_.push_back({place, reason});
  }

  void CheckValues() {
    for (const auto& [name, text] : given_) {
      const auto value = sequence_.values.find(name);
      if (value == sequence_.values.end()) {
        Wrong(Place{}, "there is no value " + Quoted(name));
      } else if (!tools::IsUtf8(text)) {
        Wrong(Place{}, "value " + Quoted(name) + " is " + Quoted(text) + ", not text in UTF-8");
      } else if (!value->second.pattern.empty() && !Pattern(value->second.pattern).Matches(text)) {
        Wrong(Place{}, "value " + Quoted(name) + " is " + Quoted(text) + ", not matching " +
                           AsWritten(value->second.pattern));
      }
    }
    for (const auto& [name, value] : sequence_.values) {
      ForEachValue(value.text, [&, place = value.place](const std::string& other, std::size_t) {
        if (sequence_.values.count(other) == 0) return;
        Wrong(place, "a default cannot hold another value: {" + other + "}");
      });
    }
    for (const std::string& name : RequiredValues(sequence_, phases_)) {
      if (asked_ || values_.count(name) != 0) continue;
      Wrong(Place{}, "value " + Quoted(name) + " is missing: give it with --set " + name + "=...");
    }
  }

  // True when every value in the text is known now; reports the ones that never will be.
  bool CheckText(const Place& place, const std::string& text) {
    bool known = true;
    ForEachValue(text, [&](const std::string& name, std::size_t) {
      if (values_.count(name) != 0) return;
      known = false;
      // A missing value of the command line has been reported.
      if (kept_.count(name) != 0 || sequence_.values.count(name) != 0) return;
      Wrong(place, "no earlier step defines the value " + Quoted(name));
    });
    return known;
  }

  void CheckStep(const Step& step) {
    if (step.command != nullptr) CheckCommand(step);
    for (const Keep& keep : step.keeps) {
      kept_.insert(keep.name);
      values_.erase(keep.name);
    }
    CheckText(step.question_place, step.question);
  }

  void CheckCommand(const Step& step) {
    bool known = true;
    std::vector<std::string> words;
    for (const std::string& word : step.words) {
      known = CheckText(step.command_place, word) && known;
      std::string filled;
      std::string missing;
      FillValues(word, values_, &filled, &missing);
      words.push_back(filled);
    }
    Invocation invocation;
    const std::string problem = known ? ParseInvocation(words, &invocation) : "";
    if (!problem.empty()) Wrong(step.command_place, problem);
    for (const Expectation& expectation : step.expectations) {
      CheckExpectation(*step.command, expectation);
    }
  }

  void CheckExpectation(const Command& command, const Expectation& expectation) {
    bool known = true;
    for (const std::string& text : expectation.texts) {
      known = CheckText(expectation.place, text) && known;
    }
    known = CheckText(expectation.place, expectation.low) && known;
    known = CheckText(expectation.place, expectation.high) && known;
    const FieldInfo* info = FindInfo(command, expectation.field);
    if (!known || info == nullptr) return;
    const std::string impossible = Impossible(expectation, *info, values_);
    const bool reported = expectation.kind == Expectation::Kind::kLimits && !info->numeric;
    if (!impossible.empty() && !reported) Wrong(expectation.place, impossible);
  }

  const Sequence& sequence_;
  const std::set<std::string>& phases_;
  Values values_;  // known now
  const Values& given_;
  const bool asked_;
  std::set<std::string> kept_;  // known once the run is there
  std::vector<Mistake> mistakes_;
};

}  // namespace

std::vector<Mistake> CheckSequence(const Sequence& sequence, const Values& given,
                                   const std::set<std::string>& phases, bool asked) {
  return Checker(sequence, given, phases, asked).Check();
}

std::vector<std::string> RequiredValues(const Sequence& sequence,
                                        const std::set<std::string>& phases) {
  std::set<std::string> used;
  const auto use = [&](const std::string& text) {
    ForEachValue(text, [&](const std::string& name, std::size_t) { used.insert(name); });
  };
  use(sequence.device);
  for (const Phase& phase : sequence.phases) {
    if (phases.count(phase.name) == 0) continue;
    for (const Step& step : phase.steps) {
      for (const std::string& word : step.words) use(word);
      use(step.question);
      for (const Expectation& expectation : step.expectations) {
        for (const std::string& text : expectation.texts) use(text);
        use(expectation.low);
        use(expectation.high);
      }
    }
  }
  std::vector<std::string> required;
  for (const std::string& name : sequence.value_names) {
    const bool needed = phases.empty() || used.count(name) != 0;
    if (needed && sequence.values.at(name).required) required.push_back(name);
  }
  return required;
}

void SortMistakes(std::vector<Mistake>* mistakes) {
  const auto key = [](const Mistake& mistake) {
    return std::tie(mistake.place.file, mistake.place.line);
  };
  std::stable_sort(mistakes->begin(), mistakes->end(),
                   [&](const Mistake& a, const Mistake& b) { return key(a) < key(b); });
  const auto same = [&](const Mistake& a, const Mistake& b) {
    return key(a) == key(b) && a.reason == b.reason;
  };
  mistakes->erase(std::unique(mistakes->begin(), mistakes->end(), same), mistakes->end());
}

}  // namespace station
