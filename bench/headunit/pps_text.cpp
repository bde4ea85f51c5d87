#include "pps_text.h"

namespace headunit {
namespace {

// A reader takes "+@...", "-@..." and "*@..." for news about an object, so no attribute begins so.
bool LooksLikeObjectLine(const std::string& name) {
  return name[0] == '@' || (name.size() > 1 && name[1] == '@' &&
                            (name[0] == '+' || name[0] == '-' || name[0] == '*'));
}

bool ParseLine(const std::string& line, PpsChange* change) {
  if (line.empty() || line.find('\0') != std::string::npos || LooksLikeObjectLine(line))
    return false;
  const std::size_t name_end = line.find(':');
  if (line[0] == '-') {
    change->deleted = true;
    change->name = line.substr(1);
    return line.size() > 1 && name_end == std::string::npos;
  }
  if (name_end == 0 || name_end == std::string::npos) return false;
  if (line.find(':', name_end + 1) == std::string::npos) return false;
  change->name = line.substr(0, name_end);
  change->value = line.substr(name_end + 1);
  return true;
}

}  // namespace

std::size_t ParsePpsText(const std::string& text, PpsText* parsed) {
  std::size_t number = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    ++number;
    std::size_t end = text.find('\n', begin);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(begin, end - begin);
    begin = end + 1;
    if (number == 1 && !line.empty() && line[0] == '@') {
      if (line.find('\0') != std::string::npos) return number;
      parsed->has_head = true;
      parsed->head = line.substr(1);
      continue;
    }
    PpsChange change;
    if (!ParseLine(line, &change)) return number;
    parsed->changes.push_back(std::move(change));
  }
  return 0;
}

std::string FormatPpsChange(const PpsChange& change) {
  return change.deleted ? "-" + change.name + "\n" : change.name + ":" + change.value + "\n";
}

std::string FormatPpsObject(const std::string& name, const PpsAttributes& attributes) {
  std::string text = "@" + name + "\n";
  for (const auto& attribute : attributes) {
    text += attribute.first;
    text += ':';
    text += attribute.second;
    text += '\n';
  }
  return text;
}

}  // namespace headunit
