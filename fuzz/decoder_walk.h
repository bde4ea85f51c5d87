// Drives a decoder, and holds it to what pps.h promises.
#ifndef KORVANDIS_FUZZ_DECODER_WALK_H
#define KORVANDIS_FUZZ_DECODER_WALK_H

#include <pps.h>

#include <cstddef>

#include "input.h"

namespace fuzz {

// The text that a decoder works on, in a block of exactly its size, so that the sanitizer sees
// every byte that is read or written beside it. It ends at the first zero byte.
class DecodedText {
 public:
  explicit DecodedText(const std::string& text);
  ~DecodedText() { delete[] text_; }
  DecodedText(const DecodedText&) = delete;
  DecodedText& operator=(const DecodedText&) = delete;

  char* get() { return text_; }
  // True for a terminated text within the block.
  bool Holds(const char* text) const { return text >= text_ && text < text_ + size_; }

 private:
  char* text_;
  std::size_t size_;
};

// A decoder with its text, parsed.
class Decoding {
 public:
  Decoding(const std::string& text, bool json);
  ~Decoding() { pps_decoder_cleanup(&decoder_); }
  Decoding(const Decoding&) = delete;
  Decoding& operator=(const Decoding&) = delete;

  pps_decoder_t* decoder() { return &decoder_; }
  const DecodedText& text() const { return text_; }
  bool well_formed() const { return parsed_ == PPS_DECODER_OK; }

 private:
  DecodedText text_;
  pps_decoder_t decoder_;
  pps_decoder_error_t parsed_;
};

// Carries out an operation a byte on a parsed text: the low half chooses a call, the high half the
// name it is given.
void Walk(Decoding* decoding, const std::string& operations);

// Enters and leaves everything there is in a parsed text, once.
void WalkAll(Decoding* decoding);

}  // namespace fuzz

#endif  // KORVANDIS_FUZZ_DECODER_WALK_H
