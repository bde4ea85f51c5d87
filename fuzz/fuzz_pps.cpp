// Any text through the PPS line parser and decoder, with every call in any order; and the encoder.
// Input: a length byte, so many operations (see decoder_walk.h), the text.
#include <cstring>

#include "decoder_walk.h"
#include "encoder_walk.h"

namespace {

// Line after line, until the end; each takes at least one character.
void ParseLines(const std::string& content) {
  fuzz::DecodedText text(content);
  char* at = text.get();
  pps_attrib_t line = {};
  for (;;) {
    const char* const before = at;
    const pps_status_t status = ppsparse(&at, &line);
    fuzz::Require(text.Holds(at), "the parser stays in the text");
    if (status == PPS_END) break;
    fuzz::Require(at > before, "every line is passed");
    for (const char* part : {line.obj_name, line.attr_name, line.encoding, line.value}) {
      fuzz::Require(part == nullptr || text.Holds(part + std::strlen(part)),
                    "what was parsed lies in the text");
    }
  }
  fuzz::Require(*at == '\0', "the parser ends at the end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::string operations = input.Take(input.Byte());
  fuzz::Encode(input, false);
  const std::string content = input.Take(size);
  ParseLines(content);

  fuzz::Decoding decoding(content, false);
  fuzz::Walk(&decoding, operations);
  fuzz::Decoding whole(content, false);
  fuzz::WalkAll(&whole);
  return 0;
}
