#include <pps.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

// Longest number: a double in its shortest form has at most 24 characters.
const std::size_t kNumberSize = 32;

pps_encoder_error_t Fail(pps_encoder_t* e, pps_encoder_error_t error) {
  if (e->error == PPS_ENCODER_OK) e->error = error;
  return e->error;
}

// --- the text ------------------------------------------------------------------------------------

// Room for `more` characters and the terminator. Lengths stay within an int.
bool Reserve(pps_encoder_t* e, std::size_t more) {
  if (more < e->capacity - e->length) return true;
  const std::size_t kMost = INT_MAX;
  if (more > kMost - e->length) {
    Fail(e, PPS_ENCODER_NO_MEM);
    return false;
  }
  std::size_t capacity = e->capacity * 2;
  if (capacity <= e->length + more) capacity = e->length + more + 1;
  const bool is_inline = e->text == e->inline_text;
  char* const text = static_cast<char*>(std::realloc(is_inline ? nullptr : e->text, capacity));
  if (text == nullptr) {
    Fail(e, PPS_ENCODER_NO_MEM);
    return false;
  }
  if (is_inline) std::memcpy(text, e->inline_text, e->length);
  e->text = text;
  e->capacity = capacity;
  return true;
}

void Put(pps_encoder_t* e, const char* text, std::size_t length) {
  if (!Reserve(e, length)) return;
  std::memcpy(e->text + e->length, text, length);
  e->length += length;
}

void Put(pps_encoder_t* e, const char* text) { Put(e, text, std::strlen(text)); }

void Put(pps_encoder_t* e, char c) { Put(e, &c, 1); }

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20; }

// Puts `text` with each character that `escaped` tells replaced by what `put_escape` writes.
template <typename IsEscaped, typename PutEscape>
void PutEscaped(pps_encoder_t* e, const char* text, IsEscaped is_escaped, PutEscape put_escape) {
  const char* plain = text;
  for (; *text != '\0'; ++text) {
    if (!is_escaped(*text)) continue;
    Put(e, plain, static_cast<std::size_t>(text - plain));
    put_escape(*text);
    plain = text + 1;
  }
  Put(e, plain, static_cast<std::size_t>(text - plain));
}

// Puts backslash and letter for a character of `characters`; false for any other.
bool PutLetterEscape(pps_encoder_t* e, char c, const char* characters, const char* letters) {
  const char* const found = std::strchr(characters, c);
  if (found == nullptr) return false;
  const char escape[2] = {'\\', letters[found - characters]};
  Put(e, escape, 2);
  return true;
}

void PutJsonString(pps_encoder_t* e, const char* text) {
  const auto is_escaped = [](char c) { return IsControl(c) || c == '"' || c == '\\'; };
  Put(e, '"');
  PutEscaped(e, text, is_escaped, [e](char c) {
    if (PutLetterEscape(e, c, "\"\\\b\f\n\r\t", "\"\\bfnrt")) return;
    const char* const kHex = "0123456789abcdef";
    const char escape[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
    Put(e, escape, sizeof(escape));
  });
  Put(e, '"');
}

void PutCString(pps_encoder_t* e, const char* text) {
  const auto is_escaped = [](char c) { return IsControl(c) || c == '\\'; };
  PutEscaped(e, text, is_escaped, [e](char c) {
    if (PutLetterEscape(e, c, "\\\a\b\f\n\r\t\v", "\\abfnrtv")) return;
    const char escape[4] = {'\\', '0', static_cast<char>('0' + (c >> 3)),
                            static_cast<char>('0' + (c & 7))};
    Put(e, escape, sizeof(escape));
  });
}

// --- structure -----------------------------------------------------------------------------------

// True where the members are attribute lines.
bool AtAttributes(const pps_encoder_t* e) { return !e->json && e->depth == 1; }

bool IsAttributeName(const char* name) {
  return *name != '\0' && std::strchr("@-+*", *name) == nullptr &&
         std::strpbrk(name, ":\n") == nullptr;
}

// Puts what stands before a JSON value: the comma, and in an object the name.
void BeginJson(pps_encoder_t* e, const char* name) {
  if (e->depth == 0) {
    if (!e->first[0]) Fail(e, PPS_ENCODER_BAD_NESTING);  // a second value
  } else if (!e->array[e->depth] && name == nullptr) {
    Fail(e, PPS_ENCODER_MISSING_PROP_NAME);
  } else {
    if (!e->first[e->depth]) Put(e, ',');
    if (!e->array[e->depth]) {
      PutJsonString(e, name);
      Put(e, ':');
    }
  }
  e->first[e->depth] = false;
}

// Puts what stands before a value; `encoding` is that of an attribute.
void Begin(pps_encoder_t* e, const char* name, const char* encoding) {
  if (e->error != PPS_ENCODER_OK) return;
  if (!AtAttributes(e)) {
    if (!e->json && e->depth == 0) {
      Fail(e, PPS_ENCODER_BAD_NESTING);  // an attribute without its object
    } else {
      BeginJson(e, name);
    }
  } else if (name == nullptr) {
    Fail(e, PPS_ENCODER_MISSING_PROP_NAME);
  } else if (!IsAttributeName(name)) {
    Fail(e, PPS_ENCODER_INVALID_VALUE);
  } else {
    Put(e, name);
    Put(e, ':');
    Put(e, encoding);
    Put(e, ':');
  }
}

// Puts what stands behind a value.
pps_encoder_error_t End(pps_encoder_t* e) {
  if (e->error == PPS_ENCODER_OK && AtAttributes(e)) Put(e, '\n');
  return e->error;
}

pps_encoder_error_t AddPlain(pps_encoder_t* e, const char* name, const char* encoding,
                             const char* value, std::size_t length) {
  Begin(e, name, encoding);
  if (e->error == PPS_ENCODER_OK) Put(e, value, length);
  return End(e);
}

template <typename Number>
pps_encoder_error_t AddNumber(pps_encoder_t* e, const char* name, Number value) {
  char digits[kNumberSize];
  const char* const end = std::to_chars(digits, digits + kNumberSize, value).ptr;
  return AddPlain(e, name, "n", digits, static_cast<std::size_t>(end - digits));
}

void PutObjectLine(pps_encoder_t* e, const char* name) {
  if (name == nullptr) return;
  if (*name == '@') ++name;
  if (*name == '\0' || std::strchr(name, '\n') != nullptr) {
    Fail(e, PPS_ENCODER_INVALID_VALUE);
    return;
  }
  Put(e, '@');
  Put(e, name);
  Put(e, '\n');
}

pps_encoder_error_t Start(pps_encoder_t* e, const char* name, bool array) {
  if (e->error != PPS_ENCODER_OK) return e->error;
  if (e->depth == kPpsEncoderMaxDepth) return Fail(e, PPS_ENCODER_BAD_NESTING);
  if (!e->json && e->depth == 0 && !array) {
    PutObjectLine(e, name);
  } else {
    Begin(e, name, "json");
    if (e->error == PPS_ENCODER_OK) Put(e, array ? '[' : '{');
  }
  if (e->error != PPS_ENCODER_OK) return e->error;
  ++e->depth;
  e->first[e->depth] = true;
  e->array[e->depth] = array;
  return e->error;
}

pps_encoder_error_t Finish(pps_encoder_t* e, bool array) {
  if (e->error != PPS_ENCODER_OK) return e->error;
  if (e->depth == 0 || e->array[e->depth] != array) return Fail(e, PPS_ENCODER_BAD_NESTING);
  if (AtAttributes(e)) {
    --e->depth;
    return e->error;
  }
  Put(e, array ? ']' : '}');
  --e->depth;
  return End(e);
}

bool IsComplete(const pps_encoder_t* e) { return e->error == PPS_ENCODER_OK && e->depth == 0; }

}  // namespace

