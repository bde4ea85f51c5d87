// The system information driver: the unit's UUID and bar code, which survive a restart.
#ifndef KORVANDIS_HEADUNIT_SYSINFO_DEVICE_H
#define KORVANDIS_HEADUNIT_SYSINFO_DEVICE_H

#include <cstdint>
#include <string>

#include "devctl_device.h"
#include "wire/devices.h"

namespace headunit {

class SysInfoDevice : public DevctlDevice {
 public:
  // Keeps what is burnt in in the file `store`.
  SysInfoDevice(EventLoop* loop, std::string path, std::string store);
  ~SysInfoDevice() override;

  // Reads the store. Returns an empty text or why it cannot be used. No store: a unit fresh from
  // the line, whose identities are zero bytes of their nominal lengths.
  std::string Restore();

  // Every request fails with this error number; 0 ends it.
  void SetFault(int error) { fault_ = error; }

  // Reads report this length whatever was burnt in, until ClearLength.
  void SetLength(std::int32_t length);
  void ClearLength() { length_forced_ = false; }

  // Both identities in a person's form.
  std::string Describe() const;

 protected:
  int OnDevctl(std::uint32_t dcmd, std::string* data) override;

 private:
  int Read(const sysinfo_param_t& stored, std::string* data) const;
  int Burn(const std::string& data, sysinfo_param_t* stored);
  bool Save() const;

  const std::string store_;
  sysinfo_param_t uuid_;
  sysinfo_param_t bar_code_;
  int fault_ = 0;
  bool length_forced_ = false;
  std::int32_t length_ = 0;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SYSINFO_DEVICE_H
