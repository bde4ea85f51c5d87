// The output of `station run` with --list and --dry-run. Inside this room only.
#ifndef KORVANDIS_STATION_RUN_LISTING_H
#define KORVANDIS_STATION_RUN_LISTING_H

#include <ostream>
#include <set>
#include <string>

#include "station/sequence.h"

namespace station {

// The values, phases and steps. `phases`: names of those that are shown; none: all.
void ListSequence(const Sequence& sequence, const std::set<std::string>& phases, std::ostream& out);

// The requests and expectations of a run, as far as they are known beforehand.
void ShowDryRun(const Sequence& sequence, const std::set<std::string>& phases, const Values& values,
                std::ostream& out);

}  // namespace station

#endif  // KORVANDIS_STATION_RUN_LISTING_H
