// Any text through the JSON decoder, with every call in any order; and the encoder.
// Input: a length byte, so many operations (see decoder_walk.h), the text.
#include "decoder_walk.h"
#include "encoder_walk.h"

namespace {

// The same text as the value of a json attribute; false when it is not well-formed there.
bool IsAttributeValue(const std::string& json) {
  fuzz::Decoding decoding("a:json:" + json + "\n", false);
  pps_decoder_push(decoding.decoder(), nullptr);
  return pps_decoder_type(decoding.decoder(), "a") != PPS_TYPE_UNKNOWN;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::string operations = input.Take(input.Byte());
  fuzz::Encode(input, true);
  const std::string content = input.Take(size).c_str();

  fuzz::Decoding decoding(content, true);
  fuzz::Walk(&decoding, operations);
  fuzz::Decoding whole(content, true);
  fuzz::WalkAll(&whole);
  if (content.find('\n') == std::string::npos) {
    fuzz::Require(IsAttributeValue(content) == whole.well_formed(),
                  "an attribute takes the JSON that the decoder takes");
  }
  return 0;
}
