#include <algorithm>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "pps_value.h"

namespace qnx {
namespace pps {

const double kPowersOfTen[kExactPower + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

namespace {

const int kExactDigits = 19;              // always fit 64 bits
const std::int64_t kExponentLimit = 100;  // beyond it only the text tells the value
const std::uint64_t kExactDouble = std::uint64_t{1} << 53;
bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') <= 9; }
bool IsSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

char* SkipSpace(char* p) {
  if (static_cast<unsigned char>(*p) > ' ') return p;
  while (IsSpace(*p)) ++p;
  return p;
}

const std::uint64_t kEach = 0x0101010101010101U;

// The top bit of each byte that ends plain text in a string (quote, backslash, control). Bits above
// the lowest one may be wrong.
std::uint64_t SpecialBytes(std::uint64_t w) {
  const std::uint64_t quote = (w ^ (kEach * '"')) - kEach;
  const std::uint64_t backslash = (w ^ (kEach * '\\')) - kEach;
  const std::uint64_t control = w - kEach * 0x20;
  return (quote | backslash | control) & ~w & (kEach * 0x80);
}

// First quote, backslash or control character from p; the zero byte at `end` is one.
inline char* SkipPlain(char* p, const char* end) {
  for (; end - p >= 8; p += 8) {
    const std::uint64_t special = SpecialBytes(LoadEight(p));
    if (special != 0) return p + __builtin_ctzll(special) / 8;
  }
  while (static_cast<unsigned char>(*p) >= 0x20 && *p != '"' && *p != '\\') ++p;
  return p;
}

// Four hexadecimal digits, -1 when they are not.
int TakeHex(const char* p) {
  int value = 0;
  for (int i = 0; i < 4; ++i) {
    const char c = p[i];
    int digit;
    if (IsDigit(c)) {
      digit = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      return -1;
    }
    value = value * 16 + digit;
  }
  return value;
}

char* PutUtf8(char* to, int code) {
  const auto put = [&to](int byte) { *to++ = static_cast<char>(static_cast<unsigned char>(byte)); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xc0 | code >> 6);
    put(0x80 | (code & 0x3f));
  } else if (code < 0x10000) {
    put(0xe0 | code >> 12);
    put(0x80 | (code >> 6 & 0x3f));
    put(0x80 | (code & 0x3f));
  } else {
    put(0xf0 | code >> 18);
    put(0x80 | (code >> 12 & 0x3f));
    put(0x80 | (code >> 6 & 0x3f));
    put(0x80 | (code & 0x3f));
  }
  return to;
}

// The escape whose 'u' stands before p: writes it at *to and returns what is behind it, or null.
char* TakeUnicode(char* p, char** to) {
  const int kReplacement = 0xfffd;
  int code = TakeHex(p);
  if (code < 0) return nullptr;
  p += 4;
  if (code >= 0xd800 && code < 0xe000) {
    const int low = code < 0xdc00 && p[0] == '\\' && p[1] == 'u' ? TakeHex(p + 2) : -1;
    if (low >= 0xdc00 && low < 0xe000) {
      code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
      p += 6;
    } else {
      code = kReplacement;
    }
  }
  *to = PutUtf8(*to, code);
  return p;
}

char SimpleEscape(char c) {
  switch (c) {
    case '"':
    case '\\':
    case '/':
      return c;
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return '\0';
  }
}

// The rest of a string from its first backslash. Unescaped text is never longer than it was.
char* FinishEscaped(char* p, const char* end) {
  char* to = p;
  for (;;) {
    if (*p == '"') {
      *to = '\0';
      return p + 1;
    }
    if (*p != '\\') return nullptr;
    if (p[1] == 'u') {
      p = TakeUnicode(p + 2, &to);
      if (p == nullptr) return nullptr;
    } else {
      const char c = SimpleEscape(p[1]);
      if (c == '\0') return nullptr;
      *to++ = c;
      p += 2;
    }
    char* const plain = SkipPlain(p, end);
    const std::size_t length = static_cast<std::size_t>(plain - p);
    std::memmove(to, p, length);
    to += length;
    p = plain;
  }
}

// A string behind its opening quote: unescaped and terminated in place. Returns what is behind its
// closing quote, or null.
inline char* TakeString(char* p, const char* end) {
  p = SkipPlain(p, end);
  if (*p == '"') {
    *p = '\0';
    return p + 1;
  }
  return FinishEscaped(p, end);
}

// The word `rest` at p, whose first letter was looked at; the text's zero byte ends a shorter text.
char* TakeWord(char* p, const char* word) {
  while (*word != '\0') {
    if (*p++ != *word++) return nullptr;
  }
  return p;
}

// Takes digits up to the first other character; `value` overflows silently.
inline char* TakeDigits(char* p, std::uint64_t* value) {
  for (; IsDigit(*p); ++p) *value = *value * 10 + static_cast<unsigned char>(*p - '0');
  return p;
}

// An exponent behind its 'e', or null.
char* TakeExponent(char* p, std::int64_t* exponent) {
  const std::int64_t kEnough = 1000000000000000;  // longer than any text
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  if (!IsDigit(*p)) return nullptr;
  std::int64_t value = 0;
  for (; IsDigit(*p); ++p) {
    if (value < kEnough) value = value * 10 + (*p - '0');
  }
  *exponent = negative ? -value : value;
  return p;
}

// Counts again what may have overflowed: the first nineteen digits that count go to `value`, the
// number of those behind them to `dropped`.
void CountDigits(const char* begin, const char* end, std::uint64_t* value, std::int64_t* dropped) {
  int kept = 0;
  *value = 0;
  *dropped = 0;
  for (const char* p = begin; p != end; ++p) {
    if (*p == '.' || (kept == 0 && *p == '0')) continue;
    if (kept < kExactDigits) {
      *value = *value * 10 + static_cast<unsigned char>(*p - '0');
      ++kept;
    } else {
      ++*dropped;
    }
  }
}

}  // namespace

char* ScanNumber(char* p, bool leading_zeros, Node* node) {
  unsigned flags = kInteger;
  if (*p == '-') {
    flags |= kNegative;
    ++p;
  }
  char* const first = p;
  std::uint64_t value = 0;
  p = TakeDigits(p, &value);
  if (p == first || (*first == '0' && p - first > 1 && !leading_zeros)) return nullptr;
  std::int64_t exponent = 0;
  if (*p == '.') {
    char* const fraction = p + 1;
    p = TakeDigits(fraction, &value);
    if (p == fraction) return nullptr;
    exponent = fraction - p;
    flags &= ~unsigned{kInteger};
  }
  if (p - first > kExactDigits) {
    std::int64_t dropped;
    CountDigits(first, p, &value, &dropped);
    exponent += dropped;
    if (dropped != 0) flags = (flags | kInexact) & ~unsigned{kInteger};
  }
  if (*p == 'e' || *p == 'E') {
    std::int64_t power;
    p = TakeExponent(p + 1, &power);
    if (p == nullptr) return nullptr;
    exponent += power;
    flags &= ~unsigned{kInteger};
  }
  exponent = std::max(-kExponentLimit, std::min(exponent, kExponentLimit));
  const bool exact = FLT_EVAL_METHOD == 0 && (flags & kInexact) == 0 && value <= kExactDouble;
  if ((flags & kNegative) == 0) {
    if ((flags & kInteger) != 0 && value <= INT_MAX) flags |= kShort;
    if (exact && exponent <= 0 && exponent >= -kExactPower) flags |= kQuotient;
  }
  node->kind = Kind::kNumber;
  node->flags = static_cast<std::uint8_t>(flags);
  node->exponent = static_cast<std::int8_t>(exponent);
  node->number = value;
  return p;
}

bool ToDouble(const Node& node, const char* text, double* value) {
  const int exponent = node.exponent;
  if (FLT_EVAL_METHOD == 0 && (node.flags & kInexact) == 0 && node.number <= kExactDouble &&
      exponent >= -kExactPower && exponent <= kExactPower) {
    // Both operands are exact, so the one rounding gives the nearest double.
    double magnitude = static_cast<double>(node.number);
    if (exponent < 0) {
      magnitude /= kPowersOfTen[-exponent];
    } else {
      magnitude *= kPowersOfTen[exponent];
    }
    *value = (node.flags & kNegative) != 0 ? -magnitude : magnitude;
    return true;
  }
  double parsed;
  const std::from_chars_result result =
      std::from_chars(text, text + std::strspn(text, "+-.0123456789Ee"), parsed);
  if (result.ec == std::errc()) {
    *value = parsed;
    return true;
  }
  if (node.number != 0 && exponent >= 0) return false;  // too large, the others are too small
  *value = (node.flags & kNegative) != 0 ? -0.0 : 0.0;
  return true;
}

void Tape::Release() {
  if (nodes_ != inline_) std::free(nodes_);
  nodes_ = inline_;
  capacity_ = kInlineNodes;
  size_ = 0;
}

bool Tape::Grow(std::uint32_t used) {
  const std::size_t capacity = std::size_t{capacity_} * 2;
  // NOLINTNEXTLINE(misc-redundant-expression): the second half counts where a size has 32 bits
  if (capacity >= kNone || capacity > SIZE_MAX / sizeof(Node)) return false;
  const bool moved = nodes_ != inline_;
  void* const memory = std::realloc(moved ? nodes_ : nullptr, capacity * sizeof(Node));
  if (memory == nullptr) return false;
  if (!moved) std::memcpy(memory, inline_, used * sizeof(Node));
  nodes_ = static_cast<Node*>(memory);
  capacity_ = static_cast<std::uint32_t>(capacity);
  return true;
}

namespace {

// --- short things --------------------------------------------------------------------------------

const std::ptrdiff_t kLongestName = 255;  // that a node tells the length of

// Takes one to three digits at p, the first of several not a zero unless that is allowed. Returns
// what is behind them, null when it is not so. A path for each length, with its steps known, lets
// the processor run ahead of the digits.
template <bool kLeadingZeros>
__attribute__((always_inline)) inline char* TakeShortDigits(char* p, std::uint32_t* value) {
  const auto digit = [p](int i) { return std::uint32_t{static_cast<unsigned char>(p[i])} - '0'; };
  const std::uint32_t first = digit(0);
  if (first > 9) return nullptr;
  const std::uint32_t second = digit(1);
  if (second > 9) {
    *value = first;
    return p + 1;
  }
  if (!kLeadingZeros && first == 0) return nullptr;
  const std::uint32_t third = digit(2);
  if (third > 9) {
    *value = first * 10 + second;
    return p + 2;
  }
  *value = first * 100 + second * 10 + third;
  return digit(3) > 9 ? p + 3 : nullptr;
}

const std::uint8_t kShortInteger = kInteger | kShort | (FLT_EVAL_METHOD == 0 ? kQuotient : 0);

// Scans a number of up to three digits on each side of the point, as texts are full of them.
// Returns null for any other: ScanNumber has the last word. `node` is a short integer already; its
// `text` stays unset, which nobody needs for an exact number.
__attribute__((always_inline)) inline char* ScanShortNumber(char* p, Node* node) {
  if (FLT_EVAL_METHOD != 0) return nullptr;  // no number is exact, so its text is needed
  std::uint32_t whole;
  char* const end = TakeShortDigits<false>(p, &whole);
  if (end == nullptr) return nullptr;
  node->number = whole;
  if (*end == ',') return end;
  if (*end != '.') return *end == 'e' || *end == 'E' ? nullptr : end;

  static const std::uint32_t kPowers[] = {1, 10, 100, 1000};
  std::uint32_t fraction;
  char* const behind = TakeShortDigits<true>(end + 1, &fraction);
  if (behind == nullptr || *behind == 'e' || *behind == 'E') return nullptr;
  const std::ptrdiff_t digits = behind - end - 1;
  node->flags = kShortInteger & kQuotient;
  node->exponent = static_cast<std::int8_t>(-digits);
  node->number = whole * kPowers[digits] + fraction;
  return behind;
}

// Takes true or false, without a branch on which, as nothing foretells it. Returns null for
// anything else, and when the text ends soon.
inline char* TakeBool(char* p, const char* end, Node* node) {
  if (end - p < 5) return nullptr;
  const std::uint32_t word = LoadFour(p);
  const std::uint32_t from_true = word ^ LoadFour("true");
  const std::uint32_t from_false =
      (word ^ LoadFour("fals")) | static_cast<unsigned char>(p[4] ^ 'e');
  if (std::uint64_t{from_true} * from_false != 0) return nullptr;
  const bool is_true = from_true == 0;
  node->kind = Kind::kBool;
  node->flags = static_cast<std::uint8_t>(is_true * kTrue);
  return p + 5 - is_true;
}

// A string, a word or any number at p, into `node`. Returns what is behind it, or null.
char* TakeScalar(char* p, const char* base, const char* end, Node* node) {
  node->text = static_cast<std::uint32_t>(p - base);
  node->flags = 0;
  switch (*p) {
    case '"':
      node->kind = Kind::kString;
      ++node->text;
      return TakeString(p + 1, end);
    case 't':
      node->kind = Kind::kBool;
      node->flags = kTrue;
      return TakeWord(p, "true");
    case 'f':
      node->kind = Kind::kBool;
      return TakeWord(p, "false");
    case 'n':
      node->kind = Kind::kNull;
      return TakeWord(p, "null");
    default:
      return ScanNumber(p, false, node);
  }
}

// Makes `node` a container that is open.
inline void Open(Node* node, Kind kind, std::uint32_t parent) {
  node->kind = kind;
  node->flags = 0;
  node->exponent = 0;
  node->text = parent;
  node->span = 0;
}

// --- objects like the one before -----------------------------------------------------------------

// The objects of an array mostly differ in their values only. The shape of an object is what stands
// between its values, byte for byte, so that the members of the next one are recognised by
// comparing words.
class Shape {
 public:
  static const int kMembers = 16;           // that are noted
  static const std::ptrdiff_t kBytes = 16;  // of a member that are compared

