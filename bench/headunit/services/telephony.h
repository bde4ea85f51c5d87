// Bluetooth and hands-free: commands in, states that a person can look at out.
#ifndef KORVANDIS_HEADUNIT_SERVICES_TELEPHONY_H
#define KORVANDIS_HEADUNIT_SERVICES_TELEPHONY_H

#include <vector>

#include "service.h"

namespace headunit {

class HandsFree : public Service {
 public:
  explicit HandsFree(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;
};

// The remote control of a phone's music.
class AudioRemote : public Service {
 public:
  explicit AudioRemote(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;
};

class BluetoothSwitch : public Service {
 public:
  explicit BluetoothSwitch(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;
};

// Checks what is written to the Bluetooth settings.
class BluetoothSettings : public Service {
 public:
  explicit BluetoothSettings(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_TELEPHONY_H
