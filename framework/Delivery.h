// The delivery thread of one controller. Inside the framework only.
#ifndef KORVANDIS_FRAMEWORK_DELIVERY_H
#define KORVANDIS_FRAMEWORK_DELIVERY_H

#include <poll.h>
#include <pthread.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "FileBase.h"

namespace NXQ {
namespace ZMCAR {

// Waits in poll for the registered files and hands each message to its file. It waits without a
// time limit, except while a lost file is to be opened again. Every function may be called from any
// thread, by several threads at once; destroyed by one that is not its own, when the others have
// returned.
class Delivery {
 public:
  Delivery();
  ~Delivery();  // stops, and leaves the files that are still registered to themselves
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // As the functions of FilesControlBase promise.
  bool Prepare();
  bool Release();
  bool Start();
  bool Stop();
  bool Add(int key, FileBase* file);
  bool Remove(int key);
  // Remove for a file that is being destroyed, whatever its key.
  void Forget(FileBase* file);

 private:
  // The meaning of one place of the poll list.
  struct Watch {
    int key;
    FileBase* file;
    std::shared_ptr<platform::Descriptor> descriptor;
  };

  static void* Thread(void* self);
  void Run();
  // Called with the mutex held. Attend unlocks it while a callback runs, ReopenLost while it opens
  // a file; both hold it again when they return.
  void Attend(std::unique_lock<std::mutex>& lock, const Watch& watch);
  void ReopenLost(std::unique_lock<std::mutex>& lock);
  // With the mutex held: fills the poll list and returns the time limit of the wait in ms, -1 for
  // none.
  int BuildPollList();
  bool PrepareLocked();
  // Starts the thread. Throws away first what waits in links.
  bool StartLocked();
  bool OnOwnThread() const;
  // Where `file` is registered, the end of m_files when it is not.
  std::map<int, FileBase*>::iterator PlaceOf(const FileBase* file);
  // Unregisters the file at `place` and waits for its callback.
  void RemoveLocked(std::unique_lock<std::mutex>& lock, std::map<int, FileBase*>::iterator place);
  // Waits until the callback of `file`, which runs, is over; called from within it, cuts it
  // instead.
  void WaitForCallback(std::unique_lock<std::mutex>& lock, FileBase* file);
  // The callback of the busy file is over.
  void EndCallback();

  // Reads one message and delivers it; false when the other side is gone. Without the mutex.
  bool DeliverOne(const Watch& watch);

  std::mutex m_mutex;
  std::condition_variable m_idle;  // a callback has returned, or the thread was joined
  std::map<int, FileBase*> m_files;
  std::shared_ptr<Wakeup> m_wakeup;
  FileBase* m_busy;   // the file whose callback runs
  bool m_running;     // there is a thread, to be joined
  bool m_stop;        // the thread is to end
  bool m_joining;     // a call of Stop waits for the thread; others wait for that call
  bool m_told;        // that Start failed
  unsigned m_joined;  // threads so far
  pthread_t m_thread;

  // Only used on the thread.
  std::vector<pollfd> m_polls;
  std::vector<Watch> m_watches;
  std::vector<unsigned char> m_buffer;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_DELIVERY_H
