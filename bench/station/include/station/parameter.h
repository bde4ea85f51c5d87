// One argument of a command: how it is checked, and which bytes it becomes in a request.
#ifndef KORVANDIS_STATION_PARAMETER_H
#define KORVANDIS_STATION_PARAMETER_H

#include <string>

#include "station/answer.h"
#include "wire/command_table.h"

namespace station {

struct Parameter {
  enum class Kind {
    // Of the service's commands, as in wire::ParameterKind.
    kText,
    kMac,
    kByte,
    kNumber,
    kChoice,
    // Of the station's own.
    kHexByte,   // two digits
    kSeconds,   // from `low` to `high`
    kFile,      // name of a file of the host
    kSequence,  // the same, or the name of a shipped sequence
  };
  const char* name;
  Kind kind;
  unsigned low = 0;
  unsigned high = 0;
  const wire::Choice* choices = nullptr;
  bool optional = false;
  bool repeated = false;  // the last parameter only
};

// The parameter of a row of the service's commands; `spec` is not of the kind kNone.
Parameter MakeParameter(const wire::ParameterSpec& spec);

// The words of a choice, "fail, pass".
std::string WordList(const wire::Choice* choices);

// The values that an argument may have: "a number from 0 to 6".
std::string DescribeParameter(const Parameter& parameter);

// Checks `text` and puts its normal form into *normal: a number without leading zeros, a MAC
// address in upper case. Returns what is wrong, or nothing.
std::string CheckArgument(const Parameter& parameter, const std::string& text, std::string* normal);

// Appends the bytes of an argument in its normal form.
void AppendArgument(const Parameter& parameter, const std::string& normal, Bytes* bytes);

// Takes the normal form of an argument from the bytes at *position on and moves *position behind
// them; false when they are not there.
bool TakeArgument(const Parameter& parameter, const Bytes& bytes, std::size_t* position,
                  std::string* normal);

}  // namespace station

#endif  // KORVANDIS_STATION_PARAMETER_H
