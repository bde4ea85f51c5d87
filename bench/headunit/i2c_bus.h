// The I2C bus with the authentication chip as a register model.
#ifndef KORVANDIS_HEADUNIT_I2C_BUS_H
#define KORVANDIS_HEADUNIT_I2C_BUS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "devctl_device.h"

namespace headunit {

const std::size_t kChipRegisters = 256;
const std::size_t kChipIdentitySize = 4;

struct I2cCounters {
  std::uint32_t speeds = 0;
  std::uint32_t sends = 0;
  std::uint32_t receives = 0;
  std::uint32_t transfers = 0;  // combined send and receive
};

// The first byte of a send sets the chip's register pointer, further ones are written from there
// on; a receive reads from it. Failed requests are counted too.
class I2cBus : public DevctlDevice {
 public:
  I2cBus(EventLoop* loop, std::string path);
  ~I2cBus() override;

  using Identity = std::array<std::uint8_t, kChipIdentitySize>;

  // Faults for tests and people to set. The counts are of requests that fail from now on.
  void SetAbsent(bool absent) { absent_ = absent; }
  void SetSpeedRefused(bool refused) { speed_refused_ = refused; }
  void FailSends(std::uint32_t count) { failing_sends_ = count; }
  void FailReceives(std::uint32_t count) { failing_receives_ = count; }
  void SetIdentity(const Identity& identity);

  // No fault, the chip's own identity, counters at zero.
  void Reset();

  const I2cCounters& counters() const { return counters_; }
  std::uint32_t speed() const { return speed_; }

  // The last transfers, oldest first, a line each.
  std::string Transfers() const;

 protected:
  int OnOpen(const std::string& rest, std::uint32_t flags,
             std::unique_ptr<OpenFile>* file) override;
  int OnAccess(const std::string& rest, std::uint32_t mode) override;
  int OnDevctl(std::uint32_t dcmd, std::string* data) override;

 private:
  int SetSpeed(const std::string& data);
  int Send(const std::string& data);
  int Receive(std::string* data);
  int SendReceive(std::string* data);

  void Write(const std::uint8_t* bytes, std::size_t count);
  void Read(std::uint8_t* bytes, std::size_t count);
  void Note(const char* what, std::uint32_t slave, const std::uint8_t* bytes, std::size_t count,
            int error);

  std::array<std::uint8_t, kChipRegisters> registers_;
  std::uint8_t pointer_ = 0;
  bool absent_ = false;
  bool speed_refused_ = false;
  std::uint32_t failing_sends_ = 0;
  std::uint32_t failing_receives_ = 0;
  std::uint32_t speed_ = 0;
  I2cCounters counters_;
  std::deque<std::string> log_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_I2C_BUS_H
