#include "ATCmdBurnInfo.h"

#include <devctl.h>
#include <fcntl.h>

#include <algorithm>
#include <cstring>

#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/print.h"
#include "wire/devices.h"

namespace {

const char kDevice[] = "/dev/sysinfo";
const char kHostSN[] = "/pps/zelmar/system/hostsn";

enum BURN_SUB_CMD {
  BURN_WRITE_MACHINE_SN = 2,
  BURN_READ_MACHINE_SN = 3,
  BURN_WRITE_UUID = 10,
  BURN_READ_UUID = 11,
};

const int kIdentitySize = static_cast<int>(sizeof(sysinfo_param_t().uuid));
const int kUUIDLength = 16;
const int kMachineSNLength = 20;

// The differences between the two identities.
struct Identity {
  const char* setName;  // as its lines name the write
  std::uint32_t get;
  std::uint32_t set;
  const char* getDcmd;
  const char* setDcmd;
};

const Identity kUUID = {"SetUUID", DCMD_SYS_INFO_GET_UUID, DCMD_SYS_INFO_SET_UUID,
                        "DCMD_SYS_INFO_GET_UUID", "DCMD_SYS_INFO_SET_UUID"};
const Identity kMachineSN = {"SetMachineSN", DCMD_SYS_INFO_GET_BAR_CODE, DCMD_SYS_INFO_SET_BAR_CODE,
                             "DCMD_SYS_INFO_GET_BAR_CODE", "DCMD_SYS_INFO_SET_BAR_CODE"};

int Request(int fd, std::uint32_t dcmd, sysinfo_param_t* record) {
  return ::devctl(fd, static_cast<int>(dcmd), record, sizeof(*record), nullptr);
}

// Reads one identity into a zeroed record whose length is then within 0..32.
bool Read(const Identity& identity, sysinfo_param_t* record) {
  *record = sysinfo_param_t();
  const platform::Descriptor driver(platform::open(kDevice, O_RDWR));
  if (!driver.IsOpen()) {
    platform::PrintError("open /dev/sysinfo failed!\n");
    return false;
  }
  const int error = Request(driver.Get(), identity.get, record);
  if (error != 0) {
    platform::PrintError("%s: devctl failed, errno=%d \n", identity.getDcmd, error);
    return false;
  }
  record->length = std::max(0, std::min(record->length, kIdentitySize));
  return true;
}

bool Write(const Identity& identity, const char* text, int length) {
  sysinfo_param_t record = sysinfo_param_t();
  const std::size_t size = std::strlen(text);
  if (size > sizeof(record.uuid)) {
    platform::PrintOutput("%s: identity of %d bytes does not fit %d \n", identity.setName,
                          static_cast<int>(size), kIdentitySize);
    return false;
  }
  std::memcpy(record.uuid, text, size);
  record.length = length != 0 ? length : kUUIDLength;
  const platform::Descriptor driver(platform::open(kDevice, O_RDWR));
  if (!driver.IsOpen()) {
    platform::PrintOutput("%s: open /dev/sysinfo failed! \n", identity.setName);
    return false;
  }
  const int error = Request(driver.Get(), identity.set, &record);
  if (error != 0) {
    platform::PrintOutput("%s: %s: devctl failed, errno=%d \n", identity.setName, identity.setDcmd,
                          error);
    return false;
  }
  platform::PrintOutput("%s: success \n", identity.setName);
  return true;
}

// Room for the longest parameter text.
const int kTextSize = 256;

}  // namespace

bool CmdBurnInfo::Work(pkg* record) {
  if (!GetHead(record)) return false;
  switch (m_subCmd) {
    case BURN_WRITE_MACHINE_SN:
      WriteMachineSN(record);
      break;
    case BURN_READ_MACHINE_SN:
      SendIdentity(&CmdBurnInfo::GetMachineSN, kMachineSNLength);
      break;
    case BURN_WRITE_UUID:
      WriteUUID(record);
      break;
    case BURN_READ_UUID:
      SendIdentity(&CmdBurnInfo::GetUUID, kUUIDLength);
      break;
    default:
      break;
  }
  return true;
}

void CmdBurnInfo::WriteMachineSN(const pkg* record) {
  platform::PrintError("cmd_UUID_sub_write(cmd:'%d') \n", m_subCmd);
  char text[kTextSize];
  ParameterText(record, text, sizeof(text));
  SetMachineSN(text, kMachineSNLength);
  // Published also when the driver did not take it, but never when it could not have.
  if (std::strlen(text) > static_cast<std::size_t>(kIdentitySize)) return;
  WritePPS(kHostSN, "sn", text, O_WRONLY | O_CREAT);
}

void CmdBurnInfo::WriteUUID(const pkg* record) {
  platform::PrintError("cmd_UUID_sub_write(cmd:'%d') \n", m_subCmd);
  char text[kTextSize];
  ParameterText(record, text, sizeof(text));
  SetUUID(text, kUUIDLength);
}

// Replies with an identity, or with as many zero bytes as it nominally has.
void CmdBurnInfo::SendIdentity(bool (CmdBurnInfo::*read)(unsigned char*, int&), int nominalLength) {
  platform::PrintError("cmd_UUID_sub_read!(cmd:'%d') \n", m_subCmd);
  unsigned char identity[sizeof(sysinfo_param_t().uuid)] = {0};
  int length = 0;
  if (!(this->*read)(identity, length)) length = nominalLength;
  Reply(identity, length);
}

bool CmdBurnInfo::GetUUID(unsigned char* identity, int& length) {
  sysinfo_param_t record;
  if (!Read(kUUID, &record)) return false;
  platform::PrintError("param.length = %d UUID(%.*s)\n", record.length, kIdentitySize, record.uuid);
  std::memcpy(identity, record.uuid, sizeof(record.uuid));
  length = record.length;
  return true;
}

bool CmdBurnInfo::GetMachineSN(unsigned char* identity, int& length) {
  sysinfo_param_t record;
  if (!Read(kMachineSN, &record)) return false;
  std::memcpy(identity, record.uuid, sizeof(record.uuid));
  length = record.length;
  return true;
}

bool CmdBurnInfo::SetUUID(const char* text, int length) { return Write(kUUID, text, length); }

bool CmdBurnInfo::SetMachineSN(const char* text, int length) {
  return Write(kMachineSN, text, length);
}
