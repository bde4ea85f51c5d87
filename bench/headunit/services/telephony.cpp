#include "telephony.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace headunit {
namespace {

const char kHandsFree[] = "/pps/services/handsfree/control";
const char kHandsFreeStatus[] = "/pps/services/handsfree/status";
const char kAudioRemote[] = "/pps/services/bluetooth/avrcp/control";
const char kAudioRemoteStatus[] = "/pps/services/bluetooth/avrcp/status";
const char kSwitch[] = "/pps/zelmar/setting/bt_control";
const char kBluetoothStatus[] = "/pps/services/bluetooth/status";
const char kSettings[] = "/pps/services/bluetooth/settings";
const int kMostTrack = 65535;
const std::size_t kMacText = 17;  // XX:XX:XX:XX:XX:XX
const std::size_t kMacGroup = 3;  // two digits and a colon

bool IsMac(const std::string& text) {
  if (text.size() != kMacText) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool separator = i % kMacGroup == kMacGroup - 1;
    const bool good =
        separator ? text[i] == ':' : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    if (!good) return false;
  }
  return true;
}

}  // namespace

HandsFree::HandsFree(EventLoop* loop) : Service(loop, kHandsFree) {}

void HandsFree::OnChange(const std::vector<PpsLine>& attributes) {
  const PpsLine* command = nullptr;
  const PpsLine* number = nullptr;
  for (const PpsLine& attribute : attributes) {
    if (attribute.encoding.empty() && attribute.name == "command") {
      command = &attribute;
    } else if (attribute.encoding.empty() && attribute.name == "cmd_data") {
      number = &attribute;
    } else {
      Complain(attribute, "unknown attribute");
    }
  }
  if (command == nullptr) {
    if (number != nullptr) Complain(*number, "no command");
    return;
  }
  if (command->value == "HFP_CALL" && number != nullptr && !number->value.empty()) {
    Publish(kHandsFreeStatus, "callstate::dialing\nnumber::" + number->value + "\n");
  } else if (command->value == "HFP_ACCEPT") {
    Publish(kHandsFreeStatus, "callstate::active\n");
  } else if (command->value == "HFP_HANGUP") {
    Publish(kHandsFreeStatus, "callstate::idle\n");
  } else {
    Complain(*command, command->value == "HFP_CALL" ? "no number" : "unknown command");
  }
}

AudioRemote::AudioRemote(EventLoop* loop) : Service(loop, kAudioRemote) {}

void AudioRemote::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    const bool command = attribute.name == "command" && attribute.encoding.empty();
    if (command && attribute.value == "play") {
      Publish(kAudioRemoteStatus, "state::playing\n");
    } else if (command && attribute.value == "stop") {
      Publish(kAudioRemoteStatus, "state::stopped\n");
    } else if (command && (attribute.value == "next" || attribute.value == "previous")) {
      const int step = attribute.value == "next" ? 1 : -1;
      const int track = std::clamp(ReadNumber(kAudioRemoteStatus, "track", 1), 1, kMostTrack);
      Publish(kAudioRemoteStatus,
              "track:n:" + std::to_string(std::clamp(track + step, 1, kMostTrack)) + "\n");
    } else {
      Complain(attribute, "unknown command");
    }
  }
}

BluetoothSwitch::BluetoothSwitch(EventLoop* loop) : Service(loop, kSwitch) {}

void BluetoothSwitch::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    if (attribute.name == "zmbt_switch" && attribute.encoding.empty() &&
        (attribute.value == "on" || attribute.value == "off")) {
      Publish(kBluetoothStatus, "power::" + attribute.value + "\n");
    } else {
      Complain(attribute, "neither on nor off");
    }
  }
}

BluetoothSettings::BluetoothSettings(EventLoop* loop) : Service(loop, kSettings) {}

void BluetoothSettings::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    if (attribute.name == "mac" && (!attribute.encoding.empty() || !IsMac(attribute.value))) {
      Complain(attribute, "no MAC address");
    }
    if (attribute.name == "pairingcode" &&
        (!attribute.encoding.empty() || attribute.value.empty())) {
      Complain(attribute, "no pairing code");
    }
  }
}

}  // namespace headunit
