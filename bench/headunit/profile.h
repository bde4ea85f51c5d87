// A profile: the folder that a unit is started from.
//
//   pps/...    one plain PPS text a file; the path below pps/ is the object's path
//   root/...   plain files that are laid below the unit's root
//   drive.txt  the drive that positioning replays
#ifndef KORVANDIS_HEADUNIT_PROFILE_H
#define KORVANDIS_HEADUNIT_PROFILE_H

#include <string>

#include "pps_manager.h"

namespace headunit {

// Enters every object of the profile. Returns an empty text, or the first file that is wrong and
// why.
std::string LoadObjects(const std::string& profile, PpsManager* pps);

// Lays the profile's files below `root`, executable bits kept; a file that is there already stays.
// Returns an empty text or why it failed.
std::string InstallFiles(const std::string& profile, const std::string& root);

// Writes every object as a file below <folder>/pps, so that the folder is a profile. Returns an
// empty text or why it failed.
std::string SaveObjects(const PpsTree& objects, const std::string& folder);

// The whole file, or false.
bool ReadWholeFile(const std::string& path, std::string* text);

// Replaces the file in one step: a reader sees the old or the new text. With `durable` it is on the
// disk afterwards. False with errno.
bool ReplaceFile(const std::string& path, const std::string& text, bool durable);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PROFILE_H
