// Command 3: media playback.
#ifndef KORVANDIS_COMMANDS_ATCMDMEDIA_H
#define KORVANDIS_COMMANDS_ATCMDMEDIA_H

#include "ATCmd.h"

class MediaDISC;

class CmdMedia : public Cmd {
 public:
  bool Work(pkg* record) override;

 private:
  bool HasParameters(int needed) const;
  bool SendNumber(const char* path, const char* attribute);
  bool SendDiscState();
  bool SendDiscPosition(MediaDISC* disc);
};

#endif  // KORVANDIS_COMMANDS_ATCMDMEDIA_H
