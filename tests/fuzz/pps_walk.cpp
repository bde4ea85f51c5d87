#include "pps_walk.h"

namespace fuzz {
namespace {

// Names that the unit's own texts have, and the shortest ones; above them the next member's.
const char* const kNames[] = {"a",        "b",          "",    "version", "mpu",  "dat",
                              "latitude", "satellites", "cno", "id",      "used", "trackinfo"};
const int kKnownNames = 12;

// Adds the next value to what is encoded, and passes it. False at the end of the level.
bool CopyNext(pps_decoder_t* from, pps_encoder_t* to) {
  const char* const name = pps_decoder_name(from);
  const pps_node_type_t type = pps_decoder_type(from, nullptr);
  if (type == PPS_TYPE_NONE) return false;
  if (type == PPS_TYPE_OBJECT || type == PPS_TYPE_ARRAY) {
    const bool array = type == PPS_TYPE_ARRAY;
    array ? pps_encoder_start_array(to, name) : pps_encoder_start_object(to, name);
    Require(pps_decoder_push(from, nullptr) == PPS_DECODER_OK, "a container can be entered");
    while (CopyNext(from, to)) continue;
    Require(pps_decoder_pop(from) == PPS_DECODER_OK, "what was entered can be left");
    array ? pps_encoder_end_array(to) : pps_encoder_end_object(to);
    return true;
  }
  std::int64_t integer = 0;
  double number = 0;
  bool flag = false;
  const char* string = nullptr;
  if (pps_decoder_get_int64(from, nullptr, &integer) == PPS_DECODER_OK) {
    pps_encoder_add_int64(to, name, integer);
  } else if (pps_decoder_get_double(from, nullptr, &number) == PPS_DECODER_OK) {
    pps_encoder_add_double(to, name, number == 0 ? 0 : number);  // -0 comes back as 0
  } else if (pps_decoder_get_bool(from, nullptr, &flag) == PPS_DECODER_OK) {
    pps_encoder_add_bool(to, name, flag);
  } else if (pps_decoder_get_string(from, nullptr, &string) == PPS_DECODER_OK) {
    pps_encoder_add_string(to, name, string);
  } else {
    Require(pps_decoder_next(from) == PPS_DECODER_OK, "next passes what is there");
    pps_encoder_add_null(to, name);
  }
  return true;
}

// Calls in any order: each delivers what the type tells.
void Walk(Decoding* decoding, const std::string& operations) {
  pps_decoder_t* const decoder = *decoding;
  int depth = 0;
  for (const char byte : operations) {
    const int operation = static_cast<std::uint8_t>(byte);
    const char* const name =
        operation >> 4 < kKnownNames ? kNames[operation >> 4] : pps_decoder_name(decoder);
    const pps_node_type_t type = pps_decoder_type(decoder, name);
    const auto check = [type](pps_decoder_error_t result, bool fits) {
      Require(result == (type == PPS_TYPE_NONE ? PPS_DECODER_NOT_FOUND
                         : fits                ? PPS_DECODER_OK
                                               : PPS_DECODER_BAD_TYPE),
              "what has the type is delivered");
    };
    const bool array = type == PPS_TYPE_ARRAY, container = array || type == PPS_TYPE_OBJECT;
    int narrow = 0;
    double number = 0;
    bool flag = false;
    const char* string = nullptr;
    switch (operation & 7) {
      case 0:
        Require(pps_decoder_get_int(decoder, name, &narrow) != PPS_DECODER_OK ||
                    type == PPS_TYPE_NUMBER,
                "an int is a number");
        break;
      case 1:
        check(pps_decoder_get_double(decoder, name, &number), type == PPS_TYPE_NUMBER);
        break;
      case 2:
        check(pps_decoder_get_bool(decoder, name, &flag), type == PPS_TYPE_BOOL);
        break;
      case 3:
        check(pps_decoder_get_string(decoder, name, &string), type == PPS_TYPE_STRING);
        Require(string == nullptr || decoding->text().Holds(string + std::strlen(string)),
                "a string points into the text");
        break;
      case 4:
        check(pps_decoder_push(decoder, name), container);
        if (container) ++depth;
        break;
      case 5:
        check(pps_decoder_push_array(decoder, name), array);
        if (array) ++depth;
        break;
      case 6:
        Require((pps_decoder_pop(decoder) == PPS_DECODER_OK) == (depth > 0),
                "there are as many ways out as in");
        if (depth > 0) --depth;
        break;
      default:
        pps_decoder_next(decoder);
    }
  }
}

// Line after line, until the end; each takes at least one character.
void ParseLines(const std::string& content) {
  DecodedText text(content);
  char* at = text.get();
  pps_attrib_t line = {};
  for (const char* before = at; ppsparse(&at, nullptr, nullptr, &line, 0) != PPS_END; before = at) {
    Require(text.Holds(at) && at > before, "every line is passed, and no more");
    for (const char* part : {line.obj_name, line.attr_name, line.encoding, line.value}) {
      Require(part == nullptr || text.Holds(part + std::strlen(part)),
              "what was parsed lies in the text");
    }
  }
  Require(*at == '\0', "the parser ends at the end");
}

}  // namespace

Decoding::Decoding(const std::string& text, bool json) : text_(text) {
  parsed_ = json ? pps_decoder_parse_json_str(*this, text_.get())
                 : pps_decoder_parse_pps_str(*this, text_.get());
  Require(parsed_ == PPS_DECODER_OK || parsed_ == PPS_DECODER_PARSE_ERROR, "a text parses or not");
  Require(pps_decoder_status(*this, false) == parsed_, "the status tells how it was parsed");
}

std::string Encoding::Text() {
  const char* const text = pps_encoder_buffer(*this);
  const auto length = static_cast<std::size_t>(pps_encoder_length(*this));
  Require(length == (text == nullptr ? 0 : std::strlen(text)), "a text is as long as its length");
  return text == nullptr ? kNoText : text;
}

std::string Shown(pps_decoder_t* decoder) {
  std::string shown;
  while (pps_decoder_type(decoder, nullptr) != PPS_TYPE_NONE) {
    const char* const name = pps_decoder_name(decoder);
    shown += (shown.empty() ? "" : ",") + (name == nullptr ? "" : std::string(name) + "=");
    Encoding value(true);
    CopyNext(decoder, value);
    shown += value.Text();
  }
  return shown;
}

void Run(Input input, bool json) {
  const std::string operations = input.Take(input.Byte());
  const std::string text = input.Take(static_cast<std::size_t>(-1));
  Decoding walked(text, json), shown(text, json), copied(text, json);
  Walk(&walked, operations);
  const std::string before = Shown(shown);
  if (!json) ParseLines(text);
  if (before.empty()) return;  // malformed JSON
  Encoding encoding(json);
  while (CopyNext(copied, encoding)) continue;
  Require(encoding.Text() != kNoText, "what was decoded can be encoded");
  Decoding again(encoding.Text(), json);
  Require(again.parsed() == PPS_DECODER_OK, "an encoded text is well-formed");
  Require(Shown(again) == before, "what went in comes back");
}

}  // namespace fuzz
