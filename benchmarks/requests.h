// Valid requests, drawn from the table of commands.
#ifndef KORVANDIS_BENCHMARKS_REQUESTS_H
#define KORVANDIS_BENCHMARKS_REQUESTS_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "wire/at_packet.h"
#include "wire/command_table.h"

namespace setup {

// A calibration runs a script, which takes the time: it has no cost of its own.
const std::uint8_t kKeyCommand = 6;

// The bytes of one parameter. `draw` chooses among the values that the table names.
inline void AppendParameter(const wire::ParameterSpec& parameter, unsigned draw,
                            std::vector<std::uint8_t>* bytes) {
  static const char kText[] = "0123456789abcdef";
  const unsigned span = parameter.high - parameter.low + 1;
  switch (parameter.kind) {
    case wire::ParameterKind::kNone:
      return;
    case wire::ParameterKind::kText:
      bytes->insert(bytes->end(), kText, kText + std::min<std::size_t>(parameter.high, 16));
      return;
    case wire::ParameterKind::kMac:
      for (std::uint8_t i = 0; i < wire::kMacSize; ++i) bytes->push_back(i);
      return;
    case wire::ParameterKind::kByte:
      bytes->push_back(static_cast<std::uint8_t>(parameter.low + draw % span));
      return;
    case wire::ParameterKind::kNumber:
      bytes->push_back(0);
      bytes->push_back(static_cast<std::uint8_t>(draw % 10));
      return;
    case wire::ParameterKind::kChoice:
      unsigned count = 0;
      while (parameter.choices[count].word != nullptr) ++count;
      bytes->push_back(parameter.choices[draw % count].value);
      return;
  }
}

inline std::vector<std::uint8_t> RequestOf(const wire::CommandSpec& row, unsigned draw) {
  std::vector<std::uint8_t> parameters;
  if (row.selector != wire::kNoSelector) {
    parameters.push_back(static_cast<std::uint8_t>(row.selector));
  }
  for (const wire::ParameterSpec& parameter : row.parameters) {
    AppendParameter(parameter, draw, &parameters);
  }
  return wire::BuildRequest(row.command, row.sub_command, parameters);
}

}  // namespace setup

#endif  // KORVANDIS_BENCHMARKS_REQUESTS_H
