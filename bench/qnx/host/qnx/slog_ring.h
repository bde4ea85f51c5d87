// The log ring: a memory-mapped file that the unit creates, every program writes and anybody can
// follow. Fields are in host byte order. Line i lies in slot i modulo the number of slots.
#ifndef KORVANDIS_QNX_SLOG_RING_H
#define KORVANDIS_QNX_SLOG_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qnx {

const char kSlogMagic[8] = {'S', 'L', 'O', 'G', 'R', 'N', 'G', '1'};
const std::size_t kSlogSlotSize = 640;
const std::size_t kSlogTextSize = 608;
const char kSlogPath[] = "/dev/slog";

struct SlogHeader {
  char magic[8];
  std::uint32_t slots;      // a power of two
  std::uint32_t slot_size;  // kSlogSlotSize
  std::atomic<std::uint64_t> next;
  std::atomic<std::uint64_t> first;  // lines before this one were cleared: readers pass over them
  char reserved[32];
};
static_assert(sizeof(SlogHeader) == 64, "the slots begin at offset 64");

struct SlogSlot {
  std::atomic<std::uint64_t> sequence;  // i + 1 once line i is complete, 0 while it is written
  std::uint64_t nanoseconds;            // since the epoch
  std::uint32_t opcode;
  std::uint32_t severity;
  std::uint32_t pid;
  std::uint32_t length;
  char text[kSlogTextSize];  // no terminator
};
static_assert(sizeof(SlogSlot) == kSlogSlotSize, "a slot is 640 bytes");

struct SlogLine {
  std::uint64_t index;
  std::uint64_t nanoseconds;
  std::uint32_t opcode;
  std::uint32_t severity;
  std::uint32_t pid;
  std::string text;
};

// Creates an empty ring of `slots` lines (a power of two) at the host path `path`, with all its
// blocks on the disk, replacing what lies there in one step. Returns 0 or an error number (ENOSPC:
// it has no room).
int CreateSlogRing(const std::string& path, std::uint32_t slots);

// Makes readers of the ring at the host path `path` begin behind its newest line. Returns 0 or an
// error number (EINVAL: not a ring).
int ClearSlogRing(const std::string& path);

// Reads a ring while others write to it. Not thread-safe itself.
class SlogReader {
 public:
  SlogReader() = default;
  ~SlogReader();
  SlogReader(const SlogReader&) = delete;
  SlogReader& operator=(const SlogReader&) = delete;

  // Maps the ring at the host path `path`, which need not be writable; returns 0 or an error number
  // (EINVAL: not a ring).
  int Open(const std::string& path);

  // True when the file at the path is no longer the mapped ring: the unit made a new one.
  bool Replaced() const;

  enum class Result {
    kLine,        // *line holds the next line
    kNothing,     // there is no further line yet
    kUnfinished,  // a writer was killed in the middle of a line (*lost is 1); the reader is behind
                  // it
    kLost,  // *lost lines were overwritten before they could be read; the reader is now behind them
  };
  // Lines that are just being written are waited for, half a second at most for all of them.
  Result Next(SlogLine* line, std::uint64_t* lost);

  // Continues behind the newest line.
  void SkipToEnd();

 private:
  std::string path_;
  void* map_ = nullptr;
  std::size_t size_ = 0;
  std::uint64_t position_ = 0;
  std::uint64_t begun_ = 0;    // the lines in front of this index had been begun,
  std::int64_t deadline_ = 0;  // and are given up when they are unfinished at this time of NowMs
  unsigned long inode_ = 0;
};

}  // namespace qnx

#endif  // KORVANDIS_QNX_SLOG_RING_H
