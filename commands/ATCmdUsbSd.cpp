#include "ATCmdUsbSd.h"

#include <string>

namespace {

enum USB_SD_SUB_CMD {
  USB_PRESENT = 0,
  SD_PRESENT = 1,
  USB_SYNCHRONISED = 2,
  SD_SYNCHRONISED = 3,
};

const char kDeviceStatus[] = "/pps/zelmar/system/dev_status";
// Without a leading slash: found when the service runs in the unit's root directory.
const char kUsbStatus[] = "pps/zelmar/media/zmusb/status";
const char kSdStatus[] = "pps/zelmar/media/zmsd/status";

}  // namespace

bool CmdUsbSd::Work(pkg* record) {
  if (!GetHead(record)) return false;
  bool yes = false;
  switch (m_subCmd) {
    case USB_PRESENT:
      yes = IsPresent("zmusb");
      break;
    case SD_PRESENT:
      yes = IsPresent("zmsd");
      break;
    case USB_SYNCHRONISED:
      yes = IsSynchronised(kUsbStatus);
      break;
    case SD_SYNCHRONISED:
      yes = IsSynchronised(kSdStatus);
      break;
    default:
      return true;
  }
  const unsigned char answer = yes ? 1 : 0;
  return Reply(&answer, 1) != 0;
}

bool CmdUsbSd::IsPresent(const char* attribute) {
  int value = 0;
  GetPPSIntVal(kDeviceStatus, attribute, value);
  return value == 1;
}

bool CmdUsbSd::IsSynchronised(const char* path) {
  std::string value;
  return GetPPSStringVal(path, "zm_sync", value) != 0 && value == "finish";
}
