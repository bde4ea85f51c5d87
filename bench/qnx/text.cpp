#include "qnx/text.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <limits>

#include "wire/hex.h"

namespace qnx {

std::size_t Utf8Length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) length = 2;
  if (first >= 0xE0 && first <= 0xEF) length = 3;
  if (first >= 0xF0 && first <= 0xF4) length = 4;
  if (first == 0xE0) low = 0xA0;
  if (first == 0xED) high = 0x9F;  // surrogates
  if (first == 0xF0) low = 0x90;
  if (first == 0xF4) high = 0x8F;
  if (length == 0 || text.size() < length || byte(1) < low || byte(1) > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = Utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string EscapeByte(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return {'\\', 'x', wire::UpperHexDigit(value >> 4U), wire::UpperHexDigit(value)};
}

std::string Hex(const std::uint8_t* bytes, std::size_t size, char between) {
  std::string text;
  text.reserve(size * 3);
  for (std::size_t i = 0; i < size; ++i) {
    if (i > 0 && between != '\0') text += between;
    text += wire::UpperHexDigit(bytes[i] >> 4U);
    text += wire::UpperHexDigit(bytes[i]);
  }
  return text;
}

std::string LowerHex(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    text += wire::HexDigit(static_cast<unsigned char>(byte) >> 4U);
    text += wire::HexDigit(static_cast<unsigned char>(byte));
  }
  return text;
}

std::string Escape(std::string_view text) {
  std::string escaped;
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text[0]);
    const std::size_t length = Utf8Length(text);
    // U+0080 to U+009F are control characters too.
    const bool control = IsControl(text[0]) || (byte == 0xC2 && length == 2 &&
                                                static_cast<unsigned char>(text[1]) < 0xA0);
    if (byte == '\n') {
      escaped += "\\n";
    } else if (byte == '\t') {
      escaped += "\\t";
    } else if (byte == '\\') {
      escaped += "\\\\";
    } else if (length == 0 || control) {
      escaped += EscapeByte(text[0]);
      text.remove_prefix(1);
      continue;
    } else {
      escaped.append(text.substr(0, length));
    }
    text.remove_prefix(length);
  }
  return escaped;
}

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string Formatted(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(length < 0 ? 0 : static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);  // the end has its place
  va_end(again);
  va_end(arguments);
  return text;
}

double ParseReal(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  const bool whole = error == std::errc() && rest == end;
  return whole && std::isfinite(value) ? value : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace qnx
