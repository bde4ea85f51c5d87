#include "station/command.h"

#include <algorithm>

#include "qnx/text.h"

namespace station {
namespace {

using qnx::Quoted;

std::size_t FewestArguments(const Command& command) {
  std::size_t fewest = 0;
  for (const Parameter& parameter : command.parameters) fewest += parameter.optional ? 0 : 1;
  return fewest;
}

bool TakesArguments(const Command& command, std::size_t count) {
  const bool repeated = !command.parameters.empty() && command.parameters.back().repeated;
  return count >= FewestArguments(command) && (repeated || count <= command.parameters.size());
}

const Parameter& ParameterAt(const Command& command, std::size_t index) {
  return command.parameters[std::min(index, command.parameters.size() - 1)];
}

// "bt name [TEXT]": the words and every row's parameters.
std::string Usage(const std::string& words) {
  std::string usage;
  for (const Command& command : Commands()) {
    if (command.words != words) continue;
    usage += usage.empty() ? Quoted(words) + " takes" : " or";
    usage += command.parameters.empty() ? " no argument" : ParameterText(command);
  }
  return usage;
}

// Number of words in `words`.
std::size_t CountWords(const std::string& words) {
  return static_cast<std::size_t>(std::count(words.begin(), words.end(), ' ')) + 1;
}

// Why the words are not a command: the group that they begin, and what it has.
std::string UnknownCommand(const std::vector<std::string>& words) {
  for (std::size_t count = words.size(); count > 0; --count) {
    const std::string group = JoinWords(words, count);
    std::string members;
    for (const Command* command : CommandsUnder(group)) {
      if (command->words.size() <= group.size()) continue;
      const std::string rest = command->words.substr(group.size() + 1);
      const std::string word = rest.substr(0, rest.find(' '));
      if ((" " + members + ",").find(" " + word + ",") != std::string::npos) continue;
      members += (members.empty() ? "" : ", ") + word;
    }
    if (members.empty()) continue;
    if (count == words.size()) return Quoted(group) + " needs one of: " + members;
    return Quoted(group) + " has no " + Quoted(words[count]) + ", only: " + members;
  }
  return "unknown command " + Quoted(words[0]);
}

}  // namespace

std::string Invocation::Get(const std::string& option, const std::string& otherwise) const {
  const auto range = options.equal_range(option);
  return range.first == range.second ? otherwise : std::prev(range.second)->second;
}

std::string ParameterText(const Command& command) {
  std::string text;
  for (const Parameter& parameter : command.parameters) {
    const std::string name = std::string(parameter.name) + (parameter.repeated ? "..." : "");
    text += parameter.optional ? " [" + name + "]" : " " + name;
  }
  return text;
}

std::vector<Option> OptionsOf(const Command& command) {
  std::vector<Option> options = command.options;
  if (!command.proofs.empty()) {
    options.push_back({"--verify", nullptr, "prove the write by reading it back"});
  }
  return options;
}

std::vector<const Command*> CommandsUnder(const std::string& words) {
  std::vector<const Command*> found;
  for (const Command& command : Commands()) {
    if (command.words == words || command.words.rfind(words + " ", 0) == 0) {
      found.push_back(&command);
    }
  }
  return found;
}

std::string MatchCommand(const std::vector<std::string>& words, const Command** command,
                         std::size_t* word_count) {
  if (words.empty()) return "a command is needed";
  // The longest words win; among equal ones the row that takes this many arguments.
  std::size_t longest = 0;
  const Command* match = nullptr;
  for (const Command& candidate : Commands()) {
    const std::size_t count = CountWords(candidate.words);
    if (count < longest || count > words.size() || JoinWords(words, count) != candidate.words)
      continue;
    if (count > longest) match = nullptr;
    longest = count;
    if (TakesArguments(candidate, words.size() - count)) match = &candidate;
  }
  if (longest == 0) return UnknownCommand(words);
  if (match == nullptr) {
    // "usb nonsense" is a wrong word of the group rather than an argument too many.
    const std::string matched = JoinWords(words, longest);
    const bool group = CommandsUnder(matched).back()->words != matched;
    return group ? UnknownCommand(words) : Usage(matched);
  }
  *command = match;
  *word_count = longest;
  return "";
}

std::string ParseInvocation(const std::vector<std::string>& words, Invocation* invocation) {
  const Command* match = nullptr;
  std::size_t count = 0;
  std::string mismatch = MatchCommand(words, &match, &count);
  if (match == nullptr) return mismatch;
  invocation->command = match;
  invocation->arguments.clear();
  for (std::size_t i = count; i < words.size(); ++i) {
    std::string normal;
    const std::string problem = CheckArgument(ParameterAt(*match, i - count), words[i], &normal);
    if (!problem.empty()) return Quoted(match->words) + ": " + problem;
    invocation->arguments.push_back(normal);
  }
  return "";
}

Bytes EncodeParameters(const Invocation& invocation) {
  Bytes bytes = invocation.command->fixed;
  for (std::size_t i = 0; i < invocation.arguments.size(); ++i) {
    AppendArgument(ParameterAt(*invocation.command, i), invocation.arguments[i], &bytes);
  }
  return bytes;
}

bool DecodeRequest(std::uint8_t number, std::uint8_t sub_command, const Bytes& parameters,
                   Invocation* invocation) {
  for (const Command& command : Commands()) {
    if (!command.sent || command.number != number || command.sub_command != sub_command) continue;
    if (parameters.size() < command.fixed.size() ||
        !std::equal(command.fixed.begin(), command.fixed.end(), parameters.begin())) {
      continue;
    }
    Invocation decoded;
    decoded.command = &command;
    std::size_t position = command.fixed.size();
    bool whole = true;
    for (const Parameter& parameter : command.parameters) {
      std::string argument;
      whole = whole && TakeArgument(parameter, parameters, &position, &argument);
      decoded.arguments.push_back(argument);
    }
    if (!whole || position != parameters.size()) continue;
    *invocation = decoded;
    return true;
  }
  return false;
}

const Command* FindReplyCommand(std::uint8_t number, std::uint8_t sub_command) {
  for (const Command& command : Commands()) {
    if (command.reply != nullptr && command.number == number &&
        command.sub_command == sub_command) {
      return &command;
    }
  }
  return nullptr;
}

std::string CommandLine(const Invocation& invocation) {
  std::string line = invocation.command->words;
  for (const std::string& argument : invocation.arguments) line += " " + TypedWord(argument);
  return line;
}

}  // namespace station
