#include <pps.h>
#include <rapidjson/document.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>
#include <vector>

#include "pps_line.h"
#include "pps_memory.h"

namespace qnx {
namespace {

using Pool = rapidjson::MemoryPoolAllocator<Memory>;
using Value = rapidjson::GenericValue<rapidjson::UTF8<>, Pool>;
using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, Pool, Memory>;
using Size = rapidjson::SizeType;

// In place, so that strings lie in the text; without recursion; numbers as they are written.
const unsigned kParseFlags = rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag |
                             rapidjson::kParseNumbersAsStringsFlag;
const std::size_t kPoolChunk = 4096;
const std::size_t kParserStack = 512;      // grows with the nesting
const std::size_t kLongestText = INT_MAX;  // RapidJSON counts in 32 bits

// One JSON text. Numbers are read by the C++ library: RapidJSON's own reading to the nearest double
// looks behind the end of a table for many digits with a large exponent.
class JsonText : public Document {
 public:
  using Document::Document;

  // False when the text is malformed.
  bool Read(char* text) {
    bool whole = false;
    auto parse = [&](Document&) {
      rapidjson::InsituStringStream stream(text);
      rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, Memory> reader;
      whole = !reader.Parse<kParseFlags>(stream, *this).IsError();
      return whole;
    };
    Populate(parse);
    return whole;
  }

