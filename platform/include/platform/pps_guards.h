// Owners of a PPS encoder and of a PPS decoder: set up when they are constructed, cleaned up when
// they go.
#ifndef KORVANDIS_PLATFORM_PPS_GUARDS_H
#define KORVANDIS_PLATFORM_PPS_GUARDS_H

#include <pps.h>

namespace platform {

// An empty encoder of PPS text or, with `json`, of one JSON value.
class Encoder {
 public:
  explicit Encoder(bool json = false) { pps_encoder_initialize(&m_encoder, json); }
  ~Encoder() { pps_encoder_cleanup(&m_encoder); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  pps_encoder_t* Get() { return &m_encoder; }

 private:
  pps_encoder_t m_encoder;
};

// A decoder without text. Strings that it gives lie in the text that it is given, and outlive it.
class Decoder {
 public:
  Decoder() { pps_decoder_initialize(&m_decoder, nullptr); }
  ~Decoder() { pps_decoder_cleanup(&m_decoder); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  pps_decoder_t* Get() { return &m_decoder; }

 private:
  pps_decoder_t m_decoder;
};

}  // namespace platform

#endif  // KORVANDIS_PLATFORM_PPS_GUARDS_H
