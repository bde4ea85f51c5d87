// How the program `headunit` ends when something is wrong.
#ifndef KORVANDIS_HEADUNIT_PROGRAM_FAIL_H
#define KORVANDIS_HEADUNIT_PROGRAM_FAIL_H

#include <cstdio>
#include <string>

namespace headunit {

const int kFailed = 1;
const int kMisused = 2;

// Both print the reason and return the exit status.
inline int Fail(const std::string& reason) {
  std::fprintf(stderr, "headunit: %s\n", reason.c_str());
  return kFailed;
}

inline int Misuse(const std::string& reason) {
  std::fprintf(stderr, "headunit: %s\nTry 'headunit --help'.\n", reason.c_str());
  return kMisused;
}

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PROGRAM_FAIL_H
