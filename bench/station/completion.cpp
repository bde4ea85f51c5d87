// `station completion bash`.
#include <algorithm>
#include <iterator>
#include <map>

#include "builtin.h"
#include "tools/program.h"

namespace station {
namespace {

const char kScript[] =
    R"bash(# Completion of station for bash. Source it, or put it into bash_completion.d.
# _station_of_sequence OPTION FILE CURRENT: the values or the phases of a sequence.
_station_of_sequence() {
  local IFS=$'\n' filter='s/^value \([^ ,]*\).*/\1=/p'
  [[ $1 == --only ]] && filter='/^$/ { n; p; }'
  COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" run "$2" --list 2>/dev/null | sed -n "$filter")" -- "$3"))
  [[ $1 == --set ]] && compopt -o nospace 2>/dev/null
  [ ${#COMPREPLY[@]} -eq 0 ] || COMPREPLY=($(printf '%q\n' "${COMPREPLY[@]}"))
}
# _station_files ARGUMENT...: what compgen finds, completed as names of files.
_station_files() {
  local IFS=$'\n'
  COMPREPLY=($(compgen "$@"))
  compopt -o filenames 2>/dev/null
}
# The names of the shipped sequences.
_station_shipped() {
  local program=$(readlink -f "$(type -P "${COMP_WORDS[0]}")")
  ls "${program%/*}/../share/korvandis/sequences" 2>/dev/null | sed -n 's/\.seq$//p'
}
_station() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local key= word i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    case $word in
      $all_value_options)
        ((i++))
        # Readline breaks a value at = and :.
        while [[ ${COMP_WORDS[i+1]-} == [=:]* ]]; do
          ((i++))
          [[ ${COMP_WORDS[i+1]-} == -* ]] || ((i++))
        done
        ;;
      -*) ;;
      *) key+="$word " ;;
    esac
  done
  case "$key|$previous" in
    $flags) previous= ;;
  esac
  case $previous in
    --set|--only) _station_of_sequence "$previous" "$(sed 's/^run //; s/ $//' <<<"$key")" "$current"; return ;;
    $directory_options) _station_files -d -- "$current"; return ;;
    $file_options) _station_files -f -- "$current"; return ;;
    $other_options) return ;;
  esac
  case "$key|$current" in
$cases  esac
}
complete -F _station station
)bash";

void Replace(const std::string& mark, const std::string& text, std::string* script) {
  for (std::size_t at = script->find(mark); at != std::string::npos;
       at = script->find(mark, at + text.size())) {
    script->replace(at, mark.size(), text);
  }
}

void AddWord(const std::string& word, std::vector<std::string>* words) {
  if (std::find(words->begin(), words->end(), word) == words->end()) words->push_back(word);
}

std::string Join(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

// The words that may follow a sequence of words, or the arguments of bash's compgen for them.
struct Following {
  std::vector<std::string> words;
  std::vector<std::string> options;
  std::string generator;
  bool arguments = false;
};

std::map<std::string, Following> CollectFollowing() {
  std::map<std::string, Following> following;
  for (const Command& command : Commands()) {
    std::string key;
    std::string rest = command.words + " ";
    while (!rest.empty()) {
      const std::size_t end = rest.find(' ');
      AddWord(rest.substr(0, end), &following[key].words);
      key += rest.substr(0, end + 1);
      rest.erase(0, end + 1);
    }
    Following& last = following[key];
    for (const Option& option : OptionsOf(command)) AddWord(option.name, &last.options);
    if (command.parameters.empty()) continue;
    last.arguments = true;
    const Parameter& first = command.parameters[0];
    if (first.kind == Parameter::Kind::kFile) last.generator = "-f";
    if (first.kind == Parameter::Kind::kSequence) last.generator = "-f -W \"$(_station_shipped)\"";
    if (first.choices == nullptr) continue;
    for (const wire::Choice* choice = first.choices; choice->word != nullptr; ++choice) {
      AddWord(choice->word, &last.words);
    }
  }
  return following;
}

// The options that take a value, by what it is, and those that take none although another command's
// option of the same name does.
struct OptionNames {
  std::vector<std::string> directories, files, others, all, flags;

  void Add(const Option& option) {
    if (option.value == nullptr) return;
    const std::string value = option.value;
    AddWord(option.name, value == "DIR"                     ? &directories
                         : value == "FILE" || value == "DB" ? &files
                                                            : &others);
    AddWord(option.name, &all);
  }
};

OptionNames CollectOptions() {
  OptionNames names;
  for (const Option& option : GlobalOptions()) names.Add(option);
  for (const Command& command : Commands()) {
    for (const Option& option : OptionsOf(command)) names.Add(option);
  }
  for (const Command& command : Commands()) {
    for (const Option& option : OptionsOf(command)) {
      const bool taken = std::count(names.all.begin(), names.all.end(), option.name) != 0;
      if (option.value == nullptr && taken) {
        names.flags.push_back("'" + command.words + " |" + option.name + "'");
      }
    }
  }
  return names;
}

}  // namespace

int RunCompletion(Context& context) {
  const OptionNames names = CollectOptions();
  std::string cases;
  for (const auto& [key, following] : CollectFollowing()) {
    std::vector<std::string> options = following.options;
    for (const Option& option : GlobalOptions()) options.push_back(option.name);
    cases += "    '" + key + "'" + (following.arguments ? "*" : "") +
             "'|'-*) COMPREPLY=($(compgen -W '" + Join(options, " ") + "' -- \"$current\")) ;;\n";
    const std::string words = "COMPREPLY=($(compgen -W '" + Join(following.words, " ") + "' -- ";
    cases += "    '" + key + "|'*) " +
             (following.generator.empty()
                  ? words + "\"$current\"))"
                  : "_station_files " + following.generator + " -- \"$current\"") +
             " ;;\n";
  }
  std::string script = kScript;
  Replace("$directory_options", Join(names.directories, "|"), &script);
  Replace("$file_options", Join(names.files, "|"), &script);
  Replace("$other_options", Join(names.others, "|"), &script);
  Replace("$all_value_options", Join(names.all, "|"), &script);
  Replace("$flags", Join(names.flags, "|"), &script);
  Replace("$cases", cases, &script);
  context.out << script;
  return tools::kExitRight;
}

}  // namespace station