  // Called by the reader. False, which ends it, for a number that no double holds.
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    std::int64_t integer = 0;
    const auto [end, error] = std::from_chars(text, text + length, integer);
    if (error == std::errc() && end == text + length) return Int64(integer);
    const double number = std::strtod(text, nullptr);
    return std::isfinite(number) && Double(number);
  }
};

// Values that are told by their address: an attribute without a readable value, and the name of an
// object or a JSON value that has none.
const char kUnknown[] = "unknown";
const char kNameless[] = "nameless";

Value Text(const char* text) { return Value(rapidjson::StringRef(text)); }
bool Is(const Value& value, const char* address) {
  return value.IsString() && value.GetString() == address;
}

const Value::Member& MemberAt(const Value& object, Size index) {
  return object.MemberBegin()[static_cast<std::ptrdiff_t>(index)];
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The number without its leading zeros, which PPS has and JSON has not; null when it is none.
char* JsonNumber(char* text) {
  const std::size_t length = std::strlen(text);
  const bool negative = *text == '-';
  char* digits = text + (negative ? 1 : 0);
  if (length == 0 || !IsDigit(*digits) || !IsDigit(text[length - 1])) return nullptr;
  while (*digits == '0' && IsDigit(digits[1])) ++digits;
  if (negative) *--digits = '-';
  return digits;
}

pps_node_type_t TypeOf(const Value& value) {
  static const pps_node_type_t kTypes[] = {PPS_TYPE_NULL,   PPS_TYPE_BOOL,  PPS_TYPE_BOOL,
                                           PPS_TYPE_OBJECT, PPS_TYPE_ARRAY, PPS_TYPE_STRING,
                                           PPS_TYPE_NUMBER};
  static_assert(rapidjson::kNullType == 0 && rapidjson::kNumberType == 6, "in this order");
  return Is(value, kUnknown) ? PPS_TYPE_UNKNOWN : kTypes[value.GetType()];
}

// A parsed text and a place in it. The root is an object whose members are the objects of the PPS
// text, or the JSON value. Memory comes from a pool, so that it goes in one step whatever the
// nesting.
class Decoder {
 public:
  Decoder() : pool_(kPoolChunk, &memory_), root_(rapidjson::kObjectType) {}
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  pps_decoder_error_t ParsePps(char* text) {
    return Parse(text, [this](char* lines) { return ReadLines(lines); });
  }

  pps_decoder_error_t ParseJson(char* text) {
    return Parse(text, [this](char* json) {
      Value value;
      if (!ReadJson(json, &value)) return PPS_DECODER_PARSE_ERROR;
      root_.AddMember(Text(kNameless), value, pool_);
      return PPS_DECODER_OK;
    });
  }

  pps_decoder_error_t Push(const char* name, bool objects, bool arrays) {
    const Child child = Find(name);
    if (child.value == nullptr) return Fail(PPS_DECODER_NOT_FOUND);
    if (!(objects && child.value->IsObject()) && !(arrays && child.value->IsArray())) {
      return Fail(PPS_DECODER_BAD_TYPE);
    }
    try {
      parents_.push_back({at_.container, child.index + 1});
    } catch (const std::bad_alloc&) {
      return Fail(PPS_DECODER_NO_MEM);
    }
    at_ = {child.value, 0};
    return PPS_DECODER_OK;
  }

  pps_decoder_error_t Pop() {
    if (parents_.empty()) return Fail(PPS_DECODER_POP_AT_ROOT);
    at_ = parents_.back();
    parents_.pop_back();
    return PPS_DECODER_OK;
  }

  // Delivers a value that RapidJSON's `is` tells to be of the type that its `get` gives.
  template <typename Delivered>
  pps_decoder_error_t Get(const char* name, bool (Value::*is)() const,
                          Delivered (Value::*get)() const, Delivered* value) {
    const Child child = Find(name);
    if (child.value == nullptr) return Fail(PPS_DECODER_NOT_FOUND);
    if (Is(*child.value, kUnknown) || !(child.value->*is)()) return Fail(PPS_DECODER_BAD_TYPE);
    *value = (child.value->*get)();
    if (name == nullptr) ++at_.next;
    return PPS_DECODER_OK;
  }

  pps_node_type_t Type(const char* name) const {
    const Child child = Find(name);
    return child.value == nullptr ? PPS_TYPE_NONE : TypeOf(*child.value);
  }

  pps_decoder_error_t Next() {
    if (at_.next == Length()) return PPS_DECODER_NOT_FOUND;
    ++at_.next;
    return PPS_DECODER_OK;
  }

  const char* Name() const {
    if (!at_.container->IsObject() || at_.next == Length()) return nullptr;
    const Value& name = MemberAt(*at_.container, at_.next).name;
    return Is(name, kNameless) ? nullptr : name.GetString();
  }

  Size Length() const {
    return at_.container->IsObject() ? at_.container->MemberCount() : at_.container->Size();
  }

  pps_decoder_error_t Status(bool clear) {
    const pps_decoder_error_t status = status_;
    if (clear) status_ = PPS_DECODER_OK;
    return status;
  }

 private:
  struct Level {
    const Value* container;
    Size next;  // place of the member or element that is read next
  };
  struct Child {
    const Value* value;  // null: there is none
    Size index;
  };

  pps_decoder_error_t Fail(pps_decoder_error_t error) {
    if (status_ == PPS_DECODER_OK) status_ = error;
    return error;
  }

  void Clear() {
    root_.SetObject();
    pool_.Clear();
    at_ = {&root_, 0};
    parents_.clear();
  }

  template <typename Read>
  pps_decoder_error_t Parse(char* text, Read read) {
    Clear();
    if (text == nullptr) return Fail(PPS_DECODER_PARSE_ERROR);
    if (std::strlen(text) > kLongestText) return Fail(PPS_DECODER_NO_MEM);
    try {
      const pps_decoder_error_t result = read(text);
      return result == PPS_DECODER_OK ? result : Fail(result);
    } catch (const std::bad_alloc&) {
      Clear();
      return Fail(PPS_DECODER_NO_MEM);
    }
  }

  bool ReadJson(char* text, Value* value) {
    JsonText json(&pool_, kParserStack, &memory_);
    if (!json.Read(text)) return false;
    *value = static_cast<Value&>(json);
    return true;
  }

  pps_decoder_error_t ReadLines(char* text) {
    pps_decoder_error_t result = PPS_DECODER_OK;
    for (;;) {
      const Line line = TakeLine(&text);
      if (line.status == PPS_END) break;
      if (line.status == PPS_ERROR) {
        if (!line.cut) result = PPS_DECODER_PARSE_ERROR;
      } else if (line.status == PPS_ATTRIBUTE) {
        if (root_.ObjectEmpty()) Open(kNameless);
        LastObject()->AddMember(Text(line.name), ReadValue(line), pool_);
      } else if (line.status != PPS_ATTRIBUTE_DELETED) {
        Open(line.name);
      }
    }
    if (root_.ObjectEmpty()) Open(kNameless);
    return result;
  }

  Value* LastObject() { return &(root_.MemberEnd() - 1)->value; }

  // An object line. The one that repeats its name behind "|@name" or the like opens no second one.
  void Open(const char* name) {
    if (!root_.ObjectEmpty() && LastObject()->ObjectEmpty() &&
        std::strcmp((root_.MemberEnd() - 1)->name.GetString(), name) == 0) {
      return;
    }
    root_.AddMember(Text(name), Value(rapidjson::kObjectType), pool_);
  }

  Value ReadValue(const Line& line) {
    Value value;
    if (line.encoding[0] == '\0') return Text(line.value);
    if (std::strcmp(line.encoding, "c") == 0) {
      UnescapeC(line.value);
      return Text(line.value);
    }
    if (std::strcmp(line.encoding, "json") == 0 && ReadJson(line.value, &value)) return value;
    if (std::strcmp(line.encoding, "n") == 0) {
      char* const number = JsonNumber(line.value);
      if (number != nullptr && ReadJson(number, &value)) return value;
    }
    if (std::strcmp(line.encoding, "b") == 0) {
      if (std::strcmp(line.value, "true") == 0) return Value(true);
      if (std::strcmp(line.value, "false") == 0) return Value(false);
    }
    return Text(kUnknown);
  }

  // A child of the current container: the first of that name or, without a name, the next one.
  Child Find(const char* name) const {
    const Value& container = *at_.container;
    if (!container.IsObject()) {
      if (name != nullptr || at_.next == Length()) return {nullptr, 0};
      return {&container[at_.next], at_.next};
    }
    for (Size i = name == nullptr ? at_.next : 0; i < Length(); ++i) {
      const auto& member = MemberAt(container, i);
      const bool found = name == nullptr || (!Is(member.name, kNameless) &&
                                             std::strcmp(member.name.GetString(), name) == 0);
      if (found) return {&member.value, i};
    }
    return {nullptr, 0};
  }

  Memory memory_;
  Pool pool_;
  Value root_;
  Level at_ = {&root_, 0};
  std::vector<Level> parents_;  // the containers around it, the root first
  pps_decoder_error_t status_ = PPS_DECODER_OK;
};

const std::size_t kStorageAlignment = alignof(pps_decoder_t);
static_assert(sizeof(Decoder) <= sizeof(pps_decoder_t) && alignof(Decoder) <= kStorageAlignment,
              "it lies in the caller's storage");

Decoder* In(pps_decoder_t* storage) {
  return static_cast<Decoder*>(static_cast<void*>(storage->opaque));
}

}  // namespace
}  // namespace qnx

