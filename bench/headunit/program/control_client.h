// Requests of `headunit` to a unit that runs already.
#ifndef KORVANDIS_HEADUNIT_PROGRAM_CONTROL_CLIENT_H
#define KORVANDIS_HEADUNIT_PROGRAM_CONTROL_CLIENT_H

#include <string>
#include <vector>

namespace headunit {

// Both return the program's exit status and print the answer, or on standard error what is wrong.

// Sends the words as one control line.
int Control(std::vector<std::string> words);

// Waits until the unit is up and the service that it starts is connected; the word is the longest
// time in seconds.
int AwaitUnit(const std::vector<std::string>& words);

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_PROGRAM_CONTROL_CLIENT_H
