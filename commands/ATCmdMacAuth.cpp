#include "ATCmdMacAuth.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "i2c_devctl.h"
#include "misc.h"

namespace {

const unsigned char kReadChipId = 0;

const char kBus[] = "/dev/i2c4";
std::uint32_t const kBusSpeed = 32000;
std::uint32_t const kChip = 0x11;  // 7-bit address
std::uint32_t const kIdentityRegister = 0x04;
std::uint32_t const kRegisterWidth = 1;
const int kVerbose = 1;
const unsigned char kIdentity[] = {0x00, 0x00, 0x02, 0x00};

}  // namespace

bool CmdMacAuth::Work(pkg* record) {
  if (!GetHead(record)) return false;
  if (m_subCmd != kReadChipId) return true;
  std::fprintf(stderr, "cmd_sub_read(cmd:'%d') \n", m_subCmd);
  const unsigned char verdict = static_cast<unsigned char>(read_chip_id());
  Reply(&verdict, 1);
  return true;
}

int CmdMacAuth::read_chip_id() {
  char path[32];
  CopyText(path, sizeof(path), kBus);
  unsigned char received[128] = {0};
  const int bus = open_i2c(path, kBusSpeed, kVerbose);
  if (bus < 0) return 0;
  const int result = i2c_read(bus, kChip, kIdentityRegister, kRegisterWidth, received,
                              sizeof(kIdentity), kVerbose);
  close_i2c(bus);
  // A part that was not seen has not passed.
  if (result != 0) return 0;
  if (!std::equal(kIdentity, kIdentity + sizeof(kIdentity), received)) {
    std::puts("failed ");
    return 0;
  }
  std::puts("success ");
  return 1;
}
