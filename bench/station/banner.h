// A verdict that is read from three metres. Inside this room only.
#ifndef KORVANDIS_STATION_BANNER_H
#define KORVANDIS_STATION_BANNER_H

#include <string>

namespace station {

// `word` in letters of 7 lines, at most 60 columns wide: PASS, FAIL, ERROR.
std::string Banner(const std::string& word);

}  // namespace station

#endif  // KORVANDIS_STATION_BANNER_H
