// Devices with control requests only.
#ifndef KORVANDIS_HEADUNIT_DEVCTL_DEVICE_H
#define KORVANDIS_HEADUNIT_DEVCTL_DEVICE_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "resource_manager.h"

namespace headunit {

// Takes device control requests apart and answers them.
class DevctlDevice : public ResourceManager {
 public:
  DevctlDevice(EventLoop* loop, std::string path);

 protected:
  // Carries out one request. `data` holds the bytes of the request (zero bytes for a request that
  // only reads), and afterwards those of the answer; its size must stay. Returns 0 or an error
  // number.
  virtual int OnDevctl(std::uint32_t dcmd, std::string* data) = 0;

  void OnMessage(OpenFile* file, const std::string& message) final;

 private:
  int Decode(const std::string& message, std::uint32_t* dcmd, std::string* data) const;
};

// Copies a record out of, and into, the bytes of a request of exactly its size.
template <typename Record>
bool LoadRecord(const std::string& data, Record* record) {
  if (data.size() != sizeof(*record)) return false;
  std::memcpy(record, data.data(), sizeof(*record));
  return true;
}

template <typename Record>
void StoreRecord(const Record& record, std::string* data) {
  std::memcpy(&(*data)[0], &record, sizeof(record));
}

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_DEVCTL_DEVICE_H
