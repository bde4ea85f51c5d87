// The decoder's memory of a parsed text: one flat array of nodes, in the order of the text. Public
// only because the decoder's calls are inlined where a node tells all.
//
// A container is followed by its children; `span` counts a node and everything that belongs to it,
// so the children of container c are c + 1, c + 1 + span(c + 1), ... up to c + span(c). Nesting
// needs no stack: an open container remembers its parent, which is all that parsing and walking
// back need.
#ifndef KORVANDIS_QNX_PPS_TAPE_H
#define KORVANDIS_QNX_PPS_TAPE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qnx {
namespace pps {

// The values of pps_node_type_t, and two more for PPS attributes.
enum class Kind : std::uint8_t {
  kNull,
  kBool,
  kNumber,
  kString,
  kArray,
  kObject,
  kUnknown = 7,
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

// Whether the `length` bytes at a and b, 1 to kShortName of them, are the same.
inline bool SameBytes(const char* a, const char* b, std::size_t length) {
  if (length >= 8) {
    const std::size_t last = length - 8;
    return LoadEight(a) == LoadEight(b) && LoadEight(a + last) == LoadEight(b + last);
  }
  if (length >= 4) {
    const std::size_t last = length - 4;
    return LoadFour(a) == LoadFour(b) && LoadFour(a + last) == LoadFour(b + last);
  }
  return a[0] == b[0] && a[length / 2] == b[length / 2] && a[length - 1] == b[length - 1];
}

// Grows by doubling. References to nodes end with Grow.
class Tape {
 public:
  Tape() : nodes_(inline_), capacity_(kInlineNodes), size_(0) {}
  ~Tape() { Release(); }
  Tape(const Tape&) = delete;
  Tape& operator=(const Tape&) = delete;

  // Gives grown memory back. The nodes are lost.
  void Release();

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

// Powers of ten that are exact as doubles.
const int kExactPower = 22;
extern const double kPowersOfTen[kExactPower + 1];

// What the flag kQuotient promises: rounded once, it is the nearest double.
inline double Quotient(const Node& node) {
  return static_cast<double>(static_cast<std::int64_t>(node.number)) / kPowersOfTen[-node.exponent];
}

}  // namespace pps
}  // namespace qnx

#endif  // KORVANDIS_QNX_PPS_TAPE_H
