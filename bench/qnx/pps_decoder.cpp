#include <pps.h>

#include <climits>
#include <cstring>

#include "pps_line.h"
#include "pps_value.h"

using qnx::pps::Kind;
using qnx::pps::kNone;
using qnx::pps::kShortName;
using qnx::pps::Line;
using qnx::pps::Node;
using qnx::pps::Parsed;
using qnx::pps::Tape;

static_assert(static_cast<int>(Kind::kObject) == PPS_TYPE_OBJECT &&
                  static_cast<int>(Kind::kUnknown) == PPS_TYPE_UNKNOWN,
              "the kinds are the public types");

namespace {

// Node 0 is the root: its children are the objects of the PPS text, or the JSON value.
const std::uint32_t kRoot = 0;

pps_decoder_error_t Fail(pps_decoder_t* decoder, pps_decoder_error_t error) {
  if (decoder->status == PPS_DECODER_OK) decoder->status = error;
  return error;
}

// Stands in a container, at one of its children or their end.
inline void StandAt(pps_decoder_t* decoder, Node* level, Node* next) {
  decoder->level = level;
  decoder->end = level + level->span;
  decoder->next = next;
  decoder->likely = (level->flags & qnx::pps::kDistinctNames) != 0 ? next : decoder->end;
}

void SetContainer(Node* node, Kind kind, std::uint32_t key) {
  node->key = key;
  node->kind = kind;
  node->flags = 0;
  node->exponent = 0;
  node->name_length = 0;
  node->text = kRoot;
  node->span = 1;
  node->number = 0;
}

// Forgets what was parsed: a root without children.
void Clear(pps_decoder_t* decoder, char* text) {
  Node* const root = decoder->tape.nodes();
  decoder->text = text;
  decoder->tape.Resize(1);
  SetContainer(root, Kind::kArray, kNone);
  StandAt(decoder, root, root + 1);
}

// Ends the root behind the last node, and stands at its first child.
void FinishRoot(pps_decoder_t* decoder) {
  Node* const root = decoder->tape.nodes();
  root->span = decoder->tape.size();
  StandAt(decoder, root, root + 1);
}

// --- PPS text ------------------------------------------------------------------------------------

// Builds the nodes of the objects and their attributes, line by line.
class PpsReader {
 public:
  explicit PpsReader(pps_decoder_t* decoder) : decoder_(decoder) {}

  pps_decoder_error_t Run() {
    char* p = decoder_->text;
    pps_decoder_error_t result = PPS_DECODER_OK;
    for (;;) {
      const Line line = qnx::pps::TakeLine(&p);
      if (line.status == PPS_END) break;
      if (line.status == PPS_ERROR && !line.cut) result = PPS_DECODER_PARSE_ERROR;
      if (!Take(line)) return PPS_DECODER_NO_MEM;
    }
    if (!qnx::pps::FitsOffsets(decoder_->text, p)) return PPS_DECODER_NO_MEM;
    if (object_ == kRoot && !Open(nullptr)) return PPS_DECODER_NO_MEM;
    Close();
    FinishRoot(decoder_);
    return result;
  }

 private:
  bool Take(const Line& line) {
    switch (line.status) {
      case PPS_OBJECT:
      case PPS_OBJECT_CREATED:
      case PPS_OBJECT_DELETED:
      case PPS_OBJECT_TRUNCATED:
        Close();
        return Open(line.name);
      case PPS_ATTRIBUTE:
        return (object_ != kRoot || Open(nullptr)) && Attribute(line);
      default:
        return true;
    }
  }

  bool Open(const char* name) {
    const std::uint32_t index = Append();
    if (index == kNone) return false;
    SetContainer(&decoder_->tape[index], Kind::kObject, Offset(name));
    object_ = index;
    ++decoder_->tape[kRoot].number;
    return true;
  }

  void Close() {
    if (object_ == kRoot) return;
    Node* const object = &decoder_->tape[object_];
    object->span = decoder_->tape.size() - object_;
    object->number = object->span - 1;
  }

  bool Attribute(const Line& line) {
    const std::uint32_t index = Append();
    if (index == kNone) return false;
    Node* const node = &decoder_->tape[index];
    node->key = Offset(line.name);
    node->span = 1;
    node->text = Offset(line.value);
    node->kind = Kind::kAttribute;
    node->flags = 0;
    node->exponent = 0;
    node->name_length = NameLength(line.encoding - line.name - 1);
    node->number = Offset(line.encoding);
    return true;
  }