  // Starts to note the shape of an object.
  void Start() {
    array_ = kNone;
    count_ = 0;
  }

  // Notes the member of `node`, for which the text has what is from `p` to `value`. False when it
  // can't be.
  bool Note(const Node& node, const char* p, const char* value, const char* end) {
    const std::ptrdiff_t length = value - p;
    if (count_ == kMembers || length > kBytes || end - p < kBytes || node.name_length == 0) {
      return false;
    }
    Member* const member = &members_[count_++];
    member->length = length;
    for (int i = 0; i < kWords; ++i) {
      const std::ptrdiff_t bytes = std::min(length - i * kWord, std::ptrdiff_t{kWord});
      member->mask[i] = bytes > 0 ? ~std::uint64_t{0} >> (8 * (kWord - bytes)) : 0;
      member->text[i] = LoadEight(p + i * kWord) & member->mask[i];
    }
    member->node = node;
    member->node.kind = Kind::kNumber;
    member->node.flags = kShortInteger;
    member->node.exponent = 0;
    member->node.span = 1;
    return true;
  }

  // The object ends, an element of `array`: its shape can be used from now on.
  void Finish(std::uint32_t array, bool distinct) {
    Member* const stop = &members_[count_];  // that no text has
    stop->text[0] = stop->text[1] = 0;
    stop->mask[0] = stop->mask[1] = ~std::uint64_t{0};
    array_ = array;
    distinct_ = distinct;
  }

