// Command 7: the version texts of the unit's software and modules.
#ifndef KORVANDIS_COMMANDS_ATCMDVERSION_H
#define KORVANDIS_COMMANDS_ATCMDVERSION_H

#include <cstddef>
#include <map>

#include "ATCmd.h"

// A variable of this type can hold any sub-command byte, also one without an enumerator.
enum VER_SUB_CMD : int {
  VER_MPU = 1,
  VER_OS = 2,
  VER_NAVI = 3,  // falls back to a text file
  VER_BT = 4,
  VER_MAP = 5,
  VER_MPU_MODEL = 6,
  VER_ZMMPU = 8,
  VER_ZMOS = 9,
  VER_TOUCHPANEL = 27,
  VER_IFS = 29,
};

// Where a version lies: the string member `ver` of the JSON attribute `attr` of the object `path`.
struct verinfo {
  const char* path;
  const char* attr;
  const char* ver;
};

const std::size_t kInfoTextSize = 256;  // bytes for a text of infoExchg, its end included

// Working record of one request: what to look for, and the text found.
struct infoExchg {
  char path[kInfoTextSize];
  char attr[kInfoTextSize];
  char ver[kInfoTextSize];
  char verStr[kInfoTextSize];
  int verLen;  // bytes in verStr
};

class CmdVer : public Cmd {
 public:
  CmdVer();
  bool Work(pkg* record) override;

  // Replies with the version of `subCommand`: empty when it is not known or not found. Returns the
  // result of the reply, 0 when the sub-command or its source is unknown.
  int SendVer(VER_SUB_CMD subCommand);

  // Sets verStr and verLen to the text that path, attr and ver name; false, with both left
  // unchanged, when there is no such text.
  bool GetVerStr(infoExchg& info);

 private:
  int SendNaviInfo();

  std::map<VER_SUB_CMD, verinfo> m_verMap;
};

#endif  // KORVANDIS_COMMANDS_ATCMDVERSION_H
