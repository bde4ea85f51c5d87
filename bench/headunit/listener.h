// The socket of a resource manager: connections are taken from it as they come.
#ifndef KORVANDIS_HEADUNIT_LISTENER_H
#define KORVANDIS_HEADUNIT_LISTENER_H

#include <functional>
#include <string>

#include "event_loop.h"
#include "platform/descriptor.h"

namespace headunit {

// Belongs to the loop's thread.
class Listener {
 public:
  using Taker = std::function<void(platform::Descriptor connection)>;

  // Will lie at the host path `path` and give each connection to `take`.
  Listener(EventLoop* loop, std::string path, Taker take);
  ~Listener() { Close(); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // Creates the directories above and listens. A socket that no process serves is replaced.
  // Returns an empty text, or why not: a process serves it, something else lies there, the host
  // refuses.
  std::string Bind();

  // Removes the socket. May be repeated; Bind brings it back.
  void Close();

  bool bound() const { return socket_.IsOpen(); }

 private:
  std::string Prepare();
  void Watch();
  void Accept();

  EventLoop* const loop_;
  const std::string path_;
  const Taker take_;
  platform::Descriptor socket_;
  EventLoop::TimerId timer_ = 0;  // of the pause while the host has no descriptor left
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_LISTENER_H
