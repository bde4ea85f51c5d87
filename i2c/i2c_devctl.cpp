#include "i2c_devctl.h"

#include <devctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/print.h"
#include "wire/devices.h"
#include "wire/hex.h"

namespace {

const int kAttempts = 5;
const std::uint32_t kStop = 1;

// A device with 7-bit register addresses and 9-bit values, sent as two bytes.
const std::uint32_t kNineBitSlave = 0x1A;
const std::uint32_t kNineBitLength = 2;

const char kNoBytes[] = "0 length";
const std::size_t kShownByte = 3;                              // characters
const std::size_t kBytesSize = kShownByte * kI2cDataSize + 1;  // of a data area as text
static_assert(kBytesSize >= sizeof(kNoBytes), "it takes the place of the bytes");

unsigned char LowByte(std::uint32_t value) { return static_cast<unsigned char>(value & 0xFF); }

template <class Record>
int Request(int handle, std::uint32_t dcmd, Record* record) {
  return ::devctl(handle, static_cast<int>(dcmd), record, sizeof(*record), nullptr);
}

// Sends `record` until it succeeds, five times at most. After each failure `report` prints it, when
// verbose. A reply may only replace a record whose request succeeded, so each attempt sends the
// same.
template <class Record>
bool Transfer(int handle, std::uint32_t dcmd, Record* record, const char* failure,
              const char* exhausted, int verbose) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const int result = Request(handle, dcmd, record);
    if (result == 0) return true;
    if (verbose != 0) platform::PrintOutput("%s ret=%d \n", failure, result);
  }
  if (verbose != 0) platform::PrintOutput("%s\n", exhausted);
  return false;
}

// Lays out a register address and returns its size.
std::uint32_t PutRegister(unsigned char* area, std::uint32_t reg, std::uint32_t width) {
  if (width == 2) {
    area[0] = LowByte(reg >> 8);
    area[1] = LowByte(reg);
    return 2;
  }
  area[0] = LowByte(reg);
  return 1;
}

// A register width that is neither 1 nor 2 has no layout on the bus.
bool IsWidth(const char* function, std::uint32_t width) {
  if (width == 1 || width == 2) return true;
  platform::PrintError("%s: register width %u is not 1 or 2 \n", function, width);
  return false;
}

// Puts `count` bytes into `text` as i2c_show_buf prints them, and returns the place behind them.
char* PutBytes(char* text, const unsigned char* bytes, std::size_t count) {
  if (count == 0) {
    std::memcpy(text, kNoBytes, sizeof(kNoBytes));
    return text + sizeof(kNoBytes) - 1;
  }
  for (std::size_t i = 0; i < count; ++i) {
    *text++ = wire::HexDigit(bytes[i] >> 4U);
    *text++ = wire::HexDigit(bytes[i]);
    *text++ = ' ';
  }
  *text = '\0';
  return text;
}

// Prints the second line of a verbose request: the header bytes, ": ", `shown` bytes of the data
// area.
template <class Record>
void ShowRecord(const Record& record, std::uint32_t shown) {
  char line[kBytesSize + kShownByte * sizeof(record.header) + sizeof(": ")];
  char* end =
      PutBytes(line, reinterpret_cast<const unsigned char*>(&record.header), sizeof(record.header));
  *end++ = ':';
  *end++ = ' ';
  PutBytes(end, record.data, shown);
  platform::PrintOutput("%s\n", line);
}

}  // namespace

int open_i2c(const char* path, std::uint32_t speed, int verbose) {
  platform::Descriptor bus(platform::open(path, O_RDWR));
  if (!bus.IsOpen()) {
    platform::PrintOutput("open_i2c(): open %s failed, error=%s \n", path, std::strerror(errno));
    return -1;
  }
  if (verbose != 0) platform::PrintOutput("speed=%d \n", static_cast<int>(speed));
  const int error = Request(bus.Get(), DCMD_I2C_SET_BUS_SPEED, &speed);
  if (error != 0) {
    platform::PrintOutput("open_i2c(): set speed failed, error=%s \n", std::strerror(error));
    return -1;
  }
  return bus.Release();
}

int close_i2c(int handle) { return ::close(handle); }

