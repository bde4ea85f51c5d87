// The grammar of PPS texts as the manager takes them.
#ifndef KORVANDIS_HEADUNIT_PPS_TEXT_H
#define KORVANDIS_HEADUNIT_PPS_TEXT_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "outbox.h"

namespace headunit {

// One line of a write: an attribute is set, or deleted.
struct PpsChange {
  std::string_view name;
  std::string_view value;  // "encoding:value"
  bool deleted = false;
};

// Attributes of an object by name; the mapped text is "encoding:value".
using PpsAttributes = std::map<std::string, std::string, std::less<>>;

// Points into the text that it was parsed from.
struct PpsText {
  std::string_view head;  // the leading "@..." line without '@' and newline
  bool has_head = false;
  std::vector<PpsChange> changes;
};

// Takes `text` apart: an optional first line "@...", then lines "name:encoding:value" or "-name",
// the last newline optional. Returns 0, or the number of the first line that is none of these.
std::size_t ParsePpsText(std::string_view text, PpsText* parsed);

// A line "@HEAD" and the lines of a write.
SharedText FormatPpsMessage(const std::string& head, const std::vector<PpsChange>& changes);

// "@name" and a line for each attribute.
std::string FormatPpsObject(const std::string& name, const PpsAttributes& attributes);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_TEXT_H
