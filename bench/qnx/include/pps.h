// PPS text: the line parser, the decoder and the encoder, as QNX documents them.
//
// An object is text: a line "@name", then one line "name:encoding:value" an attribute. Encodings:
// empty (plain text), n (number), b (true or false), c (text with C escapes), json. An object line
// or an attribute line may begin with options in square brackets, "[n]name:encoding:value"; they
// stand there once and are never part of the name.
//
// Two decoders or encoders share nothing; one of them belongs to one thread at a time.
#ifndef KORVANDIS_PPS_H
#define KORVANDIS_PPS_H

#include <cstdint>

// --- line parser ---------------------------------------------------------------------------------

typedef enum {
  PPS_ERROR = -1,         // a malformed line; it is skipped
  PPS_END = 0,            // no more lines
  PPS_OBJECT,             // "@name"
  PPS_OBJECT_CREATED,     // "+@name"
  PPS_OBJECT_DELETED,     // "-@name"
  PPS_OBJECT_TRUNCATED,   // "*@name": all attributes were removed; "|@name": changes were lost, the
                          // object's whole text follows. Both: forget what was known
  PPS_ATTRIBUTE,          // "name:encoding:value"
  PPS_ATTRIBUTE_DELETED,  // "-name"
} pps_status_t;

// The option "[n]" of a line: the object or the attribute is not kept.
#define PPS_NOPERSIST 0x01

// One parsed line. The strings point into the parsed text and end with a zero byte.
typedef struct {
  char* obj_name;   // name in the last object line, with its '@'; null before the first one
  int obj_index;    // place of that name in `objnames`, -1 where it has none
  char* attr_name;  // null on object lines
  int attr_index;   // place of that name in `attrnames`, -1 where it has none
  char* encoding;   // "" for plain text; null on object and deletion lines
  char* value;      // as it stands in the line, escapes included; null likewise
  int flags;        // 0
  int options;      // options that are set: PPS_NOPERSIST
  int option_mask;  // options that the line names
  int quality;      // 0
  char* line;       // where the line begins
  int reserved[3];
} pps_attrib_t;

// Parses the next line of *ppsdata in place and advances *ppsdata behind it. `objnames` and
// `attrnames` are null, or arrays of names that end with a null pointer; an object's name stands
// there with or without its '@'. `parse_flags` is 0. `info` keeps its object name from call to
// call; start with a zeroed record. Takes any bytes up to the terminating zero.
pps_status_t ppsparse(char** ppsdata, const char* const* objnames, const char* const* attrnames,
                      pps_attrib_t* info, int parse_flags);

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
  PPS_TYPE_UNKNOWN,  // an attribute with an unknown encoding, or with a value that is not of it
} pps_node_type_t;

// Initialise before use, clean up after it, also when parsing failed; not to be copied.
typedef struct {
  std::int64_t opaque[24];
} pps_decoder_t;

// Prepares `decoder`; when `str` is not null, parses it as PPS text.
pps_decoder_error_t pps_decoder_initialize(pps_decoder_t* decoder, char* str);

// Releases the decoder's memory. Strings obtained stay valid as long as the text's buffer does.
void pps_decoder_cleanup(pps_decoder_t* decoder);

// Parses zero-terminated text in place and stands at its root: the text is changed, must outlive
// the decoder and is pointed into by the strings obtained. Any text parsed before is forgotten. PPS
// text: lines that are no PPS lines are skipped and give PARSE_ERROR, the others can be read all
// the same; a last line that is cut before its value (no newline) is left out without an error.
// JSON text: one value, whole and well-formed, or PARSE_ERROR and nothing to read.
pps_decoder_error_t pps_decoder_parse_pps_str(pps_decoder_t* decoder, char* str);
pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* str);

// Enters the attribute, member or (name null) next element; at the root, name null, the first
// object or the JSON value. push takes objects and arrays, push_object and push_array one kind. On
// failure (NOT_FOUND, BAD_TYPE; a json attribute that is not well-formed is BAD_TYPE) the position
// stays where it was.
pps_decoder_error_t pps_decoder_push(pps_decoder_t* decoder, const char* name);
pps_decoder_error_t pps_decoder_push_object(pps_decoder_t* decoder, const char* name);
pps_decoder_error_t pps_decoder_push_array(pps_decoder_t* decoder, const char* name);

// Returns to the parent, at the sibling that follows what was left.
pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder);

// The value of a member (the first of that name) or, name null, of the next element. An element
// that is delivered is passed; one that is not stays the next. On failure *value is untouched.
// Integers are numbers without fraction or exponent that fit. The string points into the text,
// zero-terminated, its escapes resolved.
pps_decoder_error_t pps_decoder_get_int(pps_decoder_t* decoder, const char* name, int* value);
pps_decoder_error_t pps_decoder_get_int64(pps_decoder_t* decoder, const char* name,
                                          std::int64_t* value);
pps_decoder_error_t pps_decoder_get_double(pps_decoder_t* decoder, const char* name, double* value);
pps_decoder_error_t pps_decoder_get_bool(pps_decoder_t* decoder, const char* name, bool* value);
pps_decoder_error_t pps_decoder_get_string(pps_decoder_t* decoder, const char* name,
                                           const char** value);

// Type of a member or of the next element, PPS_TYPE_NONE when there is none. Never an error.
pps_node_type_t pps_decoder_type(pps_decoder_t* decoder, const char* name);

// Passes the next member or element. NOT_FOUND at the end; this one does not enter the status.
pps_decoder_error_t pps_decoder_next(pps_decoder_t* decoder);

// Name of the next member or attribute, null in an array or at the end.
const char* pps_decoder_name(pps_decoder_t* decoder);

// Number of members or elements at the current level.
int pps_decoder_length(pps_decoder_t* decoder);

// The first failure since the start or the last clearing.
pps_decoder_error_t pps_decoder_status(pps_decoder_t* decoder, bool clear);

// --- encoder -------------------------------------------------------------------------------------

typedef enum {
  PPS_ENCODER_OK = 0,
  PPS_ENCODER_NO_MEM,
  PPS_ENCODER_BAD_NESTING,    // an end without its start, or a value outside of its object
  PPS_ENCODER_INVALID_VALUE,  // no text (null), a number that is not finite, or a name that a line
                              // cannot hold
  PPS_ENCODER_MISSING_PROP_NAME,  // a member without a name
} pps_encoder_error_t;

// Initialise before use, clean up after it; not to be copied.
typedef struct {
  std::int64_t opaque[32];
} pps_encoder_t;

// Prepares `encoder` for PPS text or, with `encode_json`, for one JSON value. reset forgets the
// text and the status.
void pps_encoder_initialize(pps_encoder_t* encoder, bool encode_json);
void pps_encoder_reset(pps_encoder_t* encoder);
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
