// A resource manager that serves itself, on a thread of its own, and keeps what it was sent.
#ifndef KORVANDIS_TESTS_SUPPORT_RECORDER_H
#define KORVANDIS_TESTS_SUPPORT_RECORDER_H

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/fake_manager.h"

namespace bench {

// `values` as words in host byte order, as the records of devices begin.
Bytes Words(const std::vector<std::uint32_t>& values);
Bytes Join(Bytes first, const Bytes& second);
// `bytes` with zero bytes up to `size`.
Bytes Padded(Bytes bytes, std::size_t size);

// Serves one open file after the other, each until its client closes it. Behaviour is set while no
// file is open.
class Recorder {
 public:
  // An open file's life.
  struct File {
    std::uint32_t flags;
    std::uint32_t mode;
    std::string rest;
    std::vector<Bytes> messages;
  };

  Recorder(const TempRoot& root, const std::string& path);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  std::int32_t refusal = 0;         // the answer to every open
  std::optional<std::string> text;  // sent after a granted open for reading
  // The answer to a message: nothing is silence, no bytes hang up. Runs on the recorder's thread.
  std::function<std::optional<Bytes>(const Bytes& message)> answer;

  // The files opened since the last call, in order; waits until the last one is closed. A client on
  // another process may be sure to be among them once its request was answered.
  std::vector<File> Take();

 private:
  void Run();
  void Serve(FakeManager::Opening opening);

  const std::string path_;
  FakeManager manager_;
  std::mutex mutex_;  // guards files_
  std::vector<File> files_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace bench

#endif  // KORVANDIS_TESTS_SUPPORT_RECORDER_H
