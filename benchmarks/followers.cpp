// Followers that do not read, and a writer without pause: what a client of another object notices,
// beside Redis, and what a write costs.
//
// Usage: followers [GETS]. Twenty clients follow an object (`?wait,delta`) and never read, a
// process writes texts of 60 KB to it as fast as they are taken. Meanwhile another client gets
// another object (open, read, close) and a station asks the service for its version. Redis gets
// the same: twenty subscribers that never read, a publisher of 60 KB without pause, a client that
// gets a key on a connection that stays open. Then, on a quiet unit, the time of one write against
// the number of followers and against the size of the object.
#include <sys/socket.h>
#include <sys/un.h>

#include <functional>

#include "platform/descriptor.h"
#include "setup.h"

namespace {

const int kFollowers = 20;
const std::size_t kTextSize = 60 * 1024;
const std::size_t kAnswerSize = 4096;  // more than Redis answers here
const char kBusy[] = "/pps/bench/busy";
const char kOther[] = "/pps/zelmar/system/version_status";

platform::Descriptor Connected(int fd) {
  if (fd < 0) setup::Fail(std::string("no connection: ") + std::strerror(errno));
  return platform::Descriptor(fd);
}

// A process that carries out `work` again and again until the object goes.
class Worker {
 public:
  explicit Worker(const std::function<void()>& work)
      : child_([&work]() -> int {
          for (;;) work();
        }) {}

