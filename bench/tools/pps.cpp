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
#include "tools/pps_object.h"
#include "tools/program.h"

namespace {

using tools::kExitRight;
using tools::kExitUsage;
using tools::kExitWrong;

const char kHelp[] =
    R"(usage: pps ls [PATH]                     objects and directories, directories with '/' behind
       pps get PATH [ATTRIBUTE]           an object's text, or one attribute's value
       pps set [-t] PATH ATTRIBUTE...     write attributes; the object is created when missing
       pps watch PATH                     print changes until interrupted
       pps rm PATH [ATTRIBUTE...]         remove an object, or attributes of it

PATH      with or without /pps in front: /pps/zelmar/system/key, zelmar/system/key
ATTRIBUTE of set is a PPS line or a shorter form for plain text:
            name:encoding:value   encoding is empty (text), n (number), b (boolean),
                                  c (text with C escapes) or json
            name=value            the text as it stands
  -t      remove all other attributes first
  --root DIR   directory that stands for the unit's / (default: $HEADUNIT_ROOT)
  --help       this text

  pps set zelmar/system/dev_status zmusb:n:1
  pps set zelmar/setting/systeminfo "zmlocalname=Car 7"

Exit status: 0 done, 1 the object or attribute is missing or nobody answers, 2 wrong usage.
)";

int UsageError(const std::string& reason) {
  std::cerr << "pps: " << reason << "; see 'pps --help'\n";
  return kExitUsage;
}

int Failure(const std::string& path, int error) {
  const char* reason = std::strerror(error);
  if (error == EIO) reason = "the unit's PPS manager does not answer";
  std::cerr << "pps: " << path << ": " << reason << '\n';
  // Without a manager every object is missing; that is what the reader needs to know.
  if (error == ENOENT && platform::access("/pps", F_OK) != 0) {
    std::cerr << "pps: there is no /pps: is the unit running, and HEADUNIT_ROOT right?\n";
  }
  return kExitWrong;
}

// "zelmar/system/key", "/zelmar/system/key" and "/pps/zelmar/system/key" are the same object.
std::string ObjectPath(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (path.empty() || path[0] != '/') path = "/" + path;
  if (path == "/" || path == "/pps") return "/pps";
  return path.rfind("/pps/", 0) == 0 ? path : "/pps" + path;
}

int Write(const std::string& path, int flags, const std::string& text) {
  const tools::Descriptor file(platform::open(path.c_str(), flags, 0666));
  if (!file.is_open()) return errno;
  return platform::write(file.get(), text.data(), text.size()) < 0 ? errno : 0;
}

int List(const std::string& path) {
  std::string text;
  const int error = tools::ReadObject(path, O_RDONLY | O_DIRECTORY, &text);
  if (error == ENOTDIR) {
    std::cout << path << '\n';
    return kExitRight;
  }
  if (error != 0) return Failure(path, error);
  std::cout << text;
  return kExitRight;
}

