// Drives the PPS library, and holds it to what pps.h promises.
#ifndef KORVANDIS_FUZZ_PPS_WALK_H
#define KORVANDIS_FUZZ_PPS_WALK_H

#include <pps.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "input.h"
#include "platform/pps_guards.h"

namespace fuzz {

// The text that a decoder works on, in a block of exactly its size, so that the sanitizer sees
// every byte that is read or written beside it. It ends at the first zero byte.
class DecodedText {
 public:
  explicit DecodedText(const std::string& text)
      : size_(std::strlen(text.c_str()) + 1), text_(new char[size_]) {
    std::memcpy(text_.get(), text.c_str(), size_);
  }

  char* get() { return text_.get(); }
  // True for a terminated text within the block.
  bool Holds(const char* text) const { return text >= text_.get() && text < text_.get() + size_; }

 private:
  const std::size_t size_;
  const std::unique_ptr<char[]> text_;
};

// A decoder with its text, parsed.
class Decoding {
 public:
  Decoding(const std::string& text, bool json);

  operator pps_decoder_t*() { return decoder_.Get(); }
  const DecodedText& text() const { return text_; }
  pps_decoder_error_t parsed() const { return parsed_; }

 private:
  DecodedText text_;
  platform::Decoder decoder_;
  pps_decoder_error_t parsed_;
};

// A text under construction.
class Encoding {
 public:
  explicit Encoding(bool json) : encoder_(json) {}

  operator pps_encoder_t*() { return encoder_.Get(); }
  std::string Text();  // kNoText when it is not whole

 private:
  platform::Encoder encoder_;
};

const char kNoText[] = "no text";

// What a decoder has from its position to the end of its level: names with "=", and each value as
// the JSON that the encoder makes of it. What has no readable value counts as null.
std::string Shown(pps_decoder_t* decoder);

// One run of the targets json and pps. Input: a length byte, so many operations, whose low half
// chooses a call and whose high half the name it is given, and the text for the decoder. What was
// read goes through the encoder and must come back.
void Run(Input input, bool json);

}  // namespace fuzz

#endif  // KORVANDIS_FUZZ_PPS_WALK_H
