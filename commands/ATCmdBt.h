// Command 4: Bluetooth and hands-free.
#ifndef KORVANDIS_COMMANDS_ATCMDBT_H
#define KORVANDIS_COMMANDS_ATCMDBT_H

#include <vector>

#include "ATCmd.h"

enum BT_SUB_CMD {
  BT_SET_NAME = 0,
  BT_PRE_NEXT = 1,
  BT_PLAY_STOP = 2,
  BT_HANGUP_CALL = 3,
  BT_CALL = 4,
  BT_SET_PAIRING_CODE = 5,
  BT_HANGUP_CALL_2 = 6,  // the same as BT_HANGUP_CALL
  BT_GET_MAC_ADDR = 7,
  BT_SET_SWITCH = 11,
  BT_GET_NAME = 13,
  BT_SET_MAC_ADDR = 14,
};

class CmdBtChgName : public Cmd {
 public:
  bool Work(pkg* record) override;

  // Reads the MAC text and makes `fields` hold one number for each field of it. False, with
  // `fields` left unchanged, when there is no text.
  bool GetBtMacAddr(std::vector<int>& fields);

  // Stores the upper-case hexadecimal digit of `value` at `digit`; nothing when value is above 15.
  void Hex2char(unsigned char value, char* digit);

 private:
  bool WriteText(const pkg* record, const char* path, const char* attribute);
  bool WriteSelected(const pkg* record, const char* path, const char* const (&commands)[2]);
  bool Dial(const pkg* record);
  bool Switch(const pkg* record);
  bool WriteMacAddr(const pkg* record);
  void SendMacAddr();
  void SendName();
};

#endif  // KORVANDIS_COMMANDS_ATCMDBT_H
