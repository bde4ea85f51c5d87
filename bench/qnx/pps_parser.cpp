#include <pps.h>

#include <charconv>
#include <cstring>
#include <system_error>

#include "pps_line.h"

namespace qnx {
namespace {

// One escape behind its backslash: stores the character and returns the end of the escape, or null.
const char* TakeEscape(const char* p, char* character) {
  static const char kLetters[] = "abfnrtv\\\"'?";
  static const char kCharacters[] = "\a\b\f\n\r\t\v\\\"'?";
  if (*p == '\0') return nullptr;
  if (const char* letter = std::strchr(kLetters, *p)) {
    *character = kCharacters[letter - kLetters];
    return p + 1;
  }
  const bool hex = *p == 'x';
  const char* const digits = hex ? p + 1 : p;
  const char* const limit = digits + ::strnlen(digits, hex ? 2 : 3);
  unsigned value = 0;
  const auto [end, error] = std::from_chars(digits, limit, value, hex ? 16 : 8);
  if (error != std::errc() || value > 0xff) return nullptr;
  *character = static_cast<char>(static_cast<unsigned char>(value));
  return end;
}

Line Named(pps_status_t status, char* name) { return {status, name, nullptr, nullptr, false, 0}; }

Line Error(bool cut) { return {PPS_ERROR, nullptr, nullptr, nullptr, cut, 0}; }

// An object line whose '@' is expected at `mark`. A name is never empty.
Line ObjectLine(pps_status_t status, char* mark, bool last) {
  if (mark[0] == '\0' || (mark[0] == '@' && mark[1] == '\0')) return Error(last);
  return mark[0] == '@' ? Named(status, mark) : Error(false);
}

Line DeletionLine(char* name, bool last) {
  if (*name == '\0') return Error(last);
  return *name != '[' && std::strchr(name, ':') == nullptr ? Named(PPS_ATTRIBUTE_DELETED, name)
                                                           : Error(false);
}

Line AttributeLine(char* name, bool last) {
  char* const encoding = std::strchr(name, ':');
  if (encoding == nullptr) return Error(last);
  char* const value = std::strchr(encoding + 1, ':');
  if (value == nullptr) return Error(last);
  if (encoding == name) return Error(false);
  *encoding = '\0';
  *value = '\0';
  return {PPS_ATTRIBUTE, name, encoding + 1, value + 1, false, 0};
}

// A line without its options.
Line PlainLine(char* line, bool last) {
  switch (*line) {
    case '@':
      return ObjectLine(PPS_OBJECT, line, last);
    case '+':
      return ObjectLine(PPS_OBJECT_CREATED, line + 1, last);
    case '*':
    case '|':
      return ObjectLine(PPS_OBJECT_TRUNCATED, line + 1, last);
    case '-':
      return line[1] == '@' ? ObjectLine(PPS_OBJECT_DELETED, line + 1, last)
                            : DeletionLine(line + 1, last);
    case '[':
      return Error(false);  // behind its options a line has no others
    default:
      return AttributeLine(line, last);
  }
}

// Place of `name` in a list of names, -1 when it is not there.
int IndexOf(const char* const* names, const char* name) {
  for (int i = 0; names != nullptr && names[i] != nullptr; ++i) {
    const bool bare = *name == '@' && *names[i] != '@';
    if (std::strcmp(names[i], bare ? name + 1 : name) == 0) return i;
  }
  return -1;
}

}  // namespace

Line TakeLine(char** text) {
  char* const line = *text;
  if (*line == '\0') return Named(PPS_END, nullptr);
  char* const end = std::strchr(line, '\n');
  const bool last = end == nullptr;
  if (last) {
    *text = line + std::strlen(line);
  } else {
    *end = '\0';
    *text = end + 1;
  }
  if (*line != '[') return PlainLine(line, last);
  char* const close = std::strchr(line, ']');
  if (close == nullptr) return Error(last);
  Line behind = PlainLine(close + 1, last);
  if (std::memchr(line, 'n', static_cast<std::size_t>(close - line)) != nullptr) {
    behind.options = PPS_NOPERSIST;
  }
  return behind;
}

void UnescapeC(char* text) {
  const char* from = text;
  char* to = text;
  for (; *from != '\0'; ++to) {
    const char* const behind = *from == '\\' ? TakeEscape(from + 1, to) : nullptr;
    if (behind == nullptr) *to = *from;
    from = behind == nullptr ? from + 1 : behind;
  }
  *to = '\0';
}

}  // namespace qnx

pps_status_t ppsparse(char** ppsdata, const char* const* objnames, const char* const* attrnames,
                      pps_attrib_t* info, int) {
  info->line = *ppsdata;
  const qnx::Line line = qnx::TakeLine(ppsdata);
  info->attr_name = nullptr;
  info->attr_index = -1;
  info->encoding = line.encoding;
  info->value = line.value;
  info->flags = 0;
  info->options = line.options;
  info->option_mask = line.options;
  info->quality = 0;
  if (line.status == PPS_ATTRIBUTE || line.status == PPS_ATTRIBUTE_DELETED) {
    info->attr_name = line.name;
    info->attr_index = qnx::IndexOf(attrnames, line.name);
  } else if (line.name != nullptr) {
    info->obj_name = line.name;
  }
  info->obj_index = info->obj_name == nullptr ? -1 : qnx::IndexOf(objnames, info->obj_name);
  return line.status;
}