int i2c_write(int handle, std::uint32_t slave, std::uint32_t reg, std::uint32_t width,
              const unsigned char* data, std::uint32_t length, int verbose) {
  if (!IsWidth("i2c_write()", width)) return -1;
  const bool nineBit = slave == kNineBitSlave;
  if (length > kI2cDataSize - width) {
    platform::PrintError("i2c_write(): send too large (%u bytes) \n", length);
    return -1;
  }

  const bool present = data != nullptr && length > 0;
  I2cTransfer record = I2cTransfer();
  record.header = {slave, I2C_ADDRFMT_7BIT, width + length, kStop};
  if (nineBit) {
    record.header.length = kNineBitLength;
    if (width == 2) {
      PutRegister(record.data, reg, width);
    } else {
      const unsigned bit8 = present ? data[0] & 1U : 0U;
      record.data[0] = LowByte((reg << 1) | bit8);
      record.data[1] = present && length > 1 ? data[1] : static_cast<unsigned char>(0);
    }
  } else {
    const std::uint32_t used = PutRegister(record.data, reg, width);
    if (present) std::memcpy(record.data + used, data, length);
  }

  if (verbose != 0) {
    platform::PrintOutput("i2c_write(): handle=0x%x, slave=0x%x, reg=0x%x, size=%d \n",
                          static_cast<unsigned>(handle), slave, reg, static_cast<int>(length));
    const std::uint32_t shown = length + (width == 2 || nineBit ? 2 : 1);
    ShowRecord(record, shown < kI2cDataSize ? shown : kI2cDataSize);
  }
  return Transfer(handle, DCMD_I2C_SEND, &record, "i2c_write(): devctl failed.",
                  "i2c_write(): MAX try error ", verbose)
             ? 0
             : -1;
}

int i2c_read(int handle, std::uint32_t slave, std::uint32_t reg, std::uint32_t width,
             unsigned char* destination, std::uint32_t length, int verbose) {
  if (length > kI2cDataSize) {
    platform::PrintError("i2c_read(): recv too large (%d bytes) \n", static_cast<int>(length));
    return -1;
  }
  if (i2c_write(handle, slave, reg, width, nullptr, 0, verbose) != 0) return -1;

  I2cTransfer record = I2cTransfer();
  record.header = {slave, I2C_ADDRFMT_7BIT, length, kStop};
  if (verbose != 0) {
    platform::PrintOutput("i2c_read(): handle=0x%x, slave=0x%x, size=%d \n",
                          static_cast<unsigned>(handle), slave, static_cast<int>(length));
    ShowRecord(record, length);
  }
  if (!Transfer(handle, DCMD_I2C_RECV, &record, "i2c_read(): read value failed.",
                "i2c_read(): MAX try error ", verbose)) {
    return -1;
  }
  std::copy(record.data, record.data + length, destination);
  return 0;
}

int i2c_send_recv(int handle, std::uint32_t slave, std::uint32_t reg, std::uint32_t width,
                  unsigned char* destination, std::uint32_t length, int verbose) {
  if (!IsWidth("i2c_send_recv()", width)) return -1;
  if (length > kI2cDataSize) {
    platform::PrintError("i2c_send_recv(): recv too large (%d bytes) \n", static_cast<int>(length));
    return -1;
  }
  I2cSendRecv record = I2cSendRecv();
  record.header = {slave, I2C_ADDRFMT_7BIT, width, length, kStop};
  PutRegister(record.data, reg, width);
  if (verbose != 0) {
    platform::PrintOutput("i2c_send_recv(): slave=0x%x, reg=0x%x, size=%d \n", slave, reg,
                          static_cast<int>(length));
    ShowRecord(record, length);
  }
  if (!Transfer(handle, DCMD_I2C_SENDRECV, &record, "i2c_send_recv(): DCMD_I2C_SENDRECV failed.",
                "i2c_send_recv(): MAX try error ", verbose)) {
    return -1;
  }
  std::copy(record.data, record.data + length, destination);
  return 0;
}

void i2c_show_buf(const unsigned char* bytes, int count) {
  if (count < 1) {
    platform::PrintOutput("%s", kNoBytes);
    return;
  }
  char text[kBytesSize];
  for (int shown = 0; shown < count; shown += static_cast<int>(kI2cDataSize)) {
    const int part = std::min(count - shown, static_cast<int>(kI2cDataSize));
    PutBytes(text, bytes + shown, static_cast<std::size_t>(part));
    platform::PrintOutput("%s", text);
  }
}

bool isDataValid(const unsigned char* bytes, int count) {
  for (int i = 0; i < count; ++i) {
    if (bytes[i] != 0) return true;
  }
  return false;
}
