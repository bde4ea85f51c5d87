#include "ATCmdVersion.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "misc.h"
#include "platform/io.h"
#include "platform/logbase.h"
#include "platform/pps_guards.h"
#include "platform/print.h"

namespace {

const char kVersionStatus[] = "/pps/zelmar/system/version_status";
const char kZmVersionStatus[] = "/pps/zelmar/system/zmversion_status";
const char kNaviSystemInfo[] = "/pps/zelmar/navigation/systeminfo";
const char kNaviInfoFile[] = "/zmnavigator/zmnavigator.info";

const std::size_t kObjectSize = 16 * 1024;  // of a version object; the longest one has 5 records
const std::size_t kInfoFileSize = 256;

// A reply holds no more of a text than this.
int ReplyLength(std::size_t length) {
  return static_cast<int>(std::min(length, static_cast<std::size_t>(Cmd::kMaxReply)));
}

}  // namespace

CmdVer::CmdVer() {
  m_verMap[VER_MPU] = {kVersionStatus, "mpu", "version"};
  m_verMap[VER_OS] = {kVersionStatus, "os", "version"};
  m_verMap[VER_NAVI] = {kNaviSystemInfo, "engerversion", "data"};
  m_verMap[VER_MAP] = {"/pps/zelmar/disc/mpeginfo", "mapversion", "version"};
  m_verMap[VER_BT] = {"/pps/services/bluetooth/btmonitorstatus", "btmonitorstatus", "version"};
  m_verMap[VER_MPU_MODEL] = {kVersionStatus, "mpu", "model"};
  m_verMap[VER_ZMMPU] = {kZmVersionStatus, "zmmpu", "version"};
  m_verMap[VER_ZMOS] = {kZmVersionStatus, "zmos", "version"};
  m_verMap[VER_TOUCHPANEL] = {kVersionStatus, "touchpanel", "version"};
  m_verMap[VER_IFS] = {kVersionStatus, "ifs", "version"};
}

bool CmdVer::Work(pkg* record) {
  if (!GetHead(record)) return false;
  return SendVer(static_cast<VER_SUB_CMD>(m_subCmd)) != 0;
}

int CmdVer::SendVer(VER_SUB_CMD subCommand) {
  if (m_mcu == nullptr) return 0;
  const auto entry = m_verMap.find(subCommand);
  if (entry == m_verMap.end()) {
    Reply(nullptr, 0);
    platform::PrintError("VER_SUB_CMD is not define!('%d') \n", subCommand);
    return 0;
  }
  LOGBASE(LOG_LEV_DEBUG, "SendVer", "m_subCmd = %d\n", subCommand);
  if (subCommand == VER_NAVI && platform::access(kNaviSystemInfo, F_OK) != 0) {
    return SendNaviInfo();
  }

  infoExchg info;
  info.verStr[0] = '\0';
  info.verLen = 0;
  CopyText(info.path, sizeof(info.path), entry->second.path);
  CopyText(info.attr, sizeof(info.attr), entry->second.attr);
  CopyText(info.ver, sizeof(info.ver), entry->second.ver);
  GetVerStr(info);
  return Reply(reinterpret_cast<const unsigned char*>(info.verStr),
               ReplyLength(static_cast<std::size_t>(info.verLen)));
}

// The version follows the first colon of the info file; without a colon it is the whole text.
int CmdVer::SendNaviInfo() {
  char text[kInfoFileSize];
  // A FIFO in its place would be waited for.
  if (!ReadText(kNaviInfoFile, text, sizeof(text), O_RDONLY | O_NONBLOCK)) return 0;
  LOGBASE(LOG_LEV_DEBUG, "SendVer", "buf = %s\n", text);
  ReportText(text);
  const char* const colon = std::strchr(text, ':');
  const char* const version = colon != nullptr ? colon + 1 : text;
  return Reply(reinterpret_cast<const unsigned char*>(version), ReplyLength(std::strlen(version)));
}

bool CmdVer::GetVerStr(infoExchg& info) {
  platform::PrintError("path is('%s') \n", info.path);
  platform::PrintError("attr is('%s') \n", info.attr);
  platform::PrintError("ver is('%s') \n", info.ver);
  char text[kObjectSize];
  if (!ReadText(info.path, text, sizeof(text))) return false;
  ReportText(text);

  platform::Decoder decoder;
  const char* found = nullptr;
  pps_decoder_parse_pps_str(decoder.Get(), text);
  if (pps_decoder_push(decoder.Get(), nullptr) == PPS_DECODER_OK) {
    // A member of that name one level up is another value: no entry, no text.
    if (pps_decoder_push(decoder.Get(), info.attr) == PPS_DECODER_OK) {
      pps_decoder_get_string(decoder.Get(), info.ver, &found);
      pps_decoder_pop(decoder.Get());
    }
    pps_decoder_pop(decoder.Get());
  }
  if (found == nullptr) return false;

  CopyText(info.verStr, sizeof(info.verStr), found);
  info.verLen = static_cast<int>(std::strlen(info.verStr));
  platform::PrintError("verStr is('%s') \n", found);
  platform::PrintError("verLen is('%d') \n", static_cast<int>(std::strlen(found)));
  return true;
}
