#include "pps_text.h"

#include <algorithm>
#include <utility>

namespace headunit {
namespace {

// A reader takes "+@...", "-@..." and "*@..." for news about an object, so no attribute begins so.
bool LooksLikeObjectLine(std::string_view name) {
  return name[0] == '@' || (name.size() > 1 && name[1] == '@' &&
                            (name[0] == '+' || name[0] == '-' || name[0] == '*'));
}

bool ParseLine(std::string_view line, PpsChange* change) {
  if (line.empty() || line.find('\0') != line.npos || LooksLikeObjectLine(line)) return false;
  const std::size_t name_end = line.find(':');
  if (line[0] == '-') {
    change->deleted = true;
    change->name = line.substr(1);
    return line.size() > 1 && name_end == line.npos;
  }
  if (name_end == 0 || name_end == line.npos) return false;
  change->name = line.substr(0, name_end);
  change->value = line.substr(name_end + 1);
  return change->value.find(':') != line.npos;
}

}  // namespace

std::size_t ParsePpsText(std::string_view text, PpsText* parsed) {
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (number == 1 && !line.empty() && line[0] == '@') {
      if (line.find('\0') != line.npos) return number;
      parsed->has_head = true;
      parsed->head = line.substr(1);
      continue;
    }
    PpsChange change;
    if (!ParseLine(line, &change)) return number;
    parsed->changes.push_back(change);
  }
  return 0;
}

SharedText FormatPpsMessage(const std::string& head, const std::vector<PpsChange>& changes) {
  std::string text = "@" + head + "\n";
  for (const PpsChange& change : changes) {
    if (change.deleted) text += '-';
    text += change.name;
    if (!change.deleted) {
      text += ':';
      text += change.value;
    }
    text += '\n';
  }
  return Share(std::move(text));
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
