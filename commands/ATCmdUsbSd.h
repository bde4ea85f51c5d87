// Command 13: presence and synchronisation of USB device and SD card.
#ifndef KORVANDIS_COMMANDS_ATCMDUSBSD_H
#define KORVANDIS_COMMANDS_ATCMDUSBSD_H

#include "ATCmd.h"

class CmdUsbSd : public Cmd {
 public:
  bool Work(pkg* record) override;

 private:
  bool IsPresent(const char* attribute);
  bool IsSynchronised(const char* path);
};

#endif  // KORVANDIS_COMMANDS_ATCMDUSBSD_H
