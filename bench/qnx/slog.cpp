#include <sys/slog.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "qnx/syslog_client.h"
#include "resolve.h"
#include "ring_map.h"

namespace {

using qnx::SlogHeader;
using qnx::SlogSlot;

const std::uint64_t kSecond = 1000000000;

struct Mapping {
  void* base;
  std::size_t size;
  unsigned long inode;
  std::uint32_t pid;
};

// The ring this process writes to. Writers count themselves in and out around the use of a mapping;
// an old mapping goes, and its place is used again, once a moment without writers has been seen
// after its successor was published.
class RingWriter {
 public:
  // Logs one line; false when there is no ring.
  bool Write(int opcode, int severity, const char* text, std::size_t length, std::uint64_t now) {
    // Also when the clock was set back.
    if (next_check_.load(std::memory_order_relaxed) - now > kSecond) Check(now);
    writers_.fetch_add(1, std::memory_order_seq_cst);
    const Mapping* mapping = current_.load(std::memory_order_seq_cst);
    const bool there = mapping->base != nullptr;
    if (there) Store(*mapping, opcode, severity, text, length, now);
    writers_.fetch_sub(1, std::memory_order_seq_cst);
    return there;
  }

 private:
  static void Store(const Mapping& mapping, int opcode, int severity, const char* text,
                    std::size_t length, std::uint64_t now) {
    auto* header = static_cast<SlogHeader*>(mapping.base);
    auto* slots =
        reinterpret_cast<SlogSlot*>(static_cast<char*>(mapping.base) + sizeof(SlogHeader));
    const std::uint64_t count = (mapping.size - sizeof(SlogHeader)) / qnx::kSlogSlotSize;
    const std::uint64_t index = header->next.fetch_add(1, std::memory_order_acq_rel);
    SlogSlot& slot = slots[index & (count - 1)];
    slot.sequence.store(0, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    slot.nanoseconds = now;
    slot.opcode = static_cast<std::uint32_t>(opcode);
    slot.severity = static_cast<std::uint32_t>(severity);
    slot.pid = mapping.pid;
    slot.length = static_cast<std::uint32_t>(length);
    std::memcpy(slot.text, text, length);
    slot.sequence.store(index + 1, std::memory_order_release);
  }

  // Looks, once a second at most and on one thread, whether the ring at the path is still the
  // mapped one.
  void Check(std::uint64_t now) {
    if (checking_.test_and_set(std::memory_order_acquire)) return;
    char path[PATH_MAX];
    const bool named = qnx::HostPath(qnx::kSlogPath, path, sizeof(path));
    Settle();
    const Mapping* mapping = current_.load(std::memory_order_relaxed);
    const bool kept = mapping->base != nullptr && named &&
                      qnx::IsMappedRing(path, mapping->base, mapping->inode, mapping->size);
    if (!kept && settled_) Replace(named ? path : "");
    next_check_.store(now + kSecond, std::memory_order_relaxed);
    checking_.clear(std::memory_order_release);
  }

  void Replace(const char* path) {
    const Mapping* old = current_.load(std::memory_order_relaxed);
    Mapping* fresh = old == &slots_[0] ? &slots_[1] : &slots_[0];
    fresh->base = qnx::MapRing(path, qnx::RingUse::kWrite, &fresh->size, &fresh->inode);
    if (fresh->base == nullptr && old->base == nullptr) return;
    fresh->pid = static_cast<std::uint32_t>(::getpid());
    retired_ = *old;
    settled_ = false;
    current_.store(fresh, std::memory_order_seq_cst);
    Settle();
  }

  void Settle() {
    if (settled_ || writers_.load(std::memory_order_seq_cst) != 0) return;
    if (retired_.base != nullptr) qnx::UnmapRing(retired_.base, retired_.size);
    settled_ = true;
  }

  Mapping slots_[2] = {};
  std::atomic<Mapping*> current_{&slots_[0]};
  std::atomic<unsigned> writers_{0};
  std::atomic<std::uint64_t> next_check_{0};
  std::atomic_flag checking_ = ATOMIC_FLAG_INIT;
  // Only touched while checking_ is held.
  Mapping retired_ = {};
  bool settled_ = true;  // no writer still uses what current_ pointed to before
};

RingWriter g_ring;
qnx::SyslogClient g_syslog(qnx::kSyslogPath);

// slog's severities in the nearest priorities of syslog.
int Priority(int severity) {
  static const int kPriorities[] = {LOG_EMERG,  LOG_CRIT, LOG_ERR,   LOG_WARNING,
                                    LOG_NOTICE, LOG_INFO, LOG_DEBUG, LOG_DEBUG};
  return severity >= 0 && severity <= 7 ? kPriorities[severity] : LOG_DEBUG;
}

std::uint64_t Now() {
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kSecond + static_cast<std::uint64_t>(now.tv_nsec);
}

int LogText(int opcode, int severity, const char* text, std::size_t length) {
  if (length > qnx::kSlogTextSize) length = qnx::kSlogTextSize;
  if (!g_ring.Write(opcode, severity, text, length, Now())) {
    g_syslog.Send(Priority(severity), text, length);
  }
  return static_cast<int>(length);
}

}  // namespace

int slogf(int opcode, int severity, const char* format, ...) {
  char formatted[qnx::kSlogTextSize + 1];
  const char* text = formatted;
  std::size_t length = 0;
  va_list arguments;
  va_start(arguments, format);
  if (format[0] == '%' && format[1] == 's' && format[2] == '\0') {
    // The service's own form: nothing to format.
    text = va_arg(arguments, const char*);
    length = ::strnlen(text, qnx::kSlogTextSize);
  } else {
    const int wanted = std::vsnprintf(formatted, sizeof(formatted), format, arguments);
    length = wanted < 0 ? 0 : static_cast<std::size_t>(wanted);
    if (length > qnx::kSlogTextSize) length = qnx::kSlogTextSize;
  }
  va_end(arguments);
  return LogText(opcode, severity, text, length);
}
