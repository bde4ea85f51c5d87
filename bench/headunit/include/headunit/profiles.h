// Where profiles lie, and how a real unit becomes one.
#ifndef KORVANDIS_HEADUNIT_PROFILES_H
#define KORVANDIS_HEADUNIT_PROFILES_H

#include <cstddef>
#include <string>
#include <vector>

namespace headunit {

// Folder of the profile that ships with the unit: beside the running program's installation
// (../share/korvandis/profiles/default), else in the source tree; empty when neither is there.
std::string DefaultProfile();

// The folder of a user's own profiles: $XDG_DATA_HOME/korvandis/profiles, without the variable
// ~/.local/share/korvandis/profiles. Empty without a home.
std::string UserProfiles();

// The folder of the profile `name`: a directory as it is; else one of the user's own profiles or of
// those that ship. `name` itself when there is none.
std::string FindProfile(const std::string& name);

struct ImportReport {
  std::size_t objects = 0;
  std::vector<std::string> left_out;  // "path: reason", by path
};

// Makes the profile folder `profile` from a dump of a unit's /pps: the tree of files below `dump`,
// of which each is the text of an object. Returns an empty text or why there is no profile.
std::string ImportDump(const std::string& dump, const std::string& profile, ImportReport* report);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PROFILES_H
