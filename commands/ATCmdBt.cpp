#include "ATCmdBt.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "misc.h"
#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/logbase.h"
#include "platform/pps_guards.h"
#include "platform/print.h"
#include "wire/hex.h"

namespace {

const char kSystemInfo[] = "/pps/zelmar/setting/systeminfo";
const char kAvrcpControl[] = "/pps/services/bluetooth/avrcp/control";
const char kHandsfreeControl[] = "/pps/services/handsfree/control";
const char kBtSettings[] = "/pps/services/bluetooth/settings";
const char kBtControl[] = "/pps/zelmar/setting/bt_control";

// Chosen by the first parameter byte.
const char* const sPreNext[2] = {"previous", "next"};
const char* const sPlayStop[2] = {"play", "stop"};
const char* const sHangupCall[2] = {"HFP_ACCEPT", "HFP_HANGUP"};

const std::size_t kTextSize = 128;     // name or pairing code
const std::size_t kNumberSize = 35;    // phone number
const std::size_t kPPSTextSize = 126;  // MAC or name as read
const int kMacInput = 8;               // bytes taken; the first 6 are used
const int kMacFields = 6;

}  // namespace

bool CmdBtChgName::Work(pkg* record) {
  if (!GetHead(record)) return false;
  LOGBASE(LOG_LEV_DEBUG, "Work", "CmdBtChgName, m_subCmd = %d\n", m_subCmd);
  switch (m_subCmd) {
    case BT_SET_NAME:
      return WriteText(record, kSystemInfo, "zmlocalname");
    case BT_PRE_NEXT:
      return WriteSelected(record, kAvrcpControl, sPreNext);
    case BT_PLAY_STOP:
      return WriteSelected(record, kAvrcpControl, sPlayStop);
    case BT_HANGUP_CALL:
    case BT_HANGUP_CALL_2:
      return WriteSelected(record, kHandsfreeControl, sHangupCall);
    case BT_CALL:
      return Dial(record);
    case BT_SET_PAIRING_CODE:
      return WriteText(record, kBtSettings, "pairingcode");
    case BT_GET_MAC_ADDR:
      SendMacAddr();
      return true;
    case BT_SET_SWITCH:
      return Switch(record);
    case BT_GET_NAME:
      SendName();
      return true;
    case BT_SET_MAC_ADDR:
      return WriteMacAddr(record);
    default:
      return true;
  }
}

bool CmdBtChgName::WriteText(const pkg* record, const char* path, const char* attribute) {
  char text[kTextSize];
  if (!ParameterText(record, text, sizeof(text))) return true;
  return WritePPS(path, attribute, text, O_WRONLY) != 0;
}

bool CmdBtChgName::WriteSelected(const pkg* record, const char* path,
                                 const char* const (&commands)[2]) {
  const unsigned char selector = Selector(record);
  if (selector > 1) return true;
  return WritePPS(path, "command", commands[selector], O_WRONLY) != 0;
}

bool CmdBtChgName::Dial(const pkg* record) {
  char number[kNumberSize];
  if (!ParameterText(record, number, sizeof(number))) return true;
  const platform::Descriptor object(platform::open(kHandsfreeControl, O_WRONLY, kPPSMode));
  if (!object.IsOpen()) {
    platform::PrintError("open(/pps/services/handsfree/control) failed\n");
    return false;
  }
  platform::Encoder encoder;
  pps_encoder_start_object(encoder.Get(), "@control");
  pps_encoder_add_string(encoder.Get(), "command", "HFP_CALL");
  pps_encoder_add_string(encoder.Get(), "cmd_data", number);
  pps_encoder_end_object(encoder.Get());
  WriteEncoded(object.Get(), &encoder);
  return true;
}

