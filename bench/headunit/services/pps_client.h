// How the services read and write objects: as ordinary clients of the PPS manager.
#ifndef KORVANDIS_HEADUNIT_SERVICES_PPS_CLIENT_H
#define KORVANDIS_HEADUNIT_SERVICES_PPS_CLIENT_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "../event_loop.h"
#include "platform/descriptor.h"

namespace headunit {

struct PpsLine {
  std::string name;
  std::string encoding;
  std::string value;
};

// The attribute lines of `text`, in order. Anything else in it is left out.
std::vector<PpsLine> AttributesOf(std::string text);

// Reads the object once. False when it cannot be opened.
bool ReadObject(const char* path, std::vector<PpsLine>* attributes);

// The value of one attribute; `fallback` when the object, or the attribute with this encoding, is
// missing.
std::string ReadAttribute(const char* path, const std::string& name, const char* encoding,
                          const std::string& fallback);
int ReadNumber(const char* path, const std::string& name, int fallback);

// Writes attribute lines, creating the object. A failure is logged.
bool Publish(const char* path, const std::string& lines);

// The members of a JSON object: numbers as integers, texts. Strict: true only when `text` is an
// object that has exactly these members with these types.
bool ParseJson(const std::string& text, const std::map<std::string, int*>& numbers,
               const std::map<std::string, std::string*>& texts);

// An object that a service keeps open. When the manager goes away it is opened again, every so
// often, until it is back. Belongs to the thread of its loop.
class PpsSubscription {
 public:
  // Called with each message; `at_open`: the object's text at open, which is not a change.
  using Handler = std::function<void(const std::string& text, bool at_open)>;

  // `path` with its options. `text_at_open`: whether the manager sends the object's text first.
  PpsSubscription(EventLoop* loop, std::string path, bool text_at_open, Handler handler);
  ~PpsSubscription();
  PpsSubscription(const PpsSubscription&) = delete;
  PpsSubscription& operator=(const PpsSubscription&) = delete;

  // Called whenever the object was opened anew, before its first message.
  void SetOpened(std::function<void()> opened) { opened_ = std::move(opened); }

  void Start();
  bool Write(const std::string& text);

 private:
  void Retry();
  void OnReady();

  EventLoop* const loop_;
  const std::string path_;
  const bool text_at_open_;
  const Handler handler_;
  std::function<void()> opened_;
  platform::Descriptor file_;
  EventLoop::TimerId timer_ = 0;
  bool at_open_ = false;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_PPS_CLIENT_H
