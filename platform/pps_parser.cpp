#include <pps.h>

#include <cstring>

#include "pps_tape.h"

namespace platform {
namespace pps {
namespace {

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

Line Error(bool cut) {
  Line line = {PPS_ERROR, nullptr, nullptr, nullptr, cut};
  return line;
}

// An object line whose '@' is expected at `mark`. A name is never empty.
Line ObjectLine(pps_status_t status, char* mark, bool last) {
  if (mark[0] == '\0' || mark[1] == '\0') return Error(last);
  if (mark[0] != '@') return Error(false);
  Line line = {status, mark, nullptr, nullptr, false};
  return line;
}

Line AttributeLine(char* begin, char* end, bool last) {
  const std::size_t length = static_cast<std::size_t>(end - begin);
  char* const first = static_cast<char*>(std::memchr(begin, ':', length));
  if (first == nullptr) return Error(last);
  char* const second =
      static_cast<char*>(std::memchr(first + 1, ':', static_cast<std::size_t>(end - first) - 1));
  if (second == nullptr) return Error(last);
  if (first == begin) return Error(false);
  *first = '\0';
  *second = '\0';
  Line line = {PPS_ATTRIBUTE, begin, first + 1, second + 1, false};
  return line;
}

Line DeletionLine(char* name, bool last) {
  if (*name == '\0') return Error(last);
  if (std::strchr(name, ':') != nullptr) return Error(false);
  Line line = {PPS_ATTRIBUTE_DELETED, name, nullptr, nullptr, false};
  return line;
}

// One escape behind its backslash: stores the character and returns the end of the escape, or null.
char* TakeEscape(char* p, char* character) {
  static const char kLetters[] = "abfnrtv\\\"'?";
  static const char kCharacters[] = "\a\b\f\n\r\t\v\\\"'?";
  if (*p == '\0') return nullptr;
  if (const char* letter = std::strchr(kLetters, *p)) {
    *character = kCharacters[letter - kLetters];
    return p + 1;
  }
  int value = 0;
  if (*p == 'x') {
    char* digit = p + 1;
    for (; digit < p + 3 && HexDigit(*digit) >= 0; ++digit) value = value * 16 + HexDigit(*digit);
    if (digit == p + 1) return nullptr;
    p = digit;
  } else {
    char* digit = p;
    for (; digit < p + 3 && IsOctal(*digit); ++digit) value = value * 8 + (*digit - '0');
    if (digit == p || value > 0xff) return nullptr;
    p = digit;
  }
  *character = static_cast<char>(static_cast<unsigned char>(value));
  return p;
}

}  // namespace

Line TakeLine(char** text) {
  char* const begin = *text;
  if (*begin == '\0') {
    Line line = {PPS_END, nullptr, nullptr, nullptr, false};
    return line;
  }
  char* end = std::strchr(begin, '\n');
  const bool last = end == nullptr;
  if (last) {
    end = begin + std::strlen(begin);
    *text = end;
  } else {
    *end = '\0';
    *text = end + 1;
  }
  switch (*begin) {
    case '@':
      return ObjectLine(PPS_OBJECT, begin, last);
    case '+':
      return ObjectLine(PPS_OBJECT_CREATED, begin + 1, last);
    case '*':
      return ObjectLine(PPS_OBJECT_TRUNCATED, begin + 1, last);
    case '-':
      return begin[1] == '@' ? ObjectLine(PPS_OBJECT_DELETED, begin + 1, last)
                             : DeletionLine(begin + 1, last);
    default:
      return AttributeLine(begin, end, last);
  }
}

void UnescapeC(char* text) {
  char* from = std::strchr(text, '\\');
  if (from == nullptr) return;
  char* to = from;
  while (*from != '\0') {
    char* const behind = *from == '\\' ? TakeEscape(from + 1, to) : nullptr;
    if (behind == nullptr) {
      *to = *from++;
    } else {
      from = behind;
    }
    ++to;
  }
  *to = '\0';
}

}  // namespace pps
}  // namespace platform

pps_status_t ppsparse(char** text, pps_attrib_t* attribute) {
  const platform::pps::Line line = platform::pps::TakeLine(text);
  attribute->attr_name = nullptr;
  attribute->encoding = nullptr;
  attribute->value = nullptr;
  switch (line.status) {
    case PPS_OBJECT:
    case PPS_OBJECT_CREATED:
    case PPS_OBJECT_DELETED:
    case PPS_OBJECT_TRUNCATED:
      attribute->obj_name = line.name;
      break;
    case PPS_ATTRIBUTE:
    case PPS_ATTRIBUTE_DELETED:
      attribute->attr_name = line.name;
      attribute->encoding = line.encoding;
      attribute->value = line.value;
      break;
    case PPS_END:
    case PPS_ERROR:
      break;
  }
  return line.status;
}
