// The manager's side of the opening protocol, common to all devices and the PPS manager.
#ifndef KORVANDIS_HEADUNIT_RESOURCE_MANAGER_H
#define KORVANDIS_HEADUNIT_RESOURCE_MANAGER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "event_loop.h"
#include "listener.h"
#include "open_file.h"
#include "qnx/manager_socket.h"

namespace headunit {

// Binds a socket at a path, answers opening requests and reads the open files. Everything that was
// sent before an open or access is taken in before that is answered. No client can make it wait.
// All of it runs on the loop's thread.
class ResourceManager {
 public:
  // Will lie at the host path `path`.
  ResourceManager(EventLoop* loop, std::string path);
  virtual ~ResourceManager();  // a derived class closes in its own destructor
  ResourceManager(const ResourceManager&) = delete;
  ResourceManager& operator=(const ResourceManager&) = delete;

  // Listens; see Listener::Bind.
  std::string Bind();

  // Removes the socket and closes all connections. May be repeated; Bind brings it back.
  void Close();

  bool bound() const { return listener_.bound(); }
  std::size_t open_files() const { return files_.size(); }

  // While stalled, requests are accepted and never answered. At the end of the stall the waiting
  // connections are closed.
  void SetStalled(bool stalled);

 protected:
  // Decides on an open of the rest of the path `rest`. Returns 0 and *file, or an error number.
  // Unless overridden, the path itself can be opened and nothing below it.
  virtual int OnOpen(const std::string& rest, std::uint32_t flags, std::unique_ptr<OpenFile>* file);

  // The open was granted; the first messages may be sent.
  virtual void OnOpened(OpenFile* file);

  // Decides on an access test. Returns 0 or an error number.
  virtual int OnAccess(const std::string& rest, std::uint32_t mode);

  // Removes what `rest` names. Returns 0 or an error number, ENOSYS unless overridden.
  virtual int OnUnlink(const std::string& rest);

  // A client wrote one message, which may be empty.
  virtual void OnMessage(OpenFile* file, const std::string& message) = 0;

  // The client is gone; the file is destroyed next.
  virtual void OnClosed(OpenFile* file);

  // How long the answer to a request for `rest` is held back.
  virtual std::chrono::milliseconds Delay(const std::string& rest);

  EventLoop* loop() { return loop_; }

  // Calls visit(OpenFile*) for each open file. It must not close one.
  template <typename Visit>
  void ForEachFile(Visit visit) {
    for (const auto& entry : files_) visit(entry.second.get());
  }

 private:
  // A connection whose request has not come or not been answered yet.
  struct Opening {
    platform::Descriptor socket;
    EventLoop::TimerId timer = 0;
    qnx::OpeningRequest request;
    bool answered_later = false;
  };
  using OpeningHandle = std::list<Opening>::iterator;

  void TakeConnection(platform::Descriptor socket);
  bool WatchOpening(OpeningHandle opening, std::uint32_t events);

  // Reads the request and answers it, now or later. False when it has not come yet.
  bool TakeRequest(OpeningHandle opening);
  void Serve(OpeningHandle opening);
  void Answer(OpeningHandle opening, int error, std::unique_ptr<OpenFile> file);
  platform::Descriptor TakeSocket(OpeningHandle opening);
  void Drop(OpeningHandle opening);

  // Takes in what lies in the open files now, not what a busy client adds meanwhile.
  void Barrier();
  void OnFileEvent(OpenFile* file, std::uint32_t events);

  // Takes in messages of up to `bytes` bytes, and no more than `messages`. False: end of file.
  bool ReadFile(OpenFile* file, std::size_t bytes, int messages);
  void WatchAgain(OpenFile* file);
  void CloseFile(OpenFile* file);

  EventLoop* const loop_;
  Listener listener_;
  bool stalled_ = false;
  std::list<Opening> openings_;
  std::uint64_t barrier_ = 0;  // number of the last barrier
  bool in_barrier_ = false;
  bool barrier_complete_ = false;
  std::vector<OpenFile*> ended_;  // to be closed behind the barrier
  Poller file_poller_;            // the open files only, so that the barrier can look at just them
  std::unordered_map<OpenFile*, std::unique_ptr<OpenFile>> files_;
  std::string buffer_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_RESOURCE_MANAGER_H
