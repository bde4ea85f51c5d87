#include "station/command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "tools/program.h"

namespace station {
namespace {

using Kind = Parameter::Kind;

const std::size_t kMacSize = 6;

std::string Quoted(const std::string& text) { return "'" + tools::Escape(text) + "'"; }

std::string WordList(const std::vector<Choice>& choices) {
  std::string list;
  for (const Choice& choice : choices)
    list += (list.empty() ? "" : ", ") + std::string(choice.word);
  return list;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// One or two digits, with or without 0x.
bool ParseHexByte(std::string text, std::uint8_t* value) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.erase(0, 2);
  if (text.empty() || text.size() > 2) return false;
  int number = 0;
  for (const char c : text) {
    if (HexDigit(c) < 0) return false;
    number = number * 16 + HexDigit(c);
  }
  *value = static_cast<std::uint8_t>(number);
  return true;
}

// Six fields of two digits, ':' or '-' between them.
bool ParseMac(const std::string& text, Bytes* mac) {
  if (text.size() != kMacSize * 3 - 1) return false;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    std::uint8_t byte = 0;
    if (HexDigit(text[i]) < 0 || !ParseHexByte(text.substr(i, 2), &byte)) return false;
    if (i > 0 && text[i - 1] != ':' && text[i - 1] != '-') return false;
    mac->push_back(byte);
  }
  return true;
}

// Decimal, or hexadecimal with 0x; at most nine digits.
bool ParseUnsigned(const std::string& text, unsigned* value) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::string digits = hex ? text.substr(2) : text;
  if (digits.empty() || digits.size() > (hex ? 7U : 9U)) return false;
  unsigned number = 0;
  for (const char c : digits) {
    const int digit = HexDigit(c);
    if (digit < 0 || (!hex && digit > 9)) return false;
    number = number * (hex ? 16U : 10U) + static_cast<unsigned>(digit);
  }
  *value = number;
  return true;
}

std::string MacText(const Bytes& mac) {
  std::string text = Hex(mac);
  std::replace(text.begin(), text.end(), ' ', ':');
  return text;
}

void Append(const Parameter& parameter, const std::string& normal, Bytes* bytes) {
  unsigned number = 0;
  std::uint8_t byte = 0;
  switch (parameter.kind) {
    case Kind::kText:
      bytes->insert(bytes->end(), normal.begin(), normal.end());
      break;
    case Kind::kMac:
      ParseMac(normal, bytes);
      break;
    case Kind::kByte:
      if (ParseUnsigned(normal, &number)) bytes->push_back(static_cast<std::uint8_t>(number));
      break;
    case Kind::kWord:
      if (!ParseUnsigned(normal, &number)) break;
      bytes->push_back(static_cast<std::uint8_t>(number >> 8));
      bytes->push_back(static_cast<std::uint8_t>(number));
      break;
    case Kind::kChoice:
      for (const Choice& choice : *parameter.choices) {
        if (normal == choice.word) bytes->push_back(choice.value);
      }
      break;
    case Kind::kHexByte:
      if (ParseHexByte(normal, &byte)) bytes->push_back(byte);
      break;
    case Kind::kSeconds:
    case Kind::kFile:
      break;
  }
}

// True when every byte of `text` can be typed as it stands.
bool IsTypable(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');  // the escape character itself
  return tools::Escape(text) == text;
}

// A word as it is typed. One that cannot be typed is escaped, for reading alone.
std::string ShownWord(const std::string& word) {
  if (!IsTypable(word)) return "'" + tools::Escape(word) + "'";
  if (!word.empty() && word.find_first_of(" '\"\\{}#") == std::string::npos) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

// Takes one argument's bytes from *position on; false when they are not there.
bool Take(const Parameter& parameter, const Bytes& bytes, std::size_t* position,
          std::string* normal) {
  const std::size_t left = bytes.size() - *position;
  const std::uint8_t* at = bytes.data() + *position;
  switch (parameter.kind) {
    case Kind::kText:
      normal->assign(at, at + left);
      *position = bytes.size();
      return true;
    case Kind::kMac:
      if (left < kMacSize) return false;
      *normal = MacText(Bytes(at, at + kMacSize));
      *position += kMacSize;
      return true;
    case Kind::kByte:
      if (left < 1) return false;
      *normal = std::to_string(*at);
      *position += 1;
      return true;
    case Kind::kWord:
      if (left < 2) return false;
      *normal = std::to_string(at[0] << 8 | at[1]);
      *position += 2;
      return true;
    case Kind::kChoice:
      if (left < 1) return false;
      for (const Choice& choice : *parameter.choices) {
        if (choice.value == *at) *normal = choice.word;
      }
      *position += 1;
      return !normal->empty();
    case Kind::kHexByte:
    case Kind::kSeconds:
    case Kind::kFile:
      return false;
  }
  return false;
}

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
    for (const Parameter& parameter : command.parameters) {
      usage += std::string(parameter.optional ? " [" : " ") + parameter.name +
               (parameter.repeated ? "..." : "") + (parameter.optional ? "]" : "");
    }
    if (command.parameters.empty()) usage += " no argument";
  }
  return usage;
}