  // Whether elements of `array` may be of this shape.
  bool Fits(std::uint32_t array) const { return array_ == array; }
  int count() const { return count_; }
  bool distinct() const { return distinct_; }

  // What taking elements needs to know and changes.
  struct Place {
    const char* base;
    const char* end;
    const char* ahead;  // from here on it does not look
    Node* object;       // the element that is open
    Node* node;         // the next one to be filled
    Node* full;
    std::uint32_t hidden;  // nodes inside the array that are no children of its own
    bool whole;            // the open element has all members of the shape
  };

  // Takes elements, from the first member of place->object, which stands at p, as far as they are
  // of this shape and hold no containers, and no more white space than it does. There is room for
  // kMembers nodes. The last element stays open. Returns where it stopped, behind a value or the
  // opening brace; null when there is a value that is none.
  __attribute__((noinline)) char* Take(char* p, Place* place) const {
    const Member* const stop = members_ + count_;
    const char* const ahead = place->ahead;
    Node* object = place->object;
    Node* node = place->node;
    for (;;) {
      const Member* member = members_;
      for (; p < ahead && member->Matches(p); ++member, ++node) {
        char* const value = p + member->length;
        *node = member->node;
        char* behind = ScanShortNumber(value, node);
        if (behind == nullptr) behind = TakeBool(value, place->end, node);
        if (behind == nullptr) {
          if (*value == '{' || *value == '[' || IsSpace(*value)) break;
          behind = TakeScalar(value, place->base, place->end, node);
          if (behind == nullptr) return nullptr;
        }
        p = behind;
      }
      place->whole = member == stop;
      if (member != stop || p[0] != '}' || p[1] != ',' || p[2] != '{') break;
      if (ahead - p <= 3 || place->full - node <= kMembers || !members_[0].Matches(p + 3)) break;
      p += 3;
      object->flags = distinct_ ? kDistinctNames : std::uint8_t{0};
      object->span = static_cast<std::uint32_t>(count_) + 1;
      object->number = static_cast<std::uint64_t>(count_);
      place->hidden += static_cast<std::uint32_t>(count_);
      object = node++;
      Open(object, Kind::kObject, array_);
      object->key = kNone;
      object->name_length = 0;
    }
    place->object = object;
    place->node = node;
    return p;
  }

