#include "drive.h"

#include <sstream>

namespace headunit {
namespace {

bool AtEnd(std::istream* words) {
  std::string more;
  return !(*words >> more);
}

bool ParseFix(std::istream* words, Drive* drive) {
  Fix fix;
  if (!(*words >> fix.latitude >> fix.longitude >> fix.altitude >> fix.speed >> fix.angle))
    return false;
  drive->push_back(fix);
  return AtEnd(words);
}

bool ParseSatellite(std::istream* words, Drive* drive) {
  Satellite satellite;
  int used = 0;
  if (drive->empty() || drive->back().satellites.size() >= kMostSatellites) return false;
  if (!(*words >> satellite.id >> satellite.cno >> used >> satellite.azimuth >>
        satellite.elevation)) {
    return false;
  }
  if (used != 0 && used != 1) return false;
  satellite.used = used == 1;
  drive->back().satellites.push_back(satellite);
  return AtEnd(words);
}

}  // namespace

std::size_t ParseDrive(const std::string& text, Drive* drive) {
  std::istringstream lines(text);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    std::istringstream words(line);
    std::string kind;
    if (!(words >> kind) || kind[0] == '#') continue;
    const bool good = kind == "fix"   ? ParseFix(&words, drive)
                      : kind == "sat" ? ParseSatellite(&words, drive)
                                      : false;
    if (!good) return number;
  }
  return 0;
}

}  // namespace headunit