 private:
  qnx::ChildProcess child_;
};

// Milliseconds that `work` takes, `count` times, with a short rest in front of each.
std::vector<double> Times(long count, const std::function<void()>& work) {
  std::vector<double> times;
  for (long i = 0; i < count; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    const auto start = setup::Clock::now();
    work();
    times.push_back(setup::Seconds(setup::Clock::now() - start) * 1e3);
  }
  return times;
}

double Worst(const std::vector<double>& times) {
  return *std::max_element(times.begin(), times.end());
}

std::string Figures(const std::vector<double>& times) {
  return setup::Number(setup::Median(times), 2) + " ms, worst " + setup::Number(Worst(times), 1) +
         " ms";
}

// --- the unit -----------------------------------------------------------------------------------

// Attribute lines of 60 bytes, `size` bytes of them.
std::string Lines(std::size_t size) {
  std::string text;
  for (int number = 100000; text.size() + 60 <= size; ++number) {
    text += "a" + std::to_string(number) + "::" + std::string(50, 'x') + "\n";
  }
  return text;
}

platform::Descriptor Open(const std::string& path, int flags) {
  return Connected(platform::open(path.c_str(), flags | O_CREAT, 0666));
}

void Write(const platform::Descriptor& writer, const std::string& text) {
  const ssize_t sent = platform::write(writer.Get(), text.data(), text.size());
  if (sent != static_cast<ssize_t>(text.size())) setup::Fail("the manager takes no write");
}

std::string Get(const char* path) {
  static char text[64 * 1024];
  const platform::Descriptor file = Connected(platform::open(path, O_RDONLY));
  const ssize_t size = ::read(file.Get(), text, sizeof(text));
  if (size <= 0) setup::Fail("the manager gives no text");
  return std::string(text, std::min(static_cast<std::size_t>(size), sizeof(text)));
}

std::vector<platform::Descriptor> Follow(int count) {
  std::vector<platform::Descriptor> followers;
  for (int i = 0; i < count; ++i) {
    followers.push_back(Open(std::string(kBusy) + "?wait,delta", O_RDONLY));
  }
  return followers;
}

void MeasureUnit(long gets) {
  const setup::Unit unit;
  const setup::Process service(unit.root(), {setup::BinaryPath("korvandis")});
  unit.WaitForService(true);
  const std::string expected = Get(kOther);
  const std::vector<platform::Descriptor> followers = Follow(kFollowers);
  const platform::Descriptor busy = Open(kBusy, O_WRONLY);
  const std::string text = Lines(kTextSize);
  const Worker writer([&] {
    while (platform::write(busy.Get(), text.data(), text.size()) < 0) continue;
  });

  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const std::vector<double> times = Times(gets, [&] {
    if (Get(kOther) != expected) setup::Fail("a get gives another text");
  });
  setup::Row("20 followers that do not read, a writer of 60 KB: a get of another object",
             Figures(times), "median at most 2 ms, worst at most 60 ms",
             setup::Median(times) <= 2 && Worst(times) <= 60);
  setup::Station station;
  const setup::Bytes reply = station.Ask(setup::kVersionQuery);
  const std::vector<double> asked = Times(gets, [&] {
    if (station.Ask(setup::kVersionQuery).size() != reply.size()) setup::Fail("another version");
  });
  setup::Row("the same: a version query of the station, each answered", Figures(asked), "", true);
}

// --- Redis --------------------------------------------------------------------------------------

platform::Descriptor ConnectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) setup::Fail("the temporary path is too long");
  std::memcpy(address.sun_path, path.c_str(), path.size());
  const auto deadline = setup::Clock::now() + std::chrono::milliseconds(setup::kPatienceMs);
  for (;;) {
    platform::Descriptor connection = Connected(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
        0) {
      return connection;
    }
    if (setup::Clock::now() > deadline) setup::Fail("Redis does not answer");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

// Sends a command of Redis and reads an answer of up to 4 KiB, which comes in one piece.
std::string Command(const platform::Descriptor& redis, const std::string& command) {
  char answer[kAnswerSize];
  for (std::size_t sent = 0; sent < command.size();) {
    const ssize_t size =
        ::send(redis.Get(), command.data() + sent, command.size() - sent, MSG_NOSIGNAL);
    if (size <= 0) setup::Fail("Redis takes no command");
    sent += static_cast<std::size_t>(size);
  }
  const ssize_t size = ::read(redis.Get(), answer, sizeof(answer));
  if (size <= 0) setup::Fail("Redis does not answer");
  return std::string(answer, static_cast<std::size_t>(size));
}

void MeasureRedis(long gets) {
  const setup::TempRoot root;
  const std::string path = root.path() + "/redis";
  const setup::Process server(root.path(), {"redis-server", "--port", "0", "--unixsocket", path,
                                            "--save", "", "--appendonly", "no"});
  const platform::Descriptor client = ConnectTo(path);
  if (Command(client, "SET key value\r\n") != "+OK\r\n") setup::Fail("Redis refuses a key");
  std::vector<platform::Descriptor> subscribers;
  for (int i = 0; i < kFollowers; ++i) {
    subscribers.push_back(ConnectTo(path));
    Command(subscribers.back(), "SUBSCRIBE busy\r\n");
  }
  const platform::Descriptor publisher = ConnectTo(path);
  const std::string text(kTextSize, 'x');
  const std::string publish = "*3\r\n$7\r\nPUBLISH\r\n$4\r\nbusy\r\n$" +
                              std::to_string(text.size()) + "\r\n" + text + "\r\n";
  const Worker writer([&] { Command(publisher, publish); });
  // At once: Redis hangs up on a subscriber for which 32 MB wait.
  const std::vector<double> times = Times(gets, [&] {
    if (Command(client, "GET key\r\n") != "$5\r\nvalue\r\n") setup::Fail("another value");
  });
  setup::Row("the same with Redis: a get of a key", Figures(times), "", true);
}

// --- the cost of a write ------------------------------------------------------------------------

// Microseconds for one write of `text` to the object, which `followers` follow and never read.
double CostOfWrite(int followers, std::size_t object_size, const std::string& text) {
  const setup::Unit unit({"--empty"});
  const platform::Descriptor writer = Open(kBusy, O_WRONLY);
  const std::string lines = Lines(object_size);
  const std::size_t part = 60 * 1000;  // the length of a line divides it
  for (std::size_t i = 0; i < lines.size(); i += part) Write(writer, lines.substr(i, part));
  const std::vector<platform::Descriptor> connections = Follow(followers);
  const auto write_all = [&](int writes) {
    for (int i = 0; i < writes; ++i) Write(writer, text);
    platform::access(kBusy, F_OK);  // answered when all is taken in
  };
  write_all(2000);  // as much as may wait for a follower, and more
  std::vector<double> costs;
  for (int i = 0; i < 9; ++i) costs.push_back(Times(1, [&] { write_all(500); })[0] * 1e3 / 500);
  return setup::Median(costs);
}

void MeasureWrites() {
  const std::string small = "a100000::" + std::string(50, 'y') + "\n";
  for (const int followers : {0, 1, 20, 100}) {
    setup::Row("a write of 60 bytes to an object of 60 KB, " + std::to_string(followers) +
                   " followers that do not read",
               setup::Number(CostOfWrite(followers, kTextSize, small), 1) + " us", "", true);
  }
  for (const std::size_t kilobytes : {std::size_t{1}, std::size_t{1024}}) {
    setup::Row("a write of 60 bytes to an object of " + std::to_string(kilobytes) +
                   " KB, 20 followers that do not read",
               setup::Number(CostOfWrite(20, kilobytes * 1024, small), 1) + " us", "", true);
  }
  for (const std::size_t kilobytes : {std::size_t{6}, std::size_t{60}}) {
    setup::Row("a write of " + std::to_string(kilobytes) +
                   " KB to an object of that size, 20 followers that do not read",
               setup::Number(CostOfWrite(20, kilobytes * 1024, Lines(kilobytes * 1024)), 1) + " us",
               "", true);
  }
}

int Run(int argc, char** argv) {
  const long gets = setup::Argument(argc, argv, 1, 1000);
  MeasureUnit(gets);
  MeasureRedis(gets);
  MeasureWrites();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
