// The sending side of an open file: messages that a reader has not taken yet.
#ifndef KORVANDIS_HEADUNIT_OUTBOX_H
#define KORVANDIS_HEADUNIT_OUTBOX_H

#include <cstddef>
#include <deque>
#include <string>

namespace headunit {

// Sends whole messages without ever waiting for the reader. Messages go to the socket while the
// reader has no more than `window` unread bytes there, then into a queue, from which the owner may
// drop.
class Outbox {
 public:
  // Uses, and does not own, the socket `fd`.
  void Attach(int fd) { fd_ = fd; }
  void SetWindow(std::size_t bytes) { window_ = bytes; }

  void Push(const std::string& message);

  // Sends from the queue what the window has room for. Called when the socket takes data again.
  void Flush();

  // Ends the stream behind the last message: the reader then reads end of file, and can still
  // write.
  void End();

  bool queue_empty() const { return queue_.empty(); }
  const std::deque<std::string>& queue() const { return queue_; }
  void DropOldest();  // the queue must not be empty
  void DropQueue();

  // Bytes that the reader has not taken, in the socket and in the queue. Never too few; exact when
  // the reader has read nothing since the socket was last seen empty.
  std::size_t Waiting();

  // Bytes in the queue alone.
  std::size_t Queued() const { return queued_; }

 private:
  bool Send(const std::string& message);  // false: not now
  bool SendCut(const std::string& message);
  std::size_t Unread();
  void Break();

  int fd_ = -1;
  std::size_t window_ = static_cast<std::size_t>(-1);
  std::size_t sent_ = 0;  // bytes sent since the socket was last seen empty
  std::deque<std::string> queue_;
  std::size_t queued_ = 0;  // bytes in queue_
  bool broken_ = false;     // the reader is gone
  bool ending_ = false;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_OUTBOX_H
