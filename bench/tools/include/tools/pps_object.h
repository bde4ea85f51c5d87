// Reading PPS objects from the bench's side.
#ifndef KORVANDIS_TOOLS_PPS_OBJECT_H
#define KORVANDIS_TOOLS_PPS_OBJECT_H

#include <string>
#include <vector>

namespace tools {

// Puts the text of the object or directory at `path` into *text; `flags` as for open. Returns 0 or
// an error number.
int ReadObject(const std::string& path, int flags, std::string* text);

// Appends everything below the directory `path` to *names, each relative to it and a directory in
// front of what it holds, with a slash behind. Returns 0 or an error number (ENOTDIR: an object).
int ListBelow(const std::string& path, std::vector<std::string>* names);

// Puts the value of the attribute `name` of the object text into *value as a person reads it: C
// escapes resolved, anything else as it stands in its line. False when there is none.
bool FindAttribute(const std::string& object_text, const std::string& name, std::string* value);

// True when `value` is one whole JSON value; one JSON number.
bool IsJson(const std::string& value);
bool IsNumber(const std::string& value);

}  // namespace tools

#endif  // KORVANDIS_TOOLS_PPS_OBJECT_H
