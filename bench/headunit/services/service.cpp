#include "service.h"

#include "../log.h"

namespace headunit {
namespace {

const char kFollow[] = "?wait,delta";

}  // namespace

Service::Service(EventLoop* loop, const char* path)
    : path_(path),
      subscription_(loop, std::string(path) + kFollow, true,
                    [this](const std::string& text, bool at_open) {
                      if (!at_open) OnChange(AttributesOf(text));
                    }) {}

void Service::Complain(const PpsLine& attribute, const char* reason) const {
  Log(_SLOG_ERROR, "%s: %s: '%s:%s:%s'", path_, reason, attribute.name.c_str(),
      attribute.encoding.c_str(), attribute.value.c_str());
}

}  // namespace headunit
