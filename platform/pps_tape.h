// The decoder's memory of a parsed text: one flat array of nodes, in the order of the text.
//
// A container is followed by its children; `span` counts a node and everything that belongs to it,
// so the children of container c are c + 1, c + 1 + span(c + 1), ... up to c + span(c). Nesting
// needs no stack: an open container remembers its parent, which is all that parsing and walking
// back need.
#ifndef KORVANDIS_PLATFORM_PPS_TAPE_H
#define KORVANDIS_PLATFORM_PPS_TAPE_H

#include <pps.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

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

// Flags of a node.
const std::uint8_t kNegative = 1;   // number: with a minus sign
const std::uint8_t kInteger = 2;    // number: `number` is the whole magnitude
const std::uint8_t kInexact = 4;    // number: digits did not fit, only the text tells
const std::uint8_t kShort = 8;      // number: an integer from 0 to what an int holds
const std::uint8_t kQuotient = 16;  // number: `number` by ten to -exponent, both exact as doubles
const std::uint8_t kTrue = 32;      // bool
const std::uint8_t kDistinctNames = 64;  // object: all names are short, and none comes twice
// Root of a json attribute: `key` is the node of the attribute.
const std::uint8_t kValueOfAttribute = 128;

const std::uint32_t kNone = 0xffffffffU;
const std::size_t kShortName = 16;  // two words

// Whether the places of a text can be told by offsets.
inline bool FitsOffsets(const char* begin, const char* end) {
  return static_cast<std::size_t>(end - begin) < kNone;
}

struct Node {
  std::uint32_t key;  // offset of the name; kNone without
  Kind kind;
  std::uint8_t flags;
  std::int8_t exponent;  // number: power of ten that belongs to `number`, or a limit
  // Of a name that is not terminated in the text. 0 is one that is: with escapes, very long or
  // empty.
  std::uint8_t name_length;
  std::uint32_t text;    // scalar: offset of the value; container: node of the parent
  std::uint32_t span;    // this node and all that it contains; 0 while it is open
  std::uint64_t number;  // number: its digits; container: its children
};
static_assert(sizeof(Node) == 24, "keep a node small: the tape is most of what parsing writes");

// Nodes held without a second allocation: a position response with 24 satellites has 154.
const std::uint32_t kInlineNodes = 192;

// Eight bytes with the first one lowest, whatever the machine's order.
inline std::uint64_t LoadEight(const char* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof(word));
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? word : __builtin_bswap64(word);
}

inline std::uint32_t LoadFour(const char* p) {
  std::uint32_t word;
  std::memcpy(&word, p, sizeof(word));
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? word : __builtin_bswap32(word);
}

// Grows by doubling. References to nodes end with Grow.
class Tape {
 public:
  Tape() : nodes_(inline_), capacity_(kInlineNodes), size_(0) {}
  ~Tape();
  Tape(const Tape&) = delete;
  Tape& operator=(const Tape&) = delete;

  // Makes room for more, keeping the first `used` nodes; false without memory, with everything as
  // it was.
  bool Grow(std::uint32_t used);

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

// Powers of ten that are exact as doubles.
const int kExactPower = 22;
extern const double kPowersOfTen[kExactPower + 1];

// What the flag kQuotient promises: rounded once, it is the nearest double.
inline double Quotient(const Node& node) {
  return static_cast<double>(static_cast<std::int64_t>(node.number)) / kPowersOfTen[-node.exponent];
}

// Resolves C escapes in place. An escape that is none stays as it stands.
void UnescapeC(char* text);

}  // namespace pps
}  // namespace platform

#endif  // KORVANDIS_PLATFORM_PPS_TAPE_H
