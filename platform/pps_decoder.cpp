#include <pps.h>

#include <climits>
#include <cstring>
#include <new>

#include "pps_line.h"
#include "pps_tape.h"

using platform::pps::Kind;
using platform::pps::kNone;
using platform::pps::kShortName;
using platform::pps::Line;
using platform::pps::Node;
using platform::pps::Parsed;
using platform::pps::Tape;

// Node 0 is the root: its children are the objects of the PPS text, or the JSON value.
struct pps_decoder {
  Tape tape;
  char* text = nullptr;
  Node* level = nullptr;   // the container that was entered
  Node* end = nullptr;     // the end of its children
  Node* next = nullptr;    // its next child, or its end
  Node* likely = nullptr;  // behind the member found last: mostly the next one to be looked for
  pps_decoder_error_t status = PPS_DECODER_OK;
};

namespace {

const std::uint32_t kRoot = 0;

pps_decoder_error_t Fail(pps_decoder* state, pps_decoder_error_t error) {
  if (state->status == PPS_DECODER_OK) state->status = error;
  return error;
}

// Stands in a container, at one of its children or their end.
inline void StandAt(pps_decoder* state, Node* level, Node* next) {
  state->level = level;
  state->end = level + level->span;
  state->next = next;
  state->likely = (level->flags & platform::pps::kDistinctNames) != 0 ? next : state->end;
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
void Clear(pps_decoder* state, char* text) {
  Node* const root = state->tape.nodes();
  state->text = text;
  state->tape.Resize(1);
  SetContainer(root, Kind::kArray, kNone);
  StandAt(state, root, root + 1);
}

// Ends the root behind the last node, and stands at its first child.
void FinishRoot(pps_decoder* state) {
  Node* const root = state->tape.nodes();
  root->span = state->tape.size();
  StandAt(state, root, root + 1);
}

// --- PPS text ------------------------------------------------------------------------------------

// Builds the nodes of the objects and their attributes, line by line.
class PpsReader {
 public:
  explicit PpsReader(pps_decoder* state) : state_(state) {}

  pps_decoder_error_t Run() {
    char* p = state_->text;
    pps_decoder_error_t result = PPS_DECODER_OK;
    for (;;) {
      const Line line = platform::pps::TakeLine(&p);
      if (line.status == PPS_END) break;
      if (line.status == PPS_ERROR && !line.cut) result = PPS_DECODER_PARSE_ERROR;
      if (!Take(line)) return PPS_DECODER_NO_MEM;
    }
    if (!platform::pps::FitsOffsets(state_->text, p)) return PPS_DECODER_NO_MEM;
    if (object_ == kRoot && !Open(nullptr)) return PPS_DECODER_NO_MEM;
    Close();
    FinishRoot(state_);
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
    SetContainer(&state_->tape[index], Kind::kObject, Offset(name));
    object_ = index;
    ++state_->tape[kRoot].number;
    return true;
  }

  void Close() {
    if (object_ == kRoot) return;
    Node* const object = &state_->tape[object_];
    object->span = state_->tape.size() - object_;
    object->number = object->span - 1;
  }

  bool Attribute(const Line& line) {
    const std::uint32_t index = Append();
    if (index == kNone) return false;
    Node* const node = &state_->tape[index];
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
    Tape& tape = state_->tape;
    if (tape.size() == tape.capacity() && !tape.Grow(tape.size())) return kNone;
    tape.Resize(tape.size() + 1);
    return tape.size() - 1;
  }

  std::uint32_t Offset(const char* p) const {
    return p == nullptr ? kNone : static_cast<std::uint32_t>(p - state_->text);
  }

  pps_decoder* const state_;
  std::uint32_t object_ = kRoot;  // the object whose attributes are read; the root stands for none
};

// --- values --------------------------------------------------------------------------------------

// Parses the value of a json attribute of the current level; false without memory. Nodes may move.
bool ResolveJson(pps_decoder* state, Node* node) {
  Tape& tape = state->tape;
  Node* const before = tape.nodes();
  const std::uint32_t attribute = static_cast<std::uint32_t>(node - before);
  const std::uint32_t level = static_cast<std::uint32_t>(state->level - before);
  const std::ptrdiff_t next = state->next - before;
  const std::uint32_t root = tape.size();
  char* const value = state->text + node->text;
  const Parsed parsed =
      platform::pps::ParseJson(&tape, state->text, value, value + std::strlen(value), level);
  StandAt(state, &tape[level], tape.nodes() + next);
  node = &tape[attribute];
  if (parsed != Parsed::kWell) {
    node->kind = Kind::kUnknown;
    return parsed != Parsed::kNoMemory;
  }
  node->kind = Kind::kJsonAttribute;
  node->number = root;
  tape[root].key = attribute;
  tape[root].flags |= platform::pps::kValueOfAttribute;
  return true;
}

// Looks at the value of an attribute for the first time: from here on its node is like a JSON node.
// False without memory.
bool Resolve(pps_decoder* state, Node* node) {
  const char* const encoding = state->text + node->number;
  char* const value = state->text + node->text;
  node->kind = Kind::kUnknown;
  if (encoding[0] == '\0') {
    node->kind = Kind::kString;
  } else if (std::strcmp(encoding, "json") == 0) {
    return ResolveJson(state, node);
  } else if (std::strcmp(encoding, "c") == 0) {
    platform::pps::UnescapeC(value);
    node->kind = Kind::kString;
  } else if (std::strcmp(encoding, "n") == 0) {
    const char* const end = platform::pps::ScanNumber(value, true, node);
    if (end == nullptr || *end != '\0') node->kind = Kind::kUnknown;
  } else if (std::strcmp(encoding, "b") == 0) {
    const bool is_true = std::strcmp(value, "true") == 0;
    if (is_true || std::strcmp(value, "false") == 0) {
      node->kind = Kind::kBool;
      node->flags = is_true ? platform::pps::kTrue : std::uint8_t{0};
    }
  }
  return true;
}

// A name that is looked for; without text it stands for the next member or element.
struct Name {
  const char* text;
  std::size_t length;
};

// Whether the `length` bytes at a and b, 1 to kShortName of them, are the same.
inline bool SameBytes(const char* a, const char* b, std::size_t length) {
  using platform::pps::LoadEight;
  using platform::pps::LoadFour;
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

inline bool HasName(const pps_decoder* state, const Node& node, Name name) {
  if (node.name_length == 0) {
    return node.key != kNone && std::strcmp(state->text + node.key, name.text) == 0;
  }
  if (node.name_length != name.length) return false;
  const char* const own = state->text + node.key;
  return name.length <= kShortName ? SameBytes(name.text, own, name.length)
                                   : std::memcmp(name.text, own, name.length) == 0;
}

// The first member of that name, wherever the last one was found.
Node* SearchMember(pps_decoder* state, Name name) {
  for (Node* node = state->level + 1; node != state->end; node += node->span) {
    if (!HasName(state, *node, name)) continue;
    if ((state->level->flags & platform::pps::kDistinctNames) != 0) {
      state->likely = node + node->span;
    }
    return node;
  }
  return nullptr;
}

// The member behind the one found last when it has that name, else null. It settles the common
// case, in which members are read in their order: where all names are different, none before it has
// that name. When it is taken, the caller goes on with Pass.
inline const Node* LikelyMember(const pps_decoder_t* decoder, Name name) {
  const pps_decoder* const state = decoder->state;
  if (state == nullptr || state->likely == state->end) return nullptr;
  const Node* const node = state->likely;
  if (node->name_length != name.length) return nullptr;
  return SameBytes(name.text, state->text + node->key, name.length) ? node : nullptr;
}

// Goes on behind a likely member that is a scalar.
inline pps_decoder_error_t Pass(pps_decoder_t* decoder) {
  ++decoder->state->likely;
  return PPS_DECODER_OK;
}

// A child of the current level, null when there is none.
Node* FindChild(pps_decoder* state, Name name) {
  if (name.text != nullptr) return SearchMember(state, name);
  return state->next == state->end ? nullptr : state->next;
}

// The value of an attribute, null without memory.
Node* AttributeValue(pps_decoder* state, Node* child) {
  const std::ptrdiff_t index = child - state->tape.nodes();
  if (child->kind == Kind::kAttribute && !Resolve(state, child)) return nullptr;
  child = state->tape.nodes() + index;
  return child->kind == Kind::kJsonAttribute ? state->tape.nodes() + child->number : child;
}

// The node of a child's value, null without memory. Nodes may move.
inline Node* ValueOf(pps_decoder* state, Node* child) {
  return child->kind < Kind::kAttribute ? child : AttributeValue(state, child);
}

__attribute__((noinline)) pps_decoder_error_t Enter(pps_decoder_t* decoder, Name name,
                                                    bool arrays_only) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  Node* const child = FindChild(state, name);
  if (child == nullptr) return Fail(state, PPS_DECODER_NOT_FOUND);
  Node* const value = ValueOf(state, child);
  if (value == nullptr) return Fail(state, PPS_DECODER_NO_MEM);
  if (value->kind != Kind::kArray && (value->kind != Kind::kObject || arrays_only)) {
    return Fail(state, PPS_DECODER_BAD_TYPE);
  }
  StandAt(state, value, value + 1);
  return PPS_DECODER_OK;
}

// Finds a value and hands its node to `deliver`, which stores it or tells that it is of another
// type.
template <typename Deliver>
__attribute__((noinline)) pps_decoder_error_t Get(pps_decoder_t* decoder, Name name,
                                                  Deliver deliver) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  Node* const child = FindChild(state, name);
  if (child == nullptr) return Fail(state, PPS_DECODER_NOT_FOUND);
  const Node* const value = ValueOf(state, child);
  if (value == nullptr) return Fail(state, PPS_DECODER_NO_MEM);
  if (!deliver(state, *value)) return Fail(state, PPS_DECODER_BAD_TYPE);
  if (name.text == nullptr) state->next += state->next->span;
  return PPS_DECODER_OK;
}

bool ToInt64(const Node& node, std::int64_t* value) {
  const std::uint64_t kMax = INT64_MAX;
  if (node.kind != Kind::kNumber || (node.flags & platform::pps::kInteger) == 0) return false;
  if ((node.flags & platform::pps::kNegative) == 0) {
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
  decoder->state = new (std::nothrow) pps_decoder;
  if (decoder->state == nullptr) return PPS_DECODER_NO_MEM;
  Clear(decoder->state, nullptr);
  return text == nullptr ? PPS_DECODER_OK : pps_decoder_parse_pps_str(decoder, text);
}

void pps_decoder_cleanup(pps_decoder_t* decoder) {
  delete decoder->state;
  decoder->state = nullptr;
}

pps_decoder_error_t pps_decoder_parse_pps_str(pps_decoder_t* decoder, char* text) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  Clear(state, text);
  if (text == nullptr) return Fail(state, PPS_DECODER_PARSE_ERROR);
  const pps_decoder_error_t error = PpsReader(state).Run();
  if (error == PPS_DECODER_NO_MEM) Clear(state, text);
  return error == PPS_DECODER_OK ? error : Fail(state, error);
}

pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* text) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  Clear(state, text);
  if (text == nullptr) return Fail(state, PPS_DECODER_PARSE_ERROR);
  char* const end = text + std::strlen(text);
  if (!platform::pps::FitsOffsets(text, end)) return Fail(state, PPS_DECODER_NO_MEM);
  const Parsed parsed = platform::pps::ParseJson(&state->tape, text, text, end, kRoot);
  if (parsed != Parsed::kWell) {
    Clear(state, text);  // the nodes may have moved
    return Fail(state, parsed == Parsed::kNoMemory ? PPS_DECODER_NO_MEM : PPS_DECODER_PARSE_ERROR);
  }
  state->tape[kRoot].number = 1;
  FinishRoot(state);
  return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_push_named(pps_decoder_t* decoder, const char* name,
                                           std::size_t length, bool arrays_only) {
  pps_decoder* const state = decoder->state;
  if (name == nullptr && state != nullptr && state->next != state->end &&
      state->next->kind == Kind::kObject && !arrays_only) {
    StandAt(state, state->next, state->next + 1);
    return PPS_DECODER_OK;
  }
  return Enter(decoder, {name, length}, arrays_only);
}

pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  Node* const nodes = state->tape.nodes();
  Node* left = state->level;
  if (left == nodes) return Fail(state, PPS_DECODER_POP_AT_ROOT);
  Node* const parent = nodes + left->text;
  if ((left->flags & platform::pps::kValueOfAttribute) != 0) left = nodes + left->key;
  StandAt(state, parent, left + left->span);
  return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_get_int_named(pps_decoder_t* decoder, const char* name,
                                              std::size_t length, int* value) {
  const Node* const node = LikelyMember(decoder, {name, length});
  if (node != nullptr && (node->flags & platform::pps::kShort) != 0) {
    *value = static_cast<int>(node->number);
    return Pass(decoder);
  }
  return Get(decoder, {name, length}, [value](pps_decoder*, const Node& found) {
    std::int64_t wide;
    if (!ToInt64(found, &wide) || wide < INT_MIN || wide > INT_MAX) return false;
    *value = static_cast<int>(wide);
    return true;
  });
}

pps_decoder_error_t pps_decoder_get_int64_named(pps_decoder_t* decoder, const char* name,
                                                std::size_t length, std::int64_t* value) {
  return Get(decoder, {name, length},
             [value](pps_decoder*, const Node& found) { return ToInt64(found, value); });
}

pps_decoder_error_t pps_decoder_get_double_named(pps_decoder_t* decoder, const char* name,
                                                 std::size_t length, double* value) {
  const Node* const node = LikelyMember(decoder, {name, length});
  if (node != nullptr && (node->flags & platform::pps::kQuotient) != 0) {
    *value = platform::pps::Quotient(*node);
    return Pass(decoder);
  }
  return Get(decoder, {name, length}, [value](pps_decoder* state, const Node& found) {
    return found.kind == Kind::kNumber &&
           platform::pps::ToDouble(found, state->text + found.text, value);
  });
}

