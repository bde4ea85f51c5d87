#include "help.h"

#include <algorithm>

#include "builtin.h"
#include "tools/program.h"

namespace station {
namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

void PrintRows(std::ostream& out, const Rows& rows) {
  std::size_t width = 0;
  for (const auto& [left, right] : rows) width = std::max(width, left.size());
  for (const auto& [left, right] : rows) {
    out << "  " << left;
    if (!right.empty()) out << std::string(width - left.size() + 2, ' ') << right;
    out << '\n';
  }
}

std::string OptionText(const Option& option) {
  return std::string(option.name) +
         (option.value != nullptr ? std::string(" ") + option.value : "");
}

// The names of the fields of an answer, with their units.
std::string FieldText(const ReplyFormat& format) {
  std::string text;
  for (const FieldInfo& field : format.fields) {
    text += (text.empty() ? "" : ", ") + std::string(field.name);
    if (*field.unit != '\0') text += " (" + std::string(field.unit) + ")";
  }
  return text;
}

void AddOptions(const std::vector<Option>& options, Rows* rows) {
  for (const Option& option : options) {
    const auto row = std::make_pair(OptionText(option), std::string(option.help));
    if (std::find(rows->begin(), rows->end(), row) == rows->end()) rows->push_back(row);
  }
}

// The options that matter for one of the commands, its own first.
Rows OptionRows(const std::vector<const Command*>& commands) {
  Rows rows;
  for (const Command* command : commands) AddOptions(OptionsOf(*command), &rows);
  for (const Option& option : GlobalOptions()) {
    const bool matters = std::any_of(commands.begin(), commands.end(), [&](const Command* command) {
      return command->needs >= option.matters;
    });
    if (matters) AddOptions({option}, &rows);
  }
  return rows;
}

// Rows with the same words: what each takes, what its arguments may be, what its answer has.
void PrintCommand(std::ostream& out, const std::vector<const Command*>& commands) {
  Rows arguments;
  std::string answer;
  const char* lead = "usage: station ";
  for (const Command* command : commands) {
    out << lead << command->words << ParameterText(*command) << " [OPTION...]\n";
    lead = "       station ";
    for (const Parameter& parameter : command->parameters) {
      arguments.emplace_back(parameter.name, DescribeParameter(parameter));
    }
    if (command->reply != nullptr) answer = FieldText(*command->reply);
  }
  out << '\n';
  for (const Command* command : commands) out << command->help << '\n';
  if (!arguments.empty()) {
    out << "\nArguments:\n";
    PrintRows(out, arguments);
  }
  if (!answer.empty()) out << "\nThe answer has: " << answer << '\n';
}

void PrintGroup(std::ostream& out, const std::string& words,
                const std::vector<const Command*>& commands) {
  out << "usage: station " << (words.empty() ? "COMMAND" : words)
      << " [ARGUMENT...] [OPTION...]\n\n";
  if (words.empty()) {
    out << "The test station of a head unit: sends test commands, shows the replies.\n\n";
  }
  Rows rows;
  for (const Command* command : commands) {
    rows.emplace_back(command->words + ParameterText(*command), command->help);
  }
  PrintRows(out, rows);
}

}  // namespace

void PrintHelp(std::ostream& out, const std::string& words) {
  std::vector<const Command*> commands = CommandsUnder(words);
  Rows options;
  if (words.empty()) {
    for (const Command& command : Commands()) commands.push_back(&command);
    AddOptions(GlobalOptions(), &options);
  } else {
    options = OptionRows(commands);
  }
  if (!words.empty() && commands.front()->words == commands.back()->words) {
    PrintCommand(out, commands);
  } else {
    PrintGroup(out, words, commands);
  }
  out << "\nOptions:\n";
  PrintRows(out, options);
  if (words.empty()) {
    out << "\n'station COMMAND --help' tells more. Exit status: 0 right, 1 an answer is missing or "
           "wrong,\n2 wrong usage.\n";
  }
}

std::string HelpWords(const std::vector<std::string>& words) {
  std::string longest;
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
    if (!CommandsUnder(text).empty()) longest = text;
  }
  return longest;
}

int RunCommands(Context& context) {
  Rows rows;
  for (const Command& command : Commands()) {
    if (!command.sent) continue;
    std::string may = command.proofs.empty() ? "" : "verify";
    if (command.reply != nullptr) may = "expect " + FieldText(*command.reply);
    rows.emplace_back(command.words + ParameterText(command), may);
  }
  PrintRows(context.out, rows);
  return tools::kExitRight;
}

}  // namespace station
