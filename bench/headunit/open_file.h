// One granted open of a resource manager's path.
#ifndef KORVANDIS_HEADUNIT_OPEN_FILE_H
#define KORVANDIS_HEADUNIT_OPEN_FILE_H

#include <fcntl.h>

#include <cstdint>
#include <string>

#include "event_loop.h"
#include "outbox.h"
#include "platform/descriptor.h"

namespace headunit {

// Managers derive from it to keep what they know of the open file. It belongs to its manager.
class OpenFile {
 public:
  explicit OpenFile(std::uint32_t flags) : flags_(flags) {}
  virtual ~OpenFile() { Detach(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  bool CanRead() const { return (flags_ & O_ACCMODE) != O_WRONLY; }
  bool CanWrite() const { return (flags_ & O_ACCMODE) != O_RDONLY; }

  // Sends one message without waiting: it is queued when the client does not read.
  void Send(const std::string& message);
  void Send(const SharedText& message);

  // As Send, unless more than `limit` bytes wait for the client already: then false, and nothing is
  // kept.
  bool SendWithin(const std::string& message, std::size_t limit);

  // The client reads end of file behind what it was sent.
  void EndOfFile() { outbox_.End(); }

 protected:
  Outbox& outbox() { return outbox_; }
  const Outbox& outbox() const { return outbox_; }

  // Asks to be told when the client takes data again, or not, as the queue demands.
  void WatchQueue();

 private:
  friend class ResourceManager;

  void Attach(platform::Descriptor socket, Poller* poller);
  void Detach();

  const std::uint32_t flags_;
  platform::Descriptor socket_;
  Poller* poller_ = nullptr;
  Outbox outbox_;
  bool watching_ = false;
  std::uint64_t barrier_ = 0;  // the last one that took this file in
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_OPEN_FILE_H
