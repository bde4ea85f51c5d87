#include "ATCmdMacAuth.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "i2c_devctl.h"
#include "misc.h"
#include "platform/print.h"

namespace {

enum MAC_AUTH_SUB_CMD {
  MAC_AUTH_READ_CHIP_ID = 0,
};

const char kBus[] = "/dev/i2c4";
const std::uint32_t kBusSpeed = 32000;
const std::uint32_t kChip = 0x11;  // 7-bit address
const std::uint32_t kIdentityRegister = 0x04;
const std::uint32_t kRegisterWidth = 1;
const int kVerbose = 1;
const unsigned char kIdentity[] = {0x00, 0x00, 0x02, 0x00};
const std::size_t kPathSize = 32;
const std::size_t kReceiveSize = 128;

}  // namespace

bool CmdMacAuth::Work(pkg* record) {
  if (!GetHead(record)) return false;
  if (m_subCmd != MAC_AUTH_READ_CHIP_ID) return true;
  platform::PrintError("cmd_sub_read(cmd:'%d') \n", m_subCmd);
  const unsigned char verdict = static_cast<unsigned char>(read_chip_id());
  Reply(&verdict, 1);
  return true;
}

int CmdMacAuth::read_chip_id() {
  char path[kPathSize];
  CopyText(path, sizeof(path), kBus);
  unsigned char received[kReceiveSize] = {0};
  const int bus = open_i2c(path, kBusSpeed, kVerbose);
  if (bus < 0) return 0;
  const int result = i2c_read(bus, kChip, kIdentityRegister, kRegisterWidth, received,
                              sizeof(kIdentity), kVerbose);
  close_i2c(bus);
  // A part that was not seen has not passed.
  if (result != 0) return 0;
  if (!std::equal(kIdentity, kIdentity + sizeof(kIdentity), received)) {
    platform::PrintOutput("failed \n");
    return 0;
  }
  platform::PrintOutput("success \n");
  return 1;
}
