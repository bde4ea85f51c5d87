#include "tools/pps_object.h"

#include <pps.h>

#include <cerrno>
#include <cstring>

#include "platform/io.h"
#include "tools/program.h"

namespace tools {
namespace {

std::string Unescape(const char* escaped) {
  std::string line = std::string("v:c:") + escaped + "\n";
  pps_decoder_t decoder;
  const char* value = nullptr;
  pps_decoder_initialize(&decoder, nullptr);
  pps_decoder_parse_pps_str(&decoder, line.data());
  pps_decoder_push(&decoder, nullptr);
  pps_decoder_get_string(&decoder, "v", &value);
  pps_decoder_cleanup(&decoder);
  return value != nullptr ? value : escaped;
}

}  // namespace

int ReadObject(const std::string& path, int flags, std::string* text) {
  const Descriptor file(platform::open(path.c_str(), flags));
  if (!file.is_open()) return errno;
  std::string part;
  int result;
  while ((result = ReadMessage(file.get(), &part)) > 0) *text += part;
  return result < 0 ? errno : 0;
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
  pps_decoder_t decoder;
  pps_decoder_initialize(&decoder, nullptr);
  const bool whole = pps_decoder_parse_json_str(&decoder, copy.data()) == PPS_DECODER_OK;
  pps_decoder_cleanup(&decoder);
  return whole;
}

bool IsNumber(const std::string& value) {
  return !value.empty() && (value[0] == '-' || (value[0] >= '0' && value[0] <= '9')) &&
         IsJson(value);
}

}  // namespace tools
