// Command 0: switch the audio/video source.
#ifndef KORVANDIS_COMMANDS_ATCMDSRC_H
#define KORVANDIS_COMMANDS_ATCMDSRC_H

#include "ATCmd.h"

// Has no sub-commands: the first parameter byte alone says what to do. Never answers the MCU.
class CmdSrc : public Cmd {
 public:
  CmdSrc();
  bool Work(pkg* record) override;

  // Switches to the source in m_src.
  void chg();
  // The report request; it only logs.
  void report();

  // Writes one launcher request; true when it was written.
  bool UpdatePPS_App_Launcher(const char* command, const char* application, const char* data);

 private:
  unsigned char m_src;  // the test station's source code; 0 asks for a report
};

#endif  // KORVANDIS_COMMANDS_ATCMDSRC_H
