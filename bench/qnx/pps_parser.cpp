#include <pps.h>

#include <cstring>

#include "pps_line.h"
#include "pps_value.h"

namespace qnx {
namespace pps {
namespace {

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
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
}  // namespace qnx

pps_status_t ppsparse(char** text, pps_attrib_t* attribute) {
  const qnx::pps::Line line = qnx::pps::TakeLine(text);
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
