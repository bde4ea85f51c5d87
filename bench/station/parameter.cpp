#include "station/parameter.h"

#include <algorithm>

#include "qnx/text.h"
#include "wire/hex.h"

namespace station {
namespace {

using Kind = Parameter::Kind;

bool HasHexMark(const std::string& text) {
  return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

// One or two digits, with or without 0x.
bool ParseHexByte(const std::string& text, std::uint8_t* value) {
  const std::string digits = HasHexMark(text) ? text.substr(2) : text;
  unsigned number = 0;
  if (digits.size() > 2 || !qnx::ParseNumber(digits, 0, 255, &number, 16)) return false;
  *value = static_cast<std::uint8_t>(number);
  return true;
}

// Six fields of two digits, ':' or '-' between them.
bool ParseMac(const std::string& text, Bytes* mac) {
  if (text.size() != wire::kMacSize * 3 - 1) return false;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    const int byte = wire::HexByteValue(&text[i]);
    if (byte < 0) return false;
    if (i > 0 && text[i - 1] != ':' && text[i - 1] != '-') return false;
    mac->push_back(static_cast<std::uint8_t>(byte));
  }
  return true;
}

// Decimal, or hexadecimal with 0x.
bool ParseUnsigned(const Parameter& parameter, const std::string& text, unsigned* number) {
  const bool hex = HasHexMark(text);
  return qnx::ParseNumber(hex ? text.substr(2) : text, parameter.low, parameter.high, number,
                          hex ? 16 : 10);
}

}  // namespace

std::string WordList(const wire::Choice* choices) {
  std::string list;
  for (; choices->word != nullptr; ++choices) {
    list += (list.empty() ? "" : ", ") + std::string(choices->word);
  }
  return list;
}

Parameter MakeParameter(const wire::ParameterSpec& spec) {
  Kind kind = Kind::kText;
  switch (spec.kind) {
    case wire::ParameterKind::kNone:
    case wire::ParameterKind::kText:
      break;
    case wire::ParameterKind::kMac:
      kind = Kind::kMac;
      break;
    case wire::ParameterKind::kByte:
      kind = Kind::kByte;
      break;
    case wire::ParameterKind::kNumber:
      kind = Kind::kNumber;
      break;
    case wire::ParameterKind::kChoice:
      kind = Kind::kChoice;
      break;
  }
  return Parameter{spec.name, kind, spec.low, spec.high, spec.choices};
}

std::string DescribeParameter(const Parameter& parameter) {
  const std::string high = std::to_string(parameter.high);
  const std::string range = " from " + std::to_string(parameter.low) + " to " + high;
  switch (parameter.kind) {
    case Kind::kText:
      return "a text of up to " + high + " bytes";
    case Kind::kMac:
      return "a MAC address";
    case Kind::kByte:
    case Kind::kNumber:
      return "a number" + range;
    case Kind::kChoice:
      return "one of " + WordList(parameter.choices);
    case Kind::kHexByte:
      return "a byte in hexadecimal";
    case Kind::kSeconds:
      return "seconds" + range;
    case Kind::kFile:
      return "a file";
    case Kind::kSequence:
      break;
  }
  return "a file, or the name of a shipped sequence";
}

std::string CheckArgument(const Parameter& parameter, const std::string& text,
                          std::string* normal) {
  const std::string shown = std::string(parameter.name) + " " + qnx::Quoted(text);
  unsigned number = 0;
  std::uint8_t byte = 0;
  Bytes mac;
  *normal = text;
  switch (parameter.kind) {
    case Kind::kText:
      if (text.size() < parameter.low) return shown + " is empty";
      if (text.size() > parameter.high) {
        return shown + " is longer than " + std::to_string(parameter.high) + " bytes";
      }
      if (std::any_of(text.begin(), text.end(), qnx::IsControl)) {
        return shown + " has control characters";
      }
      return "";
    case Kind::kMac:
      if (!ParseMac(text, &mac)) return shown + " is not a MAC address like 00:1A:7D:DA:71:13";
      *normal = Hex(mac, ':');
      return "";
    case Kind::kByte:
    case Kind::kNumber:
      if (!ParseUnsigned(parameter, text, &number)) {
        return shown + " is not a number from " + std::to_string(parameter.low) + " to " +
               std::to_string(parameter.high);
      }
      *normal = std::to_string(number);
      return "";
    case Kind::kChoice:
      for (const wire::Choice* choice = parameter.choices; choice->word != nullptr; ++choice) {
        if (text == choice->word) return "";
      }
      return shown + " is not one of: " + WordList(parameter.choices);
    case Kind::kHexByte:
      if (!ParseHexByte(text, &byte)) return shown + " is not a byte in hexadecimal";
      *normal = Hex(&byte, 1);
      return "";
    case Kind::kSeconds: {
      const double seconds = qnx::ParseReal(text);
      if (seconds >= parameter.low && seconds <= parameter.high) return "";
      return shown + " is not a number of seconds up to " + std::to_string(parameter.high);
    }
    case Kind::kFile:
    case Kind::kSequence:
      return text.empty() ? shown + " is empty" : "";
  }
  return shown + " is of no known kind";
}

void AppendArgument(const Parameter& parameter, const std::string& normal, Bytes* bytes) {
  unsigned number = 0;
  std::uint8_t byte = 0;
  switch (parameter.kind) {
    case Kind::kText:
      bytes->insert(bytes->end(), normal.begin(), normal.end());
      break;
    case Kind::kMac:
      ParseMac(normal, bytes);
      break;
    case Kind::kByte:
    case Kind::kNumber:
      if (!ParseUnsigned(parameter, normal, &number)) break;
      if (parameter.kind == Kind::kNumber) bytes->push_back(static_cast<std::uint8_t>(number >> 8));
      bytes->push_back(static_cast<std::uint8_t>(number));
      break;
    case Kind::kChoice:
      for (const wire::Choice* choice = parameter.choices; choice->word != nullptr; ++choice) {
        if (normal == choice->word) bytes->push_back(choice->value);
      }
      break;
    case Kind::kHexByte:
      if (ParseHexByte(normal, &byte)) bytes->push_back(byte);
      break;
    case Kind::kSeconds:
    case Kind::kFile:
    case Kind::kSequence:
      break;
  }
}

bool TakeArgument(const Parameter& parameter, const Bytes& bytes, std::size_t* position,
                  std::string* normal) {
  const std::size_t left = bytes.size() - *position;
  const std::uint8_t* at = bytes.data() + *position;
  switch (parameter.kind) {
    case Kind::kText:
      normal->assign(at, at + left);
      *position = bytes.size();
      return true;
    case Kind::kMac:
      if (left < wire::kMacSize) return false;
      *normal = Hex(Bytes(at, at + wire::kMacSize), ':');
      *position += wire::kMacSize;
      return true;
    case Kind::kByte:
      if (left < 1) return false;
      *normal = std::to_string(*at);
      *position += 1;
      return true;
    case Kind::kNumber:
      if (left < 2) return false;
      *normal = std::to_string(at[0] << 8 | at[1]);
      *position += 2;
      return true;
    case Kind::kChoice:
      if (left < 1) return false;
      for (const wire::Choice* choice = parameter.choices; choice->word != nullptr; ++choice) {
        if (choice->value == *at) *normal = choice->word;
      }
      *position += 1;
      return !normal->empty();
    case Kind::kHexByte:
    case Kind::kSeconds:
    case Kind::kFile:
    case Kind::kSequence:
      return false;
  }
  return false;
}

}  // namespace station