  static std::uint8_t NameLength(std::ptrdiff_t length) {
    return length <= UINT8_MAX ? static_cast<std::uint8_t>(length) : std::uint8_t{0};
  }

  std::uint32_t Append() {
    Tape& tape = decoder_->tape;
    if (tape.size() == tape.capacity() && !tape.Grow(tape.size())) return kNone;
    tape.Resize(tape.size() + 1);
    return tape.size() - 1;
  }

  std::uint32_t Offset(const char* p) const {
    return p == nullptr ? kNone : static_cast<std::uint32_t>(p - decoder_->text);
  }

  pps_decoder_t* const decoder_;
  std::uint32_t object_ = kRoot;  // the object whose attributes are read; the root stands for none
};

// --- values --------------------------------------------------------------------------------------

// Parses the value of a json attribute of the current level; false without memory. Nodes may move.
bool ResolveJson(pps_decoder_t* decoder, Node* node) {
  Tape& tape = decoder->tape;
  Node* const before = tape.nodes();
  const std::uint32_t attribute = static_cast<std::uint32_t>(node - before);
  const std::uint32_t level = static_cast<std::uint32_t>(decoder->level - before);
  const std::ptrdiff_t next = decoder->next - before;
  const std::uint32_t root = tape.size();
  char* const value = decoder->text + node->text;
  const Parsed parsed =
      qnx::pps::ParseJson(&tape, decoder->text, value, value + std::strlen(value), level);
  StandAt(decoder, &tape[level], tape.nodes() + next);
  node = &tape[attribute];
  if (parsed != Parsed::kWell) {
    node->kind = Kind::kUnknown;
    return parsed != Parsed::kNoMemory;
  }
  node->kind = Kind::kJsonAttribute;
  node->number = root;
  tape[root].key = attribute;
  tape[root].flags |= qnx::pps::kValueOfAttribute;
  return true;
}

// Looks at the value of an attribute for the first time: from here on its node is like a JSON node.
// False without memory.
bool Resolve(pps_decoder_t* decoder, Node* node) {
  const char* const encoding = decoder->text + node->number;
  char* const value = decoder->text + node->text;
  node->kind = Kind::kUnknown;
  if (encoding[0] == '\0') {
    node->kind = Kind::kString;
  } else if (std::strcmp(encoding, "json") == 0) {
    return ResolveJson(decoder, node);
  } else if (std::strcmp(encoding, "c") == 0) {
    qnx::pps::UnescapeC(value);
    node->kind = Kind::kString;
  } else if (std::strcmp(encoding, "n") == 0) {
    const char* const end = qnx::pps::ScanNumber(value, true, node);
    if (end == nullptr || *end != '\0') node->kind = Kind::kUnknown;
  } else if (std::strcmp(encoding, "b") == 0) {
    const bool is_true = std::strcmp(value, "true") == 0;
    if (is_true || std::strcmp(value, "false") == 0) {
      node->kind = Kind::kBool;
      node->flags = is_true ? qnx::pps::kTrue : std::uint8_t{0};
    }
  }
  return true;
}

// A name that is looked for; without text it stands for the next member or element.
struct Name {
  const char* text;
  std::size_t length;
};

inline bool HasName(const pps_decoder_t* decoder, const Node& node, Name name) {
  if (node.name_length == 0) {
    return node.key != kNone && std::strcmp(decoder->text + node.key, name.text) == 0;
  }
  if (node.name_length != name.length) return false;
  const char* const own = decoder->text + node.key;
  return name.length <= kShortName ? qnx::pps::SameBytes(name.text, own, name.length)
                                   : std::memcmp(name.text, own, name.length) == 0;
}

// The first member of that name, wherever the last one was found.
Node* SearchMember(pps_decoder_t* decoder, Name name) {
  for (Node* node = decoder->level + 1; node != decoder->end; node += node->span) {
    if (!HasName(decoder, *node, name)) continue;
    if ((decoder->level->flags & qnx::pps::kDistinctNames) != 0) {
      decoder->likely = node + node->span;
    }
    return node;
  }
  return nullptr;
}

// A child of the current level, null when there is none.
Node* FindChild(pps_decoder_t* decoder, Name name) {
  if (name.text != nullptr) return SearchMember(decoder, name);
  return decoder->next == decoder->end ? nullptr : decoder->next;
}

// The value of an attribute, null without memory.
Node* AttributeValue(pps_decoder_t* decoder, Node* child) {
  const std::ptrdiff_t index = child - decoder->tape.nodes();
  if (child->kind == Kind::kAttribute && !Resolve(decoder, child)) return nullptr;
  child = decoder->tape.nodes() + index;
  return child->kind == Kind::kJsonAttribute ? decoder->tape.nodes() + child->number : child;
}

// The node of a child's value, null without memory. Nodes may move.
inline Node* ValueOf(pps_decoder_t* decoder, Node* child) {
  return child->kind < Kind::kAttribute ? child : AttributeValue(decoder, child);
}

__attribute__((noinline)) pps_decoder_error_t Enter(pps_decoder_t* decoder, Name name,
                                                    bool arrays_only) {
  Node* const child = FindChild(decoder, name);
  if (child == nullptr) return Fail(decoder, PPS_DECODER_NOT_FOUND);
  Node* const value = ValueOf(decoder, child);
  if (value == nullptr) return Fail(decoder, PPS_DECODER_NO_MEM);
  if (value->kind != Kind::kArray && (value->kind != Kind::kObject || arrays_only)) {
    return Fail(decoder, PPS_DECODER_BAD_TYPE);
  }
  StandAt(decoder, value, value + 1);
  return PPS_DECODER_OK;
}

// Finds a value and hands its node to `deliver`, which stores it or tells that it is of another
// type.
template <typename Deliver>
__attribute__((noinline)) pps_decoder_error_t Get(pps_decoder_t* decoder, Name name,
                                                  Deliver deliver) {
  Node* const child = FindChild(decoder, name);
  if (child == nullptr) return Fail(decoder, PPS_DECODER_NOT_FOUND);
  const Node* const value = ValueOf(decoder, child);
  if (value == nullptr) return Fail(decoder, PPS_DECODER_NO_MEM);
  if (!deliver(decoder, *value)) return Fail(decoder, PPS_DECODER_BAD_TYPE);
  if (name.text == nullptr) decoder->next += decoder->next->span;
  return PPS_DECODER_OK;
}

bool ToInt64(const Node& node, std::int64_t* value) {
  const std::uint64_t kMax = INT64_MAX;
  if (node.kind != Kind::kNumber || (node.flags & qnx::pps::kInteger) == 0) return false;
  if ((node.flags & qnx::pps::kNegative) == 0) {
    if (node.number > kMax) return false;
    *value = static_cast<std::int64_t>(node.number);
  } else {
    if (node.number > kMax + 1) return false;
    *value = node.number == 0 ? 0 : -static_cast<std::int64_t>(node.number - 1) - 1;
  }
  return true;
}

}  // namespace