pps_decoder_error_t pps_decoder_get_bool_named(pps_decoder_t* decoder, const char* name,
                                               std::size_t length, bool* value) {
  const Node* const node = LikelyMember(decoder, {name, length});
  if (node != nullptr && node->kind == Kind::kBool) {
    *value = (node->flags & platform::pps::kTrue) != 0;
    return Pass(decoder);
  }
  return Get(decoder, {name, length}, [value](pps_decoder*, const Node& found) {
    if (found.kind != Kind::kBool) return false;
    *value = (found.flags & platform::pps::kTrue) != 0;
    return true;
  });
}

pps_decoder_error_t pps_decoder_get_string_named(pps_decoder_t* decoder, const char* name,
                                                 std::size_t length, const char** value) {
  return Get(decoder, {name, length}, [value](pps_decoder* state, const Node& found) {
    if (found.kind != Kind::kString) return false;
    *value = state->text + found.text;
    return true;
  });
}

pps_node_type_t pps_decoder_type_named(pps_decoder_t* decoder, const char* name,
                                       std::size_t length) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_TYPE_NONE;
  Node* const child = FindChild(state, {name, length});
  if (child == nullptr) return PPS_TYPE_NONE;
  const Node* const value = ValueOf(state, child);
  return value == nullptr ? PPS_TYPE_UNKNOWN : static_cast<pps_node_type_t>(value->kind);
}

pps_decoder_error_t pps_decoder_next(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  if (state->next == state->end) return PPS_DECODER_NOT_FOUND;
  state->next += state->next->span;
  return PPS_DECODER_OK;
}

const char* pps_decoder_name(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr || state->next == state->end) return nullptr;
  const Node& node = *state->next;
  if (node.key == kNone) return nullptr;
  char* const name = state->text + node.key;
  if (node.name_length != 0) name[node.name_length] = '\0';
  return name;
}

int pps_decoder_length(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return 0;
  const std::uint64_t children = state->level->number;
  return children < INT_MAX ? static_cast<int>(children) : INT_MAX;
}

pps_decoder_error_t pps_decoder_status(pps_decoder_t* decoder, bool clear) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  const pps_decoder_error_t status = state->status;
  if (clear) state->status = PPS_DECODER_OK;
  return status;
}
