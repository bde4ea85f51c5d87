#include <cfloat>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "pps_tape.h"

namespace platform {
namespace pps {
namespace {

const int kExactDigits = 19;       // always fit 64 bits
const int kExponentLimit = 30000;  // more says no more: the number is out of range or zero
const std::uint64_t kExactDouble = std::uint64_t{1} << 53;
const double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
const int kExactPower = 22;  // the last power of ten that is exact

bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') <= 9; }
bool IsSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

char* SkipSpace(char* p) {
  if (static_cast<unsigned char>(*p) > ' ') return p;
  while (IsSpace(*p)) ++p;
  return p;
}

// Eight bytes with the first one lowest, whatever the machine's order.
std::uint64_t LoadEight(const char* p) {
  unsigned char b[8];
  std::memcpy(b, p, 8);
  return std::uint64_t{b[0]} | std::uint64_t{b[1]} << 8 | std::uint64_t{b[2]} << 16 |
         std::uint64_t{b[3]} << 24 | std::uint64_t{b[4]} << 32 | std::uint64_t{b[5]} << 40 |
         std::uint64_t{b[6]} << 48 | std::uint64_t{b[7]} << 56;
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
char* SkipPlain(char* p, const char* end) {
  while (end - p >= 8) {
    const std::uint64_t special = SpecialBytes(LoadEight(p));
    if (special != 0) return p + __builtin_ctzll(special) / 8;
    p += 8;
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
  if (exponent > kExponentLimit) exponent = kExponentLimit;
  if (exponent < -kExponentLimit) exponent = -kExponentLimit;
  node->kind = Kind::kNumber;
  node->flags = static_cast<std::uint8_t>(flags);
  node->exponent = static_cast<std::int16_t>(exponent);
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

Tape::~Tape() {
  if (nodes_ != inline_) std::free(nodes_);
}

bool Tape::Reserve(std::size_t capacity) {
  if (capacity <= capacity_) return true;
  if (capacity >= kNone || capacity > SIZE_MAX / sizeof(Node)) return false;
  const bool moved = nodes_ != inline_;
  void* const memory = std::realloc(moved ? nodes_ : nullptr, capacity * sizeof(Node));
  if (memory == nullptr) return false;
  if (!moved) std::memcpy(memory, inline_, size_ * sizeof(Node));
  nodes_ = static_cast<Node*>(memory);
  capacity_ = static_cast<std::uint32_t>(capacity);
  return true;
}

namespace {

// One run over one JSON text. Where it stands is kept in the nodes of the containers that are open:
// their `text` is the parent and their `number` the children that the parent had before them.
class JsonParser {
 public:
  JsonParser(Tape* tape, char* base, char* end, std::uint32_t parent)
      : tape_(tape), base_(base), end_(end), root_(parent), parent_(parent), size_(tape->size()) {}

  Parsed Run(char* p) {
    const std::uint32_t size = size_;
    p = Values(p);
    if (p != nullptr && SkipSpace(p) == end_) {
      tape_->Resize(size_);
      return Parsed::kWell;
    }
    tape_->Resize(size);
    return no_memory_ ? Parsed::kNoMemory : Parsed::kMalformed;
  }

 private:
  // The value at p with all that it contains. Returns what is behind it, or null.
  char* Values(char* p) {
    std::uint32_t key = kNone;
    for (;;) {
      p = Value(SkipSpace(p), key);
      if (p == nullptr) return nullptr;
      if (!entered_) {
        p = Leave(p);
        if (p == nullptr || parent_ == root_) return p;
      }
      key = kNone;
      if (in_object_) {
        p = Name(p, &key);
        if (p == nullptr) return nullptr;
      }
    }
  }

  // One scalar, or the start of a container that is then the one entered.
  char* Value(char* p, std::uint32_t key) {
    if (size_ == tape_->capacity() && !Grow()) return nullptr;
    const std::uint32_t index = size_++;
    Node* const node = tape_->nodes() + index;
    ++children_;
    entered_ = false;
    node->key = key;
    node->next = size_;
    node->flags = 0;
    node->text = Offset(p);
    switch (*p) {
      case '{':
        return Enter(p, index, Kind::kObject);
      case '[':
        return Enter(p, index, Kind::kArray);
      case '"':
        node->kind = Kind::kString;
        ++node->text;
        return TakeString(p + 1, end_);
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

  // Opens the container at p. An empty one is closed at once, so that a value or a name follows.
  char* Enter(char* p, std::uint32_t index, Kind kind) {
    Node* const node = tape_->nodes() + index;
    node->kind = kind;
    node->text = parent_;
    p = SkipSpace(p + 1);
    if (*p == (kind == Kind::kObject ? '}' : ']')) {
      node->number = 0;
      return p + 1;
    }
    node->number = children_;
    children_ = 0;
    parent_ = index;
    in_object_ = kind == Kind::kObject;
    entered_ = true;
    return p;
  }

  // Behind a value: closes the containers that end here. Returns what is behind the comma before
  // the next value or name, or behind the outermost value.
  char* Leave(char* p) {
    while (parent_ != root_) {
      p = SkipSpace(p);
      if (*p == ',') return SkipSpace(p + 1);
      if (*p != (in_object_ ? '}' : ']')) return nullptr;
      ++p;
      Node* const node = tape_->nodes() + parent_;
      const std::uint32_t outer = static_cast<std::uint32_t>(node->number);
      node->number = children_;
      node->next = size_;
      children_ = outer;
      parent_ = node->text;
      in_object_ = parent_ != root_ && tape_->nodes()[parent_].kind == Kind::kObject;
    }
    return p;
  }

  // The name at p and its colon.
  char* Name(char* p, std::uint32_t* key) {
    if (*p != '"') return nullptr;
    *key = Offset(p + 1);
    p = TakeString(p + 1, end_);
    if (p == nullptr) return nullptr;
    p = SkipSpace(p);
    return *p == ':' ? p + 1 : nullptr;
  }

  bool Grow() {
    tape_->Resize(size_);
    no_memory_ = !tape_->Grow();
    return !no_memory_;
  }

  std::uint32_t Offset(const char* p) const { return static_cast<std::uint32_t>(p - base_); }

  Tape* const tape_;
  char* const base_;
  char* const end_;
  const std::uint32_t root_;  // stands for "outside": its children are not counted here
  std::uint32_t parent_;
  std::uint32_t size_;
  std::uint32_t children_ = 0;
  bool in_object_ = false;
  bool entered_ = false;
  bool no_memory_ = false;
};

}  // namespace

Parsed ParseJson(Tape* tape, char* base, char* begin, char* end, std::uint32_t parent) {
  return JsonParser(tape, base, end, parent).Run(begin);
}

}  // namespace pps
}  // namespace platform
