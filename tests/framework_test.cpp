// Controllers and files in this process, against a raw resource manager.

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <thread>

#include "McuFileBase.h"
#include "PPSFileBase.h"
#include "PublicController.h"
#include "support/fake_manager.h"

namespace support {
namespace {

using NXQ::ZMCAR::fileTagInfo;

const fileTagInfo kMcu = {1, "/dev/mcu", O_RDWR, 0};
const fileTagInfo kObject = {0, "/pps/object?wait", O_RDWR | O_CREAT, 0666};

// Notes what it is told, and on which thread.
class Controller : public NXQ::ZMCAR::PublicController, public NXQ::ZMCAR::IMcuRecvData {
 public:
  Controller() : PublicController(nullptr) {}
  ~Controller() override { Stop(); }

  void OnRecvData(unsigned char* data, int size) override {
    if (on_packet) on_packet();
    Note("packet " + std::string(reinterpret_cast<char*>(data), static_cast<std::size_t>(size)));
  }
  void OnAttributeChange(int key, pps_attrib_t* attribute) override {
    if (on_change) on_change();
    Note("change " + std::to_string(key) + " " + attribute->attr_name + "=" + attribute->value);
  }
  void OnPpsStatusChange(int key, pps_status_t status, pps_attrib_t*) override {
    Note("status " + std::to_string(key) + " " + std::to_string(status));
  }

  std::vector<std::string> Notes() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return notes_;
  }
  bool Gets(std::size_t count) {
    return Eventually([&] { return Notes().size() >= count; });
  }

  std::function<void()> on_packet;
  std::function<void()> on_change;
  std::atomic<bool> on_callers_thread{false};

 private:
  void Note(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    notes_.push_back(text);
    if (::pthread_equal(creator_, ::pthread_self()) != 0) on_callers_thread = true;
  }

  const pthread_t creator_ = ::pthread_self();
  std::mutex mutex_;
  std::vector<std::string> notes_;
};

// A controller with one file, which is opened at a manager and registered, and ends in order.
template <typename File>
struct Wired {
  Wired(FakeManager& manager, const fileTagInfo& tag) : file(tag, &controller) {
    EXPECT_TRUE(controller.Init());
    Open(manager);
    EXPECT_TRUE(controller.AddFile(file.GetKey(), &file));
  }
  ~Wired() {
    controller.Stop();
    controller.RemoveFile(file.GetKey());
  }
  void Open(FakeManager& manager) {
    std::thread beside([&] { other = manager.Grant(); });
    EXPECT_TRUE(file.Open());
    beside.join();
  }

