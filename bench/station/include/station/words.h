// Command lines as words, and words as they are typed.
#ifndef KORVANDIS_STATION_WORDS_H
#define KORVANDIS_STATION_WORDS_H

#include <string>
#include <vector>

namespace station {

// Words separated by blanks, as a shell takes them: quotes '...' and "...", and \ in front of a
// character. Returns what is wrong, or nothing.
std::string SplitWords(const std::string& line, std::vector<std::string>* words);

// A word as it is typed, in quotes where it needs them. One that cannot be typed is escaped, for
// reading alone.
std::string TypedWord(const std::string& word);

// The first `count` words (all of them, when there are fewer) with blanks between them.
std::string JoinWords(const std::vector<std::string>& words, std::size_t count = SIZE_MAX);

}  // namespace station

#endif  // KORVANDIS_STATION_WORDS_H
