// The lines of PPS text, for the line parser and the decoder: inline, as an object may have many.
#ifndef KORVANDIS_QNX_PPS_LINE_H
#define KORVANDIS_QNX_PPS_LINE_H

#include <pps.h>

#include <cstring>

#include "pps_value.h"

namespace qnx {
namespace pps {

// One line of PPS text, cut from it in place.
struct Line {
  pps_status_t status;
  char* name;      // of the attribute, or of the object with its '@'
  char* encoding;  // attributes only
  char* value;     // attributes only
  bool cut;        // PPS_ERROR: the last line, whose end is missing
};

inline Line Error(bool cut) {
  Line line = {PPS_ERROR, nullptr, nullptr, nullptr, cut};
  return line;
}

// An object line whose '@' is expected at `mark`. A name is never empty.
inline Line ObjectLine(pps_status_t status, char* mark, bool last) {
  if (mark[0] == '\0' || mark[1] == '\0') return Error(last);
  if (mark[0] != '@') return Error(false);
  Line line = {status, mark, nullptr, nullptr, false};
  return line;
}

// The first colon from p to `end`, null without. Names and encodings are short, so a word mostly
// tells.
inline char* FindColon(char* p, const char* end) {
  const std::uint64_t kEach = 0x0101010101010101;
  for (; end - p >= 8; p += 8) {
    const std::uint64_t differ = LoadEight(p) ^ kEach * ':';
    const std::uint64_t found = (differ - kEach) & ~differ & kEach * 0x80;
    if (found != 0) return p + __builtin_ctzll(found) / 8;
  }
  for (; p != end; ++p) {
    if (*p == ':') return p;
  }
  return nullptr;
}

__attribute__((always_inline)) inline Line AttributeLine(char* begin, char* end, bool last) {
  char* const first = FindColon(begin, end);
  if (first == nullptr) return Error(last);
  char* const second = FindColon(first + 1, end);
  if (second == nullptr) return Error(last);
  if (first == begin) return Error(false);
  *first = '\0';
  *second = '\0';
  Line line = {PPS_ATTRIBUTE, begin, first + 1, second + 1, false};
  return line;
}

inline Line DeletionLine(char* name, bool last) {
  if (*name == '\0') return Error(last);
  if (std::strchr(name, ':') != nullptr) return Error(false);
  Line line = {PPS_ATTRIBUTE_DELETED, name, nullptr, nullptr, false};
  return line;
}

// Takes the line at *text and advances *text behind it; PPS_END at the terminator.
__attribute__((always_inline)) inline Line TakeLine(char** text) {
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

}  // namespace pps
}  // namespace qnx

#endif  // KORVANDIS_QNX_PPS_LINE_H