  Controller controller;
  File file;
  Connection other{-1};  // the other side of the file
};
using WiredMcu = Wired<NXQ::ZMCAR::McuFileBase>;
using WiredObject = Wired<NXQ::ZMCAR::PPSFileBase>;

class FrameworkTest : public ::testing::Test {
 protected:
  TempRoot root_;
};

using Notes = std::vector<std::string>;

TEST_F(FrameworkTest, DeliversBetweenStartAndStopOnAThreadOfItsOwn) {
  FakeManager device(root_, "/dev/mcu");
  WiredMcu wired(device, kMcu);
  Controller& controller = wired.controller;
  NXQ::ZMCAR::McuFileBase& file = wired.file;
  Connection& mcu = wired.other;
  mcu.Send("early");
  std::this_thread::sleep_for(milliseconds(30));
  EXPECT_EQ(controller.Notes(), Notes());

  // What came before the start is stale.
  EXPECT_TRUE(controller.Start());
  mcu.Send("first");
  ASSERT_TRUE(controller.Gets(1));
  const std::string whole(65536, 'w');
  mcu.Send(whole);
  mcu.Send(std::string(70000, 'x'));
  mcu.Send("");
  mcu.Send("last");
  ASSERT_TRUE(controller.Gets(5));
  EXPECT_EQ(controller.Notes(),
            (Notes{"packet first", "packet " + whole, "packet " + std::string(65536, 'x'),
                   "packet ", "packet last"}));
  // Repeated on a running controller: nothing changes.
  EXPECT_TRUE(controller.Init());
  EXPECT_TRUE(controller.Start());
  EXPECT_TRUE(controller.AddFile(file.GetKey(), &file));
  EXPECT_TRUE(file.Open());
  NXQ::ZMCAR::McuFileBase other(kMcu, &controller);
  EXPECT_FALSE(controller.AddFile(other.GetKey(), &other));
  mcu.Send("once");
  ASSERT_TRUE(controller.Gets(6));

  EXPECT_TRUE(controller.Stop());
  mcu.Send("late");
  std::this_thread::sleep_for(milliseconds(30));
  EXPECT_EQ(controller.Notes().size(), 6u);
  EXPECT_TRUE(controller.Start());
  mcu.Send("again");
  ASSERT_TRUE(controller.Gets(7));
  EXPECT_EQ(controller.Notes().back(), "packet again");
  EXPECT_TRUE(controller.RemoveFile(file.GetKey()));
  EXPECT_FALSE(controller.RemoveFile(file.GetKey()));
  mcu.Send("unregistered");
  std::this_thread::sleep_for(milliseconds(30));
  EXPECT_EQ(controller.Notes().size(), 7u);
  EXPECT_FALSE(controller.on_callers_thread);
  EXPECT_TRUE(controller.Close());
}

TEST_F(FrameworkTest, SendsWholePacketsAndFillsTheirHeader) {
  FakeManager device(root_, "/dev/mcu");
  WiredMcu wired(device, kMcu);
  NXQ::ZMCAR::McuFileBase& file = wired.file;
  const unsigned char bytes[] = {1, 2, 3};
  EXPECT_EQ(file.SendToSpiDev(bytes, 3), 3);
  EXPECT_EQ(wired.other.Receive(), (Bytes{1, 2, 3}));
  wired.other.Close();
  EXPECT_EQ(file.SendToSpiDev(bytes, 3), -EPIPE);
  file.Close();
  EXPECT_EQ(file.SendToSpiDev(bytes, 3), -EBADF);

  NXQ::ZMCAR::PacketHeader_s header;
  header.payloadLength = 13;
  file.PacketHeader(header, 0x34, 0xB4, 0, 200, 3, 13, 7);
  Bytes words(sizeof(header));
  std::memcpy(words.data(), &header, sizeof(header));
  EXPECT_EQ(Hex(words),
            "0d 00 00 00 34 00 00 00 b4 00 00 00 00 00 00 00 c8 00 00 00 03 00 00 00 07 00 00 00");
}

TEST_F(FrameworkTest, EveryAttributeLineIsOneChange) {
  FakeManager pps(root_, "/pps");
  WiredObject wired(pps, kObject);
  Controller& controller = wired.controller;
  Connection& object = wired.other;
  ASSERT_TRUE(controller.Start());
  object.Send(
      "@object\na::1\nb:n:2\nc:json:{\"x\":[1,2]}\nno line\n\nb:n:2\n-a\n-@object\n"
      "|@object\n@object\nd::cut");
  ASSERT_TRUE(controller.Gets(8));
  EXPECT_EQ(controller.Notes(),
            (Notes{"change 0 a=1", "change 0 b=2", "change 0 c={\"x\":[1,2]}", "change 0 b=2",
                   "status 0 " + std::to_string(PPS_ATTRIBUTE_DELETED),
                   "status 0 " + std::to_string(PPS_OBJECT_DELETED),
                   "status 0 " + std::to_string(PPS_OBJECT_TRUNCATED), "change 0 d=cut"}));
  // Of a text that fills a read, the line it was cut in is left out.
  object.Send("first::1\nlast::" + std::string(70000, 'x'));
  object.Send("next::1\n");
  ASSERT_TRUE(controller.Gets(10));
  EXPECT_EQ(controller.Notes()[8], "change 0 first=1");
  EXPECT_EQ(controller.Notes()[9], "change 0 next=1");

  EXPECT_TRUE(wired.file.WritePPS("e::1\n", 5));
  EXPECT_EQ(object.Receive(), Text("e::1\n"));
  object.Close();
  EXPECT_TRUE(Eventually([&] { return !wired.file.WritePPS("e::1\n", 5); }));
}

// Processor time of the whole process, in clock ticks.
std::clock_t Spent() { return std::clock(); }

TEST_F(FrameworkTest, ALostMcuFileIsOpenedAgainAndNeverSpunOn) {
  auto device = std::make_unique<FakeManager>(root_, "/dev/mcu");
  WiredMcu wired(*device, kMcu);
  Controller& controller = wired.controller;
  Connection& mcu = wired.other;
  controller.Start();
  for (int round = 0; round < 2; ++round) {
    mcu.Send("unread reply");  // what was sent before the end is still delivered
    device.reset();
    mcu.Close();
    ASSERT_TRUE(controller.Gets(static_cast<std::size_t>(2 * round + 1)));
    const std::clock_t before = Spent();
    std::this_thread::sleep_for(milliseconds(700));
    EXPECT_LT(Spent() - before, CLOCKS_PER_SEC / 5);
    device = std::make_unique<FakeManager>(root_, "/dev/mcu");
    mcu = device->Grant(milliseconds(2000));
    mcu.Send("back");
    ASSERT_TRUE(controller.Gets(static_cast<std::size_t>(2 * round + 2)));
    EXPECT_EQ(controller.Notes().back(), "packet back");
  }
  // Half closed: reads as empty for ever, which is an end as well, but not before the last request.
  for (int i = 0; i < 20; ++i) mcu.Send("");
  mcu.Send("behind");
  ::shutdown(mcu.fd(), SHUT_WR);
  EXPECT_TRUE(Eventually([&] { return controller.Notes().back() == "packet behind"; }));
  mcu = device->Grant(milliseconds(2000));
  mcu.Send("again");
  EXPECT_TRUE(Eventually([&] { return controller.Notes().back() == "packet again"; }));
}

TEST_F(FrameworkTest, ALostObjectStaysClosedUntilItIsOpenedAnew) {
  FakeManager pps(root_, "/pps");
  WiredObject wired(pps, kObject);
  wired.other.Send("a::0");  // before the start: an object's text is no stale packet
  wired.controller.Start();
  ASSERT_TRUE(wired.controller.Gets(1));
  wired.other.Close();
  EXPECT_FALSE(pps.Accept(milliseconds(1200)));
  wired.Open(pps);
  wired.other.Send("a::1");
  EXPECT_TRUE(wired.controller.Gets(2));
}

TEST_F(FrameworkTest, StopAndRemoveWaitForTheRunningCallback) {
  FakeManager device(root_, "/dev/mcu");
  WiredMcu wired(device, kMcu);
  Controller& controller = wired.controller;
  NXQ::ZMCAR::McuFileBase& file = wired.file;
  std::atomic<bool> entered{false};
  std::atomic<bool> left{false};
  controller.on_packet = [&] {
    entered = true;
    std::this_thread::sleep_for(milliseconds(100));
    left = true;
  };
  for (const bool remove : {true, false}) {
    ASSERT_TRUE(controller.Start());
    entered = left = false;
    wired.other.Send("slow");
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    EXPECT_TRUE(remove ? controller.RemoveFile(file.GetKey()) : controller.Stop());
    EXPECT_TRUE(left);
    if (remove) controller.AddFile(file.GetKey(), &file);
  }
  // From a callback: it cannot wait for itself.
  std::atomic<int> stopped{-1};
  controller.on_packet = [&] {
    controller.RemoveFile(file.GetKey());
    stopped = controller.Stop() ? 1 : 0;
  };
  controller.Start();
  wired.other.Send("stop");
  ASSERT_TRUE(Eventually([&] { return stopped == 0; }));
  EXPECT_TRUE(controller.Stop());
}

// A text is one read with many callbacks: after RemoveFile or Stop within one, the next does not
// come.
TEST_F(FrameworkTest, NoLineOfATextFollowsARemovalOrAStop) {
  FakeManager pps(root_, "/pps");
  for (const bool remove : {true, false}) {
    WiredObject wired(pps, kObject);
    Controller& controller = wired.controller;
    std::atomic<bool> over{false};
    controller.on_change = [&] {
      if (remove) {
        controller.RemoveFile(wired.file.GetKey());
      } else {
        EXPECT_FALSE(controller.Stop());
      }
      over = true;
    };
    controller.Start();
    wired.other.Send("@object\na::1\nb::2\nc::3\n");
    ASSERT_TRUE(Eventually([&] { return over.load(); }));
    EXPECT_TRUE(controller.Stop());
    EXPECT_EQ(controller.Notes(), Notes{"change 0 a=1"});
    // Registered anew, it is delivered as ever.
    controller.on_change = nullptr;
    controller.AddFile(wired.file.GetKey(), &wired.file);
    controller.Start();
    wired.other.Send("a::1\nb::2");
    EXPECT_TRUE(controller.Gets(3));
  }
}

// Several threads in Stop, a file that goes before its controller, while its callback runs, and a
// controller that goes before its file.
TEST_F(FrameworkTest, ControllersAndFilesMayGoInAnyOrder) {
  FakeManager device(root_, "/dev/mcu");
  for (int round = 0; round < 20; ++round) {
    auto controller = std::make_unique<Controller>();
    auto first = std::make_unique<NXQ::ZMCAR::McuFileBase>(kMcu, controller.get());
    const fileTagInfo other_tag = {2, kMcu.path, O_RDWR, 0};
    auto second = std::make_unique<NXQ::ZMCAR::McuFileBase>(other_tag, controller.get());
    std::vector<Connection> mcu;
    std::thread beside([&] {
      for (int i = 0; i < 2; ++i) mcu.push_back(device.Grant());
    });
    EXPECT_TRUE(first->Open() && second->Open());
    beside.join();
    std::atomic<bool> entered{false};
    std::atomic<bool> left{false};
    controller->on_packet = [&] {
      entered = true;
      std::this_thread::sleep_for(milliseconds(2));
      left = true;
    };
    EXPECT_TRUE(controller->AddFile(1, first.get()) && controller->AddFile(2, second.get()));
    Controller stranger;
    EXPECT_FALSE(stranger.AddFile(1, first.get()) || controller->AddFile(3, first.get()));
    EXPECT_TRUE(controller->Start());
    mcu[0].Send("slow");
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    first.reset();
    EXPECT_TRUE(left);
    mcu[1].Send("still delivered");
    EXPECT_TRUE(controller->Gets(2));
    std::thread threads[3];
    for (std::thread& thread : threads)
      thread = std::thread([&] { EXPECT_TRUE(controller->Stop()); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(controller->Start());
    controller.reset();
    EXPECT_EQ(second->SendToSpiDev(reinterpret_cast<const unsigned char*>("x"), 1), 1);
    second->Close();
  }
}

TEST_F(FrameworkTest, StopsUnderAFloodAndKeepsNothing) {
  FakeManager device(root_, "/dev/mcu");
  const int before = CountDescriptors(::getpid());
  for (int round = 0; round < 20; ++round) {
    WiredMcu wired(device, kMcu);
    Controller& controller = wired.controller;
    controller.Start();
    std::atomic<bool> flood{true};
    std::thread sender([&] {
      while (flood) ::send(wired.other.fd(), "flood", 5, MSG_NOSIGNAL | MSG_DONTWAIT);
    });
    controller.Gets(5);
    EXPECT_TRUE(controller.Stop());
    const std::size_t count = controller.Notes().size();
    std::this_thread::sleep_for(milliseconds(2));
    EXPECT_EQ(controller.Notes().size(), count);
    flood = false;
    sender.join();
    wired.file.Close();
    EXPECT_TRUE(controller.Close());
    EXPECT_EQ(CountDescriptors(::getpid()), before + 1);  // the other side's
  }
  EXPECT_EQ(CountDescriptors(::getpid()), before);
}

}  // namespace
}  // namespace support
