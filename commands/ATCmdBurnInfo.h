// Command 10: the unit's own identity, held by the system information driver.
#ifndef KORVANDIS_COMMANDS_ATCMDBURNINFO_H
#define KORVANDIS_COMMANDS_ATCMDBURNINFO_H

#include "ATCmd.h"

class CmdBurnInfo : public Cmd {
 public:
  bool Work(pkg* record) override;

  // Read an identity: 32 bytes into `identity` and the driver's length, bounded to 0..32, into
  // `length`. On failure both are left unchanged.
  bool GetUUID(unsigned char* identity, int& length);
  bool GetMachineSN(unsigned char* identity, int& length);

  // Burn in an identity text of at most 32 bytes with a `length` (0 means 16). True when the driver
  // took it; a longer text is refused with one line on standard output and never reaches the
  // driver.
  bool SetUUID(const char* text, int length);
  bool SetMachineSN(const char* text, int length);

 private:
  void WriteUUID(const pkg* record);
  void WriteMachineSN(const pkg* record);
  void SendIdentity(bool (CmdBurnInfo::*read)(unsigned char*, int&), int nominalLength);
};

#endif  // KORVANDIS_COMMANDS_ATCMDBURNINFO_H
