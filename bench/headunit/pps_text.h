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
  std::string_view options;  // in square brackets in front, "n" for one that is not persistent
  bool has_options = false;
  std::string_view name;
  std::string_view value;  // "encoding:value"
  bool deleted = false;
};

struct PpsAttribute {
  std::string options;  // without the brackets, empty: none
  std::string value;    // "encoding:value"
};

// Attributes of an object by name.
using PpsAttributes = std::map<std::string, PpsAttribute, std::less<>>;

// Points into the text that it was parsed from.
struct PpsText {
  std::string_view head;  // the leading "@..." line without '@' and newline
  bool has_head = false;
  std::string_view head_options;  // as those of an attribute
  bool has_head_options = false;
  std::vector<PpsChange> changes;
};

// Takes `text` apart: an optional first line "@...", then lines "name:encoding:value" or "-name",
// each with options in square brackets in front or without, the last newline optional. Returns 0,
// or the number of the first line that is wrong.
std::size_t ParsePpsText(std::string_view text, PpsText* parsed);

// A line "@HEAD" and the lines of a write.
SharedText FormatPpsMessage(const std::string& head, const std::vector<PpsChange>& changes);

// "@name" and a line for each attribute, with the options of each in front.
std::string FormatPpsObject(const std::string& name, const std::string& options,
                            const PpsAttributes& attributes);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PPS_TEXT_H
