// The lines of PPS text, for the line parser and the decoder.
#ifndef KORVANDIS_QNX_PPS_LINE_H
#define KORVANDIS_QNX_PPS_LINE_H

#include <pps.h>

namespace qnx {

// One line of PPS text, cut from it in place.
struct Line {
  pps_status_t status;
  char* name;      // of the attribute, or of the object with its '@'
  char* encoding;  // attributes only
  char* value;     // attributes only
  bool cut;        // PPS_ERROR: the last line, whose end is missing
  int options;     // PPS_NOPERSIST, or 0
};

// Takes the line at *text and advances *text behind it; PPS_END at the terminator.
Line TakeLine(char** text);

// Resolves C escapes in place. Text that is not a known escape stays as it is.
void UnescapeC(char* text);

}  // namespace qnx

#endif  // KORVANDIS_QNX_PPS_LINE_H
