// How texts become nodes.
#ifndef KORVANDIS_QNX_PPS_VALUE_H
#define KORVANDIS_QNX_PPS_VALUE_H

#include <cstddef>
#include <cstdint>

#include "qnx/pps_tape.h"

namespace qnx {
namespace pps {

// Whether the places of a text can be told by offsets.
inline bool FitsOffsets(const char* begin, const char* end) {
  return static_cast<std::size_t>(end - begin) < kNone;
}

enum class Parsed { kWell, kMalformed, kNoMemory };

// Parses the JSON text from `begin` to `end`, where a zero byte stands, and appends its nodes to
// the tape; the first one is a child of `parent`. Offsets count from `base`. Names and strings are
// unescaped and terminated in place. After a failure the tape is as long as before; the text is not
// what it was.
//
// The text is one value in the grammar of RFC 8259, with white space around it. Control characters
// in strings and unknown escapes are errors; a surrogate without its other half becomes U+FFFD.
// Bytes from 0x80 are taken as they stand.
Parsed ParseJson(Tape* tape, char* base, char* begin, char* end, std::uint32_t parent);

// Scans a JSON number (with `leading_zeros`, also one like 007) into `node` and returns its end, or
// null when there is none.
char* ScanNumber(char* p, bool leading_zeros, Node* node);

// The number, which stands at `text`, as the nearest double; false when it is out of range. Those
// too small are zero.
bool ToDouble(const Node& node, const char* text, double* value);

// Resolves C escapes in place. An escape that is none stays as it stands.
void UnescapeC(char* text);

}  // namespace pps
}  // namespace qnx

#endif  // KORVANDIS_QNX_PPS_VALUE_H
