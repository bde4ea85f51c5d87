// A resource manager that serves itself and keeps all it was asked and given, and a test fixture
// whose service finds one at /pps.
#ifndef KORVANDIS_TESTS_SUPPORT_RECORDER_H
#define KORVANDIS_TESTS_SUPPORT_RECORDER_H

#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <thread>

#include "support/fake_manager.h"

namespace support {

using Lines = std::vector<std::string>;

// `values` as words in host byte order, as the records of devices begin.
Bytes Words(const std::vector<std::uint32_t>& values);
Bytes Join(Bytes first, const Bytes& second);
// `bytes` with zero bytes up to `size`.
Bytes Padded(Bytes bytes, std::size_t size);
// A message as a Recorder tells of it: its text, or "[0a 00]" when there is a zero byte in it.
std::string Shown(const Bytes& message);

// What the service tells when an object, a path behind "/pps", cannot be opened.
std::string Unopened(const std::string& object, int error = ENOENT);
// The lines that were logged under `functions`, as "6[Work]-text".
Lines Logged(Log* log, const Lines& functions);

// Takes one request at a time, on a thread of its own: an open, and all that is written until it is
// closed. Objects have paths behind the manager's own, which "" stands for.
class Recorder {
 public:
  Recorder(const TempRoot& root, const std::string& path);  // in the place of what lies there
  ~Recorder();

  // The text that an open of `object` for reading gets. What was never held is not there, unless
  // the open creates it; the manager's own path always is.
  void Hold(const std::string& object, const std::string& text) { Put(object, {text, 0}); }
  // Opens and tests of `object` fail with `error`, until it is held again.
  void Refuse(const std::string& object, int error) { Put(object, {"", error}); }

  // The answer to a message: nothing is silence, no bytes hang up. Runs on the recorder's thread;
  // set while no file is open.
  std::function<std::optional<Bytes>(const Bytes& message)> answer;

  // What was asked since the last call, in order: "access OBJECT", or the open's flags (r w c t:
  // read, write, create, truncate), mode and object, and each message, with spaces between: "wc
  // 666 /a/b x:n:1". Waits until the last file is closed.
  Lines Take();

 private:
  struct Object {
    std::string text;
    int error;
  };
  void Put(const std::string& name, const Object& object);
  void Serve(FakeManager::Opening opening);

  const std::string path_;
  FakeManager manager_;
  std::mutex mutex_;  // guards what follows
  std::map<std::string, Object> objects_;
  Lines events_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

// The geolocation object, behind "/pps", with the options that the service asks for.
const std::string kGeolocation = "/services/geolocation/control?wait,backlog=30";

// A fixture whose service finds a Recorder at /pps, without a geolocation object. It is to end in
// order and with the descriptors that it began with.
class RecordedService : public ServiceOnUnit {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Carry out a request, which is not answered or is, and leave behind what it caused alone: the
  // log's lines, `told` and the requests to the manager.
  void Do(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters = {}) {
    Ask(command, sub_command, parameters, false);
  }
  Bytes Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters = {},
            bool answered = true);

  std::string told;  // standard error, without the reply's own line
  Lines asked;

  std::unique_ptr<Recorder> pps_;

 private:
  int descriptors_ = 0;
};

}  // namespace support

#endif  // KORVANDIS_TESTS_SUPPORT_RECORDER_H