 private:
  static const std::ptrdiff_t kWord = 8;
  static const int kWords = kBytes / kWord;

  struct Member {
    bool Matches(const char* p) const {
      return (((LoadEight(p) ^ text[0]) & mask[0]) |
              ((LoadEight(p + kWord) ^ text[1]) & mask[1])) == 0;
    }

    // From the end of the value before it, or from the brace, to its own value.
    std::uint64_t text[kWords];
    std::uint64_t mask[kWords];
    std::ptrdiff_t length;
    Node node;  // with its name, as a short integer
  };

  std::uint32_t array_ = kNone;
  int count_ = 0;
  bool distinct_ = false;
  Member members_[kMembers + 1];
};

// Whether the members from `first` to `end` all have short and different names, as far as lengths
// and ends tell: it may say no when they have. That costs time only, when they are read.
bool NamesDiffer(const Node* first, const Node* end, const char* base) {
  std::uint64_t marks = 0;
  for (const Node* node = first; node != end; node += node->span) {
    const unsigned length = node->name_length;
    if (length == 0 || length > kShortName) return false;
    const char* const name = base + node->key;
    const int ends = name[0] + 5 * name[length - 1];
    const std::uint64_t mark = std::uint64_t{1}
                               << ((static_cast<unsigned>(ends) + 3 * length) % 64);
    if ((marks & mark) != 0) return false;
    marks |= mark;
  }
  return true;
}

// --- the pass over a text ------------------------------------------------------------------------

// One run over one JSON text. Where it stands is kept in the nodes of the containers that are open:
// their `text` is the parent and their `number` what hidden_ was before them.
class JsonParser {
 public:
  JsonParser(Tape* tape, char* base, char* end, std::uint32_t parent)
      : tape_(tape),
        nodes_(tape->nodes()),
        node_(tape->nodes() + tape->size()),
        full_(tape->nodes() + tape->capacity()),
        base_(base),
        end_(end),
        ahead_(end - base > Shape::kBytes ? end - Shape::kBytes : base),
        root_(parent),
        parent_(parent) {}

