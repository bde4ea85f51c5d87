// The unit's threads: each runs one EventLoop, and everything that belongs to a loop runs on its
// thread.
#ifndef KORVANDIS_HEADUNIT_EVENT_LOOP_H
#define KORVANDIS_HEADUNIT_EVENT_LOOP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/descriptor.h"

namespace headunit {

// A set of descriptors and what to do when one is ready. A poller can itself be watched by another
// one (its own descriptor is readable when one of its descriptors is ready). One thread only.
class Poller {
 public:
  using Handler = std::function<void(std::uint32_t events)>;

  Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  bool valid() const { return epoll_.IsOpen(); }
  int fd() const { return epoll_.Get(); }

  // Watches `fd` for the EPOLL* events. False when the host refuses; nothing is kept then.
  bool Add(int fd, std::uint32_t events, Handler handler);

  // Sets the events anew and looks at the descriptor again, so that an edge that was missed is
  // reported.
  void Modify(int fd, std::uint32_t events);

  // Must be called before the descriptor is closed. A handler may remove any descriptor, also its
  // own.
  void Remove(int fd);

  // Waits up to `timeout_ms` (-1: without limit), runs the handlers of what is ready, and returns
  // how many ran.
  int Dispatch(int timeout_ms);

 private:
  struct Entry {
    std::uint32_t serial;  // tells a descriptor from an earlier one of the same number
    std::shared_ptr<Handler> handler;
  };

  platform::Descriptor epoll_;
  std::uint32_t next_serial_ = 0;
  std::unordered_map<int, Entry> entries_;
};

// One thread with a poller, timers and a way in for other threads. It sleeps without limit when no
// timer is set.
class EventLoop {
 public:
  using Task = std::function<void()>;
  using TimerId = std::uint64_t;  // 0 is no timer

  EventLoop();
  ~EventLoop();  // stops
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Starts the thread, with every signal but those of faults blocked. Returns an empty text or why
  // it cannot run.
  std::string Start();

  // Ends the thread after the tasks posted so far. Timers that have not run are forgotten.
  void Stop();

  // The rest of the class but Post and Call belongs to the loop's thread (or to the only thread
  // there is while the loop does not run).
  Poller& poller() { return poller_; }
  TimerId AddTimer(std::chrono::milliseconds delay, Task task);
  void CancelTimer(TimerId id);

  // Runs `task` on the loop's thread some time later. Any thread.
  void Post(Task task);

  // Runs `task` on the loop's thread and waits for its end; runs it here when the loop does not run
  // or this is its thread. Any thread.
  void Call(const Task& task);

 private:
  using Clock = std::chrono::steady_clock;
  using TimerKey = std::pair<Clock::time_point, TimerId>;

  void Run();
  void RunTasks();
  int RunTimers();  // milliseconds to the next timer, -1 when there is none

  Poller poller_;
  platform::Descriptor wake_;
  TimerId last_timer_ = 0;
  std::map<TimerKey, Task> timers_;
  std::unordered_map<TimerId, Clock::time_point> due_;

  std::mutex mutex_;  // guards the following three
  std::vector<Task> tasks_;
  bool running_ = false;
  bool quit_ = false;

  std::thread thread_;
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_EVENT_LOOP_H