pps_decoder_error_t pps_decoder_initialize(pps_decoder_t* decoder, char* text) {
  Clear(decoder, nullptr);
  decoder->status = PPS_DECODER_OK;
  return text == nullptr ? PPS_DECODER_OK : pps_decoder_parse_pps_str(decoder, text);
}

void pps_decoder_cleanup(pps_decoder_t* decoder) {
  decoder->tape.Release();
  Clear(decoder, nullptr);
}

pps_decoder_error_t pps_decoder_parse_pps_str(pps_decoder_t* decoder, char* text) {
  Clear(decoder, text);
  if (text == nullptr) return Fail(decoder, PPS_DECODER_PARSE_ERROR);
  const pps_decoder_error_t error = PpsReader(decoder).Run();
  if (error == PPS_DECODER_NO_MEM) Clear(decoder, text);
  return error == PPS_DECODER_OK ? error : Fail(decoder, error);
}

pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* text) {
  Clear(decoder, text);
  if (text == nullptr) return Fail(decoder, PPS_DECODER_PARSE_ERROR);
  char* const end = text + std::strlen(text);
  if (!qnx::pps::FitsOffsets(text, end)) return Fail(decoder, PPS_DECODER_NO_MEM);
  const Parsed parsed = qnx::pps::ParseJson(&decoder->tape, text, text, end, kRoot);
  if (parsed != Parsed::kWell) {
    Clear(decoder, text);  // the nodes may have moved
    return Fail(decoder,
                parsed == Parsed::kNoMemory ? PPS_DECODER_NO_MEM : PPS_DECODER_PARSE_ERROR);
  }
  decoder->tape[kRoot].number = 1;
  FinishRoot(decoder);
  return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_push_named(pps_decoder_t* decoder, const char* name,
                                           std::size_t length, bool arrays_only) {
  if (name == nullptr && decoder->next != decoder->end && decoder->next->kind == Kind::kObject &&
      !arrays_only) {
    StandAt(decoder, decoder->next, decoder->next + 1);
    return PPS_DECODER_OK;
  }
  return Enter(decoder, {name, length}, arrays_only);
}

pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder) {
  Node* const nodes = decoder->tape.nodes();
  Node* left = decoder->level;
  if (left == nodes) return Fail(decoder, PPS_DECODER_POP_AT_ROOT);
  Node* const parent = nodes + left->text;
  if ((left->flags & qnx::pps::kValueOfAttribute) != 0) left = nodes + left->key;
  StandAt(decoder, parent, left + left->span);
  return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_get_int_named(pps_decoder_t* decoder, const char* name,
                                              std::size_t length, int* value) {
  return Get(decoder, {name, length}, [value](pps_decoder_t*, const Node& found) {
    std::int64_t wide;
    if (!ToInt64(found, &wide) || wide < INT_MIN || wide > INT_MAX) return false;
    *value = static_cast<int>(wide);
    return true;
  });
}

pps_decoder_error_t pps_decoder_get_int64_named(pps_decoder_t* decoder, const char* name,
                                                std::size_t length, std::int64_t* value) {
  return Get(decoder, {name, length},
             [value](pps_decoder_t*, const Node& found) { return ToInt64(found, value); });
}

pps_decoder_error_t pps_decoder_get_double_named(pps_decoder_t* decoder, const char* name,
                                                 std::size_t length, double* value) {
  return Get(decoder, {name, length}, [value](pps_decoder_t* d, const Node& found) {
    return found.kind == Kind::kNumber && qnx::pps::ToDouble(found, d->text + found.text, value);
  });
}

pps_decoder_error_t pps_decoder_get_bool_named(pps_decoder_t* decoder, const char* name,
                                               std::size_t length, bool* value) {
  return Get(decoder, {name, length}, [value](pps_decoder_t*, const Node& found) {
    if (found.kind != Kind::kBool) return false;
    *value = (found.flags & qnx::pps::kTrue) != 0;
    return true;
  });
}

pps_decoder_error_t pps_decoder_get_string_named(pps_decoder_t* decoder, const char* name,
                                                 std::size_t length, const char** value) {
  return Get(decoder, {name, length}, [value](pps_decoder_t* d, const Node& found) {
    if (found.kind != Kind::kString) return false;
    *value = d->text + found.text;
    return true;
  });
}

pps_node_type_t pps_decoder_type_named(pps_decoder_t* decoder, const char* name,
                                       std::size_t length) {
  Node* const child = FindChild(decoder, {name, length});
  if (child == nullptr) return PPS_TYPE_NONE;
  const Node* const value = ValueOf(decoder, child);
  return value == nullptr ? PPS_TYPE_UNKNOWN : static_cast<pps_node_type_t>(value->kind);
}

pps_decoder_error_t pps_decoder_next(pps_decoder_t* decoder) {
  if (decoder->next == decoder->end) return PPS_DECODER_NOT_FOUND;
  decoder->next += decoder->next->span;
  return PPS_DECODER_OK;
}

const char* pps_decoder_name(pps_decoder_t* decoder) {
  if (decoder->next == decoder->end) return nullptr;
  const Node& node = *decoder->next;
  if (node.key == kNone) return nullptr;
  char* const name = decoder->text + node.key;
  if (node.name_length != 0) name[node.name_length] = '\0';
  return name;
}

int pps_decoder_length(pps_decoder_t* decoder) {
  const std::uint64_t children = decoder->level->number;
  return children < INT_MAX ? static_cast<int>(children) : INT_MAX;
}

pps_decoder_error_t pps_decoder_status(pps_decoder_t* decoder, bool clear) {
  const pps_decoder_error_t status = decoder->status;
  if (clear) decoder->status = PPS_DECODER_OK;
  return status;
}
