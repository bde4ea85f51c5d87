#include <pps.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "pps_memory.h"

namespace qnx {
namespace {

using Buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, Memory>;
using Writer = rapidjson::Writer<Buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, Memory>;

// Longest number: a double in its shortest form has at most 24 characters.
const std::size_t kNumberSize = 32;

bool IsAttributeName(const char* name) {
  return *name != '\0' && std::strchr("@-+*|[", *name) == nullptr &&
         std::strpbrk(name, ":\n") == nullptr;
}

std::string CEscaped(const char* text) {
  static const char kCharacters[] = "\\\a\b\f\n\r\t\v";
  static const char kLetters[] = "\\abfnrtv";
  std::string escaped;
  for (; *text != '\0'; ++text) {
    const char* const special = std::strchr(kCharacters, *text);
    if (special != nullptr) {
      escaped += {'\\', kLetters[special - kCharacters]};
    } else if (static_cast<unsigned char>(*text) < 0x20) {
      escaped +=
          {'\\', '0', static_cast<char>('0' + (*text >> 3)), static_cast<char>('0' + (*text & 7))};
    } else {
      escaped += *text;
    }
  }
  return escaped;
}

// The text under construction. Object and attribute lines are put here, JSON by the writer.
class Encoder {
 public:
  explicit Encoder(bool json) : json_(json) {}
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
  bool json() const { return json_; }

  // A call that goes on the status; without memory the text is given up.
  template <typename Act>
  pps_encoder_error_t Try(Act act) {
    if (error_ != PPS_ENCODER_OK) return error_;
    try {
      error_ = act();
    } catch (const std::bad_alloc&) {
      error_ = PPS_ENCODER_NO_MEM;
    }
    if (text_.GetSize() > INT_MAX) error_ = PPS_ENCODER_NO_MEM;
    return error_;
  }

  void Reset() {
    text_.Clear();
    writer_.Reset(text_);
    is_array_.clear();
    error_ = PPS_ENCODER_OK;
  }

  pps_encoder_error_t Start(const char* name, bool array) {
    pps_encoder_error_t error = PPS_ENCODER_OK;
    if (!json_ && is_array_.empty() && !array) {
      error = PutObjectLine(name);
    } else {
      error = Begin(name, "json");
      if (error == PPS_ENCODER_OK) array ? writer_.StartArray() : writer_.StartObject();
    }
    if (error == PPS_ENCODER_OK) is_array_.push_back(array);
    return error;
  }

  pps_encoder_error_t Finish(bool array) {
    if (is_array_.empty() || is_array_.back() != array) return PPS_ENCODER_BAD_NESTING;
    const bool is_line = AtAttributes();
    is_array_.pop_back();
    if (is_line) return PPS_ENCODER_OK;
    array ? writer_.EndArray() : writer_.EndObject();
    return End();
  }

  // A value whose text is the same as an attribute and in JSON.
  pps_encoder_error_t AddPlain(const char* name, const char* encoding, const std::string& value,
                               rapidjson::Type type) {
    const pps_encoder_error_t error = Begin(name, encoding);
    if (error != PPS_ENCODER_OK) return error;
    if (AtAttributes()) {
      Put(value);
    } else {
      writer_.RawValue(value.data(), value.size(), type);
    }
    return End();
  }

  template <typename Number>
  pps_encoder_error_t AddNumber(const char* name, Number value) {
    char digits[kNumberSize];
    char* const end = std::to_chars(digits, digits + kNumberSize, value).ptr;
    return AddPlain(name, "n", std::string(digits, end), rapidjson::kNumberType);
  }

  pps_encoder_error_t AddString(const char* name, const char* value) {
    if (value == nullptr) return PPS_ENCODER_INVALID_VALUE;
    const bool plain = std::strchr(value, '\n') == nullptr;
    const pps_encoder_error_t error = Begin(name, plain ? "" : "c");
    if (error != PPS_ENCODER_OK) return error;
    if (AtAttributes()) {
      Put(plain ? value : CEscaped(value));
    } else {
      writer_.String(value);
    }
    return End();
  }

  // The text when it is whole, else null.
  const Buffer* Text() const {
    return error_ == PPS_ENCODER_OK && is_array_.empty() ? &text_ : nullptr;
  }

 private:
  // True where the members are attribute lines.
  bool AtAttributes() const { return !json_ && is_array_.size() == 1; }

  void Put(const std::string& text) {
    std::memcpy(text_.Push(text.size()), text.data(), text.size());
  }

  pps_encoder_error_t PutObjectLine(const char* name) {
    if (name == nullptr) return PPS_ENCODER_OK;
    if (*name == '@') ++name;
    if (*name == '\0' || std::strchr(name, '\n') != nullptr) return PPS_ENCODER_INVALID_VALUE;
    Put(std::string("@") + name + "\n");
    return PPS_ENCODER_OK;
  }

