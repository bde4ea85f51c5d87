// Bytes as a column or a JSON text holds them: two upper-case digits each, without blanks.
#ifndef KORVANDIS_RECORDS_HEX_H
#define KORVANDIS_RECORDS_HEX_H

#include <cstdint>
#include <string>
#include <vector>

#include "qnx/text.h"
#include "wire/hex.h"

namespace records {

inline std::string HexText(const std::vector<std::uint8_t>& bytes) { return qnx::Hex(bytes, '\0'); }

// The bytes of a text that HexText wrote.
inline std::vector<std::uint8_t> HexBytes(const std::string& text) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
    bytes.push_back(static_cast<std::uint8_t>(wire::HexByteValue(&text[at])));
  }
  return bytes;
}

}  // namespace records

#endif  // KORVANDIS_RECORDS_HEX_H
