#include "Delivery.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "Wakeup.h"
#include "platform/io.h"

namespace NXQ {
namespace ZMCAR {
namespace {

// How often a lost file is tried again. A quarter of the two seconds within which it must be back.
const int kReopenIntervalMs = 500;

// An empty message and the end of file read alike. As many empty reads in a row, without a hang-up,
// are taken for the end of a half-closed connection.
const int kEmptyReadsAtEnd = 16;

// Pause after a poll that the system refused (out of memory, or a limit on descriptors below the
// number of files), so that the thread does not spin, in microseconds.
const useconds_t kPollFailureDelay = 100000;

// What poll says of `fd` now.
short Probe(int fd) {
  pollfd probe = {fd, POLLIN, 0};
  return ::poll(&probe, 1, 0) > 0 ? probe.revents : static_cast<short>(0);
}

}  // namespace

Delivery::Delivery()
    : m_busy(nullptr),
      m_running(false),
      m_stop(false),
      m_thread(),
      m_buffer(static_cast<std::size_t>(kMaxFileRead) + 1) {}

Delivery::~Delivery() { Release(); }

bool Delivery::Prepare() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return PrepareLocked();
}

bool Delivery::PrepareLocked() {
  if (m_wakeup) return true;
  m_wakeup = Wakeup::Create();
  if (!m_wakeup) return false;
  for (const auto& entry : m_files) entry.second->SetWakeup(m_wakeup);
  return true;
}

bool Delivery::Release() {
  if (!Stop()) return false;
  std::lock_guard<std::mutex> lock(m_mutex);
  for (const auto& entry : m_files) entry.second->SetWakeup(std::shared_ptr<Wakeup>());
  m_wakeup.reset();
  return true;
}

bool Delivery::Start() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_running) return !m_stop;
  if (!PrepareLocked()) return false;
  m_stop = false;
  m_running = ::pthread_create(&m_thread, nullptr, &Delivery::Thread, this) == 0;
  return m_running;
}

bool Delivery::Stop() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_running) return true;
    m_stop = true;
    m_wakeup->Wake();
    if (OnOwnThread()) return false;
  }
  ::pthread_join(m_thread, nullptr);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_running = false;
  return true;
}

bool Delivery::Add(int key, FileBase* file) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (file == nullptr) return false;
  const auto place = m_files.insert(std::make_pair(key, file));
  if (!place.second) return place.first->second == file;
  file->SetWakeup(m_wakeup);
  if (m_wakeup) m_wakeup->Wake();
  return true;
}

bool Delivery::Remove(int key) {
  std::unique_lock<std::mutex> lock(m_mutex);
  const auto found = m_files.find(key);
  if (found == m_files.end()) return false;
  FileBase* const file = found->second;
  m_files.erase(found);
  file->SetWakeup(std::shared_ptr<Wakeup>());
  if (m_wakeup) m_wakeup->Wake();
  if (OnOwnThread()) return true;
  m_idle.wait(lock, [this, file] { return m_busy != file; });
  return true;
}

bool Delivery::OnOwnThread() const {
  return m_running && ::pthread_equal(m_thread, ::pthread_self()) != 0;
}

void* Delivery::Thread(void* self) {
  static_cast<Delivery*>(self)->Run();
  return nullptr;
}

void Delivery::Run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_stop) {
    const int limit = BuildPollList();
    lock.unlock();
    const int ready = ::poll(m_polls.data(), static_cast<nfds_t>(m_polls.size()), limit);
    if (ready < 0) ::usleep(kPollFailureDelay);
    lock.lock();
    if (ready > 0 && m_polls[0].revents != 0) m_wakeup->Drain();
    for (std::size_t i = 0; ready > 0 && !m_stop && i < m_watches.size(); ++i) {
      if (m_polls[i + 1].revents != 0) Attend(lock, m_watches[i]);
    }
    if (limit >= 0) ReopenLost(lock);
  }
  m_watches.clear();
}

int Delivery::BuildPollList() {
  int limit = -1;
  m_polls.clear();
  m_watches.clear();
  const pollfd wake = {m_wakeup->Get(), POLLIN, 0};
  m_polls.push_back(wake);
  for (const auto& entry : m_files) {
    const Watch watch = {entry.first, entry.second, entry.second->Current()};
    if (watch.descriptor) {
      const pollfd place = {watch.descriptor->Get(), POLLIN, 0};
      m_polls.push_back(place);
      m_watches.push_back(watch);
    } else if (entry.second->WantsReopen()) {
      limit = kReopenIntervalMs;
    }
  }
  return limit;
}

void Delivery::Attend(std::unique_lock<std::mutex>& lock, const Watch& watch) {
  const auto registered = m_files.find(watch.key);
  if (registered == m_files.end() || registered->second != watch.file) return;
  if (watch.file->Current() != watch.descriptor) return;  // closed or opened anew meanwhile
  m_busy = watch.file;
  lock.unlock();
  if (!DeliverOne(watch)) watch.file->Lose(watch.descriptor);
  lock.lock();
  m_busy = nullptr;
  m_idle.notify_all();
}

bool Delivery::DeliverOne(const Watch& watch) {
  const int fd = watch.descriptor->Get();
  for (int empty = 0; empty < kEmptyReadsAtEnd; ++empty) {
    const ssize_t count =
        platform::read(fd, m_buffer.data(), static_cast<std::size_t>(kMaxFileRead));
    if (count < 0) {
      // A reset is reported once, before what the other side wrote last.
      return errno == EAGAIN || errno == ECONNRESET;
    }
    // The count can be that of the whole message.
    const int size = static_cast<int>(std::min(count, static_cast<ssize_t>(kMaxFileRead)));
    m_buffer[static_cast<std::size_t>(size)] = '\0';
    if (size > 0) {
      watch.file->OnDataChange(m_buffer.data(), size);
      return true;
    }
    // Behind a hang-up an empty message cannot be told from the end; what lies behind it can.
    const short state = Probe(fd);
    if ((state & POLLHUP) != 0) continue;
    watch.file->OnDataChange(m_buffer.data(), 0);
    if ((state & POLLIN) == 0) return true;
  }
  return false;
}

void Delivery::ReopenLost(std::unique_lock<std::mutex>& lock) {
  for (std::size_t key_index = 0; !m_stop; ++key_index) {
    // Files may be added and removed while one is opened: each round finds its place anew.
    if (key_index >= m_files.size()) return;
    auto place = m_files.begin();
    std::advance(place, static_cast<std::ptrdiff_t>(key_index));
    FileBase* const file = place->second;
    if (!file->WantsReopen()) continue;
    m_busy = file;
    lock.unlock();
    file->Open();
    lock.lock();
    m_busy = nullptr;
    m_idle.notify_all();
  }
}

}  // namespace ZMCAR
}  // namespace NXQ
