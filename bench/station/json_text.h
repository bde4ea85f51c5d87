// Texts of a unit in JSON. Inside this room only.
#ifndef KORVANDIS_STATION_JSON_TEXT_H
#define KORVANDIS_STATION_JSON_TEXT_H

#include <string>

#include "tools/program.h"

namespace station {

// `text` as UTF-8: a byte that is not part of any becomes the character of its number.
inline std::string JsonText(const std::string& text) {
  std::string valid;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t length = tools::Utf8Length(rest);
    const auto byte = static_cast<unsigned char>(rest[0]);
    if (length == 0) {
      valid += static_cast<char>(0xC0 | byte >> 6);
      valid += static_cast<char>(0x80 | (byte & 0x3F));
    } else {
      valid += rest.substr(0, length);
    }
    rest.remove_prefix(length == 0 ? 1 : length);
  }
  return valid;
}

}  // namespace station

#endif  // KORVANDIS_STATION_JSON_TEXT_H
