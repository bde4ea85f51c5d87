// pps: reads, writes, lists and watches PPS objects.
#include <pps.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "platform/io.h"
#include "platform/pps_guards.h"
#include "pps_watch.h"
#include "qnx/remove.h"
#include "qnx/unit_root.h"
#include "tools/pps_object.h"
#include "tools/program.h"

namespace {

using tools::kExitRight;
using tools::kExitUsage;
using tools::kExitWrong;

const char kHelp[] =
    R"(usage: pps ls [-R] [PATH]                objects and directories, directories with '/' behind
       pps get PATH [ATTRIBUTE]           an object's text, or one attribute's value
       pps set [-t] PATH ATTRIBUTE...     write attributes; the object is created when missing
       pps watch [--times] PATH...        print changes until interrupted; of a directory: of
                                          every object below it
       pps rm PATH [ATTRIBUTE...]         remove an object, or attributes of it

PATH      with or without /pps in front: /pps/zelmar/system/key, zelmar/system/key
ATTRIBUTE of set is a PPS line or a shorter form for plain text:
            name:encoding:value   encoding is empty (text), n (number), b (boolean),
                                  c (text with C escapes) or json
            name=value            the text as it stands
          each perhaps with options in front: [n]name=value is not kept on the unit
  -R           also what the directories hold
  -t           remove all other attributes first
  --times      the time of day above each change
  --root DIR   directory that stands for the unit's / (default: $HEADUNIT_ROOT)
  --help       this text

  pps set zelmar/system/dev_status zmusb:n:1
  pps set zelmar/setting/systeminfo "zmlocalname=Car 7"

Exit status: 0 done, 1 the object or attribute is missing or no unit answers, 2 wrong usage.
)";

int UsageError(const std::string& reason) {
  std::cerr << "pps: " << reason << "; see 'pps --help'\n";
  return kExitUsage;
}

// "zelmar/system/key", "/zelmar/system/key" and "/pps/zelmar/system/key" are the same object.
std::string ObjectPath(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (path.empty() || path[0] != '/') path = "/" + path;
  if (path == "/" || path == "/pps") return "/pps";
  return path.rfind("/pps/", 0) == 0 ? path : "/pps" + path;
}

int Write(const std::string& path, int flags, const std::string& text) {
  const platform::Descriptor file(platform::open(path.c_str(), flags, 0666));
  if (!file.IsOpen()) return errno;
  return platform::write(file.Get(), text.data(), text.size()) < 0 ? errno : 0;
}

int List(const std::string& path, bool recursive) {
  std::string text;
  std::vector<std::string> names;
  const int error = recursive ? tools::ListBelow(path, &names)
                              : tools::ReadObject(path, O_RDONLY | O_DIRECTORY, &text);
  if (error == ENOTDIR && platform::access(path.c_str(), F_OK) == 0) {
    std::cout << path << '\n';
    return kExitRight;
  }
  if (error != 0) return tools::ReportFailure(path, error);
  for (const std::string& name : names) std::cout << name << '\n';
  std::cout << text;
  return kExitRight;
}

int Get(const std::string& path, const std::string* name) {
  std::string text;
  const int error = tools::ReadObject(path, O_RDONLY, &text);
  if (error != 0) return tools::ReportFailure(path, error);
  if (name == nullptr) {
    std::cout << text;
    if (!text.empty() && text.back() != '\n') std::cout << '\n';
    return kExitRight;
  }
  std::string value;
  if (tools::FindAttribute(text, *name, &value)) {
    std::cout << value << '\n';
    return kExitRight;
  }
  std::cerr << "pps: " << path << " has no attribute '" << tools::Escape(*name) << "'\n";
  return kExitWrong;
}

const std::size_t kMostOptions = 65;  // a manager's limit, brackets included

// Appends the PPS line that `argument` of set stands for. Returns what is wrong with it, or
// nothing: a manager drops a malformed write without a word, so it is refused here.
std::string AppendLine(const std::string& argument, std::string* text) {
  const std::string shown = tools::Quoted(argument) + " ";
  const bool has_options = argument.compare(0, 1, "[") == 0;
  const std::size_t size = has_options ? argument.find(']') + 1 : 0;  // 0 also: no end
  const std::string options = argument.substr(0, size);
  const std::string line = argument.substr(size);
  if ((has_options && size == 0) || size > kMostOptions ||
      options.find_first_of(":\n") != std::string::npos) {
    return shown + "has no usable [options] in front";
  }
  const std::size_t equals = line.find('=');
  const std::size_t colon = line.find(':');
  const std::size_t name_end = std::min(equals, colon);
  if (name_end == std::string::npos) return shown + "is neither name:encoding:value nor name=value";
  const std::string name = line.substr(0, name_end);
  if (name.empty() || std::strchr("@+-*|[", name[0]) != nullptr ||
      name.find('\n') != std::string::npos) {
    return shown + "has no usable attribute name";
  }
  if (name_end == equals) {
    const std::string value = line.substr(equals + 1);
    platform::Encoder encoder;
    pps_encoder_start_object(encoder.Get(), nullptr);
    pps_encoder_add_string(encoder.Get(), name.c_str(), value.c_str());
    pps_encoder_end_object(encoder.Get());
    const char* const encoded = pps_encoder_buffer(encoder.Get());
    if (encoded == nullptr) return shown + "cannot be written as an attribute";
    *text += options + encoded;
    return "";
  }
  const std::size_t second = line.find(':', colon + 1);
  if (second == std::string::npos) return shown + "has no second ':' (name:encoding:value)";
  const std::string encoding = line.substr(colon + 1, second - colon - 1);
  const std::string value = line.substr(second + 1);
  if (value.find('\n') != std::string::npos) {
    return shown + "has a line end in its value: write name=value";
  }
  if (encoding == "n" && !tools::IsNumber(value)) return shown + "is not a number";
  if (encoding == "b" && value != "true" && value != "false") return shown + "is not true or false";
  if (encoding == "json" && !tools::IsJson(value)) return shown + "is not well-formed JSON";
  if (!encoding.empty() && encoding != "n" && encoding != "b" && encoding != "c" &&
      encoding != "json") {
    return shown + "has an unknown encoding (empty, n, b, c, json)";
  }
  *text += argument + "\n";
  return "";
}

