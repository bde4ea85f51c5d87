#include <pps.h>

#include <climits>
#include <cstring>
#include <new>

#include "pps_tape.h"

using platform::pps::Kind;
using platform::pps::kNone;
using platform::pps::Line;
using platform::pps::Node;
using platform::pps::Parsed;
using platform::pps::Tape;

// Node 0 is the root: its children are the objects of the PPS text, or the JSON value.
struct pps_decoder {
  Tape tape;
  char* text = nullptr;
  std::uint32_t level = 0;  // the container that was entered
  std::uint32_t next = 1;   // its next child, or its end
  pps_decoder_error_t status = PPS_DECODER_OK;
};

namespace {

const std::uint32_t kRoot = 0;

pps_decoder_error_t Fail(pps_decoder* state, pps_decoder_error_t error) {
  if (state->status == PPS_DECODER_OK) state->status = error;
  return error;
}

void SetContainer(Node* node, Kind kind, std::uint32_t key, std::uint32_t parent) {
  node->key = key;
  node->next = 0;
  node->text = parent;
  node->kind = kind;
  node->flags = 0;
  node->exponent = 0;
  node->number = 0;
}

// Forgets what was parsed: a root without children.
void Clear(pps_decoder* state, char* text) {
  state->text = text;
  state->level = kRoot;
  state->next = 1;
  SetContainer(&state->tape[kRoot], Kind::kArray, kNone, kRoot);
  state->tape[kRoot].next = 1;
  state->tape.Resize(1);
}

// --- PPS text
// -----------------------------------------------------------------------------------------

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
    if (object_ == kRoot && !Open(nullptr)) return PPS_DECODER_NO_MEM;
    Close();
    state_->tape[kRoot].next = state_->tape.size();
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
    SetContainer(&state_->tape[index], Kind::kObject, Offset(name), kRoot);
    object_ = index;
    ++state_->tape[kRoot].number;
    return true;
  }

  void Close() {
    if (object_ != kRoot) state_->tape[object_].next = state_->tape.size();
  }

  bool Attribute(const Line& line) {
    const std::uint32_t index = Append();
    if (index == kNone) return false;
    Node* const node = &state_->tape[index];
    node->key = Offset(line.name);
    node->next = index + 1;
    node->text = Offset(line.value);
    node->kind = Kind::kAttribute;
    node->flags = 0;
    node->exponent = 0;
    node->number = Offset(line.encoding);
    ++state_->tape[object_].number;
    return true;
  }

  std::uint32_t Append() {
    Tape& tape = state_->tape;
    if (tape.size() == tape.capacity() && !tape.Grow()) return kNone;
    tape.Resize(tape.size() + 1);
    return tape.size() - 1;
  }

  std::uint32_t Offset(const char* p) const {
    return p == nullptr ? kNone : static_cast<std::uint32_t>(p - state_->text);
  }

  pps_decoder* const state_;
  std::uint32_t object_ = kRoot;  // the object whose attributes are read; the root stands for none
};

// --- values
// -------------------------------------------------------------------------------------------

// Parses the value of a json attribute of the current level.
pps_decoder_error_t ResolveJson(pps_decoder* state, std::uint32_t index) {
  Tape& tape = state->tape;
  char* const value = state->text + tape[index].text;
  const std::uint32_t root = tape.size();
  const Parsed parsed =
      platform::pps::ParseJson(&tape, state->text, value, value + std::strlen(value), state->level);
  Node& node = tape[index];
  if (parsed != Parsed::kWell) {
    node.kind = Kind::kUnknown;
    return parsed == Parsed::kNoMemory ? PPS_DECODER_NO_MEM : PPS_DECODER_OK;
  }
  node.kind = Kind::kJsonAttribute;
  node.number = root;
  tape[root].key = index;
  tape[root].flags |= platform::pps::kValueOfAttribute;
  return PPS_DECODER_OK;
}

