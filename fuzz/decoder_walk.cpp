#include "decoder_walk.h"

#include <cstring>
#include <vector>

namespace fuzz {
namespace {

// Names that the unit's own texts have, and the shortest ones.
const char* const kNames[] = {"a",        "b",          "",    "version", "mpu",  "dat",
                              "latitude", "satellites", "cno", "id",      "used", "trackinfo"};
const int kNextName = 12;  // the name that the decoder gives for the next member
const int kLastName = 13;  // the one it gave the last time
// Everything above: no name.

enum Call {
  kGetInt,
  kGetInt64,
  kGetDouble,
  kGetBool,
  kGetString,
  kPush,
  kPushArray,
  kPop,
  kNext,
  kType,
  kName,
  kLength,
  kStatus,
  kClearStatus,
};

class Walker {
 public:
  explicit Walker(Decoding* decoding)
      : decoder_(decoding->decoder()),
        text_(decoding->text()),
        status_(pps_decoder_status(decoder_, false)) {}

  void Do(std::uint8_t operation) {
    const char* const name = Name(operation >> 4);
    const pps_node_type_t type = pps_decoder_type(decoder_, name);
    switch (operation & 15) {
      case kGetInt:
        return GetInt(name, type);
      case kGetInt64:
        return GetInt64(name, type);
      case kGetDouble:
        return GetDouble(name, type);
      case kGetBool:
        return GetBool(name, type);
      case kGetString:
        return GetString(name, type);
      case kPush:
        return Enter(pps_decoder_push(decoder_, name), type,
                     type == PPS_TYPE_OBJECT || type == PPS_TYPE_ARRAY);
      case kPushArray:
        return Enter(pps_decoder_push_array(decoder_, name), type, type == PPS_TYPE_ARRAY);
      case kPop:
        return Pop();
      case kNext:
        return Next();
      case kStatus:
        Require(pps_decoder_status(decoder_, false) == status_, "the status is the first failure");
        return;
      case kClearStatus:
        Require(pps_decoder_status(decoder_, true) == status_, "the status is the first failure");
        status_ = PPS_DECODER_OK;
        return;
      default:
        Require(pps_decoder_length(decoder_) >= 0, "a length is not negative");
        Require(pps_decoder_type(decoder_, name) == type, "asking for the type changes nothing");
        return;
    }
  }

  void LeaveAll() {
    while (depth_ > 0) Pop();
  }

 private:
  const char* Name(int selector) {
    const int known = static_cast<int>(sizeof(kNames) / sizeof(kNames[0]));
    if (selector < known) return kNames[selector];
    if (selector == kLastName) return last_name_.c_str();
    if (selector != kNextName) return nullptr;
    const char* const name = pps_decoder_name(decoder_);
    if (name == nullptr) return nullptr;
    Require(text_.Holds(name), "a name points into the text");
    last_name_ = name;
    return last_name_.c_str();
  }

  // The result of a call for a value of the type it found there.
  void Check(pps_decoder_error_t result, pps_node_type_t type, bool fits) {
    if (type == PPS_TYPE_NONE) {
      Require(result == PPS_DECODER_NOT_FOUND, "what is not there is not found");
    } else if (fits) {
      Require(result == PPS_DECODER_OK, "what has the type is delivered");
    } else {
      Require(result == PPS_DECODER_BAD_TYPE, "what has another type is not delivered");
    }
    if (status_ == PPS_DECODER_OK) status_ = result;
  }

  // A number may be one that this call cannot deliver.
  void CheckNumber(pps_decoder_error_t result, pps_node_type_t type, bool untouched) {
    Require(result == PPS_DECODER_OK || untouched, "a failure leaves the variable alone");
    Check(result, type, type == PPS_TYPE_NUMBER && result == PPS_DECODER_OK);
  }

  void GetInt(const char* name, pps_node_type_t type) {
    const int kUntouched = -77;
    int value = kUntouched;
    std::int64_t wide = 0;
    if (name != nullptr && pps_decoder_get_int64(decoder_, name, &wide) != PPS_DECODER_OK) {
      RestoreStatus();
    }
    const pps_decoder_error_t result = pps_decoder_get_int(decoder_, name, &value);
    CheckNumber(result, type, value == kUntouched);
    if (name != nullptr && result == PPS_DECODER_OK) {
      Require(value == wide, "a number is the same as int and as int64");
    }
  }

