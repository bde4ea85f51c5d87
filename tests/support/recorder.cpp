#include "support/recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "platform/io.h"

namespace bench {
namespace {

// Opened by Take: opens are served in order, so a granted one finds all earlier files closed.
const char kBarrier[] = "/barrier-of-recorder";

}  // namespace

Bytes Words(const std::vector<std::uint32_t>& values) {
  Bytes bytes(values.size() * sizeof(std::uint32_t));
  std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

Bytes Join(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes Padded(Bytes bytes, std::size_t size) {
  bytes.resize(size);
  return bytes;
}

Recorder::Recorder(const TempRoot& root, const std::string& path)
    : path_(path), manager_(root, path), thread_([this] { Run(); }) {}

Recorder::~Recorder() {
  stopping_ = true;
  thread_.join();
}

void Recorder::Run() {
  while (!stopping_) {
    std::optional<FakeManager::Opening> opening = manager_.Accept(milliseconds(10));
    if (opening) Serve(std::move(*opening));
  }
}

void Recorder::Serve(FakeManager::Opening opening) {
  if (opening.rest == kBarrier) return opening.connection.Answer(0);
  File file = {opening.request.flags, opening.request.mode, opening.rest, {}};
  opening.connection.Answer(refusal);
  const bool reads = (opening.request.flags & O_ACCMODE) != O_WRONLY;
  if (refusal == 0 && text && reads) opening.connection.Send(*text);
  while (const std::optional<Bytes> message = opening.connection.Receive()) {
    file.messages.push_back(*message);
    const std::optional<Bytes> reply = answer ? answer(*message) : std::nullopt;
    if (reply && reply->empty()) break;
    if (reply) opening.connection.Send(*reply);
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  files_.push_back(std::move(file));
}

std::vector<Recorder::File> Recorder::Take() {
  const int barrier = platform::open((path_ + kBarrier).c_str(), O_RDONLY);
  EXPECT_GE(barrier, 0) << path_ << ": " << std::strerror(errno);
  ::close(barrier);
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(files_, {});
}

}  // namespace bench
