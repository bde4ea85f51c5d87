#include "ATMedia.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>

#include "ATCmd.h"
#include "misc.h"
#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/logbase.h"
#include "platform/pps_guards.h"
#include "platform/print.h"

const char* const DISC_CMD_cmd = "cmd";
const char* const DISC_CMD_param1 = "param1";
const char* const DISC_CMD_param2 = "param2";

namespace {

const char kDiscControl[] = "/pps/zelmar/disc/control";
const char kDiscPlaying[] = "/pps/zelmar/disc/playing";
const char kKey[] = "/pps/zelmar/system/key";
const char kAutotestControl[] = "/pps/zelmar/media/autotest/control";

const std::size_t kLineSize = 256;     // of a path or an attribute line
const std::size_t kValueSize = 1024;   // of an encoded value
const std::size_t kObjectSize = 1024;  // of the playing record, as read

// Disc commands.
const int kDiscStop = 129;
const int kDiscPause = 130;
const int kDiscPlay = 131;
const int kDiscNext = 135;
const int kDiscPrevious = 136;
const int kDiscJump = 182;
const int kDiscRepeat = 192;
const int kDisc193 = 193;  // sent for repeat modes 3 and 4; its meaning is not known

// Key codes.
const unsigned char kKeyPlay = 17;
const unsigned char kKeyPause = 18;  // also stops
const unsigned char kKeyNext = 20;
const unsigned char kKeyPrevious = 21;

// Parameter of each repeat mode's disc command; kNone: the other command serves the mode.
const unsigned char kNone = 255;
const unsigned char kRepeatParameter[] = {1, 0, 2, kNone, kNone};
const unsigned char k193Parameter[] = {kNone, kNone, kNone, 1, 0};

}  // namespace

Media::~Media() {}

int Media::CtrlPreNext(unsigned char direction) {
  switch (direction) {
    case 0:
      return PlayNext();
    case 1:
      return PlayPre();
    default:
      return 0;
  }
}

int Media::CtrlPlay(unsigned char operation) {
  switch (operation) {
    case 0:
      return Pause();
    case 1:
      return Play();
    case 2:
      return Stop();
    default:
      return 0;
  }
}

bool Media::WritePPS(const char* path, const char* name, const char* value) {
  char line[kLineSize];
  CopyText(line, sizeof(line), path);
  const platform::Descriptor object(OpenOrReport(line, O_RDWR | O_CREAT | O_TRUNC, Cmd::kPPSMode));
  if (!object.IsOpen()) return false;
  const int length = std::snprintf(line, sizeof(line), "%s:%s", name, value);
  platform::write(object.Get(), line, std::min(static_cast<std::size_t>(length), sizeof(line) - 1));
  LOGBASE(LOG_LEV_INFO, "WritePPS", "%s", line);
  return true;
}

bool Media::SendKey(unsigned char key) {
  char value[kValueSize];
  std::snprintf(value, sizeof(value),
                "json:{\"key\":%d,\"src\":\"wheel\",\"status\":\"dn\",\"param\":0}", key);
  WritePPS(kKey, "zmkey", value);
  std::snprintf(value, sizeof(value),
                "json:{\"key\":%d,\"src\":\"wheel\",\"status\":\"up\",\"param\":0}", key);
  return WritePPS(kKey, "zmkey", value);
}

bool Media::WriteDiscCommand(int command, int param1, int param2, bool report) {
  char value[kValueSize] = {0};
  std::snprintf(value, sizeof(value), "json:{\"%s\":%d,\"%s\":%d,\"%s\":%d}", DISC_CMD_cmd, command,
                DISC_CMD_param1, param1, DISC_CMD_param2, param2);
  if (report) platform::PrintError("wirtepps buf is('%s') \n", value);
  return WritePPS(kDiscControl, "zmcmd", value);
}

int MediaDISC::Publish(int command, int param1, int param2) {
  return WriteDiscCommand(command, param1, param2, true) ? 1 : 0;
}

void MediaDISC::PublishCmdCommmand(int command, int param1, int param2) {
  Publish(command, param1, param2);
}

int MediaDISC::PlayPre() { return Publish(kDiscPrevious, 1, 0); }
int MediaDISC::PlayNext() { return Publish(kDiscNext, 1, 0); }
int MediaDISC::Play() { return Publish(kDiscPlay, 1, 0); }
int MediaDISC::Pause() { return Publish(kDiscPause, 1, 0); }
int MediaDISC::Stop() { return Publish(kDiscStop, 1, 0); }

int MediaDISC::JumpTo(unsigned short folder, unsigned short number) {
  platform::PrintError("JumpTo(folde:%d,number:'%d') \n", folder, number);
  return Publish(kDiscJump, number, folder);
}

bool MediaDISC::GetSongNo(int& songNo, int& folder) {
  char text[kObjectSize];
  if (!ReadText(kDiscPlaying, text, sizeof(text))) return false;
  ReportText(text);
  platform::Decoder decoder;
  pps_decoder_parse_pps_str(decoder.Get(), text);
  if (pps_decoder_push(decoder.Get(), nullptr) == PPS_DECODER_OK) {
    if (pps_decoder_push(decoder.Get(), "trackinfo") == PPS_DECODER_OK) {
      pps_decoder_get_int(decoder.Get(), "curmediaid", &songNo);
      pps_decoder_get_int(decoder.Get(), "parentFolder", &folder);
      pps_decoder_pop(decoder.Get());
    }
    pps_decoder_pop(decoder.Get());
  }
  platform::PrintError("read fileId is('%d') songNo[%d] \n", folder, songNo);
  return true;
}

void MediaDISC::AskRepeatMode(unsigned char mode) {
  if (mode >= sizeof(kRepeatParameter)) return;
  if (kRepeatParameter[mode] != kNone) {
    PublishCmdCommmand(kDiscRepeat, kRepeatParameter[mode], 0);
  } else if (k193Parameter[mode] != kNone) {
    PublishCmdCommmand(kDisc193, k193Parameter[mode], 0);
  }
}

int MediaUsbSD::Press(const char* operation, unsigned char key) {
  platform::PrintError("do('%s') \n", operation);
  return SendKey(key) ? 1 : 0;
}

int MediaUsbSD::PlayPre() { return Press("MediaUsbSD::PlayPre", kKeyPrevious); }
int MediaUsbSD::PlayNext() { return Press("MediaUsbSD::PlayNext", kKeyNext); }
int MediaUsbSD::Play() { return Press("MediaUsbSD::Play", kKeyPlay); }
int MediaUsbSD::Pause() { return Press("MediaUsbSD::Pause", kKeyPause); }
int MediaUsbSD::Stop() { return Press("MediaUsbSD::Stop", kKeyPause); }

int MediaUsbSD::JumpTo(unsigned short folder, unsigned short number) {
  const int index = number != 0 ? number - 1 : 0;
  char value[kValueSize] = {0};
  std::snprintf(value, sizeof(value), "json:{\"folderid\":%d,\"index\":%d}", folder, index);
  platform::PrintError("goto(folder[%d],index[%d]') \n", folder, index);
  return WritePPS(kAutotestControl, "autotest_play", value) ? 1 : 0;
}

int CommMedia::PlayPre() { return 0; }
int CommMedia::PlayNext() { return 0; }
int CommMedia::Play() { return 0; }
int CommMedia::Pause() { return 0; }
int CommMedia::Stop() { return 0; }
int CommMedia::JumpTo(unsigned short, unsigned short) { return 0; }

void CommMedia::PublishCmdCommmand(int command, int param1, int param2) {
  WriteDiscCommand(command, param1, param2, false);
}
