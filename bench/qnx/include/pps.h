// PPS text: the line parser, the decoder and the encoder.
//
// An object is text: a line "@name", then one line "name:encoding:value" an attribute. Encodings:
// empty (plain text), n (number), b (true or false), c (text with C escapes), json.
//
// Nothing here is shared between two decoders or encoders; one of them belongs to one thread at a
// time.
#ifndef KORVANDIS_PPS_H
#define KORVANDIS_PPS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "qnx/pps_tape.h"

// --- line parser ---------------------------------------------------------------------------------

typedef enum {
  PPS_END = 0,            // no more lines
  PPS_ERROR,              // a line that is none of the below; it is skipped
  PPS_OBJECT,             // "@name"
  PPS_OBJECT_CREATED,     // "+@name"
  PPS_OBJECT_DELETED,     // "-@name"
  PPS_OBJECT_TRUNCATED,   // "*@name"
  PPS_ATTRIBUTE,          // "name:encoding:value"
  PPS_ATTRIBUTE_DELETED,  // "-name"
} pps_status_t;

// One parsed line. The strings point into the parsed text and end with a zero byte.
typedef struct {
  char* obj_name;   // name in the last object line, with its '@', or null
  char* attr_name;  // null on object lines
  char* encoding;   // "" for plain text; null on object and deletion lines
  char* value;      // as it stands in the line, escapes included; null likewise
} pps_attrib_t;

// Parses the next line of *text in place and advances *text behind it. `attribute` keeps its object
// name from call to call; start with a zeroed record. Takes any bytes up to the terminating zero.
pps_status_t ppsparse(char** text, pps_attrib_t* attribute);

// --- decoder -------------------------------------------------------------------------------------

typedef enum {
  PPS_DECODER_OK = 0,
  PPS_DECODER_NO_MEM,
  PPS_DECODER_BAD_TYPE,     // there, but of another type
  PPS_DECODER_NOT_FOUND,    // not there
  PPS_DECODER_PARSE_ERROR,  // the text is not what it should be
  PPS_DECODER_POP_AT_ROOT,  // pop without push
} pps_decoder_error_t;

typedef enum {
  PPS_TYPE_NULL = 0,
  PPS_TYPE_BOOL,
  PPS_TYPE_NUMBER,
  PPS_TYPE_STRING,
  PPS_TYPE_ARRAY,
  PPS_TYPE_OBJECT,
  PPS_TYPE_NONE,     // nothing there
  PPS_TYPE_UNKNOWN,  // an attribute whose encoding is none of the five
} pps_node_type_t;

// Initialise before use, clean up after it, also when parsing failed; not to be copied. What is in
// it is the decoder's own. It holds a few KiB, enough for most texts; larger ones take memory.
typedef struct pps_decoder {
  qnx::pps::Tape tape;
  char* text;
  qnx::pps::Node* level;   // the container that was entered
  qnx::pps::Node* end;     // the end of its children
  qnx::pps::Node* next;    // its next child, or its end
  qnx::pps::Node* likely;  // behind the member found last, mostly the next to be read
  pps_decoder_error_t status;
} pps_decoder_t;

// Prepares `decoder`; when `text` is not null, parses it as PPS text.
pps_decoder_error_t pps_decoder_initialize(pps_decoder_t* decoder, char* text);

// Releases the decoder's memory. Strings obtained stay valid as long as the text's buffer does.
void pps_decoder_cleanup(pps_decoder_t* decoder);

// Parses zero-terminated text in place and stands at its root: the text is changed, must outlive
// the decoder and is pointed into by the strings obtained. Any text parsed before is forgotten. PPS
// text: lines that are no PPS lines are skipped and give PARSE_ERROR, the others can be read all
// the same; a last line that is cut before its value (no newline) is left out without an error. A
// json attribute is checked when it is entered. JSON text: one value, whole and well-formed, or
// PARSE_ERROR and nothing to read.
pps_decoder_error_t pps_decoder_parse_pps_str(pps_decoder_t* decoder, char* text);
pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* text);

// Enters the attribute, member or (name null) next element; at the root, name null, the first
// object or the JSON value. push takes objects and arrays, push_array arrays only. On failure
// (NOT_FOUND, BAD_TYPE; a json attribute that is not well-formed is BAD_TYPE) the position stays
// where it was.
inline pps_decoder_error_t pps_decoder_push(pps_decoder_t* decoder, const char* name);
inline pps_decoder_error_t pps_decoder_push_array(pps_decoder_t* decoder, const char* name);

