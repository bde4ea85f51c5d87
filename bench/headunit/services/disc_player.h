// The disc player: numbered commands in, state and track out.
#ifndef KORVANDIS_HEADUNIT_SERVICES_DISC_PLAYER_H
#define KORVANDIS_HEADUNIT_SERVICES_DISC_PLAYER_H

#include <vector>

#include "service.h"

namespace headunit {

// Keeps its state in its objects, so that a person can change it there.
class DiscPlayer : public Service {
 public:
  explicit DiscPlayer(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;

 private:
  struct Track {
    int folder;
    int number;
  };

  void Obey(const PpsLine& attribute);
  bool Do(int command, int first, int second);  // false: a parameter is out of range

  static Track Current();
  static bool JumpTo(Track track);
  static void Step(int by);
};

// The player's settings, which are written to an object of their own.
class DiscSettings : public Service {
 public:
  explicit DiscSettings(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_DISC_PLAYER_H
