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

using Lines = std::vector<std::string>;

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
  Lines Take();

 private:
  void Run();
  void Serve(FakeManager::Opening opening);

  FakeManager manager_;
  std::mutex mutex_;  // guards what follows
  std::map<std::string, std::string> texts_;
  std::map<std::string, int> errors_;
  Lines events_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// The geolocation object, behind "/pps", with the options that the service asks for.
const char kGeolocation[] = "/services/geolocation/control?wait,backlog=30";

// A bench whose service finds a RecordingPps, without a geolocation object.
class RecordedBench : public BenchTest {
 protected:
  void SetUp() override;
  void TearDown() override;  // the service is to end in order

  // Carry out a request, which is not answered or is, and leave behind what it caused alone: the
  // log's lines, `told` and the requests to the manager.
  void Do(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters = {});
  Bytes Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters = {});

  std::string told;  // standard error, without the reply's own line
  Lines asked;

  std::unique_ptr<RecordingPps> pps_;

 private:
  Bytes Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters, bool answered);
};

// The bytes that "0a ff" stands for.
Bytes FromHex(const std::string& text);

}  // namespace bench

#endif  // KORVANDIS_TESTS_SUPPORT_RECORDING_PPS_H
