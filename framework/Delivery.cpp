#include "Delivery.h"

#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "Wakeup.h"
#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/logbase.h"

namespace NXQ {
namespace ZMCAR {
namespace {

// How often a lost file is tried again. A quarter of the two seconds within which it must be back.
const int kReopenIntervalMs = 500;

// More messages than a device can hold back for a reader.
const int kMostWaiting = 65536;

// Pause after a poll that the system refused (out of memory, or a limit on descriptors below the
// number of files), so that the thread does not spin, in microseconds.
const useconds_t kPollFailureDelay = 100000;

// The events that poll tells of `fd` now.
short Probe(int fd, short events) {
  pollfd probe = {fd, events, 0};
  return ::poll(&probe, 1, 0) > 0 ? probe.revents : static_cast<short>(0);
}

// After a read that gave nothing: false when that was an empty message. When the other side has
// closed or half-closed, messages that still wait have bytes, or nothing is lost with them.
bool IsAtEnd(int fd) {
  struct stat status;
  if (::fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode)) return true;
  if ((Probe(fd, POLLRDHUP) & (POLLRDHUP | POLLHUP)) == 0) return false;
  int unread = 0;
  return ::ioctl(fd, FIONREAD, &unread) != 0 || unread == 0;
}

// Throws away the messages that wait in `fd`.
void Discard(int fd) {
  for (int i = 0; i < kMostWaiting && (Probe(fd, POLLIN) & POLLIN) != 0; ++i) {
    char byte;
    const ssize_t count = platform::read(fd, &byte, sizeof(byte));
    if (count < 0 && errno != ECONNRESET) return;
    if (count == 0 && IsAtEnd(fd)) return;
  }
}

}  // namespace

Delivery::Delivery()
    : m_busy(nullptr),
      m_running(false),
      m_stop(false),
      m_joining(false),
      m_told(false),
      m_joined(0),
      m_thread(),
      m_buffer(static_cast<std::size_t>(kMaxFileRead) + 1) {}

Delivery::~Delivery() {
  Release();
  for (const auto& entry : m_files) entry.second->Join(nullptr);
}

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
  if (m_running) return false;  // another thread has started it again
  for (const auto& entry : m_files) entry.second->SetWakeup(std::shared_ptr<Wakeup>());
  m_wakeup.reset();
  return true;
}

bool Delivery::Start() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_running) return !m_stop;
  m_running = StartLocked();
  if (!m_running && !m_told) {
    LOGBASE(LOG_LEV_ERROR, "Start", "no delivery: %s!\n", std::strerror(errno));
  }
  m_told = !m_running;
  return m_running;
}

bool Delivery::StartLocked() {
  if (!PrepareLocked()) return false;
  for (const auto& entry : m_files) {
    const std::shared_ptr<platform::Descriptor> descriptor = entry.second->Current();
    if (descriptor && entry.second->m_kind == FileBase::kLink) Discard(descriptor->Get());
  }
  m_stop = false;
  errno = ::pthread_create(&m_thread, nullptr, &Delivery::Thread, this);
  return errno == 0;
}

bool Delivery::Stop() {
  std::unique_lock<std::mutex> lock(m_mutex);
  if (!m_running) return true;
  m_stop = true;
  m_wakeup->Wake();
  if (OnOwnThread()) {
    if (m_busy != nullptr) m_busy->m_cut = true;
    return false;
  }
  if (m_joining) {
    const unsigned joined = m_joined;
    m_idle.wait(lock, [this, joined] { return m_joined != joined; });
    return true;
  }
  m_joining = true;
  lock.unlock();
  ::pthread_join(m_thread, nullptr);
  lock.lock();
  m_joining = false;
  m_running = false;
  ++m_joined;
  m_idle.notify_all();
  return true;
}

bool Delivery::Add(int key, FileBase* file) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (file == nullptr) return false;
  const auto registered = m_files.find(key);
  if (registered != m_files.end()) return registered->second == file;
  if (PlaceOf(file) != m_files.end() || !file->Join(this)) return false;
  m_files[key] = file;
  file->SetWakeup(m_wakeup);
  if (m_wakeup) m_wakeup->Wake();
  return true;
}

bool Delivery::Remove(int key) {
  std::unique_lock<std::mutex> lock(m_mutex);
  const auto place = m_files.find(key);
  if (place == m_files.end()) return false;
  RemoveLocked(lock, place);
  return true;
}

void Delivery::Forget(FileBase* file) {
  std::unique_lock<std::mutex> lock(m_mutex);
  const auto place = PlaceOf(file);
  if (place != m_files.end()) {
    RemoveLocked(lock, place);
  } else if (m_busy == file) {
    WaitForCallback(lock, file);
  }
}

std::map<int, FileBase*>::iterator Delivery::PlaceOf(const FileBase* file) {
  return std::find_if(
      m_files.begin(), m_files.end(),
      [file](const std::pair<const int, FileBase*>& entry) { return entry.second == file; });
}

void Delivery::RemoveLocked(std::unique_lock<std::mutex>& lock,
                            std::map<int, FileBase*>::iterator place) {
  FileBase* const file = place->second;
  m_files.erase(place);
  file->SetWakeup(std::shared_ptr<Wakeup>());
  if (m_wakeup) m_wakeup->Wake();
  if (m_busy != file) {
    file->Join(nullptr);
  } else {
    WaitForCallback(lock, file);
  }
}

void Delivery::WaitForCallback(std::unique_lock<std::mutex>& lock, FileBase* file) {
  if (OnOwnThread()) {
    file->m_cut = true;
  } else {
    m_idle.wait(lock, [this, file] { return m_busy != file; });
  }
}

void Delivery::EndCallback() {
  // Removed meanwhile; its destructor has waited for this.
  if (PlaceOf(m_busy) == m_files.end()) m_busy->Join(nullptr);
  m_busy = nullptr;
  m_idle.notify_all();
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
    if (ready < 0 && errno != EINTR) ::usleep(kPollFailureDelay);
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
  watch.file->m_cut = false;
  lock.unlock();
  if (!DeliverOne(watch)) watch.file->Lose(watch.descriptor);
  lock.lock();
  EndCallback();
}

bool Delivery::DeliverOne(const Watch& watch) {
  const int fd = watch.descriptor->Get();
  const ssize_t count = platform::read(fd, m_buffer.data(), static_cast<std::size_t>(kMaxFileRead));
  // A reset is reported once, before what the other side wrote last.
  if (count < 0) return errno == EAGAIN || errno == ECONNRESET;
  if (count == 0 && IsAtEnd(fd)) return false;
  // The count can be that of the whole message.
  const int size = static_cast<int>(std::min(count, static_cast<ssize_t>(kMaxFileRead)));
  m_buffer[static_cast<std::size_t>(size)] = '\0';
  watch.file->OnDataChange(m_buffer.data(), size);
  return true;
}

void Delivery::ReopenLost(std::unique_lock<std::mutex>& lock) {
  // Files may be added and removed while one is opened: each round finds its place anew.
  for (std::size_t i = 0; !m_stop && i < m_files.size(); ++i) {
    FileBase* const file = std::next(m_files.begin(), static_cast<std::ptrdiff_t>(i))->second;
    if (!file->WantsReopen()) continue;
    m_busy = file;
    lock.unlock();
    file->Open();
    lock.lock();
    EndCallback();
  }
}

}  // namespace ZMCAR
}  // namespace NXQ
