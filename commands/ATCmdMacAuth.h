// Command 12: checks the authentication chip's identity.
#ifndef KORVANDIS_COMMANDS_ATCMDMACAUTH_H
#define KORVANDIS_COMMANDS_ATCMDMACAUTH_H

#include "ATCmd.h"

class CmdMacAuth : public Cmd {
 public:
  bool Work(pkg* record) override;

  // 1 when the chip's identity was read and is the expected one, 0 otherwise.
  int read_chip_id();
};

#endif  // KORVANDIS_COMMANDS_ATCMDMACAUTH_H