using qnx::Decoder;
using qnx::In;
using qnx::Value;

pps_decoder_error_t pps_decoder_initialize(pps_decoder_t* decoder, char* str) {
  new (decoder->opaque) Decoder;
  return str == nullptr ? PPS_DECODER_OK : pps_decoder_parse_pps_str(decoder, str);
}

// Leaves a decoder without text and memory.
void pps_decoder_cleanup(pps_decoder_t* decoder) {
  In(decoder)->~Decoder();
  new (decoder->opaque) Decoder;
}

pps_decoder_error_t pps_decoder_parse_pps_str(pps_decoder_t* decoder, char* str) {
  return In(decoder)->ParsePps(str);
}

pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* str) {
  return In(decoder)->ParseJson(str);
}

pps_decoder_error_t pps_decoder_push(pps_decoder_t* decoder, const char* name) {
  return In(decoder)->Push(name, true, true);
}

pps_decoder_error_t pps_decoder_push_object(pps_decoder_t* decoder, const char* name) {
  return In(decoder)->Push(name, true, false);
}

pps_decoder_error_t pps_decoder_push_array(pps_decoder_t* decoder, const char* name) {
  return In(decoder)->Push(name, false, true);
}

pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder) { return In(decoder)->Pop(); }

pps_decoder_error_t pps_decoder_get_int(pps_decoder_t* decoder, const char* name, int* value) {
  return In(decoder)->Get(name, &Value::IsInt, &Value::GetInt, value);
}

pps_decoder_error_t pps_decoder_get_int64(pps_decoder_t* decoder, const char* name,
                                          std::int64_t* value) {
  return In(decoder)->Get(name, &Value::IsInt64, &Value::GetInt64, value);
}

pps_decoder_error_t pps_decoder_get_double(pps_decoder_t* decoder, const char* name,
                                           double* value) {
  return In(decoder)->Get(name, &Value::IsNumber, &Value::GetDouble, value);
}

pps_decoder_error_t pps_decoder_get_bool(pps_decoder_t* decoder, const char* name, bool* value) {
  return In(decoder)->Get(name, &Value::IsBool, &Value::GetBool, value);
}

pps_decoder_error_t pps_decoder_get_string(pps_decoder_t* decoder, const char* name,
                                           const char** value) {
  return In(decoder)->Get(name, &Value::IsString, &Value::GetString, value);
}

pps_node_type_t pps_decoder_type(pps_decoder_t* decoder, const char* name) {
  return In(decoder)->Type(name);
}

pps_decoder_error_t pps_decoder_next(pps_decoder_t* decoder) { return In(decoder)->Next(); }

const char* pps_decoder_name(pps_decoder_t* decoder) { return In(decoder)->Name(); }

int pps_decoder_length(pps_decoder_t* decoder) { return static_cast<int>(In(decoder)->Length()); }

pps_decoder_error_t pps_decoder_status(pps_decoder_t* decoder, bool clear) {
  return In(decoder)->Status(clear);
}
