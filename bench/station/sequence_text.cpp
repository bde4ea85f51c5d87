#include "sequence_text.h"

#include <algorithm>
#include <cctype>

#include "station/sequence.h"
#include "tools/program.h"

namespace station {

std::string AsWritten(const std::string& text) {
  std::string shown;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = std::min(text.find('\\', start), text.size());
    shown += tools::Escape(text.substr(start, end - start));
    if (end == text.size()) return shown;
    shown += '\\';
    start = end + 1;
  }
}

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

bool HasControls(const std::string& line) {
  return std::any_of(line.begin(), line.end(),
                     [](char c) { return c != '\t' && tools::IsControl(c); });
}

std::string TakeWord(std::string* rest) {
  const std::size_t end = rest->find_first_of(" \t");
  std::string word = rest->substr(0, end);
  *rest = end == std::string::npos ? "" : Trim(rest->substr(end));
  return word;
}

bool TakePrefix(const std::string& prefix, std::string* rest) {
  if (*rest != prefix && rest->rfind(prefix + " ", 0) != 0) return false;
  *rest = Trim(rest->substr(prefix.size()));
  return true;
}

bool IsName(const std::string& text) {
  if (text.empty() || !std::isalpha(static_cast<unsigned char>(text[0]))) return false;
  return std::all_of(text.begin(), text.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
  });
}

void ForEachValue(const std::string& text,
                  const std::function<void(const std::string&, std::size_t)>& use) {
  for (std::size_t at = text.find('{'); at != std::string::npos; at = text.find('{', at + 1)) {
    const std::size_t end = text.find('}', at);
    if (end == std::string::npos) return;
    const std::string name = text.substr(at + 1, end - at - 1);
    if (IsName(name)) use(name, at);
  }
}

Values StartValues(const Sequence& sequence, const Values& given) {
  Values values = given;
  for (const auto& [name, value] : sequence.values) {
    if (!value.required) values.emplace(name, value.text);
  }
  return values;
}

bool FillValues(const std::string& text, const Values& values, std::string* filled,
                std::string* missing) {
  filled->clear();
  missing->clear();
  std::size_t done = 0;
  ForEachValue(text, [&](const std::string& name, std::size_t at) {
    const auto value = values.find(name);
    if (value == values.end()) {
      *missing = name;
      return;
    }
    *filled += text.substr(done, at - done) + value->second;
    done = at + name.size() + 2;
  });
  *filled += text.substr(done);
  return missing->empty();
}

}  // namespace station
