#include "station/command_line.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "builtin.h"
#include "help.h"
#include "qnx/unit_root.h"
#include "station/command.h"
#include "station/requester.h"

namespace station {
namespace {

const double kLongestTimeout = 3600;

// The words in front of the options and behind them, in order, and the options.
struct Arguments {
  std::vector<std::string> words;
  std::multimap<std::string, std::string> options;
};

int UsageError(std::ostream& err, const std::string& reason, const std::string& words = "") {
  err << "station: " << reason << "; see 'station " << words << (words.empty() ? "" : " ")
      << "--help'\n";
  return tools::kExitUsage;
}

// An option by its name: of the command that the words in front of it are, else of any.
std::optional<Option> FindOption(const std::string& name, const std::vector<std::string>& words) {
  std::vector<Option> options;
  const auto add = [&options](const Command& command) {
    const std::vector<Option> more = OptionsOf(command);
    options.insert(options.end(), more.begin(), more.end());
  };
  for (const Command* command : CommandsUnder(HelpWords(words))) add(*command);
  options.insert(options.end(), GlobalOptions().begin(), GlobalOptions().end());
  for (const Command& command : Commands()) add(command);
  const auto found = std::find_if(options.begin(), options.end(),
                                  [&](const Option& option) { return name == option.name; });
  return found == options.end() ? std::nullopt : std::optional<Option>(*found);
}

bool Takes(const std::vector<Option>& options, const std::string& name) {
  return std::any_of(options.begin(), options.end(),
                     [&](const Option& option) { return name == option.name; });
}

// Separates options ("--name VALUE", "--name=VALUE") from words; behind "--" all are words. Returns
// what is wrong, or nothing.
std::string SeparateOptions(const std::vector<std::string>& arguments, Arguments* separated) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--") {
      separated->words.insert(separated->words.end(), arguments.begin() + static_cast<long>(i) + 1,
                              arguments.end());
      return "";
    }
    if (argument.size() < 2 || argument[0] != '-') {
      separated->words.push_back(argument);
      continue;
    }
    const std::size_t equals = argument.find('=');
    const std::string name = argument == "-h" ? "--help" : argument.substr(0, equals);
    const std::optional<Option> option = FindOption(name, separated->words);
    if (!option) return "unknown option '" + tools::Escape(name) + "'";
    std::string value;
    if (option->value != nullptr) {
      if (equals == std::string::npos && i + 1 == arguments.size()) {
        return name + " needs " + option->value;
      }
      value = equals == std::string::npos ? arguments[++i] : argument.substr(equals + 1);
    } else if (equals != std::string::npos) {
      return name + " takes no value";
    }
    separated->options.emplace(name, value);
  }
  return "";
}

int RunRequest(Context& context) {
  const Command& command = *context.invocation.command;
  Requester requester(context.timeout, nullptr);
  const Exchange exchange =
      requester.Perform(context.invocation, context.invocation.Has("--verify"));
  if (!exchange.right()) {
    context.err << "station: " << CommandLine(context.invocation) << ": " << exchange.problem;
    if (!exchange.answer.fields.empty()) context.err << " (" << Describe(exchange.answer) << ')';
    context.err << '\n';
    return tools::kExitWrong;
  }
  if (command.reply == nullptr) {
    if (!exchange.proof.empty()) context.out << "verified: " << exchange.proof << '\n';
    return tools::kExitRight;
  }
  if (command.reply->table != nullptr) {
    context.out << command.reply->table(exchange.parsed.data);
  } else if (exchange.answer.fields.size() == 1) {
    context.out << Describe(exchange.answer) << '\n';
  } else {
    for (const Field& field : exchange.answer.fields) {
      context.out << field.info->name << ' ' << tools::Escape(field.text)
                  << (*field.info->unit != '\0' ? " " : "") << field.info->unit << '\n';
    }
  }
  return tools::kExitRight;
}

}  // namespace

int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  Arguments separated;
  std::string problem = SeparateOptions(arguments, &separated);
  if (!problem.empty()) return UsageError(err, problem, HelpWords(separated.words));
  const std::string words = HelpWords(separated.words);
  if (separated.options.count("--help") != 0) {
    if (!separated.words.empty() && words.empty()) {
      return UsageError(err, "unknown command '" + tools::Escape(separated.words[0]) + "'");
    }
    PrintHelp(out, words);
    return tools::kExitRight;
  }

  Invocation invocation;
  problem = ParseInvocation(separated.words, &invocation);
  if (!problem.empty()) return UsageError(err, problem, words);
  invocation.options = separated.options;
  for (const auto& [name, value] : invocation.options) {
    if (!Takes(GlobalOptions(), name) && !Takes(OptionsOf(*invocation.command), name)) {
      return UsageError(err, "'" + words + "' takes no " + name, words);
    }
  }
  double timeout = kDefaultTimeout;
  if (invocation.Has("--timeout")) {
    timeout = qnx::ParseReal(invocation.Get("--timeout"));
    if (!(timeout > 0 && timeout <= kLongestTimeout)) {
      return UsageError(err, "--timeout needs a number of seconds above 0, at most 3600", words);
    }
  }
  if (invocation.Has("--root")) ::setenv(qnx::kRootVariable, invocation.Get("--root").c_str(), 1);

  Context context{out, err, invocation, timeout};
  return invocation.command->run != nullptr ? invocation.command->run(context)
                                            : RunRequest(context);
}

}  // namespace station
