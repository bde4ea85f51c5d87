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
_station() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local key= word i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    case $word in
      $all_value_options) ((i++)) ;;
      -*) ;;
      *) key+="$word " ;;
    esac
  done
  case $previous in
    --set|--only) _station_of_sequence "$previous" "$(sed 's/^run //; s/ $//' <<<"$key")" "$current"; return ;;
    $directory_options) COMPREPLY=($(compgen -d -- "$current")); return ;;
    $value_options) COMPREPLY=($(compgen -f -- "$current")); return ;;
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

// What may follow each sequence of words: words, or the name of a file.
struct Following {
  std::vector<std::string> words;
  std::vector<std::string> options;
  bool file = false;
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
    const Parameter& first = command.parameters[0];
    last.file = last.file || first.kind == Parameter::Kind::kFile;
    if (first.choices == nullptr) continue;
    for (const wire::Choice* choice = first.choices; choice->word != nullptr; ++choice) {
      AddWord(choice->word, &last.words);
    }
  }
  return following;
}

}  // namespace

int RunCompletion(Context& context) {
  std::vector<std::string> directories;
  std::vector<std::string> files;
  std::vector<std::string> global;
  const auto sort_option = [&](const Option& option) {
    if (option.value == nullptr) return;
    AddWord(option.name, std::string(option.value) == "DIR" ? &directories : &files);
  };
  for (const Option& option : GlobalOptions()) {
    global.push_back(option.name);
    sort_option(option);
  }
  for (const Command& command : Commands()) {
    for (const Option& option : OptionsOf(command)) sort_option(option);
  }
  std::string cases;
  for (const auto& [key, following] : CollectFollowing()) {
    std::vector<std::string> options = following.options;
    options.insert(options.end(), global.begin(), global.end());
    cases += "    '" + key + "|'-*) COMPREPLY=($(compgen -W '" + Join(options, " ") +
             "' -- \"$current\")) ;;\n";
    const std::string words = following.file ? "-f" : "-W '" + Join(following.words, " ") + "'";
    cases += "    '" + key + "|'*) COMPREPLY=($(compgen " + words + " -- \"$current\")) ;;\n";
  }
  std::string script = kScript;
  Replace("$directory_options", Join(directories, "|"), &script);
  Replace("$value_options", Join(files, "|"), &script);
  Replace("$all_value_options", Join(directories, "|") + "|" + Join(files, "|"), &script);
  Replace("$cases", cases, &script);
  context.out << script;
  return tools::kExitRight;
}

}  // namespace station