  // Puts what stands before a value; `encoding` is that of an attribute.
  pps_encoder_error_t Begin(const char* name, const char* encoding) {
    if (is_array_.empty()) {  // an attribute without its object, or a second JSON value
      return json_ && text_.GetSize() == 0 ? PPS_ENCODER_OK : PPS_ENCODER_BAD_NESTING;
    }
    if (is_array_.back()) return PPS_ENCODER_OK;
    if (name == nullptr) return PPS_ENCODER_MISSING_PROP_NAME;
    if (!AtAttributes()) {
      writer_.Key(name);
      return PPS_ENCODER_OK;
    }
    if (!IsAttributeName(name)) return PPS_ENCODER_INVALID_VALUE;
    Put(std::string(name) + ":" + encoding + ":");
    writer_.Reset(text_);
    return PPS_ENCODER_OK;
  }

  // Puts what stands behind a value.
  pps_encoder_error_t End() {
    if (AtAttributes()) Put("\n");
    return PPS_ENCODER_OK;
  }

  const bool json_;
  pps_encoder_error_t error_ = PPS_ENCODER_OK;
  std::vector<bool> is_array_;  // of each object and array that is open, the outermost first
  Memory memory_;
  Buffer text_{&memory_};
  Writer writer_{text_, &memory_};
};

const std::size_t kStorageAlignment = alignof(pps_encoder_t);
static_assert(sizeof(Encoder) <= sizeof(pps_encoder_t) && alignof(Encoder) <= kStorageAlignment,
              "it lies in the caller's storage");

Encoder* In(pps_encoder_t* storage) {
  return static_cast<Encoder*>(static_cast<void*>(storage->opaque));
}

template <typename Act>
pps_encoder_error_t Try(pps_encoder_t* storage, Act act) {
  return In(storage)->Try([storage, act] { return act(In(storage)); });
}

}  // namespace
}  // namespace qnx

using qnx::Encoder;
using qnx::In;
using qnx::Try;

void pps_encoder_initialize(pps_encoder_t* encoder, bool encode_json) {
  new (encoder->opaque) Encoder(encode_json);
}

void pps_encoder_reset(pps_encoder_t* encoder) { In(encoder)->Reset(); }

// Leaves an encoder without text and memory.
void pps_encoder_cleanup(pps_encoder_t* encoder) {
  const bool json = In(encoder)->json();
  In(encoder)->~Encoder();
  new (encoder->opaque) Encoder(json);
}

pps_encoder_error_t pps_encoder_start_object(pps_encoder_t* encoder, const char* name) {
  return Try(encoder, [name](Encoder* e) { return e->Start(name, false); });
}

pps_encoder_error_t pps_encoder_end_object(pps_encoder_t* encoder) {
  return Try(encoder, [](Encoder* e) { return e->Finish(false); });
}

pps_encoder_error_t pps_encoder_start_array(pps_encoder_t* encoder, const char* name) {
  return Try(encoder, [name](Encoder* e) { return e->Start(name, true); });
}

pps_encoder_error_t pps_encoder_end_array(pps_encoder_t* encoder) {
  return Try(encoder, [](Encoder* e) { return e->Finish(true); });
}

pps_encoder_error_t pps_encoder_add_int(pps_encoder_t* encoder, const char* name, int value) {
  return Try(encoder, [name, value](Encoder* e) { return e->AddNumber(name, value); });
}

pps_encoder_error_t pps_encoder_add_int64(pps_encoder_t* encoder, const char* name,
                                          std::int64_t value) {
  return Try(encoder, [name, value](Encoder* e) { return e->AddNumber(name, value); });
}

pps_encoder_error_t pps_encoder_add_double(pps_encoder_t* encoder, const char* name, double value) {
  return Try(encoder, [name, value](Encoder* e) {
    return std::isfinite(value) ? e->AddNumber(name, value) : PPS_ENCODER_INVALID_VALUE;
  });
}

pps_encoder_error_t pps_encoder_add_bool(pps_encoder_t* encoder, const char* name, bool value) {
  return Try(encoder, [name, value](Encoder* e) {
    return value ? e->AddPlain(name, "b", "true", rapidjson::kTrueType)
                 : e->AddPlain(name, "b", "false", rapidjson::kFalseType);
  });
}

pps_encoder_error_t pps_encoder_add_string(pps_encoder_t* encoder, const char* name,
                                           const char* value) {
  return Try(encoder, [name, value](Encoder* e) { return e->AddString(name, value); });
}

pps_encoder_error_t pps_encoder_add_null(pps_encoder_t* encoder, const char* name) {
  return Try(encoder, [name](Encoder* e) {
    return e->AddPlain(name, "json", "null", rapidjson::kNullType);
  });
}

const char* pps_encoder_buffer(pps_encoder_t* encoder) {
  const qnx::Buffer* const text = In(encoder)->Text();
  return text == nullptr ? nullptr : text->GetString();
}

int pps_encoder_length(pps_encoder_t* encoder) {
  const qnx::Buffer* const text = In(encoder)->Text();
  return text == nullptr ? 0 : static_cast<int>(text->GetSize());
}
