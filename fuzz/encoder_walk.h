// Feeds an encoder, and reads back what it made.
#ifndef KORVANDIS_FUZZ_ENCODER_WALK_H
#define KORVANDIS_FUZZ_ENCODER_WALK_H

#include "input.h"

namespace fuzz {

// Carries out calls with names and values out of `input`, for PPS text or for one JSON value. A
// text that comes out is decoded again and must hold the strings that went in.
void Encode(Input input, bool json);

}  // namespace fuzz

#endif  // KORVANDIS_FUZZ_ENCODER_WALK_H
