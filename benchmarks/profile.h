// Sums of a profile that callgrind wrote: the costs of each room between two dumps.
#ifndef KORVANDIS_BENCHMARKS_PROFILE_H
#define KORVANDIS_BENCHMARKS_PROFILE_H

#include <string>

namespace setup {

struct Cost {
  double instructions = 0;
  double allocations = 0;  // calls of malloc, calloc and realloc
  double calls = 0;        // system calls

  Cost& operator+=(const Cost& other);
  Cost& operator-=(const Cost& other);
  Cost operator/(double divisor) const;
};

struct Split {
  Cost ships;  // the shipped rooms, and what they call of the system's libraries
  Cost bench;  // bench/qnx, and whatever it calls: the system's own calls in its place on a unit
};

// Callgrind's options for a profile that ReadProfile understands, with a dump each time that
// `marker` is entered, as `file`.1, `file`.2 and so on.
std::string ProfileOptions(const std::string& file, const std::string& marker);

// Reads one dump. Throws when there is none or when it has no debug information.
Split ReadProfile(const std::string& file);

}  // namespace setup

#endif  // KORVANDIS_BENCHMARKS_PROFILE_H
