#include "tools/pps_object.h"

#include <fcntl.h>
#include <pps.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/io.h"
#include "platform/pps_guards.h"
#include "tools/program.h"

namespace tools {
namespace {

std::string Unescape(const char* escaped) {
  std::string line = std::string("v:c:") + escaped + "\n";
  platform::Decoder decoder;
  const char* value = nullptr;
  pps_decoder_parse_pps_str(decoder.Get(), line.data());
  pps_decoder_push(decoder.Get(), nullptr);
  pps_decoder_get_string(decoder.Get(), "v", &value);
  return value != nullptr ? value : escaped;
}

}  // namespace

int ReadObject(const std::string& path, int flags, std::string* text) {
  const platform::Descriptor file(platform::open(path.c_str(), flags));
  if (!file.IsOpen()) return errno;
  std::string part;
  int result;
  while ((result = ReadMessage(file.Get(), &part)) > 0) *text += part;
  return result < 0 ? errno : 0;
}

int ListBelow(const std::string& path, std::vector<std::string>* names) {
  std::vector<std::string> waiting = {""};  // the last one is listed next
  while (!waiting.empty()) {
    const std::string name = waiting.back();
    waiting.pop_back();
    if (!name.empty()) names->push_back(name);
    if (!name.empty() && name.back() != '/') continue;
    std::string text;
    const int error = ReadObject(path + "/" + name, O_RDONLY | O_DIRECTORY, &text);
    if (error == ENOENT && !name.empty()) continue;  // removed meanwhile
    if (error != 0) return error;
    const auto first = static_cast<std::ptrdiff_t>(waiting.size());
    for (const std::string& line : qnx::Lines(text)) waiting.push_back(name + line);
    std::reverse(waiting.begin() + first, waiting.end());
  }
  return 0;
}

bool FindAttribute(const std::string& object_text, const std::string& name, std::string* value) {
  std::string text = object_text;
  char* rest = text.data();
  pps_attrib_t attribute{};
  pps_status_t status;
  while ((status = ppsparse(&rest, nullptr, nullptr, &attribute, 0)) != PPS_END) {
    if (status != PPS_ATTRIBUTE || name != attribute.attr_name) continue;
    const bool escaped = std::strcmp(attribute.encoding, "c") == 0;
    *value = escaped ? Unescape(attribute.value) : attribute.value;
    return true;
  }
  return false;
}

bool IsJson(const std::string& value) {
  std::string copy = value;
  platform::Decoder decoder;
  return pps_decoder_parse_json_str(decoder.Get(), copy.data()) == PPS_DECODER_OK;
}

bool IsNumber(const std::string& value) {
  return !value.empty() && (value[0] == '-' || (value[0] >= '0' && value[0] <= '9')) &&
         IsJson(value);
}

}  // namespace tools
