#include "decoder_walk.h"

#include <cstring>
#include <map>
#include <vector>

namespace fuzz {
namespace {

// Names that the unit's own texts have, and the shortest ones.
const char* const kNames[] = {"a",        "b",          "",    "version", "mpu",  "dat",
                              "latitude", "satellites", "cno", "id",      "used", "trackinfo"};
const int kNextName = 12;  // the name that the decoder gives for the next member; above: no name

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
  kStatus = 12,  // those before it ask for the length and the type
  kClearStatus,
};

const char kUnknown[] = "unknown";

class Walker {
 public:
  explicit Walker(Decoding* decoding)
      : decoder_(decoding->decoder()),
        text_(decoding->text()),
        status_(pps_decoder_status(decoder_, false)) {}

  // One operation; true when it delivered a value or entered a container.
  bool Do(int operation) {
    const char* const name = Name(operation >> 4);
    const pps_node_type_t type = pps_decoder_type(decoder_, name);
    switch (operation & 15) {
      case kGetInt:
        return GetNumber(pps_decoder_get_int, name, type);
      case kGetInt64:
        return GetNumber(pps_decoder_get_int64, name, type);
      case kGetDouble:
        return GetNumber(pps_decoder_get_double, name, type);
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
        Pop();
        break;
      case kNext:
        Next();
        break;
      case kStatus:
      case kClearStatus: {
        const bool clear = (operation & 15) == kClearStatus;
        Require(pps_decoder_status(decoder_, clear) == status_, "the status is the first failure");
        if (clear) status_ = PPS_DECODER_OK;
        break;
      }
      default:
        Require(pps_decoder_length(decoder_) >= 0, "a length is not negative");
        Require(pps_decoder_type(decoder_, name) == type, "asking for the type changes nothing");
    }
    return false;
  }

  void LeaveAll() {
    while (depth_ > 0) Pop();
  }

 private:
  const char* Name(int selector) {
    const int known = static_cast<int>(sizeof(kNames) / sizeof(kNames[0]));
    if (selector < known) return kNames[selector];
    if (selector != kNextName) return nullptr;
    const char* const name = pps_decoder_name(decoder_);
    if (name == nullptr) return nullptr;
    Require(text_.Holds(name), "a name points into the text");
    last_name_ = name;
    return last_name_.c_str();
  }

  // The result of a call for a value of the type it found there; true when it delivered.
  bool Check(pps_decoder_error_t result, pps_node_type_t type, bool fits) {
    if (type == PPS_TYPE_NONE) {
      Require(result == PPS_DECODER_NOT_FOUND, "what is not there is not found");
    } else if (fits) {
      Require(result == PPS_DECODER_OK, "what has the type is delivered");
    } else {
      Require(result == PPS_DECODER_BAD_TYPE, "what has another type is not delivered");
    }
    if (status_ == PPS_DECODER_OK) status_ = result;
    return result == PPS_DECODER_OK;
  }

  // A number may be one that this call cannot deliver.
  template <typename Value>
  bool GetNumber(pps_decoder_error_t (*get)(pps_decoder_t*, const char*, Value*), const char* name,
                 pps_node_type_t type) {
    const Value kUntouched = -77;
    Value value = kUntouched;
    const bool good = get(decoder_, name, &value) == PPS_DECODER_OK;
    Require(good || value == kUntouched, "a failure leaves the variable alone");
    if (type == PPS_TYPE_NONE) return Check(PPS_DECODER_NOT_FOUND, type, false);
    return Check(good ? PPS_DECODER_OK : PPS_DECODER_BAD_TYPE, type,
                 type == PPS_TYPE_NUMBER && good);
  }

  bool GetBool(const char* name, pps_node_type_t type) {
    bool value = true;
    const pps_decoder_error_t result = pps_decoder_get_bool(decoder_, name, &value);
    Require(result == PPS_DECODER_OK || value, "a failure leaves the variable alone");
    return Check(result, type, type == PPS_TYPE_BOOL);
  }

  bool GetString(const char* name, pps_node_type_t type) {
    const char* value = nullptr;
    const pps_decoder_error_t result = pps_decoder_get_string(decoder_, name, &value);
    Require((result == PPS_DECODER_OK) == (value != nullptr),
            "a failure leaves the variable alone");
    Require(value == nullptr || (text_.Holds(value) && text_.Holds(value + std::strlen(value))),
            "a string points into the text");
    return Check(result, type, type == PPS_TYPE_STRING);
  }