// Returns to the parent, at the sibling that follows what was left.
pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder);

// The value of a member (the first of that name) or, name null, of the next element. An element
// that is delivered is passed; one that is not stays the next. On failure *value is untouched.
// Integers are numbers without fraction or exponent that fit. The string points into the text,
// zero-terminated, its escapes resolved.
inline pps_decoder_error_t pps_decoder_get_int(pps_decoder_t* decoder, const char* name,
                                               int* value);
inline pps_decoder_error_t pps_decoder_get_int64(pps_decoder_t* decoder, const char* name,
                                                 std::int64_t* value);
inline pps_decoder_error_t pps_decoder_get_double(pps_decoder_t* decoder, const char* name,
                                                  double* value);
inline pps_decoder_error_t pps_decoder_get_bool(pps_decoder_t* decoder, const char* name,
                                                bool* value);
inline pps_decoder_error_t pps_decoder_get_string(pps_decoder_t* decoder, const char* name,
                                                  const char** value);

// Type of a member or of the next element, PPS_TYPE_NONE when there is none. Never an error.
inline pps_node_type_t pps_decoder_type(pps_decoder_t* decoder, const char* name);

// Passes the next member or element. NOT_FOUND at the end; this one does not enter the status.
pps_decoder_error_t pps_decoder_next(pps_decoder_t* decoder);

// Name of the next member or attribute, null in an array or at the end.
const char* pps_decoder_name(pps_decoder_t* decoder);

// Number of members or elements at the current level.
int pps_decoder_length(pps_decoder_t* decoder);

// The first failure since the start or the last clearing.
pps_decoder_error_t pps_decoder_status(pps_decoder_t* decoder, bool clear);

// The calls above that take a name, with its length.
pps_decoder_error_t pps_decoder_push_named(pps_decoder_t* decoder, const char* name,
                                           std::size_t length, bool arrays_only);
pps_decoder_error_t pps_decoder_get_int_named(pps_decoder_t* decoder, const char* name,
                                              std::size_t length, int* value);
pps_decoder_error_t pps_decoder_get_int64_named(pps_decoder_t* decoder, const char* name,
                                                std::size_t length, std::int64_t* value);
pps_decoder_error_t pps_decoder_get_double_named(pps_decoder_t* decoder, const char* name,
                                                 std::size_t length, double* value);
pps_decoder_error_t pps_decoder_get_bool_named(pps_decoder_t* decoder, const char* name,
                                               std::size_t length, bool* value);
pps_decoder_error_t pps_decoder_get_string_named(pps_decoder_t* decoder, const char* name,
                                                 std::size_t length, const char** value);
pps_node_type_t pps_decoder_type_named(pps_decoder_t* decoder, const char* name,
                                       std::size_t length);

inline std::size_t pps_name_length(const char* name) {
  return name == nullptr ? 0 : std::strlen(name);
}

// The member behind the one found last when it has that name, else null. It settles the common
// case, in which members are read in their order: where all names are different, none before it has
// that name. A name is mostly a literal: inlined, the comparison is one of a word or two with
// constants. When it is taken, `likely` goes one on: it is a scalar.
__attribute__((always_inline)) inline const qnx::pps::Node* pps_decoder_likely(
    const pps_decoder_t* decoder, const char* name, std::size_t length) {
  const qnx::pps::Node* const node = decoder->likely;
  if (node == decoder->end || node->name_length != length) return nullptr;
  return qnx::pps::SameBytes(name, decoder->text + node->key, length) ? node : nullptr;
}

