// A raw manager at /pps that holds texts and keeps everything that it was asked and given.
#ifndef KORVANDIS_TESTS_SUPPORT_RECORDING_PPS_H
#define KORVANDIS_TESTS_SUPPORT_RECORDING_PPS_H

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/bench.h"
#include "support/fake_manager.h"

namespace bench {

// Takes one request at a time: an open, and all that is written until it is closed.
class RecordingPps {
 public:
  explicit RecordingPps(const TempRoot& root);  // takes the place of what lies at /pps
  ~RecordingPps();

  // The text that an open for reading gets. Objects that nobody holds are not there, unless the
  // open creates them. Paths begin behind "/pps", as the manager sees them.
  void Hold(const std::string& path, const std::string& text);
  void Drop(const std::string& path);
  // Opens and tests of `path` fail with `error`; 0 takes that back.
  void Refuse(const std::string& path, int error);

  // What was asked since the last call, in order: "access PATH", or the open's flags (r w c t:
  // read, write, create, truncate), mode and path, and each text written, with spaces between: "wc
  // 666 /a/b x:n:1".
  std::vector<std::string> Take();

 private:
  void Run();
  void Serve(FakeManager::Opening opening);

  FakeManager manager_;
  std::mutex mutex_;  // guards what follows
  std::map<std::string, std::string> texts_;
  std::map<std::string, int> errors_;
  std::vector<std::string> events_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// A bench whose service finds a RecordingPps, without a geolocation object.
class RecordedBench : public BenchTest {
 protected:
  void SetUp() override;
  void TearDown() override;  // the service is to end in order

  // Standard error since the last Mark, without the line that the question behind Station::Do
  // writes after its reply.
  std::string Told() const;

  static const char kGeolocation[];  // what the service asks for, behind "/pps"
  std::unique_ptr<RecordingPps> pps_;
};

// The bytes that "0a ff" stands for.
Bytes FromHex(const std::string& text);

}  // namespace bench

#endif  // KORVANDIS_TESTS_SUPPORT_RECORDING_PPS_H
