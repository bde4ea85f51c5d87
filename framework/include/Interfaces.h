// The callback interfaces through which controllers and files report to their users.
#ifndef KORVANDIS_FRAMEWORK_INTERFACES_H
#define KORVANDIS_FRAMEWORK_INTERFACES_H

#include <pps.h>

namespace NXQ {
namespace ZMCAR {

// Receiver of MCU packets.
class IMcuRecvData {
 public:
  virtual ~IMcuRecvData() {}

  // One whole packet, header included, of `size` bytes. Called on the delivery thread; the buffer
  // is valid until the call returns.
  virtual void OnRecvData(unsigned char* data, int size) = 0;
};

// Receiver of PPS changes, called on the delivery thread with the file's key. Records and texts are
// valid until the call returns.
class IPPSOnChange {
 public:
  virtual ~IPPSOnChange() {}

  // One attribute line of the object.
  virtual void OnAttributeChange(int key, pps_attrib_t* attribute) = 0;
  // The object was created, deleted or truncated, or an attribute deleted.
  virtual void OnPpsStatusChange(int key, pps_status_t status, pps_attrib_t* attribute) = 0;
  virtual void OnAttributeDataChange(int key, const char* text) = 0;
};

// View of a controller with a user interface; controllers without one pass a null pointer.
class IViewMessage {
 public:
  virtual ~IViewMessage() {}
};

class ITimerHandler {
 public:
  virtual ~ITimerHandler() {}
  virtual void OnTimer(unsigned int id) = 0;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_INTERFACES_H
