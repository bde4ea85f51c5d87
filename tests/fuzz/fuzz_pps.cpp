// Any text through the PPS line parser and decoder, with every call in any order, and back through
// the encoder.
#include "pps_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Run(fuzz::Input(data, size), false);
  return 0;
}
