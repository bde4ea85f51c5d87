// A file that a controller can deliver from.
#ifndef KORVANDIS_FRAMEWORK_FILEBASE_H
#define KORVANDIS_FRAMEWORK_FILEBASE_H

#include <atomic>
#include <memory>
#include <mutex>

namespace platform {
class Descriptor;
}

namespace NXQ {
namespace ZMCAR {

class Delivery;
class Wakeup;

// Describes one file. Tags are static tables and outlive every file that refers to them.
struct fileTagInfo {
  int key;           // unique within one controller
  const char* path;  // device or PPS object, PPS options included
  int oflag;         // open flags
  int mode;          // creation mode
};

// Largest message that one read takes from a file, in bytes; the tail of a larger one is lost.
const int kMaxFileRead = 65536;

// Open, Close and the writes of derived classes may be called from any thread, also while the file
// is registered and delivered. The file owns its descriptor, which is closed when its last user has
// finished.
class FileBase {
 public:
  explicit FileBase(const fileTagInfo& tag);
  // Unregisters a file that is registered, and waits for its running callback. So never from a
  // callback of the file itself. A class that overrides OnDataChange is removed from its controller
  // first: its own part is gone when this destructor begins.
  virtual ~FileBase();
  FileBase(const FileBase&) = delete;
  FileBase& operator=(const FileBase&) = delete;

  virtual bool Init();

  // Opens the tag's path. An open file stays as it is. Returns true when the file is open; errno
  // tells why it is not.
  virtual bool Open();

  // `size` bytes just read, on the delivery thread. data[size] is a zero byte that belongs to the
  // buffer.
  virtual void OnDataChange(unsigned char* data, int size);

  void Close();
  int GetKey() const;

 protected:
  // kObject: once lost, it stays closed until Open is called again; what it holds at the start is
  // delivered. kLink: the delivery thread opens it again when its other side was lost and is back,
  // or when there were no descriptors or memory for it; packets that wait at the start are thrown
  // away.
  enum Kind { kObject, kLink };
  FileBase(const fileTagInfo& tag, Kind kind);

  // Writes `size` bytes as one message. Returns their number, or the negated error number.
  int WriteMessage(const void* data, int size) const;

  // True when RemoveFile or Stop was called from within the running callback: what is left of the
  // message is not delivered.
  bool IsCut() const { return m_cut; }

  // Leaves the controller. For the destructors of derived classes.
  void Leave();

 private:
  friend class Delivery;

  // The open descriptor, null when the file is closed.
  std::shared_ptr<platform::Descriptor> Current() const;
  // Closes the file because the other side of `descriptor` is gone; nothing when it is no longer
  // the file's.
  void Lose(const std::shared_ptr<platform::Descriptor>& descriptor);
  // True when the file was lost and is to be opened again.
  bool WantsReopen() const;
  // Enters the controller that the file is registered with, null for none. False when it is
  // registered with another one.
  bool Join(Delivery* owner);
  // Sets what is signalled when the controller's thread has another file to wait for; can be null.
  void SetWakeup(const std::shared_ptr<Wakeup>& wakeup);

  const fileTagInfo& m_tag;
  const Kind m_kind;
  std::atomic<bool> m_cut;
  mutable std::mutex m_mutex;  // guards the members below
  Delivery* m_owner;
  std::shared_ptr<platform::Descriptor> m_descriptor;
  std::shared_ptr<Wakeup> m_wakeup;
  bool m_lost;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_FILEBASE_H
