// A controller: a set of files whose data it delivers on a thread of its own.
#ifndef KORVANDIS_FRAMEWORK_FILESCONTROLBASE_H
#define KORVANDIS_FRAMEWORK_FILESCONTROLBASE_H

#include <memory>

#include "FileBase.h"
#include "Interfaces.h"

namespace NXQ {
namespace ZMCAR {

// Order of use: Init, Open each file, AddFile, Start; then Stop, RemoveFile, Close each file,
// Close, destroy. Init, AddFile and Start repeated on a running controller change nothing and
// succeed. The callbacks of one controller never run at the same time. Files are not owned: a file
// that is destroyed first unregisters itself, and a controller that is destroyed first leaves its
// files as if they had been removed. Several threads may call at once, save that a controller is
// destroyed by one thread, not its own, when the others have returned. A derived class stops in its
// destructor: a callback must not meet a part that is gone.
class FilesControlBase : public IPPSOnChange {
 public:
  FilesControlBase();
  ~FilesControlBase() override;  // stops
  FilesControlBase(const FilesControlBase&) = delete;
  FilesControlBase& operator=(const FilesControlBase&) = delete;

  void OnAttributeChange(int key, pps_attrib_t* attribute) override = 0;
  void OnPpsStatusChange(int key, pps_status_t status, pps_attrib_t* attribute) override;
  void OnAttributeDataChange(int key, const char* text) override;

  // Prepares the controller; false when the system has no descriptors left.
  virtual bool Init();
  // Stops delivery and releases what Init prepared.
  virtual bool Close();
  // Starts delivery on the controller's thread. False, with one line at level 2 until it succeeds,
  // when there is no thread or descriptor for it: call it again later. Packets that wait in an MCU
  // file arrived before the start and are thrown away; PPS files keep their text.
  virtual bool Start();
  // When it returns true, no callback runs any more: it waits for one that does. False when called
  // from a callback, which cannot wait for itself; that is then the last one, also when its text
  // has further lines.
  virtual bool Stop();

  // Registers `file` under `key`. False for a null file, a key that another file has, or a file
  // that is registered under another key or with another controller.
  bool AddFile(int key, FileBase* file) const;
  // When it returns, no callback with `key` runs or will run, save the one it is called from; the
  // further lines of that one's text are not delivered. False when there is no such file.
  bool RemoveFile(int key) const;

 private:
  const std::unique_ptr<Delivery> m_delivery;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_FILESCONTROLBASE_H
