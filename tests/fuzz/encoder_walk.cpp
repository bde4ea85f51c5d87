#include "encoder_walk.h"

#include <pps.h>

#include <cstring>
#include <vector>

#include "decoder_walk.h"

namespace fuzz {
namespace {

class Encoding {
 public:
  explicit Encoding(bool json) : json_(json), expected_(json ? "{" : "@object={") {
    pps_encoder_initialize(&encoder_, json);
    pps_encoder_start_object(&encoder_, "@object");
  }
  ~Encoding() { pps_encoder_cleanup(&encoder_); }
  Encoding(const Encoding&) = delete;
  Encoding& operator=(const Encoding&) = delete;

  // One call. Names and values end at their first zero byte.
  void Do(std::uint8_t operation, Input* input) {
    const std::string name_text = input->Piece();
    const char* const name = (operation & 8) != 0 ? nullptr : name_text.c_str();
    switch (operation & 7) {
      case kStartObject:
        return Start(pps_encoder_start_object(&encoder_, name), name, false);
      case kStartArray:
        return Start(pps_encoder_start_array(&encoder_, name), name, true);
      case kEndObject:
        return Finish(false);
      case kEndArray:
        return Finish(true);
      case kAddNumber:
        return AddNumber(operation, name, input);
      case kAddBool: {
        const bool value = (operation & 16) != 0;
        return Add(pps_encoder_add_bool(&encoder_, name, value), name, value ? "true" : "false");
      }
      case kAddNull:
        return Add(pps_encoder_add_null(&encoder_, name), name, "null");
      default: {
        const std::string value = input->Piece().c_str();
        return Add(pps_encoder_add_string(&encoder_, name, value.c_str()), name, Quoted(value));
      }
    }
  }

  bool IsOpen() const { return !open_.empty(); }

  // Ends what is open and compares the text with what went in. False when a call failed.
  bool Check() {
    while (!open_.empty() && sound_) Finish(open_.back());
    const char* const text = pps_encoder_buffer(&encoder_);
    Require((text != nullptr) == sound_, "there is a text unless a call failed");
    const std::size_t length = static_cast<std::size_t>(pps_encoder_length(&encoder_));
    if (!sound_) {
      Require(length == 0, "there is no length without a text");
      return false;
    }
    Require(std::strlen(text) == length, "the text is as long as its length");
    Decoding decoding(text, json_);
    Require(decoding.parsed() == PPS_DECODER_OK, "an encoded text is well-formed");
    Require(Shown(decoding.decoder()) == expected_, "what went in comes back");
    return true;
  }

 private:
  // A call's result, and what it adds to the text when it is good.
  void Add(pps_encoder_error_t result, const char* name, const std::string& shown) {
    sound_ = sound_ && result == PPS_ENCODER_OK;
    if (!sound_) return;
    Require(!open_.empty() && (open_.back() || name != nullptr), "a value has its place");
    if (expected_.back() != '{' && expected_.back() != '[') expected_ += ",";
    if (!open_.back()) expected_ += std::string(name) + "=";
    expected_ += shown;
  }

  void Start(pps_encoder_error_t result, const char* name, bool array) {
    Add(result, name, array ? "[" : "{");
    if (sound_) open_.push_back(array);
  }

  void Finish(bool array) {
    const pps_encoder_error_t result =
        array ? pps_encoder_end_array(&encoder_) : pps_encoder_end_object(&encoder_);
    const bool expected = sound_ && !open_.empty() && open_.back() == array;
    sound_ = sound_ && result == PPS_ENCODER_OK;
    Require(sound_ == expected, "an end belongs to the start before it");
    if (!sound_) return;
    open_.pop_back();
    expected_ += array ? "]" : "}";
  }

  void AddNumber(std::uint8_t operation, const char* name, Input* input) {
    std::uint64_t bits = 0;
    const std::string raw = input->Take(sizeof(bits));
    std::memcpy(&bits, raw.data(), raw.size());
    double real = 0;
    std::memcpy(&real, &bits, sizeof(real));
    const auto wide = static_cast<std::int64_t>(bits);
    const int narrow = static_cast<int>(bits);
    if ((operation & kInt) == 0) {
      Add(pps_encoder_add_int64(&encoder_, name, wide), name,
          ShownNumber(static_cast<double>(wide)));
    } else if ((operation & kDouble) == kInt) {
      Add(pps_encoder_add_int(&encoder_, name, narrow), name, ShownNumber(narrow));
    } else {
      Add(pps_encoder_add_double(&encoder_, name, real), name, ShownNumber(real));
    }
  }

  pps_encoder_t encoder_;
  const bool json_;
  bool sound_ = true;                 // no call has failed
  std::vector<bool> open_ = {false};  // true: an array
  std::string expected_;              // as Shown tells it
};

}  // namespace

bool Encode(Input input, bool json) {
  Encoding encoding(json);
  // In PPS text another object may follow; one without a name would continue the first.
  while (!input.empty() && (json || encoding.IsOpen())) {
    const std::uint8_t operation = input.Byte();
    encoding.Do(operation, &input);
  }
  return encoding.Check();
}

void Run(Input input, bool json) {
  const std::string operations = input.Take(input.Byte());
  Encode(input, json);
  const std::string all = input.Take(static_cast<std::size_t>(-1));
  Decode(all.c_str(), json, operations);
}

}  // namespace fuzz
