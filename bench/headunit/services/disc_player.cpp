#include "disc_player.h"

#include <algorithm>
#include <string>

namespace headunit {
namespace {

const char kControl[] = "/pps/zelmar/disc/control";
const char kDevice[] = "/pps/zelmar/disc/device";
const char kStatus[] = "/pps/zelmar/disc/status";
const char kPlaying[] = "/pps/zelmar/disc/playing";
const char kSettings[] = "/pps/zelmar/disc/setting_status";

// Commands.
const int kStop = 129;
const int kPause = 130;
const int kPlay = 131;
const int kNext = 135;
const int kPrevious = 136;
const int kJump = 182;
const int kRepeat = 192;
const int k193 = 193;  // what 193 and 200 stand for is not known
const int k200 = 200;

// Values of "discstate".
const int kStopped = 20;
const int kPaused = 21;
const int kPlays = 22;

const int kMostNumber = 65535;  // of a folder or track
const int kMostRepeat = 2;
const int kMostRegion = 6;
const int kDefaultFolders = 8;
const int kDefaultTracks = 40;

std::string Number(const char* name, int value) {
  return std::string(name) + ":n:" + std::to_string(value) + "\n";
}

bool SetState(int state) { return Publish(kStatus, Number("discstate", state)); }

}  // namespace

DiscPlayer::DiscPlayer(EventLoop* loop) : Service(loop, kControl) {}

void DiscPlayer::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    if (attribute.name == "zmcmd") {
      Obey(attribute);
    } else {
      Complain(attribute, "unknown attribute");
    }
  }
}

void DiscPlayer::Obey(const PpsLine& attribute) {
  int command = 0;
  int first = 0;
  int second = 0;
  if (attribute.encoding != "json" ||
      !ParseJson(attribute.value, {{"cmd", &command}, {"param1", &first}, {"param2", &second}},
                 {})) {
    Complain(attribute, "malformed command");
  } else if (ReadNumber(kDevice, "disc", 0) == 0) {
    Complain(attribute, "no disc");
  } else if (!Do(command, first, second)) {
    Complain(attribute, "unknown command or parameter");
  }
}

bool DiscPlayer::Do(int command, int first, int second) {
  if (command == kJump) return JumpTo(Track{second, first}) && SetState(kPlays);
  if (second != 0) return false;
  if (command == kRepeat) {
    return first >= 0 && first <= kMostRepeat && Publish(kStatus, Number("zmrepeat", first));
  }
  if (command == k193) {
    return (first == 0 || first == 1) && Publish(kStatus, Number("command193", first));
  }
  if (first != 1) return false;
  switch (command) {
    case kStop:
      return SetState(kStopped);
    case kPause:
      return SetState(kPaused);
    case kPlay:
      return SetState(kPlays);
    case kNext:
      Step(1);
      return true;
    case kPrevious:
      Step(-1);
      return true;
    case k200:
      return Publish(kStatus, Number("command200", 1));
    default:
      return false;
  }
}

DiscPlayer::Track DiscPlayer::Current() {
  Track track = {1, 1};
  const std::string info = ReadAttribute(kPlaying, "trackinfo", "json", "");
  ParseJson(info, {{"curmediaid", &track.number}, {"parentFolder", &track.folder}}, {});
  // A person may have written any number there.
  track.number = std::clamp(track.number, 0, kMostNumber);
  track.folder = std::clamp(track.folder, 0, kMostNumber);
  return track;
}

bool DiscPlayer::JumpTo(Track track) {
  if (track.folder < 1 || track.folder > ReadNumber(kDevice, "folders", kDefaultFolders) ||
      track.number < 1 || track.number > ReadNumber(kDevice, "tracks", kDefaultTracks)) {
    return false;
  }
  return Publish(kPlaying, "trackinfo:json:{\"curmediaid\":" + std::to_string(track.number) +
                               ",\"parentFolder\":" + std::to_string(track.folder) + "}\n");
}

// The track after the last one of a folder is the first of the next, the last folder's is the first
// of all.
void DiscPlayer::Step(int by) {
  const int folders = ReadNumber(kDevice, "folders", kDefaultFolders);
  const int tracks = ReadNumber(kDevice, "tracks", kDefaultTracks);
  Track track = Current();
  track.number += by;
  if (track.number < 1 || track.number > tracks) {
    track.folder += by;
    track.number = by > 0 ? 1 : tracks;
  }
  if (track.folder < 1) track.folder = folders;
  if (track.folder > folders) track.folder = 1;
  JumpTo(track);
}

DiscSettings::DiscSettings(EventLoop* loop) : Service(loop, kSettings) {}

void DiscSettings::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    if (attribute.name != "zmregion") {
      Complain(attribute, "unknown attribute");
      continue;
    }
    const bool digit = attribute.value.size() == 1 && attribute.value[0] >= '0' &&
                       attribute.value[0] <= '0' + kMostRegion;
    if (attribute.encoding == "n" && digit) {
      Publish(kStatus, "zmregion:n:" + attribute.value + "\n");
    } else {
      Complain(attribute, "no region");
    }
  }
}

}  // namespace headunit
