// The command line of `headunit`.
#ifndef KORVANDIS_HEADUNIT_PROGRAM_ARGUMENTS_H
#define KORVANDIS_HEADUNIT_PROGRAM_ARGUMENTS_H

#include <string>
#include <vector>

#include "headunit/unit.h"

namespace headunit {

extern const char kUsage[];

struct Arguments {
  UnitOptions options;
  std::string service;  // program of the service, empty: the unit starts none
  std::string save;     // folder for all objects at the end, empty: none
  bool help = false;
};

// Takes the words of a start apart, with HEADUNIT_ROOT and the shipped profile where they say
// nothing else. Returns an empty text or what is wrong with them.
std::string ParseArguments(const std::vector<std::string>& words, Arguments* arguments);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PROGRAM_ARGUMENTS_H
