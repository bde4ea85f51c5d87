// Register access to devices on an I2C bus through its resource manager.
//
// Every transfer is one device control request, tried up to five times without delay. The functions
// take no lock and keep their records on the caller's stack: calls on different handles are
// independent. With `verbose` not 0 each call prints its request on standard output. All return 0,
// or -1 on failure, unless said otherwise; a failed transfer leaves the destination untouched.
#ifndef KORVANDIS_I2C_I2C_DEVCTL_H
#define KORVANDIS_I2C_I2C_DEVCTL_H

#include <cstdint>

// Opens the bus device at `path` and sets its speed. Returns the handle, which the caller closes
// with close_i2c, or -1.
int open_i2c(const char* path, std::uint32_t speed, int verbose);
int close_i2c(int handle);

// A register is 1 byte wide, or 2 with the high byte first; another width fails.

// Writes the register address followed by `length` bytes at `data` (may be null: the address alone)
// in one send. What does not fit the 512 bytes of a request fails with one line on standard error.
// Slave 0x1A has 7-bit registers and 9-bit values: its two data bytes are the value, bit 8 first.
int i2c_write(int handle, std::uint32_t slave, std::uint32_t reg, std::uint32_t width,
              const unsigned char* data, std::uint32_t length, int verbose);

// Sends the register address, then receives `length` bytes (at most 512) in a transaction of its
// own.
int i2c_read(int handle, std::uint32_t slave, std::uint32_t reg, std::uint32_t width,
             unsigned char* destination, std::uint32_t length, int verbose);

// The same in one combined transaction.
int i2c_send_recv(int handle, std::uint32_t slave, std::uint32_t reg, std::uint32_t width,
                  unsigned char* destination, std::uint32_t length, int verbose);

// Prints each byte as "%02x " on standard output, without a line end; "0 length" when there are
// none.
void i2c_show_buf(const unsigned char* bytes, int count);

// True when at least one of the bytes is not zero.
bool isDataValid(const unsigned char* bytes, int count);

#endif  // KORVANDIS_I2C_I2C_DEVCTL_H