int Set(const std::string& path, const std::vector<std::string>& attributes, bool truncate) {
  std::string text;
  for (const std::string& attribute : attributes) {
    const std::string problem = AppendLine(attribute, &text);
    if (!problem.empty()) return UsageError(problem);
  }
  const int error = Write(path, O_WRONLY | O_CREAT | (truncate ? O_TRUNC : 0), text);
  return error == 0 ? kExitRight : tools::ReportFailure(path, error);
}

int Remove(const std::string& path, const std::vector<std::string>& attributes) {
  if (attributes.empty()) {
    return qnx::Remove(path.c_str()) == 0 ? kExitRight : tools::ReportFailure(path, errno);
  }
  std::string text;
  int error = tools::ReadObject(path, O_RDONLY, &text);
  if (error != 0) return tools::ReportFailure(path, error);
  std::string deletion;
  std::string value;
  for (const std::string& name : attributes) {
    if (!tools::FindAttribute(text, name, &value)) {
      std::cerr << "pps: " << path << " has no attribute '" << tools::Escape(name) << "'\n";
      return kExitWrong;
    }
    deletion += "-" + name + "\n";
  }
  error = Write(path, O_WRONLY, deletion);
  return error == 0 ? kExitRight : tools::ReportFailure(path, error);
}

struct CommandLine {
  std::vector<std::string> words;  // command, path and what follows it
  bool help = false;
  bool truncate = false;
  bool recursive = false;
  bool times = false;
};

// Returns what is wrong with the arguments, or nothing.
std::string Parse(const std::vector<std::string>& arguments, CommandLine* line) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const std::string command = line->words.empty() ? "" : line->words[0];
    // Behind a path everything is an attribute, whatever it begins with.
    const bool takes_attributes = command != "ls" && command != "watch";
    if ((takes_attributes && line->words.size() >= 2) || argument.size() < 2 ||
        argument[0] != '-') {
      line->words.push_back(argument);
    } else if (argument == "--help" || argument == "-h") {
      line->help = true;
    } else if (argument == "-t") {
      line->truncate = true;
    } else if (argument == "-R") {
      line->recursive = true;
    } else if (argument == "--times") {
      line->times = true;
    } else if (argument == "--root" && i + 1 < arguments.size()) {
      ::setenv(qnx::kRootVariable, arguments[++i].c_str(), 1);
    } else {
      return "unknown option or missing value: '" + tools::Escape(argument) + "'";
    }
  }
  return "";
}

// Returns what is wrong with the command and its options, or nothing.
std::string Check(const CommandLine& line) {
  if (line.words.empty()) return "a command is needed: ls, get, set, watch or rm";
  const std::string& command = line.words[0];
  const std::size_t rest = line.words.size() - 1;
  if (command != "ls" && command != "get" && command != "set" && command != "watch" &&
      command != "rm") {
    return "unknown command '" + tools::Escape(command) + "'";
  }
  if (line.truncate && command != "set") return "-t belongs to set";
  if (line.recursive && command != "ls") return "-R belongs to ls";
  if (line.times && command != "watch") return "--times belongs to watch";
  if (rest < 1 && command != "ls") return command + " needs a path";
  if (rest > 1 && command == "ls") return "ls takes one path";
  if (rest > 2 && command == "get") return "get takes a path and one attribute";
  if (rest < 2 && command == "set") return "set needs at least one attribute";
  const std::size_t paths = command == "watch" ? rest : std::min<std::size_t>(rest, 1);
  for (std::size_t i = 1; i <= paths; ++i) {
    if (line.words[i].find('?') == std::string::npos) continue;
    return "'" + tools::Escape(line.words[i]) +
           "': a path takes no '?' options here; 'pps get' reads an object once, 'pps watch' "
           "follows "
           "its changes";
  }
  return "";
}

int Run(const std::vector<std::string>& arguments) {
  CommandLine line;
  std::string problem = Parse(arguments, &line);
  if (problem.empty() && line.help) {
    std::cout << kHelp;
    return kExitRight;
  }
  if (problem.empty()) problem = Check(line);
  if (!problem.empty()) return UsageError(problem);
  const std::string& command = line.words[0];
  std::vector<std::string> rest(line.words.begin() + 1, line.words.end());
  if (command == "watch") {
    for (std::string& path : rest) path = ObjectPath(path);
    return tools::WatchObjects(rest, line.times);
  }
  const std::string path = ObjectPath(rest.empty() ? "/" : rest[0]);
  if (command == "ls") return List(path, line.recursive);
  rest.erase(rest.begin());
  if (command == "get") return Get(path, rest.empty() ? nullptr : &rest[0]);
  if (command == "set") return Set(path, rest, line.truncate);
  return Remove(path, rest);
}

}  // namespace

int main(int argc, char** argv) {
  tools::PrepareProgram();
  const int status = Run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  return tools::FinishProgram("pps", status);
}
