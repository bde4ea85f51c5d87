// Records of the device control requests: the system information driver and the I2C bus.
// Host byte order.
#ifndef KORVANDIS_WIRE_DEVICES_H
#define KORVANDIS_WIRE_DEVICES_H

#include <cstdint>

// --- "/dev/sysinfo" -----------------------------------------------------------------------------

const std::uint32_t DCMD_SYS_INFO_GET_UUID = 0x40240501;
const std::uint32_t DCMD_SYS_INFO_SET_UUID = 0x80240506;
const std::uint32_t DCMD_SYS_INFO_GET_BAR_CODE = 0x40240509;
const std::uint32_t DCMD_SYS_INFO_SET_BAR_CODE = 0x8024050A;

struct sysinfo_param_t {
  char uuid[32];        // identity bytes, zero behind the meaningful ones
  std::int32_t length;  // number of meaningful bytes
};
static_assert(sizeof(sysinfo_param_t) == 36, "the size is part of the request numbers");

// --- I2C bus devices such as "/dev/i2c4" --------------------------------------------------------

const std::uint32_t DCMD_I2C_SET_BUS_SPEED = 0x80040502;
const std::uint32_t DCMD_I2C_SEND = 0x80100505;
const std::uint32_t DCMD_I2C_RECV = 0xC0100506;
const std::uint32_t DCMD_I2C_SENDRECV = 0xC0140507;

const std::uint32_t I2C_ADDRFMT_7BIT = 2;
const std::uint32_t kI2cDataSize = 512;

struct i2c_send_t {
  std::uint32_t slave;   // 7-bit address
  std::uint32_t format;  // I2C_ADDRFMT_7BIT
  std::uint32_t length;  // data bytes
  std::uint32_t stop;    // 1: end with a STOP condition
};
typedef i2c_send_t i2c_recv_t;

struct i2c_sendrecv_t {
  std::uint32_t slave;
  std::uint32_t format;
  std::uint32_t send_length;
  std::uint32_t recv_length;
  std::uint32_t stop;
};

// A request is the header and the whole data area.
struct I2cTransfer {
  i2c_send_t header;
  std::uint8_t data[kI2cDataSize];
};
static_assert(sizeof(I2cTransfer) == 528, "send and receive records are 528 bytes");

struct I2cSendRecv {
  i2c_sendrecv_t header;
  std::uint8_t data[kI2cDataSize];
};
static_assert(sizeof(I2cSendRecv) == 532, "send/receive records are 532 bytes");

#endif  // KORVANDIS_WIRE_DEVICES_H