void pps_encoder_initialize(pps_encoder_t* encoder, bool json) {
  encoder->text = encoder->inline_text;
  encoder->length = 0;
  encoder->capacity = kPpsEncoderInline;
  encoder->error = PPS_ENCODER_OK;
  encoder->json = json;
  encoder->depth = 0;
  encoder->first[0] = true;
  encoder->array[0] = false;
}

void pps_encoder_cleanup(pps_encoder_t* encoder) {
  if (encoder->text != encoder->inline_text) std::free(encoder->text);
  pps_encoder_initialize(encoder, encoder->json);
}

pps_encoder_error_t pps_encoder_start_object(pps_encoder_t* encoder, const char* name) {
  return Start(encoder, name, false);
}

pps_encoder_error_t pps_encoder_end_object(pps_encoder_t* encoder) {
  return Finish(encoder, false);
}

pps_encoder_error_t pps_encoder_start_array(pps_encoder_t* encoder, const char* name) {
  return Start(encoder, name, true);
}

pps_encoder_error_t pps_encoder_end_array(pps_encoder_t* encoder) { return Finish(encoder, true); }

pps_encoder_error_t pps_encoder_add_int(pps_encoder_t* encoder, const char* name, int value) {
  return AddNumber(encoder, name, value);
}

pps_encoder_error_t pps_encoder_add_int64(pps_encoder_t* encoder, const char* name,
                                          std::int64_t value) {
  return AddNumber(encoder, name, value);
}

pps_encoder_error_t pps_encoder_add_double(pps_encoder_t* encoder, const char* name, double value) {
  if (!std::isfinite(value)) return Fail(encoder, PPS_ENCODER_INVALID_VALUE);
  return AddNumber(encoder, name, value);
}

pps_encoder_error_t pps_encoder_add_bool(pps_encoder_t* encoder, const char* name, bool value) {
  return value ? AddPlain(encoder, name, "b", "true", 4) : AddPlain(encoder, name, "b", "false", 5);
}

pps_encoder_error_t pps_encoder_add_string(pps_encoder_t* encoder, const char* name,
                                           const char* value) {
  if (value == nullptr) return Fail(encoder, PPS_ENCODER_INVALID_VALUE);
  const bool plain = std::strchr(value, '\n') == nullptr;
  Begin(encoder, name, plain ? "" : "c");
  if (encoder->error != PPS_ENCODER_OK) return encoder->error;
  if (!AtAttributes(encoder)) {
    PutJsonString(encoder, value);
  } else if (plain) {
    Put(encoder, value);
  } else {
    PutCString(encoder, value);
  }
  return End(encoder);
}

pps_encoder_error_t pps_encoder_add_null(pps_encoder_t* encoder, const char* name) {
  return AddPlain(encoder, name, "json", "null", 4);
}

const char* pps_encoder_buffer(pps_encoder_t* encoder) {
  if (!IsComplete(encoder)) return nullptr;
  encoder->text[encoder->length] = '\0';
  return encoder->text;
}

int pps_encoder_length(pps_encoder_t* encoder) {
  return IsComplete(encoder) ? static_cast<int>(encoder->length) : 0;
}