  void GetInt64(const char* name, pps_node_type_t type) {
    const std::int64_t kUntouched = -77;
    std::int64_t value = kUntouched;
    double real = 0;
    if (name != nullptr && pps_decoder_get_double(decoder_, name, &real) != PPS_DECODER_OK) {
      RestoreStatus();
    }
    const pps_decoder_error_t result = pps_decoder_get_int64(decoder_, name, &value);
    CheckNumber(result, type, value == kUntouched);
    if (name != nullptr && result == PPS_DECODER_OK) {
      Require(real == static_cast<double>(value), "a number is the same as int64 and as double");
    }
  }

  void GetDouble(const char* name, pps_node_type_t type) {
    const double kUntouched = -77.25;
    double value = kUntouched;
    const pps_decoder_error_t result = pps_decoder_get_double(decoder_, name, &value);
    const bool untouched = std::memcmp(&value, &kUntouched, sizeof(value)) == 0;
    CheckNumber(result, type, untouched);
  }

  void GetBool(const char* name, pps_node_type_t type) {
    bool value = true;
    const pps_decoder_error_t result = pps_decoder_get_bool(decoder_, name, &value);
    Require(result == PPS_DECODER_OK || value, "a failure leaves the variable alone");
    Check(result, type, type == PPS_TYPE_BOOL);
  }

  void GetString(const char* name, pps_node_type_t type) {
    const char* value = nullptr;
    const pps_decoder_error_t result = pps_decoder_get_string(decoder_, name, &value);
    Require((result == PPS_DECODER_OK) == (value != nullptr),
            "a failure leaves the variable alone");
    Check(result, type, type == PPS_TYPE_STRING);
    if (value == nullptr) return;
    Require(text_.Holds(value) && text_.Holds(value + std::strlen(value)),
            "a string points into the text");
  }

  void Enter(pps_decoder_error_t result, pps_node_type_t type, bool fits) {
    Check(result, type, fits);
    if (result == PPS_DECODER_OK) ++depth_;
  }

  void Pop() {
    const pps_decoder_error_t result = pps_decoder_pop(decoder_);
    Require(result == (depth_ > 0 ? PPS_DECODER_OK : PPS_DECODER_POP_AT_ROOT),
            "there are as many ways out as in");
    if (depth_ > 0) --depth_;
    if (status_ == PPS_DECODER_OK) status_ = result;
  }

  void Next() {
    const bool there = pps_decoder_type(decoder_, nullptr) != PPS_TYPE_NONE;
    Require((pps_decoder_next(decoder_) == PPS_DECODER_OK) == there, "next passes what is there");
  }

  // Undoes what a comparison's own call left in the status.
  void RestoreStatus() {
    if (status_ == PPS_DECODER_OK) pps_decoder_status(decoder_, true);
  }

  pps_decoder_t* const decoder_;
  const DecodedText& text_;
  pps_decoder_error_t status_;
  int depth_ = 0;
  std::string last_name_;
};

}  // namespace

DecodedText::DecodedText(const std::string& text)
    : text_(nullptr), size_(std::strlen(text.c_str()) + 1) {
  text_ = new char[size_];
  std::memcpy(text_, text.c_str(), size_);
}

Decoding::Decoding(const std::string& text, bool json) : text_(text) {
  pps_decoder_initialize(&decoder_, nullptr);
  parsed_ = json ? pps_decoder_parse_json_str(&decoder_, text_.get())
                 : pps_decoder_parse_pps_str(&decoder_, text_.get());
  Require(parsed_ == PPS_DECODER_OK || parsed_ == PPS_DECODER_PARSE_ERROR, "a text parses or not");
  Require(pps_decoder_status(&decoder_, false) == parsed_, "the status tells how it was parsed");
}

void Walk(Decoding* decoding, const std::string& operations) {
  Walker walker(decoding);
  for (const char operation : operations) walker.Do(static_cast<std::uint8_t>(operation));
  walker.LeaveAll();
}

void WalkAll(Decoding* decoding) {
  pps_decoder_t* const decoder = decoding->decoder();
  std::vector<int> left = {pps_decoder_length(decoder)};
  while (!left.empty()) {
    if (pps_decoder_type(decoder, nullptr) == PPS_TYPE_NONE) {
      Require(left.back() == 0, "a level has as many members as its length");
      left.pop_back();
      Require((pps_decoder_pop(decoder) == PPS_DECODER_OK) == !left.empty(), "every level ends");
      continue;
    }
    Require(left.back()-- > 0, "a level has no more members than its length");
    const char* const name = pps_decoder_name(decoder);
    Require(name == nullptr || decoding->text().Holds(name), "a name points into the text");
    if (pps_decoder_push(decoder, nullptr) == PPS_DECODER_OK) {
      left.push_back(pps_decoder_length(decoder));
    } else {
      Require(pps_decoder_next(decoder) == PPS_DECODER_OK, "what cannot be entered can be passed");
    }
  }
}

}  // namespace fuzz
