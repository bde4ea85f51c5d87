// Feeds an encoder, and reads back what it made.
#ifndef KORVANDIS_FUZZ_ENCODER_WALK_H
#define KORVANDIS_FUZZ_ENCODER_WALK_H

#include "input.h"

namespace fuzz {

// A call: its low three bits; 8 is for no name, 16 for true. Behind it a name and, for a string,
// the text, each a piece of the input; for a number 8 bytes, which are an int with kInt, a double
// with kDouble, else an int64.
const int kStartObject = 0, kStartArray = 1, kEndObject = 2, kEndArray = 3;
const int kAddNumber = 4, kAddBool = 5, kAddNull = 6, kAddString = 7;
const int kInt = 16, kDouble = 48;

// Carries out calls with names and values out of `input`, for PPS text or for one JSON value. A
// text that comes out is decoded again and must hold what went in; false when none does, as a call
// failed.
bool Encode(Input input, bool json);

// One run of the targets json and pps. Input: a length byte, so many operations (see Decode), and
// the text for the decoder, whose bytes are also the encoder's calls.
void Run(Input input, bool json);

}  // namespace fuzz

#endif  // KORVANDIS_FUZZ_ENCODER_WALK_H
