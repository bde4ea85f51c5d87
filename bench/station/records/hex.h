// Bytes as a column or a JSON text holds them: two upper-case digits each, without blanks.
#ifndef KORVANDIS_RECORDS_HEX_H
#define KORVANDIS_RECORDS_HEX_H

#include <cstdint>
#include <string>
#include <vector>

#include "wire/hex.h"

namespace records {

inline std::string HexText(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += wire::UpperHexDigit(byte >> 4);
    text += wire::UpperHexDigit(byte);
  }
  return text;
}

// The bytes of a text that HexText wrote.
inline std::vector<std::uint8_t> HexBytes(const std::string& text) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
    bytes.push_back(
        static_cast<std::uint8_t>(wire::HexValue(text[at]) * 16 + wire::HexValue(text[at + 1])));
  }
  return bytes;
}

}  // namespace records

#endif  // KORVANDIS_RECORDS_HEX_H