inline pps_decoder_error_t pps_decoder_push(pps_decoder_t* decoder, const char* name) {
  return pps_decoder_push_named(decoder, name, pps_name_length(name), false);
}
inline pps_decoder_error_t pps_decoder_push_array(pps_decoder_t* decoder, const char* name) {
  return pps_decoder_push_named(decoder, name, pps_name_length(name), true);
}
inline pps_decoder_error_t pps_decoder_get_int(pps_decoder_t* decoder, const char* name,
                                               int* value) {
  const std::size_t length = pps_name_length(name);
  const qnx::pps::Node* const node = pps_decoder_likely(decoder, name, length);
  if (node == nullptr || (node->flags & qnx::pps::kShort) == 0) {
    return pps_decoder_get_int_named(decoder, name, length, value);
  }
  *value = static_cast<int>(node->number);
  ++decoder->likely;
  return PPS_DECODER_OK;
}
inline pps_decoder_error_t pps_decoder_get_int64(pps_decoder_t* decoder, const char* name,
                                                 std::int64_t* value) {
  return pps_decoder_get_int64_named(decoder, name, pps_name_length(name), value);
}
inline pps_decoder_error_t pps_decoder_get_double(pps_decoder_t* decoder, const char* name,
                                                  double* value) {
  const std::size_t length = pps_name_length(name);
  const qnx::pps::Node* const node = pps_decoder_likely(decoder, name, length);
  if (node == nullptr || (node->flags & qnx::pps::kQuotient) == 0) {
    return pps_decoder_get_double_named(decoder, name, length, value);
  }
  *value = qnx::pps::Quotient(*node);
  ++decoder->likely;
  return PPS_DECODER_OK;
}
inline pps_decoder_error_t pps_decoder_get_bool(pps_decoder_t* decoder, const char* name,
                                                bool* value) {
  const std::size_t length = pps_name_length(name);
  const qnx::pps::Node* const node = pps_decoder_likely(decoder, name, length);
  if (node == nullptr || node->kind != qnx::pps::Kind::kBool) {
    return pps_decoder_get_bool_named(decoder, name, length, value);
  }
  *value = (node->flags & qnx::pps::kTrue) != 0;
  ++decoder->likely;
  return PPS_DECODER_OK;
}
inline pps_decoder_error_t pps_decoder_get_string(pps_decoder_t* decoder, const char* name,
                                                  const char** value) {
  return pps_decoder_get_string_named(decoder, name, pps_name_length(name), value);
}
inline pps_node_type_t pps_decoder_type(pps_decoder_t* decoder, const char* name) {
  return pps_decoder_type_named(decoder, name, pps_name_length(name));
}

// --- encoder -------------------------------------------------------------------------------------

typedef enum {
  PPS_ENCODER_OK = 0,
  PPS_ENCODER_NO_MEM,
  PPS_ENCODER_BAD_NESTING,    // an end without its start, or too deep
  PPS_ENCODER_INVALID_VALUE,  // no text (null), a number that is not finite, or a name that a line
                              // cannot hold
  PPS_ENCODER_MISSING_PROP_NAME,  // a member without a name
} pps_encoder_error_t;

const int kPpsEncoderInline = 512;   // bytes held without allocation
const int kPpsEncoderMaxDepth = 32;  // nested objects and arrays

typedef struct {
  char* text;
  std::size_t length;
  std::size_t capacity;
  pps_encoder_error_t error;
  bool json;
  int depth;
  bool first[kPpsEncoderMaxDepth + 1];
  bool array[kPpsEncoderMaxDepth + 1];
  char inline_text[kPpsEncoderInline];
} pps_encoder_t;

// Prepares `encoder` for PPS text or, with `json`, for one JSON value.
void pps_encoder_initialize(pps_encoder_t* encoder, bool json);
void pps_encoder_cleanup(pps_encoder_t* encoder);

// In PPS text the outermost object is the object line: its name stands behind '@' (added when
// missing; null writes no line) and its members are attribute lines in the simplest encoding that
// can hold them. Everything deeper is JSON. In an array names are not used. Each returns the
// encoder's status, which keeps the first failure.
pps_encoder_error_t pps_encoder_start_object(pps_encoder_t* encoder, const char* name);
pps_encoder_error_t pps_encoder_end_object(pps_encoder_t* encoder);
pps_encoder_error_t pps_encoder_start_array(pps_encoder_t* encoder, const char* name);
pps_encoder_error_t pps_encoder_end_array(pps_encoder_t* encoder);
pps_encoder_error_t pps_encoder_add_int(pps_encoder_t* encoder, const char* name, int value);
pps_encoder_error_t pps_encoder_add_int64(pps_encoder_t* encoder, const char* name,
                                          std::int64_t value);
pps_encoder_error_t pps_encoder_add_double(pps_encoder_t* encoder, const char* name, double value);
pps_encoder_error_t pps_encoder_add_bool(pps_encoder_t* encoder, const char* name, bool value);
pps_encoder_error_t pps_encoder_add_string(pps_encoder_t* encoder, const char* name,
                                           const char* value);
pps_encoder_error_t pps_encoder_add_null(pps_encoder_t* encoder, const char* name);

// The zero-terminated text so far, null after a failure or while an object is open; its length
// without the terminator, then 0. Valid until the next call on the encoder.
const char* pps_encoder_buffer(pps_encoder_t* encoder);
int pps_encoder_length(pps_encoder_t* encoder);

#endif  // KORVANDIS_PPS_H
