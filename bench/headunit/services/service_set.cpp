#include "service_set.h"

#include <utility>

#include "app_launcher.h"
#include "disc_player.h"
#include "navigation.h"
#include "telephony.h"
#include "usb_player.h"

namespace headunit {

ServiceSet::ServiceSet(Drive drive) : geolocation_(&loop_, std::move(drive)) {
  services_.push_back(std::make_unique<AppLauncher>(&loop_));
  services_.push_back(std::make_unique<DiscPlayer>(&loop_));
  services_.push_back(std::make_unique<DiscSettings>(&loop_));
  services_.push_back(std::make_unique<KeyInput>(&loop_));
  services_.push_back(std::make_unique<TrackJump>(&loop_));
  services_.push_back(std::make_unique<HandsFree>(&loop_));
  services_.push_back(std::make_unique<AudioRemote>(&loop_));
  services_.push_back(std::make_unique<BluetoothSwitch>(&loop_));
  services_.push_back(std::make_unique<BluetoothSettings>(&loop_));
  services_.push_back(std::make_unique<Navigation>(&loop_));
}

ServiceSet::~ServiceSet() { Stop(); }

std::string ServiceSet::Start() {
  std::string failure = loop_.Start();
  if (!failure.empty()) return failure;
  loop_.Call([this] {
    for (const auto& service : services_) service->Start();
    geolocation_.Start();
  });
  return "";
}

void ServiceSet::Stop() { loop_.Stop(); }

}  // namespace headunit
