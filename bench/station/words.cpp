#include "station/words.h"

#include <algorithm>

#include "tools/program.h"

namespace station {
namespace {

// True when every byte of `text` can be typed as it stands.
bool IsTypable(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');  // the escape character itself
  return tools::Escape(text) == text;
}

}  // namespace

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

std::string TypedWord(const std::string& word) {
  if (!IsTypable(word)) return tools::Quoted(word);
  if (!word.empty() && word.find_first_of(" '\"\\{}#") == std::string::npos) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

std::string JoinWords(const std::vector<std::string>& words, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count && i < words.size(); ++i) text += (i > 0 ? " " : "") + words[i];
  return text;
}

}  // namespace station
