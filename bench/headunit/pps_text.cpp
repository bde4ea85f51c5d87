#include "pps_text.h"

#include <algorithm>
#include <utility>

namespace headunit {
namespace {

const std::size_t kLongestOptions = 64;

// What <pps.h> takes for an object line or for options when a line begins with it, so no
// attribute's name does.
const std::string_view kNotInFront = "@+*|[";

bool IsAttributeName(std::string_view name) {
  return !name.empty() && kNotInFront.find(name[0]) == name.npos;
}

// Takes "[options]" from the front of *line. False when the brackets do not close, or hold too
// much.
bool TakeOptions(std::string_view* line, std::string_view* options, bool* present) {
  *present = !line->empty() && line->front() == '[';
  if (!*present) return true;
  const std::size_t close = line->find(']');
  if (close == line->npos || close > kLongestOptions) return false;
  *options = line->substr(1, close - 1);
  line->remove_prefix(close + 1);
  return options->find(':') == options->npos;
}

void AppendOptions(std::string_view options, std::string* text) {
  if (options.empty()) return;
  *text += '[';
  *text += options;
  *text += ']';
}

bool ParseLine(std::string_view line, PpsChange* change) {
  if (line.find('\0') != line.npos || !TakeOptions(&line, &change->options, &change->has_options)) {
    return false;
  }
  const std::size_t name_end = line.find(':');
  if (!line.empty() && line[0] == '-') {
    change->deleted = true;
    change->name = line.substr(1);
    return IsAttributeName(change->name) && name_end == line.npos;
  }
  if (name_end == line.npos) return false;
  change->name = line.substr(0, name_end);
  if (!IsAttributeName(change->name)) return false;
  change->value = line.substr(name_end + 1);
  return change->value.find(':') != line.npos;
}

// True when `line` is an object line, which *parsed then holds.
bool TakeHead(std::string_view line, PpsText* parsed) {
  if (line.find('\0') != line.npos) return false;
  if (!TakeOptions(&line, &parsed->head_options, &parsed->has_head_options)) return false;
  parsed->has_head = !line.empty() && line[0] == '@';
  if (parsed->has_head) parsed->head = line.substr(1);
  parsed->has_head_options = parsed->has_head && parsed->has_head_options;
  return parsed->has_head;
}

}  // namespace

std::size_t ParsePpsText(std::string_view text, PpsText* parsed) {
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (number == 1 && TakeHead(line, parsed)) continue;
    PpsChange change;
    if (!ParseLine(line, &change)) return number;
    parsed->changes.push_back(change);
  }
  return 0;
}

SharedText FormatPpsMessage(const std::string& head, const std::vector<PpsChange>& changes) {
  std::string text = "@" + head + "\n";
  for (const PpsChange& change : changes) {
    AppendOptions(change.options, &text);
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

std::string FormatPpsObject(const std::string& name, const std::string& options,
                            const PpsAttributes& attributes) {
  std::string text;
  AppendOptions(options, &text);
  text += "@" + name + "\n";
  for (const auto& attribute : attributes) {
    AppendOptions(attribute.second.options, &text);
    text += attribute.first;
    text += ':';
    text += attribute.second.value;
    text += '\n';
  }
  return text;
}

}  // namespace headunit
