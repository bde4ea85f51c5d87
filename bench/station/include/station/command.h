// The station's commands: those of the service, from the table in wire/, and its own. Argument
// parsing, help, completion, sequences and the decoder of recorded traffic are derived from them.
#ifndef KORVANDIS_STATION_COMMAND_H
#define KORVANDIS_STATION_COMMAND_H

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "station/answer.h"
#include "station/parameter.h"
#include "station/words.h"

namespace station {

// Each needs more than the one before.
enum class Needs { kNothing, kUnit, kReplies };

// Option of the station's own commands, "--only PHASE".
struct Option {
  const char* name;   // with its dashes
  const char* value;  // name of its value, null when it takes none
  const char* help;
  Needs matters = Needs::kNothing;  // help shows it for commands that need this or more
};

// How a write is proven: by the reply to another command, or by an object of the unit. An object is
// one that each write writes anew, unless it shows a state: then it may be as expected already.
struct Proof {
  const char* source;   // only while this is the playing application; null: always
  const char* command;  // words of the reading command, or null
  const char* object;   // otherwise the object
  // What must be there. field: of the reply, or attribute of the object. "{1}" in the value stands
  // for the first argument of the write, "{1-1}" for that less one.
  struct Expected {
    const char* field;
    const char* value;
  };
  std::vector<Expected> expected;
  bool is_state = false;
};

struct Command;

// A command with its arguments in their normal form: numbers without leading zeros, a MAC address
// in upper case.
struct Invocation {
  const Command* command = nullptr;
  std::vector<std::string> arguments;
  std::multimap<std::string, std::string> options;

  bool Has(const std::string& option) const { return options.count(option) != 0; }
  // The option's last value, or `otherwise`.
  std::string Get(const std::string& option, const std::string& otherwise = "") const;
};

struct Context;

struct Command {
  std::string words;  // "bt name"; several commands may have the same words and other parameters
  std::vector<Parameter> parameters;
  const char* help;

  // The request and its reply.
  bool sent = false;  // it is a request, not a command of the station itself
  std::uint8_t number = 0;
  std::uint8_t sub_command = 0;
  Bytes fixed;                         // parameter bytes in front of the arguments
  const ReplyFormat* reply = nullptr;  // null: the service does not answer
  std::vector<Proof> proofs;           // the first that applies is used

  Needs needs = Needs::kReplies;

  // Commands of the station itself.
  int (*run)(Context& context) = nullptr;
  std::vector<Option> options;
};

// Where a command's output goes, and what it was given.
struct Context {
  std::ostream& out;
  std::ostream& err;
  const Invocation& invocation;
  double timeout;  // seconds
};

const std::vector<Command>& Commands();

// Options that every command takes.
const std::vector<Option>& GlobalOptions();

// The parameters of a command, each with a blank in front: " COMMAND SUB [BYTE...]".
std::string ParameterText(const Command& command);

// Options of `command`, without the global ones.
std::vector<Option> OptionsOf(const Command& command);

// Looks for the command that `words` begins with and checks the arguments behind it; takes no
// options. Returns what is wrong with them, or nothing.
std::string ParseInvocation(const std::vector<std::string>& words, Invocation* invocation);

// Only the first half: the command whose words and number of arguments fit, and how many words it
// takes. Returns what is wrong, or nothing.
std::string MatchCommand(const std::vector<std::string>& words, const Command** command,
                         std::size_t* word_count);

// The commands whose words begin with `words`, in table order; none when there is no such command.
std::vector<const Command*> CommandsUnder(const std::string& words);

// The parameter bytes of a request.
Bytes EncodeParameters(const Invocation& invocation);

// The command that a request with these bytes is, with its arguments; false when it is none.
bool DecodeRequest(std::uint8_t number, std::uint8_t sub_command, const Bytes& parameters,
                   Invocation* invocation);

// The command that a reply with these numbers answers, null when there is none.
const Command* FindReplyCommand(std::uint8_t number, std::uint8_t sub_command);

// The invocation as it is typed: "bt name 'Car 7'".
std::string CommandLine(const Invocation& invocation);

}  // namespace station

#endif  // KORVANDIS_STATION_COMMAND_H
