// Test sequences: plain text that says in the station's own commands what a unit has to do.
// docs/sequences.md describes the language.
#ifndef KORVANDIS_STATION_SEQUENCE_H
#define KORVANDIS_STATION_SEQUENCE_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "station/command.h"

namespace station {

// A line of one of the files that a sequence is read from.
struct Place {
  std::size_t file = 0;  // index in Sequence::files
  int line = 0;          // from 1; 0: the command line
};

// A mistake in a sequence or in the values that are given for it.
struct Mistake {
  Place place;
  std::string reason;
};

struct Expectation {
  enum class Kind { kIs, kOneOf, kMatches, kLimits };
  Place place;
  std::string field;
  Kind kind;
  std::vector<std::string> texts;  // as written, values not filled in; a pattern is one text
  std::string low, high;           // of limits, "" when there is none; as written
  std::string unit;                // of the field
};

struct Keep {
  std::string field;
  std::string name;
};

struct Wait {
  double seconds;
  bool for_service;
};

struct Step {
  Place place;
  std::string name;
  std::vector<std::string> words;  // of the command, values not filled in; none: no command
  const Command* command = nullptr;
  Place command_place;
  std::vector<Expectation> expectations;
  std::vector<Keep> keeps;
  std::vector<Wait> waits;
  Place question_place;
  std::string question;  // of `confirm`, values not filled in; "" when there is none
  int retries = 0;
  double retry_pause = 0;  // seconds
  double timeout = 0;      // seconds, 0: the station's
  bool verify = false;
  bool stop_on_failure = false;
};

struct Phase {
  Place place;
  std::string name;
  bool always = false;  // runs whatever happened before it
  std::vector<Step> steps;
};

struct Value {
  Place place;
  bool required = true;
  std::string text;     // the default
  std::string pattern;  // of the whole text; "" when there is none
};

using Values = std::map<std::string, std::string>;

struct Sequence {
  std::vector<std::string> files;  // paths, the sequence itself first
  std::uint32_t crc = 0;           // CRC-32 of the files' bytes, in the order of reading
  std::string title;
  std::string device;  // values not filled in
  Place device_place;
  std::map<std::string, Value> values;
  std::vector<std::string> value_names;  // in the order of their declaration
  std::vector<Phase> phases;
};

// Puts the content of a file into *text. Returns an empty text, or why not.
using SourceReader = std::function<std::string(const std::string& path, std::string* text)>;

// Reads the sequence in the file `path` and the files it includes. Returns every mistake, in the
// order of reading; none when it is whole.
std::vector<Mistake> ReadSequence(const std::string& path, const SourceReader& read,
                                  Sequence* sequence);

// Everything that can be known before anything is sent: that every value is there when it is used,
// that commands take their arguments, that limits are numbers and what is expected can be. `given`
// are the values of the command line; `phases` the names of those that are run, none: all. With
// `asked`, a value that is missing is no mistake: a person is asked for it. A sequence with
// mistakes can be checked as well: what they hide is left out.
std::vector<Mistake> CheckSequence(const Sequence& sequence, const Values& given,
                                   const std::set<std::string>& phases, bool asked = false);

// The required values, in the order of their declaration, that a run of these phases needs: all of
// them, or, of some phases alone, those that the phases or the device's name use.
std::vector<std::string> RequiredValues(const Sequence& sequence,
                                        const std::set<std::string>& phases);

// Puts mistakes in the order of files and lines, each once.
void SortMistakes(std::vector<Mistake>* mistakes);

// The values that a run begins with: the given ones and the defaults.
Values StartValues(const Sequence& sequence, const Values& given);

// `text` with each {NAME} replaced. Other braces stay. False with the name that has no value.
bool FillValues(const std::string& text, const Values& values, std::string* filled,
                std::string* missing);

}  // namespace station

#endif  // KORVANDIS_STATION_SEQUENCE_H