bool CmdBtChgName::Switch(const pkg* record) {
  const unsigned char selector = Selector(record);
  LOGBASE(LOG_LEV_DEBUG, "Work", "---CmdBtChgName, set BT switch to : %d\n", selector);
  if (selector > 1) {
    LOGBASE(LOG_LEV_ERROR, "Work", "CmdBtChgName, BT_SET_SWITCH, unknown cmd : %d\n", selector);
    return true;
  }
  return WritePPS(kBtControl, "zmbt_switch", selector == 1 ? "on" : "off", O_WRONLY) != 0;
}

bool CmdBtChgName::WriteMacAddr(const pkg* record) {
  const int count = ParameterCount();
  if (count > kMacInput) {
    LOGBASE(LOG_LEV_ERROR, "Work", "MAC of %d bytes does not fit %d, refused!\n", count, kMacInput);
    return true;
  }
  unsigned char mac[kMacInput] = {0};
  std::memcpy(mac, record->Parameters(), static_cast<std::size_t>(count));
  char text[3 * kMacFields] = {0};  // "XX:XX:XX:XX:XX:XX" and its end
  for (int i = 0; i < kMacFields; ++i) {
    char* const field = text + 3 * i;
    if (i > 0) field[-1] = ':';
    Hex2char(static_cast<unsigned char>(mac[i] >> 4), field);
    Hex2char(mac[i] & 0x0F, field + 1);
  }
  WritePPS(kBtSettings, "mac", text, O_WRONLY);
  return true;
}

void CmdBtChgName::SendMacAddr() {
  LOGBASE(LOG_LEV_DEBUG, "Work", "BT_GET_MAC_ADDR\n");
  std::vector<int> fields;
  if (!GetBtMacAddr(fields) || fields.empty()) {
    LOGBASE(LOG_LEV_ERROR, "Work", "BT_GET_MAC_ADDR, get mac addr fail, send all 0 to mcu\n");
    fields.assign(kMacFields, 0);
  }
  unsigned char data[kPPSTextSize];  // a text has at most one field more than separators
  const std::size_t count = std::min(fields.size(), sizeof(data));
  for (std::size_t i = 0; i < count; ++i) data[i] = static_cast<unsigned char>(fields[i] & 0xFF);
  Reply(data, static_cast<int>(count));
}

bool CmdBtChgName::GetBtMacAddr(std::vector<int>& fields) {
  std::string mac;
  if (GetPPSStringVal(kBtSettings, "mac", mac) == 0) {
    LOGBASE(LOG_LEV_ERROR, "GetBtMacAddr", "CmdBtChgName, get bt mac Addr from pps fail\n");
    return false;
  }
  char text[kPPSTextSize];
  CopyText(text, sizeof(text), mac.c_str());
  LOGBASE(LOG_LEV_DEBUG, "GetBtMacAddr", "CmdBtChgName, mac = %s\n", text);
  fields.clear();
  unsigned field = 0;  // unsigned: a field of many digits keeps its low bits
  for (const char* c = text; *c != '\0'; ++c) {
    LOGBASE(LOG_LEV_DEBUG, "GetBtMacAddr", "CmdBtChgName, c = %c\n", *c);
    const int digit = wire::HexValue(*c);
    if (digit >= 0) {
      field = field * 16 + static_cast<unsigned>(digit);
      continue;
    }
    LOGBASE(LOG_LEV_DEBUG, "GetBtMacAddr", "push, tmpData = %d\n", static_cast<int>(field));
    fields.push_back(static_cast<int>(field));
    field = 0;
  }
  fields.push_back(static_cast<int>(field));
  return true;
}

void CmdBtChgName::Hex2char(unsigned char value, char* digit) {
  if (value > 15) return;
  *digit = wire::UpperHexDigit(value);
}

void CmdBtChgName::SendName() {
  std::string name;
  if (GetPPSStringVal(kSystemInfo, "zmlocalname", name) == 0 || name.empty()) name = "error";
  char text[kPPSTextSize];
  CopyText(text, sizeof(text), name.c_str());
  Reply(reinterpret_cast<const unsigned char*>(text), static_cast<int>(std::strlen(text)));
  LOGBASE(LOG_LEV_DEBUG, "Work", "BT_GET_NAME, name = %s\n", text);
}
