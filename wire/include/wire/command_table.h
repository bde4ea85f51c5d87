// The table of commands: a row for each thing that the service can be asked or told, with its
// numbers, the words for it, its parameters and its reply. The station's commands, help and
// completion, the packet dissector, the lists of the manual and of docs/protocol.md and the soak's
// requests come from it; commands/ATCmdTable.cpp says which class carries out a number.
//
// All rows are constant data; every pointer lives as long as the program.
#ifndef KORVANDIS_WIRE_COMMAND_TABLE_H
#define KORVANDIS_WIRE_COMMAND_TABLE_H

#include <cstddef>
#include <cstdint>

namespace wire {

// A byte and the word for it. A list of them ends with a null word.
struct Choice {
  const char* word;
  std::uint8_t value;
};

enum class ParameterKind {
  kNone,
  kText,    // `low` to `high` bytes, to the end of the parameters
  kMac,     // six bytes
  kByte,    // a number from `low` to `high`, one byte
  kNumber,  // a number from `low` to `high`, two bytes, high byte first
  kChoice,  // one of `choices`, one byte
};

struct ParameterSpec {
  const char* name;  // as help shows it
  ParameterKind kind;
  unsigned low;
  unsigned high;
  const Choice* choices;  // of kChoice, otherwise null
};

// The meaning of the data bytes of a reply.
enum class ReplyKind {
  kNone,        // the service does not answer
  kText,        // all bytes
  kIdentity,    // a text, zero bytes behind it
  kMac,         // six bytes
  kChoice,      // one byte, one of `choices`
  kVerdict,     // the same; 0 says that the chip is not the expected one
  kByte,        // a number from 0 to `high`
  kNumberPair,  // two numbers of two bytes, high byte first: folder and track
  kSatellites,  // count, then for each satellite: id, C/N0 in 24 bits, high byte first
  kPosition,    // longitude and latitude: IEEE 754 doubles, little-endian
  kSpeed,       // a number as text, zero bytes up to kFixedTextSize
  kAngle,       // a text, zero bytes up to kFixedTextSize
};

const std::size_t kMacSize = 6;
const std::size_t kFixedTextSize = 78;

struct ReplySpec {
  ReplyKind kind;
  const char* field;  // name of the value; null for the kinds that have several or none
  const Choice* choices;
  unsigned high;
  // The value, as a text, that the service also answers when it cannot read the real one; such an
  // answer proves no write. Null when the two differ.
  const char* unreadable;
};

const int kNoSelector = -1;
const std::size_t kMostParameters = 2;

// One row. Rows may share their words (a question and the write that sets what it asks for) or
// their numbers (a write for each value of `selector`), not both.
struct CommandSpec {
  std::uint8_t command;
  std::uint8_t sub_command;
  int selector;       // first parameter byte of every request, kNoSelector when there is none
  const char* words;  // as the station takes them: "bt name"
  ParameterSpec parameters[kMostParameters];  // behind the selector; the first kNone ends them
  ReplySpec reply;
  const char* help;
};

// kCommandCount rows, rows of a command number together.
extern const CommandSpec kCommands[];
extern const std::size_t kCommandCount;

// The name of a command number, null when no row has it.
const char* CommandName(std::uint8_t command);

}  // namespace wire

#endif  // KORVANDIS_WIRE_COMMAND_TABLE_H
