// The simulated MCU: which station gets which packet.
#include <fcntl.h>
#include <sys/slog.h>

#include <cstring>

#include "qnx/bench_link.h"
#include "support/fixture.h"
#include "support/raw_client.h"
#include "wire/at_packet.h"

namespace support {
namespace {

std::string AsText(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string Request(std::uint8_t command, std::uint8_t sub_command,
                    const std::string& parameters = "") {
  return AsText(wire::BuildRequest(command, sub_command, Text(parameters)));
}

std::string Reply(std::uint8_t command, std::uint8_t sub_command, const std::string& data) {
  return AsText(support::Reply(command, sub_command, Text(data)));
}

class McuTest : public UnitTest {
 protected:
  static RawClient OpenService() { return RawClient(wire::kMcuDevicePath, "", O_RDWR); }
  static RawClient OpenStation() { return RawClient(qnx::kStationPath, "", O_RDWR); }
  static RawClient OpenMonitor() {
    return RawClient(qnx::kStationPath, qnx::kMonitorRest, O_RDONLY);
  }
  // What one side sends, the other gets.
  static void Pass(const RawClient& from, const std::string& packet, const RawClient& to) {
    ASSERT_TRUE(from.Send(packet));
    EXPECT_EQ(packet, to.Receive().value_or(""));
  }
  static bool Silent(const RawClient& client) { return !client.Receive(milliseconds(50)); }
};

TEST_F(McuTest, ASecondServiceIsCountedAndTold) {
  Log log(root_);
  const RawClient first = OpenService();
  EXPECT_PRED2(Contains, Control("status"), " services 1 ");
  EXPECT_TRUE(log.Texts(_SLOG_WARNING).empty());
  const RawClient second = OpenService();
  EXPECT_PRED2(Contains, Control("status"), "service 1 services 2 ");
  // A process that logged to an earlier test's ring finds this one within a second.
  EXPECT_TRUE(Eventually([&] {
    const RawClient third = OpenService();
    return !log.Texts(_SLOG_WARNING).empty();
  }));
}

TEST_F(McuTest, RepliesGoToTheStationThatAsked) {
  const RawClient service = OpenService();
  EXPECT_TRUE(unit_->WaitForService(support::kSoon));
  const RawClient first = OpenStation();
  const RawClient second = OpenStation();

  // Both ask the same: the answers come in the order of the questions.
  Pass(first, Request(7, 1), service);
  Pass(second, Request(7, 1), service);
  ASSERT_TRUE(service.Send(Reply(7, 1, "one")));
  ASSERT_TRUE(service.Send(Reply(7, 1, "two")));
  EXPECT_EQ(Reply(7, 1, "one"), first.Receive().value_or(""));
  EXPECT_EQ(Reply(7, 1, "two"), second.Receive().value_or(""));
  EXPECT_TRUE(Silent(first));
  EXPECT_TRUE(Silent(second));

  // A request that has no answer is done with once a later one is answered.
  Pass(first, Request(4, 13), service);
  Pass(second, Request(7, 2), service);
  Pass(service, Reply(7, 2, "x"), second);
  ASSERT_TRUE(service.Send(Reply(4, 13, "late")));  // its request is closed by now
  EXPECT_TRUE(Silent(first));
  EXPECT_TRUE(Silent(second));

  // The sub-command counts, and so does the reply bit.
  Pass(first, Request(7, 3), service);
  ASSERT_TRUE(service.Send(Reply(7, 4, "other")));
  ASSERT_TRUE(service.Send(Request(7, 3)));
  EXPECT_TRUE(Silent(first));
  Pass(service, Reply(7, 3, ""), first);
}

TEST_F(McuTest, AStationThatLeftTakesNoAnswerFromTheOthers) {
  const RawClient service = OpenService();
  const RawClient stays = OpenStation();
  const auto ask_and_leave = [&](const std::string& packet) {
    const RawClient leaves = OpenStation();
    ASSERT_TRUE(leaves.Send(packet));
    EXPECT_TRUE(service.Receive());
  };
  ask_and_leave(Request(7, 1));
  EXPECT_EQ(0, AccessPps(""));
  ASSERT_TRUE(service.Send(Reply(7, 1, "for the one that left")));
  EXPECT_TRUE(Silent(stays));

  // Nothing answered them, so the next answer is not theirs.
  std::string cut = Request(7, 1);
  cut[0] = 8;
  std::string empty = Request(7, 1);
  empty[wire::kHeaderSize + wire::kLinkSize + wire::kRecordLengthOffset] = 0;
  std::string lacks_parameters = Request(7, 1);
  lacks_parameters[wire::kHeaderSize + wire::kLinkSize + wire::kRecordLengthOffset] = 2;
  for (const std::string& packet : {Request(7, 1), Request(7, 1), cut, empty, lacks_parameters}) {
    ask_and_leave(packet);
    ASSERT_TRUE(stays.Send(packet));  // as little a question of the one that stays
    EXPECT_TRUE(service.Receive());
  }
  const RawClient other = OpenStation();
  for (const char* text : {"first", "second"}) {
    ASSERT_TRUE(service.Send(Reply(7, 1, text)));
    EXPECT_EQ(Reply(7, 1, text), stays.Receive().value_or(""));
  }
  Pass(other, Request(7, 1), service);
  Pass(service, Reply(7, 1, "third"), other);
}

TEST_F(McuTest, AnyBytesPassUnchanged) {
  const RawClient service = OpenService();
  const RawClient station = OpenStation();
  std::string all_bytes;
  for (int i = 0; i < 256; ++i) all_bytes += static_cast<char>(i);
  const std::string packets[] = {std::string(1, '\0'), all_bytes, std::string(28, '\xff'),
                                 std::string(wire::kMaxPacket, 'x')};
  for (const std::string& packet : packets) {
    ASSERT_TRUE(station.Send(packet));
    EXPECT_TRUE(packet == service.Receive().value_or("")) << packet.size();
  }
  // Longer ones than the link takes, and empty ones, which would read as the end, go nowhere.
  ASSERT_TRUE(station.Send(std::string(wire::kMaxPacket + 1, 'y')));
  ASSERT_TRUE(station.Send(""));
  ASSERT_TRUE(station.Send("last"));
  EXPECT_EQ("last", service.Receive().value_or(""));
  EXPECT_TRUE(Silent(station));
}

TEST_F(McuTest, MonitorsSeeEverythingWithTimeDirectionAndStation) {
  const RawClient monitor = OpenMonitor();
  const RawClient station = OpenStation();
  const RawClient other = OpenStation();
  const auto next = [&](std::uint32_t* direction, std::uint32_t* number) {
    const std::string message = monitor.Receive().value_or("");
    qnx::MonitorHead head = {};
    if (message.size() < sizeof(head)) return std::string("no message");
    std::memcpy(&head, message.data(), sizeof(head));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto age =
        std::chrono::nanoseconds(now).count() - static_cast<std::int64_t>(head.nanoseconds);
    EXPECT_GE(age, 0);
    EXPECT_LT(age, 60 * std::int64_t{1000000000});
    *direction = head.direction;
    *number = head.station;
    return message.substr(sizeof(head));
  };
  std::uint32_t direction = 9;
  std::uint32_t number = 0;

  ASSERT_TRUE(station.Send(Request(7, 1)));  // no service is there to take it
  EXPECT_EQ(Request(7, 1), next(&direction, &number));
  EXPECT_EQ(0u, direction);
  EXPECT_NE(0u, number);
  const std::uint32_t first = number;
  EXPECT_PRED2(Contains, Control("status"), " dropped 1 ");

  const RawClient service = OpenService();
  ASSERT_TRUE(other.Send(Request(7, 1)));
  EXPECT_EQ(Request(7, 1), next(&direction, &number));
  EXPECT_NE(first, number);
  const std::uint32_t second = number;
  ASSERT_TRUE(service.Send(Reply(7, 1, "x")));  // not for the first: it was never passed on
  EXPECT_EQ(Reply(7, 1, "x"), next(&direction, &number));
  EXPECT_EQ(1u, direction);
  EXPECT_EQ(second, number);
  ASSERT_TRUE(service.Send("not a packet"));
  EXPECT_EQ("not a packet", next(&direction, &number));
  EXPECT_EQ(0u, number);
  EXPECT_EQ(Reply(7, 1, "x"), other.Receive().value_or(""));

  EXPECT_EQ(Request(7, 1), service.Receive().value_or(""));
  ASSERT_TRUE(monitor.Send(Request(7, 1)));  // a monitor only looks
  EXPECT_TRUE(Silent(service));
  EXPECT_EQ(ENOENT, RawClient(qnx::kStationPath, "/else", O_RDWR).answer());
}

TEST_F(McuTest, PacketsForAServiceThatDoesNotReadAreBounded) {
  const RawClient service = OpenService();
  const RawClient station = OpenStation();
  const RawClient monitor = OpenMonitor();
  const std::string packet(60000, 'x');
  int sent = 0;
  for (int i = 0; i < 20000 && sent < 1000; ++i) {
    if (station.Send(packet)) ++sent;
    AccessPps("");
  }
  EXPECT_EQ(sent, 1000);
  // It reads again: what was kept comes whole and in order, and the link works.
  std::size_t kept = 0;
  while (service.Receive(milliseconds(100)) == packet) ++kept;
  EXPECT_GT(kept, 10u);
  // So is what a monitor gets, which is told.
  std::string last, message;
  while (!(message = monitor.Receive(milliseconds(100)).value_or("")).empty()) last = message;
  EXPECT_EQ(last, std::string(8, '\0') + '\2' + std::string(7, '\0'));
  EXPECT_LT(kept, 200u);
  Pass(station, Request(7, 1), service);
}

TEST_F(McuTest, TheDeviceGoesAndComesBack) {
  const RawClient service = OpenService();
  const RawClient station = OpenStation();
  Pass(station, Request(7, 1), service);
  EXPECT_EQ("ok", Control("mcu down"));
  EXPECT_TRUE(service.AtEnd());
  EXPECT_FALSE(unit_->WaitForService(milliseconds(0)));
  EXPECT_FALSE(OpenService().connected());
  EXPECT_EQ("ok", Control("mcu down"));
  EXPECT_EQ("ok", Control("mcu up"));
  const RawClient again = OpenService();
  EXPECT_EQ(0, again.answer());
  EXPECT_TRUE(unit_->WaitForService(support::kSoon));
  // What was asked before is forgotten.
  ASSERT_TRUE(again.Send(Reply(7, 1, "stale")));
  EXPECT_TRUE(Silent(station));
  Pass(station, Request(7, 1), again);
}

}  // namespace
}  // namespace support
