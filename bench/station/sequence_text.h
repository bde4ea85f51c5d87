// The text of sequences: words, names, values in braces. Inside this room only.
#ifndef KORVANDIS_STATION_SEQUENCE_TEXT_H
#define KORVANDIS_STATION_SEQUENCE_TEXT_H

#include <functional>
#include <string>

#include "qnx/text.h"

namespace station {

using qnx::Quoted;

// `text` with control characters escaped and everything else as written, backslashes too.
std::string AsWritten(const std::string& text);

// Without the blanks at both ends.
std::string Trim(const std::string& text);

// True when the line has control characters other than tabs.
bool HasControls(const std::string& line);

// Takes the first word off *rest.
std::string TakeWord(std::string* rest);

// Takes `prefix`, whole words, off *rest; false when it does not begin so.
bool TakePrefix(const std::string& prefix, std::string* rest);

// A letter, then letters, digits, _ and -.
bool IsName(const std::string& text);

// Calls `use` with each name in braces and the place of its brace.
void ForEachValue(const std::string& text,
                  const std::function<void(const std::string& name, std::size_t at)>& use);

}  // namespace station

#endif  // KORVANDIS_STATION_SEQUENCE_TEXT_H
