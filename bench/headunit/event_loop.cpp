#include "event_loop.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>
#include <limits>
#include <system_error>

namespace headunit {
namespace {

const int kSerialShift = 32;
const int kEventsPerWait = 64;

// Signals that a thread causes itself: blocked, they would end the process instead of reaching the
// handler that guards the log ring.
const int kFaults[] = {SIGBUS, SIGSEGV, SIGFPE, SIGILL, SIGABRT};

std::uint64_t EventKey(std::uint32_t serial, int fd) {
  return static_cast<std::uint64_t>(serial) << kSerialShift | static_cast<std::uint32_t>(fd);
}

}  // namespace

Poller::Poller() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

bool Poller::Add(int fd, std::uint32_t events, Handler handler) {
  epoll_event event = {};
  event.events = events;
  event.data.u64 = EventKey(++next_serial_, fd);
  if (epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, fd, &event) != 0) return false;
  entries_[fd] = Entry{next_serial_, std::make_shared<Handler>(std::move(handler))};
  return true;
}

void Poller::Modify(int fd, std::uint32_t events) {
  const auto entry = entries_.find(fd);
  if (entry == entries_.end()) return;
  epoll_event event = {};
  event.events = events;
  event.data.u64 = EventKey(entry->second.serial, fd);
  epoll_ctl(epoll_.Get(), EPOLL_CTL_MOD, fd, &event);
}

void Poller::Remove(int fd) {
  if (entries_.erase(fd) != 0) epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, fd, nullptr);
}

int Poller::Dispatch(int timeout_ms) {
  epoll_event events[kEventsPerWait];
  const int count = epoll_wait(epoll_.Get(), events, kEventsPerWait, timeout_ms);
  int ran = 0;
  for (int i = 0; i < count; ++i) {
    const int fd = static_cast<int>(events[i].data.u64 & std::numeric_limits<std::uint32_t>::max());
    const auto entry = entries_.find(fd);
    if (entry == entries_.end() || EventKey(entry->second.serial, fd) != events[i].data.u64) {
      continue;  // removed by a handler that ran before
    }
    const std::shared_ptr<Handler> handler = entry->second.handler;  // survives its own removal
    (*handler)(events[i].events);
    ++ran;
  }
  return ran;
}

EventLoop::EventLoop() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

EventLoop::~EventLoop() { Stop(); }

std::string EventLoop::Start() {
  if (!poller_.valid() || !wake_.IsOpen()) return std::string("epoll: ") + std::strerror(errno);
  poller_.Remove(wake_.Get());
  const bool watched = poller_.Add(wake_.Get(), EPOLLIN, [this](std::uint32_t) {
    std::uint64_t count = 0;
    if (read(wake_.Get(), &count, sizeof(count)) < 0) return;
  });
  if (!watched) return std::string("epoll: ") + std::strerror(errno);

  {
    const std::lock_guard<std::mutex> lock(mutex_);
    running_ = true;
    quit_ = false;
  }
  sigset_t blocked;
  sigset_t before;
  sigfillset(&blocked);
  for (const int fault : kFaults) sigdelset(&blocked, fault);
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  std::string failure;
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error& error) {
    failure = std::string("thread: ") + error.what();
    const std::lock_guard<std::mutex> lock(mutex_);
    running_ = false;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return failure;
}

void EventLoop::Stop() {
  if (!thread_.joinable()) return;
  Post([this] {
    const std::lock_guard<std::mutex> lock(mutex_);
    quit_ = true;
  });
  thread_.join();
  timers_.clear();
  due_.clear();
}

EventLoop::TimerId EventLoop::AddTimer(std::chrono::milliseconds delay, Task task) {
  const TimerId id = ++last_timer_;
  const Clock::time_point due = Clock::now() + delay;
  timers_.emplace(TimerKey(due, id), std::move(task));
  due_[id] = due;
  return id;
}

void EventLoop::CancelTimer(TimerId id) {
  const auto due = due_.find(id);
  if (due == due_.end()) return;
  timers_.erase(TimerKey(due->second, id));
  due_.erase(due);
}

void EventLoop::Post(Task task) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  const std::uint64_t one = 1;
  if (write(wake_.Get(), &one, sizeof(one)) < 0) return;  // full: the loop is awake already
}

void EventLoop::Call(const Task& task) {
  bool direct = std::this_thread::get_id() == thread_.get_id();
  auto done = std::make_shared<std::promise<void>>();
  if (!direct) {
    const std::lock_guard<std::mutex> lock(mutex_);
    direct = !running_;
    if (!direct) {
      tasks_.push_back([&task, done] {
        task();
        done->set_value();
      });
    }
  }
  if (direct) {
    task();
    return;
  }
  Post([] {});
  done->get_future().wait();
}

void EventLoop::Run() {
  for (;;) {
    RunTasks();
    {
      // The last tasks are taken in together with the end, so that no Call waits for ever.
      const std::lock_guard<std::mutex> lock(mutex_);
      if (quit_ && tasks_.empty()) {
        running_ = false;
        return;
      }
      if (quit_) continue;
    }
    poller_.Dispatch(RunTimers());
  }
}

void EventLoop::RunTasks() {
  std::vector<Task> tasks;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks.swap(tasks_);
  }
  for (const Task& task : tasks) task();
}

int EventLoop::RunTimers() {
  const Clock::time_point now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first.first <= now) {
    const Task task = std::move(timers_.begin()->second);
    due_.erase(timers_.begin()->first.second);
    timers_.erase(timers_.begin());
    task();
  }
  if (timers_.empty()) return -1;
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(timers_.begin()->first.first - now);
  const std::int64_t limit = std::numeric_limits<int>::max() - 1;
  return static_cast<int>(std::clamp<std::int64_t>(left.count() + 1, 0, limit));
}

}  // namespace headunit