  Parsed Run(char* p) {
    p = SkipSpace(p);
    for (;;) {
      if (node_ == full_ && !Grow()) return Parsed::kNoMemory;
      p = in_object_ ? Name(p) : Unnamed(p);
      if (p == nullptr) return Parsed::kMalformed;
      p = Value(p);
      if (p == nullptr) return Parsed::kMalformed;
      if (entered_) continue;
      p = Leave(p);
      if (p == nullptr) return Parsed::kMalformed;
      if (parent_ == root_) break;
    }
    if (SkipSpace(p) != end_) return Parsed::kMalformed;
    tape_->Resize(Index(node_));
    return Parsed::kWell;
  }

 private:
  inline char* Unnamed(char* p) {
    node_->key = kNone;
    node_->name_length = 0;
    return p;
  }

  // The name at p and its colon. Returns where the value stands, or null.
  inline char* Name(char* p) {
    if (*p != '"') return nullptr;
    char* const name = p + 1;
    node_->key = Offset(name);
    p = SkipPlain(name, end_);
    if (*p == '"' && p != name && p - name <= kLongestName) {
      node_->name_length = static_cast<std::uint8_t>(p - name);
      ++p;
    } else {
      node_->name_length = 0;
      p = FinishEscaped(p, end_);
      if (p == nullptr) return nullptr;
    }
    p = SkipSpace(p);
    if (*p != ':') return nullptr;
    p = SkipSpace(p + 1);
    if (noting_) noting_ = shape_.Note(*node_, behind_, p, end_);
    return p;
  }

  // One scalar, or the start of a container. Its first members may be taken with it; if not,
  // entered_ is set.
  inline char* Value(char* p) {
    Node* const node = node_++;
    node->span = 1;
    entered_ = false;
    node->kind = Kind::kNumber;
    node->flags = kShortInteger;
    node->exponent = 0;
    behind_ = ScanShortNumber(p, node);
    if (behind_ != nullptr) return behind_;
    if (*p == '{') return Enter(p, node, Kind::kObject, '}');
    if (*p == '[') return Enter(p, node, Kind::kArray, ']');
    return behind_ = TakeScalar(p, base_, end_, node);
  }

