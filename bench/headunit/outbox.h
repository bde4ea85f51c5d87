// The sending side of an open file: messages that a reader has not taken yet.
#ifndef KORVANDIS_HEADUNIT_OUTBOX_H
#define KORVANDIS_HEADUNIT_OUTBOX_H

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace headunit {

// One message, shared by all open files that it waits for.
using SharedText = std::shared_ptr<const std::string>;

inline SharedText Share(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

// Sends whole messages without ever waiting for the reader. Messages go to the socket while the
// reader has no more than `window` unread bytes there, then into a queue.
class Outbox {
 public:
  using Maker = std::function<std::string()>;

  // Uses, and does not own, the socket `fd`.
  void Attach(int fd) { fd_ = fd; }
  void SetWindow(std::size_t bytes) { window_ = bytes; }

  // A plain text is copied only when it has to wait.
  void Push(const std::string& message);
  void Push(const SharedText& message);

  // Sends from the queue what the window has room for. Called when the socket takes data again.
  void Flush();

  // Drops what waits. `make` is called once the reader has taken everything that lies in the
  // socket, and gives the message that follows. Until then nothing may be pushed.
  void Supersede(Maker make);
  bool superseded() const { return make_ != nullptr; }

  // Drops what waits, a superseding message too.
  void DropQueue();

  // Ends the stream behind the last message: the reader then reads end of file, and can still
  // write.
  void End();

  // True when nothing waits outside the socket.
  bool idle() const { return queue_.empty() && !superseded(); }

  // Bytes that the reader has not taken, in the socket and in the queue. Never too few; exact when
  // the reader has read nothing since the socket was last seen empty.
  std::size_t Waiting();

  // Bytes in the queue alone.
  std::size_t Queued() const { return queued_; }

 private:
  bool SendFirst(const std::string& message);
  void Enqueue(SharedText message);
  bool Send(const std::string& message);  // false: not now
  bool SendCut(const std::string& message);
  std::size_t Unread();
  void Break();

  int fd_ = -1;
  std::size_t window_ = static_cast<std::size_t>(-1);
  std::size_t sent_ = 0;  // bytes sent since the socket was last seen empty
  std::deque<SharedText> queue_;
  std::size_t queued_ = 0;  // bytes in queue_
  Maker make_;              // the superseding message
  bool broken_ = false;     // the reader is gone
  bool ending_ = false;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_OUTBOX_H
