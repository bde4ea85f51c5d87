// The decoder's memory of a parsed text: one flat array of nodes, in the order of the text.
//
// A container is followed by its children; `next` of a node is the index behind everything that
// belongs to it, so the children of container c are c + 1, next(c + 1), ... up to next(c). Nesting
// needs no stack: an open container remembers its parent, which is all that parsing and walking
// back need.
#ifndef KORVANDIS_PLATFORM_PPS_TAPE_H
#define KORVANDIS_PLATFORM_PPS_TAPE_H

#include <pps.h>

#include <cstddef>
#include <cstdint>

namespace platform {
namespace pps {

// The values of pps_node_type_t, and two more for PPS attributes.
enum class Kind : std::uint8_t {
  kNull = PPS_TYPE_NULL,
  kBool = PPS_TYPE_BOOL,
  kNumber = PPS_TYPE_NUMBER,
  kString = PPS_TYPE_STRING,
  kArray = PPS_TYPE_ARRAY,
  kObject = PPS_TYPE_OBJECT,
  kUnknown = PPS_TYPE_UNKNOWN,
  kAttribute,      // not looked at yet: `text` is the value, `number` the offset of the encoding
  kJsonAttribute,  // `number` is the node of its value
};

const std::uint8_t kNegative = 1;  // number: with a minus sign
const std::uint8_t kInteger = 2;   // number: `number` is the whole magnitude
const std::uint8_t kInexact = 4;   // number: digits did not fit, only the text tells
const std::uint8_t kTrue = 8;      // bool
const std::uint8_t kValueOfAttribute =
    16;  // root of a json attribute: `key` is the attribute's node

const std::uint32_t kNone = 0xffffffffU;

struct Node {
  std::uint32_t key;   // offset of the name, zero-terminated; kNone without
  std::uint32_t next;  // node behind this one and all that it contains
  std::uint32_t text;  // scalar: offset of the value; container: node of the parent
  Kind kind;
  std::uint8_t flags;
  std::int16_t exponent;  // number: power of ten that belongs to `number`
  std::uint64_t number;   // number: its digits; container: its children
};
static_assert(sizeof(Node) == 24, "keep a node small: the tape is most of what parsing writes");

// Nodes held without a second allocation: a position response with 24 satellites has 154.
const std::uint32_t kInlineNodes = 160;

// Grows by doubling. References to nodes end with the next Reserve.
class Tape {
 public:
  Tape() : nodes_(inline_), capacity_(kInlineNodes), size_(0) {}
  ~Tape();
  Tape(const Tape&) = delete;
  Tape& operator=(const Tape&) = delete;

  // Makes room for `capacity` nodes in all; false without memory, with everything as it was.
  bool Reserve(std::size_t capacity);
  bool Grow() { return Reserve(std::size_t{capacity_} * 2); }

  Node* nodes() { return nodes_; }
  Node& operator[](std::uint32_t index) { return nodes_[index]; }
  std::uint32_t size() const { return size_; }
  std::uint32_t capacity() const { return capacity_; }
  void Resize(std::uint32_t size) { size_ = size; }  // within the capacity

 private:
  Node* nodes_;
  std::uint32_t capacity_;
  std::uint32_t size_;
  Node inline_[kInlineNodes];
};

enum class Parsed { kWell, kMalformed, kNoMemory };

// Parses the JSON text from `begin` to `end`, where a zero byte stands, and appends its nodes to
// the tape; the first one is a child of `parent`. Offsets count from `base`. Names and strings are
// unescaped and terminated in place. After a failure the tape is as long as before; the text is not
// what it was.
//
// The text is one value in the grammar of RFC 8259, with white space around it. Control characters
// in strings and unknown escapes are errors; a surrogate without its other half becomes U+FFFD.
// Bytes from 0x80 are taken as they stand.
Parsed ParseJson(Tape* tape, char* base, char* begin, char* end, std::uint32_t parent);

// Scans a JSON number (with `leading_zeros`, also one like 007) into `node` and returns its end, or
// null when there is none.
char* ScanNumber(char* p, bool leading_zeros, Node* node);

// The number, which stands at `text`, as the nearest double; false when it is out of range. Those
// too small are zero.
bool ToDouble(const Node& node, const char* text, double* value);

// One line of PPS text, cut from it in place.
struct Line {
  pps_status_t status;
  char* name;      // of the attribute, or of the object with its '@'
  char* encoding;  // attributes only
  char* value;     // attributes only
  bool cut;        // PPS_ERROR: the last line, whose end is missing
};

// Takes the line at *text and advances *text behind it; PPS_END at the terminator.
Line TakeLine(char** text);

// Resolves C escapes in place. An escape that is none stays as it stands.
void UnescapeC(char* text);

}  // namespace pps
}  // namespace platform

#endif  // KORVANDIS_PLATFORM_PPS_TAPE_H
