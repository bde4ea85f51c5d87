#include "encoder_walk.h"

#include <pps.h>

#include <cstring>
#include <utility>
#include <vector>

#include "decoder_walk.h"

namespace fuzz {
namespace {

class Encoding {
 public:
  explicit Encoding(bool json) : json_(json) {
    pps_encoder_initialize(&encoder_, json);
    pps_encoder_start_object(&encoder_, "@object");
    open_.push_back(false);
  }
  ~Encoding() { pps_encoder_cleanup(&encoder_); }
  Encoding(const Encoding&) = delete;
  Encoding& operator=(const Encoding&) = delete;

  // One call. Names and values end at their first zero byte.
  void Do(std::uint8_t operation, Input* input) {
    const std::string name_text = input->Piece();
    const char* const name = (operation & 8) != 0 ? nullptr : name_text.c_str();
    switch (operation & 7) {
      case 0:
        return Start(pps_encoder_start_object(&encoder_, name), false);
      case 1:
        return Start(pps_encoder_start_array(&encoder_, name), true);
      case 2:
        return Finish(false);
      case 3:
        return Finish(true);
      case 4:
        return AddNumber(operation, name, input);
      case 5:
        Count(pps_encoder_add_bool(&encoder_, name, (operation & 16) != 0));
        return;
      case 6:
        Count(pps_encoder_add_null(&encoder_, name));
        return;
      default:
        return AddString(name, input->Piece());
    }
  }

  bool IsOpen() const { return !open_.empty(); }

  // Ends what is open and compares the text with what went in.
  void Check() {
    while (!open_.empty() && sound_) Finish(open_.back());
    const char* const text = pps_encoder_buffer(&encoder_);
    Require((text != nullptr) == sound_, "there is a text unless a call failed");
    const std::size_t length = static_cast<std::size_t>(pps_encoder_length(&encoder_));
    if (!sound_) {
      Require(length == 0, "there is no length without a text");
      return;
    }
    Require(std::strlen(text) == length, "the text is as long as its length");
    Decode(text);
  }

 private:
  // A call's result; counts the members of the outermost object.
  void Count(pps_encoder_error_t result) {
    sound_ = sound_ && result == PPS_ENCODER_OK;
    if (sound_ && open_.size() == 1) ++members_;
  }

  void Start(pps_encoder_error_t result, bool array) {
    Count(result);
    if (sound_) open_.push_back(array);
  }

  void Finish(bool array) {
    const pps_encoder_error_t result =
        array ? pps_encoder_end_array(&encoder_) : pps_encoder_end_object(&encoder_);
    const bool expected = sound_ && !open_.empty() && open_.back() == array;
    sound_ = sound_ && result == PPS_ENCODER_OK;
    Require(sound_ == expected, "an end belongs to the start before it");
    if (sound_) open_.pop_back();
  }

  void AddNumber(std::uint8_t operation, const char* name, Input* input) {
    std::uint64_t bits = 0;
    const std::string raw = input->Take(sizeof(bits));
    std::memcpy(&bits, raw.data(), raw.size());
    if ((operation & 16) == 0) {
      Count(pps_encoder_add_int64(&encoder_, name, static_cast<std::int64_t>(bits)));
    } else if ((operation & 32) == 0) {
      Count(pps_encoder_add_int(&encoder_, name, static_cast<int>(bits)));
    } else {
      double value = 0;
      std::memcpy(&value, &bits, sizeof(value));
      Count(pps_encoder_add_double(&encoder_, name, value));
    }
  }

  void AddString(const char* name, const std::string& value) {
    const std::size_t place = members_;
    const bool outermost = open_.size() == 1;
    Count(pps_encoder_add_string(&encoder_, name, value.c_str()));
    if (sound_ && outermost) strings_.emplace_back(place, value.c_str());
  }

  void Decode(const char* encoded) {
    Decoding decoding(encoded, json_);
    pps_decoder_t* const decoder = decoding.decoder();
    Require(decoding.well_formed(), "an encoded text is well-formed");
    Require(pps_decoder_push(decoder, nullptr) == PPS_DECODER_OK, "it holds the object");
    Require(pps_decoder_length(decoder) == static_cast<int>(members_), "it holds the members");
    std::size_t place = 0;
    for (const auto& [wanted, value] : strings_) {
      for (; place < wanted; ++place) pps_decoder_next(decoder);
      const char* found = nullptr;
      pps_decoder_get_string(decoder, nullptr, &found);
      Require(found != nullptr && value == found, "a string comes back as it was");
      ++place;
    }
    Decoding again(encoded, json_);
    WalkAll(&again);
  }

  pps_encoder_t encoder_;
  const bool json_;
  bool sound_ = true;       // no call has failed
  std::vector<bool> open_;  // true: an array
  std::size_t members_ = 0;
  std::vector<std::pair<std::size_t, std::string>> strings_;  // place among the members, text
};

}  // namespace

void Encode(Input input, bool json) {
  Encoding encoding(json);
  // In PPS text another object may follow; one without a name would continue the first.
  while (!input.empty() && (json || encoding.IsOpen())) {
    const std::uint8_t operation = input.Byte();
    encoding.Do(operation, &input);
  }
  encoding.Check();
}

}  // namespace fuzz
