// A recorded drive: the fixes that positioning replays.
#ifndef KORVANDIS_HEADUNIT_SERVICES_DRIVE_H
#define KORVANDIS_HEADUNIT_SERVICES_DRIVE_H

#include <cstddef>
#include <string>
#include <vector>

namespace headunit {

const std::size_t kMostSatellites = 24;  // in one fix

struct Satellite {
  int id = 0;
  double cno = 0;  // dB-Hz
  bool used = false;
  int azimuth = 0;    // degrees
  int elevation = 0;  // degrees
};

struct Fix {
  double latitude = 0;   // degrees
  double longitude = 0;  // degrees
  double altitude = 0;   // metres
  int speed = 0;         // km/h
  int angle = 0;         // degrees from north
  std::vector<Satellite> satellites;
};

using Drive = std::vector<Fix>;

// Takes the text of a drive apart: a line "fix LATITUDE LONGITUDE ALTITUDE SPEED ANGLE", then for
// each satellite of it "sat ID CNO USED AZIMUTH ELEVATION", USED being 0 or 1. Empty lines and
// lines that begin with '#' count for nothing. Returns 0, or the number of the first line that is
// wrong.
std::size_t ParseDrive(const std::string& text, Drive* drive);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_DRIVE_H
