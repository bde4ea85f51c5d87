// Lines on standard output and standard error that never hold up the service.
#ifndef KORVANDIS_PLATFORM_PRINT_H
#define KORVANDIS_PLATFORM_PRINT_H

namespace platform {

// Looks at what the two streams are. Called once by main before there is a second thread; until
// then each print waits as long as its stream does. A pipe or terminal is opened a second time for
// this process alone, so that writing need not wait; where that cannot be done, and for a socket,
// each print asks first whether there is room.
void WatchStreams();

// Print one text, as printf formats it, in one write: all of it or, when the stream takes nothing,
// none. A text is cut at 20 KiB. A stream that takes nothing is waited for once, for at most 100
// ms; then its texts are dropped without waiting. When it takes one again, a line at level 2 says
// how many were dropped. A text of which a part was taken is finished before the next one. Any
// thread.
__attribute__((format(printf, 1, 2))) void PrintOutput(const char* format, ...);
__attribute__((format(printf, 1, 2))) void PrintError(const char* format, ...);

}  // namespace platform

#endif  // KORVANDIS_PLATFORM_PRINT_H
