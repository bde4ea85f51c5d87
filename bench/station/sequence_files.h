// Where sequences lie. Inside this room only.
#ifndef KORVANDIS_STATION_SEQUENCE_FILES_H
#define KORVANDIS_STATION_SEQUENCE_FILES_H

#include <string>

namespace station {

// Puts the path of the sequence `name` into *path: a file of that name, or the shipped sequence
// NAME.seq. Returns an empty text, or that there is none and which are shipped.
std::string FindSequence(const std::string& name, std::string* path);

}  // namespace station

#endif  // KORVANDIS_STATION_SEQUENCE_FILES_H