// Number of words in `words`.
std::size_t CountWords(const std::string& words) {
  return static_cast<std::size_t>(std::count(words.begin(), words.end(), ' ')) + 1;
}

std::string Join(const std::vector<std::string>& words, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count && i < words.size(); ++i) text += (i > 0 ? " " : "") + words[i];
  return text;
}

// Why the words are no command: the group they reach into, and what it has.
std::string UnknownCommand(const std::vector<std::string>& words) {
  for (std::size_t count = words.size(); count > 0; --count) {
    const std::string group = Join(words, count);
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
    if (count < longest || count > words.size() || Join(words, count) != candidate.words) continue;
    if (count > longest) match = nullptr;
    longest = count;
    if (TakesArguments(candidate, words.size() - count)) match = &candidate;
  }
  if (longest == 0) return UnknownCommand(words);
  if (match == nullptr) {
    // "usb nonsense" is a wrong word of the group rather than an argument too many.
    const std::string matched = Join(words, longest);
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

std::string CheckArgument(const Parameter& parameter, const std::string& text,
                          std::string* normal) {
  const std::string shown = std::string(parameter.name) + " " + Quoted(text);
  unsigned number = 0;
  std::uint8_t byte = 0;
  Bytes mac;
  switch (parameter.kind) {
    case Kind::kText:
      if (text.size() < parameter.low) return shown + " is empty";
      if (text.size() > parameter.high) {
        return shown + " is longer than " + std::to_string(parameter.high) + " bytes";
      }
      if (std::any_of(text.begin(), text.end(), tools::IsControl)) {
        return shown + " has control characters";
      }
      *normal = text;
      return "";
    case Kind::kMac:
      if (!ParseMac(text, &mac)) return shown + " is not a MAC address like 00:1A:7D:DA:71:13";
      *normal = MacText(mac);
      return "";
    case Kind::kByte:
    case Kind::kWord:
      if (!ParseUnsigned(text, &number) || number < parameter.low || number > parameter.high) {
        return shown + " is not a number from " + std::to_string(parameter.low) + " to " +
               std::to_string(parameter.high);
      }
      *normal = std::to_string(number);
      return "";
    case Kind::kChoice:
      for (const Choice& choice : *parameter.choices) {
        if (text == choice.word) *normal = text;
      }
      if (normal->empty()) return shown + " is none of: " + WordList(*parameter.choices);
      return "";
    case Kind::kHexByte:
      if (!ParseHexByte(text, &byte)) return shown + " is not a byte in hexadecimal";
      *normal = Hex(&byte, 1);
      return "";
    case Kind::kSeconds: {
      const double seconds = ParseNumber(text);
      if (!(seconds >= parameter.low && seconds <= parameter.high)) {
        return shown + " is not a number of seconds up to " + std::to_string(parameter.high);
      }
      *normal = text;
      return "";
    }
    case Kind::kFile:
      if (text.empty()) return shown + " is empty";
      *normal = text;
      return "";
  }
  return shown + " is of no known kind";
}

Bytes EncodeParameters(const Invocation& invocation) {
  Bytes bytes = invocation.command->fixed;
  for (std::size_t i = 0; i < invocation.arguments.size(); ++i) {
    Append(ParameterAt(*invocation.command, i), invocation.arguments[i], &bytes);
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
      whole = whole && Take(parameter, parameters, &position, &argument);
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
  for (const std::string& argument : invocation.arguments) line += " " + ShownWord(argument);
  return line;
}

std::string SplitWords(const std::string& line, std::vector<std::string>* words) {
  std::string word;
  bool open = false;  // a word has begun, if only with quotes
  char quote = '\0';
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quote != '\0') {
      if (c == quote) {
        quote = '\0';
      } else if (c == '\\' && quote == '"' && i + 1 < line.size()) {
        word += line[++i];
      } else {
        word += c;
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      open = true;
    } else if (c == ' ' || c == '\t') {
      if (open) words->push_back(word);
      word.clear();
      open = false;
    } else {
      if (c == '\\' && i + 1 == line.size()) return "a \\ at the end of the line";
      word += c == '\\' ? line[++i] : c;
      open = true;
    }
  }
  if (quote != '\0') return std::string("a quote ") + quote + " is not closed";
  if (open) words->push_back(word);
  return "";
}

}  // namespace station