  bool Enter(pps_decoder_error_t result, pps_node_type_t type, bool fits) {
    if (result == PPS_DECODER_OK) ++depth_;
    return Check(result, type, fits);
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

  pps_decoder_t* const decoder_;
  const DecodedText& text_;
  pps_decoder_error_t status_;
  int depth_ = 0;
  std::string last_name_;
};

// The member of that name or, name null, the next one, which is passed.
std::string Value(pps_decoder_t* decoder, const char* name) {
  const pps_node_type_t type = pps_decoder_type(decoder, name);
  if (type == PPS_TYPE_OBJECT || type == PPS_TYPE_ARRAY) {
    Require(pps_decoder_push(decoder, name) == PPS_DECODER_OK, "a container can be entered");
    const std::string inside = Shown(decoder);
    Require(pps_decoder_pop(decoder) == PPS_DECODER_OK, "what was entered can be left");
    return type == PPS_TYPE_OBJECT ? "{" + inside + "}" : "[" + inside + "]";
  }
  double number = 0;
  if (pps_decoder_get_double(decoder, name, &number) == PPS_DECODER_OK) return ShownNumber(number);
  bool flag = false;
  if (pps_decoder_get_bool(decoder, name, &flag) == PPS_DECODER_OK) return flag ? "true" : "false";
  const char* string = nullptr;
  if (pps_decoder_get_string(decoder, name, &string) == PPS_DECODER_OK) return Quoted(string);
  if (name == nullptr) pps_decoder_next(decoder);
  return type == PPS_TYPE_NULL ? "null" : type == PPS_TYPE_NUMBER ? "huge" : kUnknown;
}

// Line after line, until the end; each takes at least one character.
void ParseLines(const std::string& content) {
  DecodedText text(content);
  char* at = text.get();
  pps_attrib_t line = {};
  for (;;) {
    const char* const before = at;
    const pps_status_t status = ppsparse(&at, nullptr, nullptr, &line, 0);
    Require(text.Holds(at), "the parser stays in the text");
    if (status == PPS_END) break;
    Require(at > before, "every line is passed");
    for (const char* part : {line.obj_name, line.attr_name, line.encoding, line.value}) {
      Require(part == nullptr || text.Holds(part + std::strlen(part)),
              "what was parsed lies in the text");
    }
  }
  Require(*at == '\0', "the parser ends at the end");
}

}  // namespace

std::string ShownNumber(double value) {
  char text[40];
  std::snprintf(text, sizeof(text), "%.17g", value);
  return text;
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

Decoding::Decoding(const std::string& text, bool json) : text_(text) {
  pps_decoder_initialize(&decoder_, nullptr);
  parsed_ = json ? pps_decoder_parse_json_str(&decoder_, text_.get())
                 : pps_decoder_parse_pps_str(&decoder_, text_.get());
  Require(parsed_ == PPS_DECODER_OK || parsed_ == PPS_DECODER_PARSE_ERROR, "a text parses or not");
  Require(pps_decoder_status(&decoder_, false) == parsed_, "the status tells how it was parsed");
}

std::string Shown(pps_decoder_t* decoder) {
  std::vector<std::string> names;
  std::map<std::string, std::string> values;  // the first one of each name
  std::string shown;
  while (pps_decoder_type(decoder, nullptr) != PPS_TYPE_NONE) {
    const char* const name = pps_decoder_name(decoder);
    if (name != nullptr) names.emplace_back(name);
    shown += (shown.empty() ? "" : ",") + (name == nullptr ? "" : names.back() + "=");
    const std::string value = Value(decoder, nullptr);
    if (name != nullptr) values.emplace(names.back(), value);
    shown += value;
  }
  const std::size_t count = names.size();
  for (std::size_t i = 0; i < 2 * count; ++i) {  // there and back
    const std::string& name = names[i < count ? i : 2 * count - 1 - i];
    const std::string& value = values[name];
    const bool scalar = value[0] != '{' && value[0] != '[';
    Require(!scalar || Value(decoder, name.c_str()) == value, "a name finds the first one it has");
  }
  return shown;
}

void Decode(const std::string& text, bool json, const std::string& operations) {
  Decoding chosen(text, json), whole(text, json);
  Walker walker(&chosen);
  for (const char operation : operations) walker.Do(static_cast<std::uint8_t>(operation));
  walker.LeaveAll();
  const std::string shown = Shown(whole.decoder());
  if (!json) return ParseLines(text);
  if (text.find('\n') != std::string::npos) return;
  Decoding attribute("a:json:" + text + "\n", false);
  Require(Shown(attribute.decoder()) == "{a=" + (shown.empty() ? kUnknown : shown) + "}",
          "an attribute takes the JSON that the decoder takes");
}

}  // namespace fuzz
