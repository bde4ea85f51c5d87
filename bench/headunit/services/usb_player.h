// The USB and SD player: driven by key presses, and by jumps of the media service's test control.
#ifndef KORVANDIS_HEADUNIT_SERVICES_USB_PLAYER_H
#define KORVANDIS_HEADUNIT_SERVICES_USB_PLAYER_H

#include <string>
#include <vector>

#include "service.h"

namespace headunit {

// Takes the keys of the head unit. A key acts when it is released.
class KeyInput : public Service {
 public:
  explicit KeyInput(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;

 private:
  void OnKey(const PpsLine& attribute);

  int pressed_ = 0;  // code of the key that is down, 0 when none is
};

// Takes the jumps to a track.
class TrackJump : public Service {
 public:
  explicit TrackJump(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_USB_PLAYER_H
