// Test sequences: plain text that says in the station's own commands what a unit has to do.
//
//   # a comment
//   title End of line
//   device {serial}                     names the device under test in the records
//   value serial                        given with --set serial=...
//   value name = Requester                  or this
//
//   phase Identity
//   step Burn in the serial number
//     do serial {serial}
//     verify
//   step Read it back
//     do serial
//     expect text is {serial}
//     stop on failure
//
// In a step, in any order:
//   do COMMAND                          a command of the station that is sent to the service
//   expect FIELD is TEXT
//   expect FIELD one of WORD WORD...
//   expect FIELD matches PATTERN        the whole text; a regular expression (RE2)
//   expect FIELD from LOW to HIGH UNIT
//   expect FIELD at least LOW UNIT
//   expect FIELD at most HIGH UNIT      UNIT where the field has one, and there it can be left out
//   keep FIELD as NAME                  {NAME} in later steps
//   wait SECONDS s                      before the command
//   wait for service SECONDS s          until the service is connected
//   retry COUNT times every SECONDS s   until everything is as expected
//   timeout SECONDS s                   longest wait for the reply
//   verify                              prove the write
//   stop on failure                     skip everything behind when this step fails
#ifndef KORVANDIS_STATION_SEQUENCE_H
#define KORVANDIS_STATION_SEQUENCE_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "station/command.h"

namespace station {

struct Expectation {
  enum class Kind { kIs, kOneOf, kMatches, kLimits };
  int line;
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
  int line = 0;
  std::string name;
  std::vector<std::string> words;  // of the command, values not filled in; none: only waits
  const Command* command = nullptr;
  int command_line = 0;
  std::vector<Expectation> expectations;
  std::vector<Keep> keeps;
  std::vector<Wait> waits;
  int retries = 0;
  double retry_pause = 0;  // seconds
  double timeout = 0;      // seconds, 0: the station's
  bool verify = false;
  bool stop_on_failure = false;
};

struct Phase {
  int line = 0;
  std::string name;
  std::vector<Step> steps;
};

struct Value {
  int line = 0;
  bool required = true;
  std::string text;
};

using Values = std::map<std::string, std::string>;

struct Sequence {
  std::string title;
  std::string device;  // values not filled in
  int device_line = 0;
  std::map<std::string, Value> values;
  std::vector<Phase> phases;
};

// Reads a sequence. Returns the errors, "LINE: reason" each, in the order of the lines; none when
// it is whole.
std::vector<std::string> ParseSequence(const std::string& text, Sequence* sequence);

// Everything that can be known before anything is sent: that every value is there when it is used,
// that commands take their arguments, that limits are numbers. `given` are the values of the
// command line; `phases` the names of those that are run, none: all. Errors as above; an error
// without a line is the command line's.
std::vector<std::string> CheckSequence(const Sequence& sequence, const Values& given,
                                       const std::set<std::string>& phases);

// The values that a run begins with: the given ones and the defaults.
Values StartValues(const Sequence& sequence, const Values& given);

// `text` with each {NAME} replaced. Other braces stay. False with the name that has no value.
bool FillValues(const std::string& text, const Values& values, std::string* filled,
                std::string* missing);

// "from 3 to 5 deg", "one of a, b"; values filled in where they are known.
std::string DescribeExpectation(const Expectation& expectation, const Values& values);

// True when `field` is as expected. *problem says why it cannot be told (a pattern that is none, a
// limit that is no number, a value that is missing).
bool Holds(const Expectation& expectation, const Field& field, const Values& values,
           std::string* problem);

}  // namespace station

#endif  // KORVANDIS_STATION_SEQUENCE_H
