// The command numbers.

#include <map>

#include "ATCmdBt.h"
#include "ATCmdBurnInfo.h"
#include "ATCmdGPS.h"
#include "ATCmdKey.h"
#include "ATCmdMacAuth.h"
#include "ATCmdMedia.h"
#include "ATCmdSrc.h"
#include "ATCmdUsbSd.h"
#include "ATCmdVersion.h"
#include "ATMcuFile.h"

namespace {

template <class Command>
Cmd* Create() {
  return new Command;
}

struct Row {
  int number;
  Cmd* (*create)();
};

// In order of construction.
const Row kRows[] = {
    {0, &Create<CmdSrc>},       {4, &Create<CmdBtChgName>}, {7, &Create<CmdVer>},
    {3, &Create<CmdMedia>},     {5, &Create<CmdGPS>},       {6, &Create<CmdKey>},
    {10, &Create<CmdBurnInfo>}, {12, &Create<CmdMacAuth>},  {13, &Create<CmdUsbSd>},
};

}  // namespace

void CreateCommands(std::map<int, Cmd*>& commands) {
  for (const Row& row : kRows) commands[row.number] = row.create();
}