  // Opens the container at p. An empty one is closed at once.
  inline char* Enter(char* p, Node* node, Kind kind, char brace) {
    Open(node, kind, parent_);
    noting_ = false;
    alike_ = false;
    behind_ = p + 1;
    p = SkipSpace(p + 1);
    if (*p == brace) {
      node->span = 1;
      node->number = 0;
      return p + 1;
    }
    const bool element = !in_object_ && parent_ != root_;
    const std::uint32_t array = parent_;
    node->number = hidden_;
    hidden_ = 0;
    parent_ = Index(node);
    in_object_ = kind == Kind::kObject;
    entered_ = true;
    return element && in_object_ ? TakeAlike(p, array) : p;
  }

  // Takes what it can from the element of `array` that was opened, whose first name is at p, and
  // the elements behind it by the shape of the one before.
  inline char* TakeAlike(char* p, std::uint32_t array) {
    if (shape_.Fits(array) && (full_ - node_ > Shape::kMembers || Grow())) {
      Node* const object = node_ - 1;
      const std::uint32_t hidden = static_cast<std::uint32_t>(object->number);
      Shape::Place place = {base_, end_, ahead_, object, node_, full_, hidden, false};
      char* const behind = shape_.Take(behind_, &place);
      if (behind == nullptr) return nullptr;
      place.object->number = place.hidden;
      parent_ = Index(place.object);
      node_ = place.node;
      behind_ = behind;
      alike_ = place.whole;
      entered_ = node_ == place.object + 1;
      if (!entered_) return behind;
      p = SkipSpace(behind);
    }
    shape_.Start();
    noting_ = true;
    return p;
  }

  // Behind a value: closes the containers that end here. Returns what is behind the comma before
  // the next value or name, or behind the outermost value.
  inline char* Leave(char* p) {
    while (parent_ != root_) {
      p = SkipSpace(p);
      if (*p == ',') return SkipSpace(p + 1);
      if (*p != (in_object_ ? '}' : ']')) return nullptr;
      ++p;
      Close();
    }
    return p;
  }

  inline void Close() {
    Node* const node = nodes_ + parent_;
    const std::uint32_t inside = static_cast<std::uint32_t>(node_ - node - 1);
    const std::uint32_t outer = static_cast<std::uint32_t>(node->number);
    node->number = inside - hidden_;
    node->span = inside + 1;
    if (in_object_) {
      const bool whole = alike_ && inside == static_cast<std::uint32_t>(shape_.count());
      const bool distinct = whole ? shape_.distinct() : NamesDiffer(node + 1, node_, base_);
      if (distinct) node->flags = kDistinctNames;
      if (noting_) shape_.Finish(node->text, distinct);
    }
    noting_ = false;
    alike_ = false;
    hidden_ = outer + inside;
    parent_ = node->text;
    in_object_ = parent_ != root_ && nodes_[parent_].kind == Kind::kObject;
  }

  bool Grow() {
    const std::uint32_t size = Index(node_);
    if (!tape_->Grow(size)) return false;
    nodes_ = tape_->nodes();
    node_ = nodes_ + size;
    full_ = nodes_ + tape_->capacity();
    return true;
  }

  std::uint32_t Offset(const char* p) const { return static_cast<std::uint32_t>(p - base_); }
  std::uint32_t Index(const Node* node) const { return static_cast<std::uint32_t>(node - nodes_); }

  Tape* const tape_;
  Node* nodes_;
  Node* node_;  // the next one to be filled
  Node* full_;
  char* const base_;
  char* const end_;
  const char* const ahead_;   // up to here, a shape can be looked for
  char* behind_ = nullptr;    // the value, or the brace, before the member that is read
  const std::uint32_t root_;  // stands for "outside"
  std::uint32_t parent_;
  std::uint32_t hidden_ = 0;  // nodes inside parent_ that are no children of its own
  bool in_object_ = false;
  bool entered_ = false;
  bool noting_ = false;  // the object's shape is being noted
  bool alike_ = false;   // the object has all members of the shape
  Shape shape_;
};

}  // namespace

Parsed ParseJson(Tape* tape, char* base, char* begin, char* end, std::uint32_t parent) {
  return JsonParser(tape, base, end, parent).Run(begin);
}

}  // namespace pps
}  // namespace qnx
