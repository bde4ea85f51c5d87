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
// thread.
class Delivery {
 public:
  Delivery();
  ~Delivery();  // stops
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // What the functions of FilesControlBase promise.
  bool Prepare();
  bool Release();
  bool Start();
  bool Stop();
  bool Add(int key, FileBase* file);
  bool Remove(int key);

 private:
  // What one place of the poll list stands for.
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
  bool OnOwnThread() const;

  // Reads one message and delivers it; false when the other side is gone. Without the mutex.
  bool DeliverOne(const Watch& watch);

  std::mutex m_mutex;
  std::condition_variable m_idle;  // a callback has returned
  std::map<int, FileBase*> m_files;
  std::shared_ptr<Wakeup> m_wakeup;
  FileBase* m_busy;  // the file whose callback runs
  bool m_running;    // there is a thread, to be joined
  bool m_stop;
  pthread_t m_thread;

  // Only used on the thread.
  std::vector<pollfd> m_polls;
  std::vector<Watch> m_watches;
  std::vector<unsigned char> m_buffer;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_DELIVERY_H