int Get(const std::string& path, const std::string* name) {
  std::string text;
  const int error = tools::ReadObject(path, O_RDONLY, &text);
  if (error != 0) return Failure(path, error);
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

// Appends the PPS line that `argument` of set stands for. Returns what is wrong with it, or
// nothing: a manager drops a malformed write without a word, so it is refused here.
std::string AppendLine(const std::string& argument, std::string* text) {
  const std::string shown = "'" + tools::Escape(argument) + "' ";
  const std::size_t equals = argument.find('=');
  const std::size_t colon = argument.find(':');
  const std::size_t name_end = std::min(equals, colon);
  if (name_end == std::string::npos) return shown + "is neither name:encoding:value nor name=value";
  const std::string name = argument.substr(0, name_end);
  if (name.empty() || std::strchr("@+-*", name[0]) != nullptr ||
      name.find('\n') != std::string::npos) {
    return shown + "has no usable attribute name";
  }
  if (name_end == equals) {
    const std::string value = argument.substr(equals + 1);
    pps_encoder_t encoder;
    pps_encoder_initialize(&encoder, false);
    pps_encoder_start_object(&encoder, nullptr);
    pps_encoder_add_string(&encoder, name.c_str(), value.c_str());
    pps_encoder_end_object(&encoder);
    const char* line = pps_encoder_buffer(&encoder);
    if (line != nullptr) *text += line;
    pps_encoder_cleanup(&encoder);
    return line != nullptr ? "" : shown + "cannot be written as an attribute";
  }
  const std::size_t second = argument.find(':', colon + 1);
  if (second == std::string::npos) return shown + "has no second ':' (name:encoding:value)";
  const std::string encoding = argument.substr(colon + 1, second - colon - 1);
  const std::string value = argument.substr(second + 1);
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
  return error == 0 ? kExitRight : Failure(path, error);
}

int Watch(const std::string& path) {
  tools::Interrupt interrupt;
  const tools::Descriptor file(platform::open((path + "?wait,delta").c_str(), O_RDONLY));
  if (!file.is_open()) return Failure(path, errno);
  std::string text;
  while (std::cout.good()) {
    if (!interrupt.Wait(file.get(), -1)) return kExitRight;
    const int result = tools::ReadMessage(file.get(), &text);
    if (result < 0) return Failure(path, errno);
    if (result == 0) {
      std::cerr << "pps: " << path << ": the unit is gone\n";
      return kExitWrong;
    }
    std::cout << text;
    if (text.back() != '\n') std::cout << '\n';
    std::cout.flush();
  }
  return kExitWrong;
}

int Remove(const std::string& path, const std::vector<std::string>& attributes) {
  if (attributes.empty()) {
    return platform::unlink(path.c_str()) == 0 ? kExitRight : Failure(path, errno);
  }
  std::string text;
  int error = tools::ReadObject(path, O_RDONLY, &text);
  if (error != 0) return Failure(path, error);
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
  return error == 0 ? kExitRight : Failure(path, error);
}

int Run(std::vector<std::string> arguments) {
  bool truncate = false;
  std::vector<std::string> words;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    // Behind the path everything is an attribute, whatever it begins with.
    if (words.size() >= 2 || argument.size() < 2 || argument[0] != '-') {
      words.push_back(argument);
    } else if (argument == "--help" || argument == "-h") {
      std::cout << kHelp;
      return kExitRight;
    } else if (argument == "-t") {
      truncate = true;
    } else if (argument == "--root" && i + 1 < arguments.size()) {
      ::setenv("HEADUNIT_ROOT", arguments[++i].c_str(), 1);
    } else {
      return UsageError("unknown option or missing value: '" + tools::Escape(argument) + "'");
    }
  }
  if (words.empty()) return UsageError("a command is needed: ls, get, set, watch or rm");
  const std::string command = words[0];
  if (command != "ls" && command != "get" && command != "set" && command != "watch" &&
      command != "rm") {
    return UsageError("unknown command '" + tools::Escape(command) + "'");
  }
  if (truncate && command != "set") return UsageError("-t belongs to set");
  if (words.size() == 2 && (words[1] == "--help" || words[1] == "-h")) {
    std::cout << kHelp;
    return kExitRight;
  }
  if (command == "ls") {
    if (words.size() > 2) return UsageError("ls takes one path");
    return List(ObjectPath(words.size() == 2 ? words[1] : "/"));
  }
  if (words.size() < 2) return UsageError(command + " needs a path");
  const std::string path = ObjectPath(words[1]);
  const std::vector<std::string> rest(words.begin() + 2, words.end());
  if (command == "get") {
    if (rest.size() > 1) return UsageError("get takes a path and one attribute");
    return Get(path, rest.empty() ? nullptr : &rest[0]);
  }
  if (command == "set") {
    if (rest.empty()) return UsageError("set needs at least one attribute");
    return Set(path, rest, truncate);
  }
  if (command == "watch") {
    if (!rest.empty()) return UsageError("watch takes one path");
    return Watch(path);
  }
  return Remove(path, rest);
}

}  // namespace

int main(int argc, char** argv) {
  tools::PrepareProgram();
  const int status = Run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  return tools::FinishProgram(std::cout, status);
}
