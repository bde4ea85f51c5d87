// Command 6: key calibration.
#ifndef KORVANDIS_COMMANDS_ATCMDKEY_H
#define KORVANDIS_COMMANDS_ATCMDKEY_H

#include "ATCmd.h"

class CmdKey : public Cmd {
 public:
  bool Work(pkg* record) override;

  // Runs the script at `path` with one argument and waits at most `limit` seconds for it. True when
  // it exited with 0, and also when it outlived the limit: it is then left running. False when it
  // could not be started, was killed or exited with another code. Blocks its caller.
  bool ExcuteShell(const char* path, const char* argument, int limit);
};

#endif  // KORVANDIS_COMMANDS_ATCMDKEY_H
