// Run by the build: fills a file that needs the table of commands.
//
// usage: station-templates dissector|manual < FILE
//
// Copies FILE to the standard output. A line that holds "@COMMANDS@" is replaced by the rows of the
// table: calls of a Lua function, or entries of a man page.
#include <cctype>
#include <iostream>
#include <map>
#include <string>

#include "wire/command_table.h"

namespace {

const char kMark[] = "@COMMANDS@";

using wire::CommandSpec;
using wire::ParameterKind;
using wire::ReplyKind;

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

// --- Lua ----------------------------------------------------------------------------------------

// ", words = {...}", or nothing.
std::string LuaWords(const wire::Choice* choices) {
  if (choices == nullptr) return "";
  std::string words;
  for (; choices->word != nullptr; ++choices) {
    words += (words.empty() ? "" : ", ") + std::string("[") + std::to_string(choices->value) +
             "] = " + Quoted(choices->word);
  }
  return ", words = { " + words + " }";
}

const char* LuaKind(ParameterKind kind) {
  switch (kind) {
    case ParameterKind::kNone:
      break;
    case ParameterKind::kText:
      return "text";
    case ParameterKind::kMac:
      return "mac";
    case ParameterKind::kByte:
      return "byte";
    case ParameterKind::kNumber:
      return "number";
    case ParameterKind::kChoice:
      return "choice";
  }
  return "none";
}

const char* LuaKind(ReplyKind kind) {
  switch (kind) {
    case ReplyKind::kNone:
      break;
    case ReplyKind::kText:
    case ReplyKind::kIdentity:
    case ReplyKind::kSpeed:
    case ReplyKind::kAngle:
      return "text";
    case ReplyKind::kMac:
      return "mac";
    case ReplyKind::kChoice:
    case ReplyKind::kVerdict:
      return "choice";
    case ReplyKind::kByte:
      return "byte";
    case ReplyKind::kNumberPair:
      return "number pair";
    case ReplyKind::kSatellites:
      return "satellites";
    case ReplyKind::kPosition:
      return "position";
  }
  return "none";
}

// command(NUMBER, NAME) for each number, row(NUMBER, SUB, WORDS, SELECTOR, PARAMETERS, REPLY) for
// each row; what is missing is nil.
void WriteLua(std::ostream& out) {
  int last = -1;
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    const CommandSpec& row = wire::kCommands[i];
    const std::string number = std::to_string(row.command);
    const char* const name = wire::CommandName(row.command);
    if (row.command != last && name != nullptr) {
      out << "command(" << number << ", " << Quoted(name) << ")\n";
    }
    last = row.command;
    out << "row(" << number << ", " << std::to_string(row.sub_command) << ", " << Quoted(row.words)
        << ", "
        << (row.selector == wire::kNoSelector ? std::string("nil") : std::to_string(row.selector))
        << ", {";
    for (const wire::ParameterSpec& parameter : row.parameters) {
      if (parameter.kind == ParameterKind::kNone) break;
      out << " { kind = " << Quoted(LuaKind(parameter.kind))
          << ", name = " << Quoted(parameter.name) << LuaWords(parameter.choices) << " },";
    }
    out << " }, ";
    if (row.reply.kind == ReplyKind::kNone) {
      out << "nil)\n";
    } else {
      out << "{ kind = " << Quoted(LuaKind(row.reply.kind)) << LuaWords(row.reply.choices)
          << " })\n";
    }
  }
}

// --- man page -----------------------------------------------------------------------------------

std::string RoffText(const std::string& text) {
  std::string escaped;
  for (const char c : text) escaped += c == '-' ? "\\-" : std::string(1, c);
  return escaped;
}

void WriteManual(std::ostream& out) {
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    const CommandSpec& row = wire::kCommands[i];
    out << ".TP\n.B " << RoffText(row.words);
    std::string words;
    for (const wire::ParameterSpec& parameter : row.parameters) {
      if (parameter.kind == ParameterKind::kNone) break;
      out << " \\fI" << parameter.name << "\\fP";
      const wire::Choice* choice = parameter.choices;
      for (; choice != nullptr && choice->word != nullptr; ++choice) {
        words += (words.empty() ? ": " : ", ") + std::string(choice->word);
      }
    }
    std::string help = row.help + words;
    help[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(help[0])));
    out << '\n' << RoffText(help) << ".\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  static const std::map<std::string, void (*)(std::ostream&)> kinds = {{"dissector", WriteLua},
                                                                       {"manual", WriteManual}};
  const auto kind = kinds.find(argc == 2 ? argv[1] : "");
  if (kind == kinds.end()) {
    std::cerr << "usage: station-templates dissector|manual < FILE\n";
    return 2;
  }
  bool filled = false;
  for (std::string line; std::getline(std::cin, line);) {
    if (line.find(kMark) == std::string::npos) {
      std::cout << line << '\n';
    } else {
      kind->second(std::cout);
      filled = true;
    }
  }
  if (!filled) std::cerr << "station-templates: no line holds " << kMark << '\n';
  return filled && std::cout.flush().good() ? 0 : 1;
}
