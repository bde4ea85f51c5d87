#include "qnx/slog_ring.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "deadline.h"
#include "platform/descriptor.h"
#include "ring_map.h"

namespace qnx {
namespace {

// A line is written within a microsecond, unless its writer waits for a processor.
const long kUnfinishedMs = 500;

const mode_t kEverybody = 0666;

// The rings that are mapped, for the handler: a writer has two at most for a moment, a reader one.
struct GuardedRing {
  std::atomic<std::uintptr_t> begin;
  std::atomic<std::size_t> size;
};
const std::size_t kMostGuarded = 8;
GuardedRing g_guarded[kMostGuarded];

struct sigaction g_other_handler;

// A fault behind the end of a file that was cut. When it is a ring's, memory of our own takes the
// place of the whole ring, which is no longer usable, and the access goes on; any other fault goes
// to the previous handler.
void OnBusError(int, siginfo_t* info, void*) {
  const int saved = errno;
  const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
  bool mended = false;
  for (const GuardedRing& ring : g_guarded) {
    const std::uintptr_t offset = address - ring.begin;
    if (offset >= ring.size) continue;
    void* const base = static_cast<char*>(info->si_addr) - offset;
    mended = ::mmap(base, ring.size, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
  }
  if (!mended) ::sigaction(SIGBUS, &g_other_handler, nullptr);
  errno = saved;
}

bool HandleBusErrors() {
  struct sigaction action {};
  action.sa_sigaction = OnBusError;
  action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
  return ::sigaction(SIGBUS, &action, &g_other_handler) == 0;
}

// With every place taken, a ring goes unguarded.
void Guard(void* base, std::size_t size) {
  static const bool handled = HandleBusErrors();
  if (!handled) return;
  for (GuardedRing& ring : g_guarded) {
    std::uintptr_t free = 0;
    if (!ring.begin.compare_exchange_strong(free, reinterpret_cast<std::uintptr_t>(base))) continue;
    ring.size = size;
    return;
  }
}

int OpenRing(const char* path, int access) {
  return ::open(path, access | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
}

// False with errno EINVAL when the file is not a ring.
bool ReadHeader(const platform::Descriptor& file, SlogHeader* header, struct stat* status) {
  if (::fstat(file.Get(), status) == 0 && S_ISREG(status->st_mode) &&
      ::pread(file.Get(), static_cast<void*>(header), sizeof(*header), 0) ==
          static_cast<ssize_t>(sizeof(*header)) &&
      IsRing(*header, static_cast<std::uint64_t>(status->st_size))) {
    return true;
  }
  errno = EINVAL;
  return false;
}

}  // namespace

void UnmapRing(void* base, std::size_t size) {
  for (GuardedRing& ring : g_guarded) {
    if (ring.begin != reinterpret_cast<std::uintptr_t>(base)) continue;
    ring.size = 0;
    ring.begin = 0;
  }
  ::munmap(base, size);
}

void* MapRing(const char* path, RingUse use, std::size_t* size, unsigned long* inode) {
  const bool writes = use == RingUse::kWrite;
  const platform::Descriptor file(OpenRing(path, writes ? O_RDWR : O_RDONLY));
  SlogHeader header{};
  struct stat status;
  if (!file.IsOpen() || !ReadHeader(file, &header, &status)) return nullptr;
  *size = sizeof(SlogHeader) + std::size_t{header.slots} * kSlogSlotSize;
  *inode = static_cast<unsigned long>(status.st_ino);
  void* const map = ::mmap(nullptr, *size, writes ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED,
                           file.Get(), 0);
  if (map == MAP_FAILED) return nullptr;
  Guard(map, *size);
  return map;
}

bool IsRing(const SlogHeader& header, std::uint64_t file_size) {
  const std::uint64_t slots = header.slots;
  return std::memcmp(header.magic, kSlogMagic, sizeof(kSlogMagic)) == 0 &&
         header.slot_size == kSlogSlotSize && slots != 0 && (slots & (slots - 1)) == 0 &&
         file_size >= sizeof(SlogHeader) + slots * kSlogSlotSize;
}

// A file that was cut and has grown again, or one that got the number of the cut one, looks the
// same from outside; but what is mapped then is no longer a ring.
bool IsMappedRing(const char* path, const void* base, unsigned long inode, std::size_t size) {
  struct stat status;
  return ::stat(path, &status) == 0 && static_cast<unsigned long>(status.st_ino) == inode &&
         static_cast<std::uint64_t>(status.st_size) >= size &&
         IsRing(*static_cast<const SlogHeader*>(base), size);
}

int CreateSlogRing(const std::string& path, std::uint32_t slots) {
  if (slots == 0 || (slots & (slots - 1)) != 0) return EINVAL;
  const std::string fresh = path + ".new";
  platform::Descriptor file(
      ::open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, kEverybody));
  if (!file.IsOpen()) return errno;
  SlogHeader header{};
  std::memcpy(header.magic, kSlogMagic, sizeof(kSlogMagic));
  header.slots = slots;
  header.slot_size = kSlogSlotSize;
  const auto size = static_cast<off_t>(sizeof(SlogHeader) + std::size_t{slots} * kSlogSlotSize);
  // With all its blocks: a write to a hole of a full disk would be a fault.
  int error;
  do {
    error = ::posix_fallocate(file.Get(), 0, size);
  } while (error == EINTR);
  errno = 0;
  if (error == 0 &&
      ::pwrite(file.Get(), &header, sizeof(header), 0) != static_cast<ssize_t>(sizeof(header))) {
    error = errno != 0 ? errno : EIO;
  }
  file.Reset();
  if (error == 0 && std::rename(fresh.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) ::unlink(fresh.c_str());
  return error;
}

int ClearSlogRing(const std::string& path) {
  const platform::Descriptor file(OpenRing(path.c_str(), O_RDWR));
  SlogHeader header{};
  struct stat status;
  if (!file.IsOpen() || !ReadHeader(file, &header, &status)) return errno;
  const std::uint64_t next = header.next;
  const auto written = ::pwrite(file.Get(), &next, sizeof(next), offsetof(SlogHeader, first));
  return written == static_cast<ssize_t>(sizeof(next)) ? 0 : errno;
}

SlogReader::~SlogReader() {
  if (map_ != nullptr) UnmapRing(map_, size_);
}

int SlogReader::Open(const std::string& path) {
  std::size_t size = 0;
  unsigned long inode = 0;
  void* map = MapRing(path.c_str(), RingUse::kRead, &size, &inode);
  if (map == nullptr) return errno;
  if (map_ != nullptr) UnmapRing(map_, size_);
  map_ = map;
  size_ = size;
  inode_ = inode;
  path_ = path;
  position_ = 0;
  begun_ = 0;
  return 0;
}

bool SlogReader::Replaced() const {
  return map_ != nullptr && !IsMappedRing(path_.c_str(), map_, inode_, size_);
}

void SlogReader::SkipToEnd() {
  if (map_ == nullptr) return;
  position_ = static_cast<SlogHeader*>(map_)->next.load(std::memory_order_acquire);
}

namespace {

// Copies the complete line `index`; false when it is overwritten meanwhile.
bool Copy(const SlogSlot& slot, std::uint64_t index, SlogLine* line) {
  line->index = index;
  line->nanoseconds = slot.nanoseconds;
  line->opcode = slot.opcode;
  line->severity = slot.severity;
  line->pid = slot.pid;
  const std::uint32_t length = slot.length;
  line->text.assign(slot.text, length < kSlogTextSize ? length : kSlogTextSize);
  std::atomic_thread_fence(std::memory_order_acquire);
  return slot.sequence.load(std::memory_order_relaxed) == index + 1;
}

}  // namespace

SlogReader::Result SlogReader::Next(SlogLine* line, std::uint64_t* lost) {
  if (map_ == nullptr) return Result::kNothing;
  auto* header = static_cast<SlogHeader*>(map_);
  auto* slots = reinterpret_cast<SlogSlot*>(static_cast<char*>(map_) + sizeof(SlogHeader));
  const std::uint64_t count = (size_ - sizeof(SlogHeader)) / kSlogSlotSize;
  const std::uint64_t next = header->next.load(std::memory_order_acquire);
  const std::uint64_t first = header->first.load(std::memory_order_acquire);
  if (position_ < first) position_ = first;
  if (position_ >= next) return Result::kNothing;
  // An eighth of the ring as room keeps the reader clear of the writers after a loss.
  const std::uint64_t resume = next - (count - count / 8);
  if (next - position_ > count) {
    *lost = resume - position_;
    position_ = resume;
    return Result::kLost;
  }

  const SlogSlot& slot = slots[position_ & (count - 1)];
  if (position_ >= begun_) {
    begun_ = next;
    deadline_ = NowMs() + kUnfinishedMs;
  }
  for (;;) {
    const std::uint64_t sequence = slot.sequence.load(std::memory_order_acquire);
    if (sequence == position_ + 1 && Copy(slot, position_, line)) {
      ++position_;
      return Result::kLine;
    }
    const bool overwritten = sequence > position_ + 1;
    if (overwritten || NowMs() >= deadline_) {
      ++position_;
      *lost = 1;
      return overwritten ? Result::kLost : Result::kUnfinished;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace qnx
