#include "ATCmdMedia.h"

#include <fcntl.h>

#include "ATMedia.h"
#include "ATSrc.h"
#include "platform/logbase.h"
#include "platform/print.h"

namespace {

const char kDiscDevice[] = "/pps/zelmar/disc/device";
const char kDiscStatus[] = "/pps/zelmar/disc/status";
const char kDiscSetting[] = "/pps/zelmar/disc/setting_status";

enum MEDIA_SUB_CMD {
  MEDIA_PRE_NEXT = 0,
  MEDIA_JUMP = 1,
  MEDIA_PLAY = 2,
  MEDIA_DISC_COMMAND_200 = 3,
  MEDIA_DISC_DEVICE = 4,
  MEDIA_DISC_POSITION = 5,
  MEDIA_DISC_STATE = 6,
  MEDIA_SET_REGION = 7,
  MEDIA_GET_REGION = 8,
  MEDIA_REPEAT = 9,
};

// Framework identifiers of the sources that have a player.
const unsigned char kDisc = 1;
const unsigned char kSd = 2;
const unsigned char kRusb = 4;

const int kDiscStatePlaying = 22;
const unsigned char kMaxRegion = 6;

// The parameter bytes that each sub-command reads.
int ParametersOf(unsigned char subCommand) {
  switch (subCommand) {
    case MEDIA_PRE_NEXT:
    case MEDIA_PLAY:
    case MEDIA_SET_REGION:
    case MEDIA_REPEAT:
      return 1;
    case MEDIA_JUMP:
      return 4;
    default:
      return 0;
  }
}

unsigned short BigEndian(const unsigned char* bytes) {
  return static_cast<unsigned short>(bytes[0] << 8 | bytes[1]);
}

// The low 8 bits of a number.
unsigned char Low(int value) { return static_cast<unsigned char>(value & 0xFF); }

}  // namespace

bool CmdMedia::Work(pkg* record) {
  platform::PrintError("CmdMedia::Work? \n");
  if (!GetHead(record)) return false;
  platform::PrintError("CmdMedia::Work! \n");
  const unsigned char* const parameters = record->Parameters();

  Src src;
  src.GetNowPlaying();
  platform::PrintError("src.m_srcID is('%d') \n", src.m_srcID);
  CommMedia common;
  MediaDISC discPlayer;
  MediaUsbSD usbSdPlayer;
  MediaDISC* const disc = src.m_srcID == kDisc ? &discPlayer : nullptr;
  Media* player = disc;
  if (src.m_srcID >= kSd && src.m_srcID <= kRusb) player = &usbSdPlayer;

  if (!HasParameters(ParametersOf(m_subCmd))) return true;
  switch (m_subCmd) {
    case MEDIA_PRE_NEXT:
      if (player != nullptr) player->CtrlPreNext(parameters[0]);
      return true;
    case MEDIA_JUMP:
      if (player != nullptr) player->JumpTo(BigEndian(parameters), BigEndian(parameters + 2));
      return true;
    case MEDIA_PLAY:
      if (player != nullptr) player->CtrlPlay(parameters[0]);
      return true;
    case MEDIA_DISC_COMMAND_200:
      if (disc != nullptr) {
        disc->PublishCmdCommmand(kDiscCommand200, 1, 0);
      } else {
        common.PublishCmdCommmand(kDiscCommand200, 1, 0);
      }
      return true;
    case MEDIA_DISC_DEVICE:
      return SendNumber(kDiscDevice, "disc");
    case MEDIA_DISC_POSITION:
      return SendDiscPosition(disc);
    case MEDIA_DISC_STATE:
      return SendDiscState();
    case MEDIA_SET_REGION:
      if (parameters[0] <= kMaxRegion) WritePPS(kDiscSetting, "zmregion", parameters[0], O_WRONLY);
      return true;
    case MEDIA_GET_REGION:
      return SendNumber(kDiscSetting, "zmregion");
    case MEDIA_REPEAT:
      if (disc != nullptr) disc->AskRepeatMode(parameters[0]);
      return true;
    default:
      return true;
  }
}

bool CmdMedia::HasParameters(int needed) const {
  if (ParameterCount() >= needed) return true;
  LOGBASE(LOG_LEV_ERROR, "Work", "sub-command %d with %d parameter bytes, %d needed!\n", m_subCmd,
          ParameterCount(), needed);
  return false;
}

bool CmdMedia::SendNumber(const char* path, const char* attribute) {
  int value = 0;
  GetPPSIntVal(path, attribute, value);
  const unsigned char data = Low(value);
  return Reply(&data, 1) != 0;
}

bool CmdMedia::SendDiscState() {
  int state = 0;
  GetPPSIntVal(kDiscStatus, "discstate", state);
  const unsigned char playing = state == kDiscStatePlaying ? 1 : 0;
  return Reply(&playing, 1) != 0;
}

bool CmdMedia::SendDiscPosition(MediaDISC* disc) {
  int folder = 0;
  int songNo = 0;
  if (disc != nullptr) disc->GetSongNo(songNo, folder);
  const unsigned char data[] = {Low(folder / 256), Low(folder % 256), Low(songNo / 256),
                                Low(songNo % 256)};
  return Reply(data, sizeof(data)) != 0;
}
