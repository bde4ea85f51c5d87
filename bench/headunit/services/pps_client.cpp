#include "pps_client.h"

#include <fcntl.h>
#include <pps.h>
#include <sys/epoll.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <utility>

#include "../log.h"
#include "platform/io.h"
#include "platform/pps_guards.h"
#include "qnx/manager_socket.h"
#include "qnx/text.h"

namespace headunit {
namespace {

const std::chrono::milliseconds kRetryPause{200};
const mode_t kObjectMode = 0666;

}  // namespace

std::vector<PpsLine> AttributesOf(std::string text) {
  std::vector<PpsLine> lines;
  char* position = &text[0];
  pps_attrib_t attribute = {};
  for (;;) {
    const pps_status_t status = ppsparse(&position, nullptr, nullptr, &attribute, 0);
    if (status == PPS_END) return lines;
    if (status != PPS_ATTRIBUTE) continue;
    lines.push_back(PpsLine{attribute.attr_name, attribute.encoding, attribute.value});
  }
}

bool ReadObject(const char* path, std::vector<PpsLine>* attributes) {
  const platform::Descriptor file(platform::open(path, O_RDONLY));
  if (!file.IsOpen()) return false;
  std::string text;
  if (qnx::ReadMessage(file.Get(), &text) > 0) *attributes = AttributesOf(std::move(text));
  return true;
}

std::string ReadAttribute(const char* path, const std::string& name, const char* encoding,
                          const std::string& fallback) {
  std::vector<PpsLine> attributes;
  ReadObject(path, &attributes);
  for (const PpsLine& attribute : attributes) {
    if (attribute.name == name && attribute.encoding == encoding) return attribute.value;
  }
  return fallback;
}

int ReadNumber(const char* path, const std::string& name, int fallback) {
  int value = fallback;
  qnx::ParseNumber(ReadAttribute(path, name, "n", ""), INT_MIN, INT_MAX, &value);
  return value;
}

bool Publish(const char* path, const std::string& lines) {
  const platform::Descriptor file(platform::open(path, O_WRONLY | O_CREAT, kObjectMode));
  if (file.IsOpen() && platform::write(file.Get(), lines.data(), lines.size()) >= 0) return true;
  Log(_SLOG_ERROR, "%s cannot be written: %s", path, std::strerror(errno));
  return false;
}

bool ParseJson(const std::string& text, const std::map<std::string, int*>& numbers,
               const std::map<std::string, std::string*>& texts) {
  std::string buffer = text;
  platform::Decoder json;
  if (pps_decoder_parse_json_str(json.Get(), &buffer[0]) != PPS_DECODER_OK ||
      pps_decoder_push(json.Get(), nullptr) != PPS_DECODER_OK ||
      pps_decoder_length(json.Get()) != static_cast<int>(numbers.size() + texts.size())) {
    return false;
  }
  for (const auto& number : numbers) {
    if (pps_decoder_get_int(json.Get(), number.first.c_str(), number.second) != PPS_DECODER_OK) {
      return false;
    }
  }
  for (const auto& member : texts) {
    const char* value = nullptr;
    if (pps_decoder_get_string(json.Get(), member.first.c_str(), &value) != PPS_DECODER_OK) {
      return false;
    }
    *member.second = value;
  }
  return true;
}

PpsSubscription::PpsSubscription(EventLoop* loop, std::string path, bool text_at_open,
                                 Handler handler)
    : loop_(loop),
      path_(std::move(path)),
      text_at_open_(text_at_open),
      handler_(std::move(handler)) {}

PpsSubscription::~PpsSubscription() {
  loop_->CancelTimer(timer_);
  if (file_.IsOpen()) loop_->poller().Remove(file_.Get());
}

void PpsSubscription::Start() {
  timer_ = 0;
  file_.Reset(platform::open(path_.c_str(), O_RDWR | O_CREAT, kObjectMode));
  if (!file_.IsOpen()) {
    Retry();
    return;
  }
  at_open_ = text_at_open_;
  if (!loop_->poller().Add(file_.Get(), EPOLLIN | EPOLLRDHUP,
                           [this](std::uint32_t) { OnReady(); })) {
    file_.Reset();
    Retry();
    return;
  }
  if (opened_) opened_();
}

bool PpsSubscription::Write(const std::string& text) {
  return file_.IsOpen() && platform::write(file_.Get(), text.data(), text.size()) >= 0;
}

void PpsSubscription::Retry() {
  timer_ = loop_->AddTimer(kRetryPause, [this] { Start(); });
}

void PpsSubscription::OnReady() {
  std::string text;
  if (qnx::ReadMessage(file_.Get(), &text) <= 0) {
    loop_->poller().Remove(file_.Get());
    file_.Reset();
    Retry();
    return;
  }
  const bool at_open = at_open_;
  at_open_ = false;
  handler_(text, at_open);
}

}  // namespace headunit
