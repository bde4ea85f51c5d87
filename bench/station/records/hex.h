// Bytes as a column or a JSON text holds them: two upper-case digits each, without blanks.
#ifndef KORVANDIS_RECORDS_HEX_H
#define KORVANDIS_RECORDS_HEX_H

#include <cstdint>
#include <string>
#include <vector>

namespace records {

inline std::string HexText(const std::vector<std::uint8_t>& bytes) {
  const char* const kDigits = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

// The bytes of a text that HexText wrote; other characters count as 0.
inline std::vector<std::uint8_t> HexBytes(const std::string& text) {
  const auto digit = [](char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : 0;
  };
  std::vector<std::uint8_t> bytes;
  for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
    bytes.push_back(static_cast<std::uint8_t>(digit(text[at]) * 16 + digit(text[at + 1])));
  }
  return bytes;
}

}  // namespace records

#endif  // KORVANDIS_RECORDS_HEX_H
