#include "usb_player.h"

namespace headunit {
namespace {

const char kKeys[] = "/pps/zelmar/system/key";
const char kJumps[] = "/pps/zelmar/media/autotest/control";
const char kNowPlaying[] = "/pps/zelmar/navigator/nowplaying";

const char kOrigin[] = "wheel";  // of all keys

const int kPlayKey = 17;
const int kPauseKey = 18;
const int kNextKey = 20;
const int kPreviousKey = 21;
const int kMostIndex = 65535;

struct Position {
  int folder = 1;
  int index = 0;  // counted from 0
};

// The object of the device that plays; empty when the source is neither USB nor SD.
std::string PlayingObject() {
  const std::string source = ReadAttribute(kNowPlaying, "zmplaysource", "", "");
  if (source != "zmusb" && source != "zmsd" && source != "zmrusb") return "";
  return "/pps/zelmar/media/" + source + "/playing";
}

Position ReadPosition(const std::string& object) {
  Position position;
  const std::string info = ReadAttribute(object.c_str(), "trackinfo", "json", "");
  ParseJson(info, {{"folderid", &position.folder}, {"index", &position.index}}, {});
  return position;
}

std::string TrackLine(const Position& position) {
  return "trackinfo:json:{\"folderid\":" + std::to_string(position.folder) +
         ",\"index\":" + std::to_string(position.index) + "}\n";
}

void Step(const std::string& object, int by) {
  Position position = ReadPosition(object);
  // A person may have written any number there.
  const bool sound = position.index >= 0 && position.index <= kMostIndex;
  position.index = sound ? position.index + by : 0;
  if (position.index < 0 || position.index > kMostIndex) position.index = 0;
  Publish(object.c_str(), TrackLine(position));
}

void Act(const std::string& object, int key) {
  switch (key) {
    case kPlayKey:
      Publish(object.c_str(), "state::playing\n");
      break;
    case kPauseKey:
      Publish(object.c_str(), "state::paused\n");
      break;
    case kNextKey:
      Step(object, 1);
      break;
    case kPreviousKey:
      Step(object, -1);
      break;
    default:  // not a key of this player
      break;
  }
}

}  // namespace

KeyInput::KeyInput(EventLoop* loop) : Service(loop, kKeys) {}

void KeyInput::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    if (attribute.name == "zmkey") {
      OnKey(attribute);
    } else {
      Complain(attribute, "unknown attribute");
    }
  }
}

void KeyInput::OnKey(const PpsLine& attribute) {
  int key = 0;
  int parameter = 0;
  std::string origin;
  std::string status;
  if (attribute.encoding != "json" ||
      !ParseJson(attribute.value, {{"key", &key}, {"param", &parameter}},
                 {{"src", &origin}, {"status", &status}}) ||
      origin != kOrigin || parameter != 0 || (status != "dn" && status != "up")) {
    Complain(attribute, "malformed key");
    return;
  }
  if (status == "dn") {
    if (pressed_ != 0) Complain(attribute, "pressed while another key is down");
    pressed_ = key;
    return;
  }
  if (pressed_ != key) {
    Complain(attribute, "released without being pressed");
    return;
  }
  pressed_ = 0;
  const std::string object = PlayingObject();
  if (!object.empty()) Act(object, key);
}

TrackJump::TrackJump(EventLoop* loop) : Service(loop, kJumps) {}

void TrackJump::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    Position position;
    if (attribute.name != "autotest_play" || attribute.encoding != "json" ||
        !ParseJson(attribute.value, {{"folderid", &position.folder}, {"index", &position.index}},
                   {}) ||
        position.folder < 0 || position.index < 0) {
      Complain(attribute, "malformed jump");
      continue;
    }
    const std::string object = PlayingObject();
    if (object.empty()) {
      Complain(attribute, "neither USB nor SD plays");
      continue;
    }
    Publish(object.c_str(), "state::playing\n" + TrackLine(position));
  }
}

}  // namespace headunit
