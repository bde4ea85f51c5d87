// Command 5: satellites, position and speed; navigation test requests.
#ifndef KORVANDIS_COMMANDS_ATCMDGPS_H
#define KORVANDIS_COMMANDS_ATCMDGPS_H

#include "ATCmd.h"
#include "GpsController.h"

// Command numbers of the navigation service. What 2, 3, 5 and 10 mean is not known.
enum E_NAVI_MSG_CMD : int {
  NAVI_MSG_ANGLE = 1,
  NAVI_MSG_2 = 2,
  NAVI_MSG_3 = 3,
  NAVI_MSG_5 = 5,
  NAVI_MSG_10 = 10,
};

// Owns the GpsController: opened and started at construction and again before every command,
// stopped and closed at destruction.
class CmdGPS : public Cmd {
 public:
  CmdGPS();
  ~CmdGPS() override;
  bool Work(pkg* record) override;

  // Open and start the controller, and stop and close it; false after the first step that fails,
  // which is logged.
  bool Init();
  bool Close();

  // Writes the sensitivity list, at most kReplySize bytes, and its length: the number of satellites
  // it carries (19 at most), then four bytes for each: id and 24 bits of C/N0, high byte first.
  void GetSensitivityBuf(unsigned char* buffer, int& length);

  // Writes one navigation command; the result of the write.
  bool SendMsg2Navi(E_NAVI_MSG_CMD command);

  // Puts the navigation service's angle text into the kReplySize bytes at `buffer`, cut to fit;
  // leaves them when there is none.
  void GetAngle(char* buffer);

  // Replaces `text` by the part after its last '=', by four spaces when there is none; an empty
  // text must have room for them.
  void GetAngleStr(char* text);

  static const int kReplySize = 78;

 private:
  void SendPosition();
  void SendSpeed();
  void SendAngle();

  GpsController m_gpsController;
};

#endif  // KORVANDIS_COMMANDS_ATCMDGPS_H