// Looks at the value of an attribute for the first time: from here on its node is like a JSON node.
pps_decoder_error_t Resolve(pps_decoder* state, std::uint32_t index) {
  Node& node = state->tape[index];
  const char* const encoding = state->text + node.number;
  char* const value = state->text + node.text;
  node.kind = Kind::kUnknown;
  if (encoding[0] == '\0') {
    node.kind = Kind::kString;
  } else if (std::strcmp(encoding, "json") == 0) {
    return ResolveJson(state, index);
  } else if (std::strcmp(encoding, "c") == 0) {
    platform::pps::UnescapeC(value);
    node.kind = Kind::kString;
  } else if (std::strcmp(encoding, "n") == 0) {
    const char* const end = platform::pps::ScanNumber(value, true, &node);
    if (end == nullptr || *end != '\0') node.kind = Kind::kUnknown;
  } else if (std::strcmp(encoding, "b") == 0) {
    const bool is_true = std::strcmp(value, "true") == 0;
    if (is_true || std::strcmp(value, "false") == 0) {
      node.kind = Kind::kBool;
      node.flags = is_true ? platform::pps::kTrue : std::uint8_t{0};
    }
  }
  return PPS_DECODER_OK;
}

// The node of a child of the current level, kNone when there is none.
std::uint32_t FindChild(pps_decoder* state, const char* name) {
  Tape& tape = state->tape;
  const std::uint32_t end = tape[state->level].next;
  if (name == nullptr) return state->next == end ? kNone : state->next;
  for (std::uint32_t i = state->level + 1; i != end; i = tape[i].next) {
    if (tape[i].key != kNone && std::strcmp(state->text + tape[i].key, name) == 0) return i;
  }
  return kNone;
}

// A child and the node of its value; these differ for json attributes.
struct Found {
  pps_decoder_error_t error;
  std::uint32_t child;
  std::uint32_t value;
};

Found Find(pps_decoder* state, const char* name) {
  const std::uint32_t child = FindChild(state, name);
  if (child == kNone) return {PPS_DECODER_NOT_FOUND, child, child};
  if (state->tape[child].kind == Kind::kAttribute) {
    const pps_decoder_error_t error = Resolve(state, child);
    if (error != PPS_DECODER_OK) return {error, child, child};
  }
  const Node& node = state->tape[child];
  if (node.kind != Kind::kJsonAttribute) return {PPS_DECODER_OK, child, child};
  return {PPS_DECODER_OK, child, static_cast<std::uint32_t>(node.number)};
}

pps_decoder_error_t Enter(pps_decoder_t* decoder, const char* name, bool arrays_only) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  const Found found = Find(state, name);
  if (found.error != PPS_DECODER_OK) return Fail(state, found.error);
  const Kind kind = state->tape[found.value].kind;
  if (kind != Kind::kArray && (kind != Kind::kObject || arrays_only)) {
    return Fail(state, PPS_DECODER_BAD_TYPE);
  }
  state->level = found.value;
  state->next = found.value + 1;
  return PPS_DECODER_OK;
}

// Finds a value and hands its node to `deliver`, which stores it or tells that it is of another
// type.
template <typename Deliver>
pps_decoder_error_t Get(pps_decoder_t* decoder, const char* name, Deliver deliver) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  const Found found = Find(state, name);
  if (found.error != PPS_DECODER_OK) return Fail(state, found.error);
  if (!deliver(state, state->tape[found.value])) return Fail(state, PPS_DECODER_BAD_TYPE);
  if (name == nullptr) state->next = state->tape[found.child].next;
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

// Prepares the state for a new text and hands out its length; texts whose places do not fit an
// offset are refused.
pps_decoder_error_t Begin(pps_decoder* state, char* text, std::size_t* length) {
  Clear(state, text);
  if (text == nullptr) return PPS_DECODER_PARSE_ERROR;
  *length = std::strlen(text);
  return *length < kNone ? PPS_DECODER_OK : PPS_DECODER_NO_MEM;
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
  std::size_t length;
  pps_decoder_error_t error = Begin(state, text, &length);
  if (error == PPS_DECODER_OK) {
    error = PpsReader(state).Run();
    if (error == PPS_DECODER_NO_MEM) Clear(state, text);
  }
  return error == PPS_DECODER_OK ? error : Fail(state, error);
}

pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* text) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  std::size_t length;
  const pps_decoder_error_t error = Begin(state, text, &length);
  if (error != PPS_DECODER_OK) return Fail(state, error);
  const Parsed parsed = platform::pps::ParseJson(&state->tape, text, text, text + length, kRoot);
  if (parsed == Parsed::kNoMemory) return Fail(state, PPS_DECODER_NO_MEM);
  if (parsed == Parsed::kMalformed) return Fail(state, PPS_DECODER_PARSE_ERROR);
  state->tape[kRoot].next = state->tape.size();
  state->tape[kRoot].number = 1;
  return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_push(pps_decoder_t* decoder, const char* name) {
  return Enter(decoder, name, false);
}

pps_decoder_error_t pps_decoder_push_array(pps_decoder_t* decoder, const char* name) {
  return Enter(decoder, name, true);
}

pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  if (state->level == kRoot) return Fail(state, PPS_DECODER_POP_AT_ROOT);
  const Node& left = state->tape[state->level];
  const bool of_attribute = (left.flags & platform::pps::kValueOfAttribute) != 0;
  state->next = of_attribute ? state->tape[left.key].next : left.next;
  state->level = left.text;
  return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_get_int(pps_decoder_t* decoder, const char* name, int* value) {
  return Get(decoder, name, [value](pps_decoder*, const Node& node) {
    std::int64_t wide;
    if (!ToInt64(node, &wide) || wide < INT_MIN || wide > INT_MAX) return false;
    *value = static_cast<int>(wide);
    return true;
  });
}

pps_decoder_error_t pps_decoder_get_int64(pps_decoder_t* decoder, const char* name,
                                          std::int64_t* value) {
  return Get(decoder, name,
             [value](pps_decoder*, const Node& node) { return ToInt64(node, value); });
}

pps_decoder_error_t pps_decoder_get_double(pps_decoder_t* decoder, const char* name,
                                           double* value) {
  return Get(decoder, name, [value](pps_decoder* state, const Node& node) {
    return node.kind == Kind::kNumber &&
           platform::pps::ToDouble(node, state->text + node.text, value);
  });
}

pps_decoder_error_t pps_decoder_get_bool(pps_decoder_t* decoder, const char* name, bool* value) {
  return Get(decoder, name, [value](pps_decoder*, const Node& node) {
    if (node.kind != Kind::kBool) return false;
    *value = (node.flags & platform::pps::kTrue) != 0;
    return true;
  });
}

pps_decoder_error_t pps_decoder_get_string(pps_decoder_t* decoder, const char* name,
                                           const char** value) {
  return Get(decoder, name, [value](pps_decoder* state, const Node& node) {
    if (node.kind != Kind::kString) return false;
    *value = state->text + node.text;
    return true;
  });
}

pps_node_type_t pps_decoder_type(pps_decoder_t* decoder, const char* name) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_TYPE_NONE;
  const Found found = Find(state, name);
  if (found.child == kNone) return PPS_TYPE_NONE;
  return static_cast<pps_node_type_t>(state->tape[found.value].kind);
}

pps_decoder_error_t pps_decoder_next(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  const std::uint32_t child = FindChild(state, nullptr);
  if (child == kNone) return PPS_DECODER_NOT_FOUND;
  state->next = state->tape[child].next;
  return PPS_DECODER_OK;
}

const char* pps_decoder_name(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return nullptr;
  const std::uint32_t child = FindChild(state, nullptr);
  if (child == kNone || state->tape[child].key == kNone) return nullptr;
  return state->text + state->tape[child].key;
}

int pps_decoder_length(pps_decoder_t* decoder) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return 0;
  const std::uint64_t children = state->tape[state->level].number;
  return children < INT_MAX ? static_cast<int>(children) : INT_MAX;
}

pps_decoder_error_t pps_decoder_status(pps_decoder_t* decoder, bool clear) {
  pps_decoder* const state = decoder->state;
  if (state == nullptr) return PPS_DECODER_NO_MEM;
  const pps_decoder_error_t status = state->status;
  if (clear) state->status = PPS_DECODER_OK;
  return status;
}
