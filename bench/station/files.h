// Files of the host.
#ifndef KORVANDIS_STATION_FILES_H
#define KORVANDIS_STATION_FILES_H

#include <string>

namespace station {

const std::size_t kLargestFile = 256U << 20;  // bytes; a long recording, not a device

// Puts the whole file into *text. Returns an empty text, or why not.
std::string ReadFile(const std::string& path, std::string* text);

}  // namespace station

#endif  // KORVANDIS_STATION_FILES_H
