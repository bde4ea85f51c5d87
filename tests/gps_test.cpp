// Positioning: the store, the controller on its geolocation object, and the command's replies.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <sstream>

#include "ATCmdGPS.h"
#include "GpsController.h"
#include "GpsData.h"
#include "support/recorder.h"

namespace support {
namespace {

const std::uint8_t kGps = 5;
const std::string kRequest =
    "@control\nmsg::location\nid::10\n"
    "dat:json:{\"period\":1,\"provider\":\"gnss\",\"fix_type\":\"best\"}\n";

// The next message, "" when there is none.
std::string Next(const Connection& connection, milliseconds limit = support::kSoon) {
  return Shown(connection.Receive(limit).value_or(Bytes()));
}

bool IsClosed(const Connection& connection) {
  char byte;
  return Eventually([&] { return ::recv(connection.fd(), &byte, 1, MSG_DONTWAIT) == 0; });
}

// Answers the next open, as the geolocation service does.
std::future<FakeManager::Opening> Await(FakeManager* pps) {
  return std::async(std::launch::async, [pps] {
    auto opening = pps->Accept();
    if (!opening) return FakeManager::Opening{{}, Connection()};
    opening->connection.Answer(0);
    return std::move(*opening);
  });
}

std::string Response(const std::string& members) {
  return "@control\ndat:json:{" + members + "}\n";
}

// `count` satellites with the ids from 1 on, each with `cno`.
std::string Satellites(int count, int cno) {
  std::string text = "\"satellites\":[";
  for (int id = 1; id <= count; ++id) {
    text += (id > 1 ? ",{\"id\":" : "{\"id\":") + std::to_string(id) +
            ",\"cno\":" + std::to_string(cno) + "}";
  }
  return text + "]";
}

// The reply that lists the first 19 of `count` satellites with `cno`.
Bytes List(int count, int cno) {
  Bytes list = {static_cast<std::uint8_t>(std::min(count, 19))};
  for (int id = 1; id <= std::min(count, 19); ++id) {
    for (const int byte : {id, 0, cno >> 8, cno & 255}) {
      list.push_back(static_cast<std::uint8_t>(byte));
    }
  }
  return list;
}

// True for the list of one fix: number n has n % 24 + 1 satellites of strength n.
bool IsWhole(const Bytes& list) {
  const int fix = list.size() < 5 ? 0 : list[list.size() - 2] << 8 | list.back();
  return list == List(fix == 0 ? 0 : fix % 24 + 1, fix);
}

// The store: longitude, latitude, altitude, speed, ttff, utc and angle; the satellites as
// used/id/cno/azimuth/elevation, with a '+' what is not zero behind them.
std::string Store() {
  GpsData* const store = GpsData::GetInstance();
  const GpsDataLock lock(store);
  std::ostringstream text;
  text << store->m_longitude << ' ' << store->m_latitude << ' ' << store->m_altitude << ' '
       << store->m_speed << ' ' << store->m_ttff << ' ' << store->m_utc << ' ' << store->m_angle;
  for (int i = 0; i < GPS_MAX_SATELLITES; ++i) {
    const GpsSatellite& one = store->m_satellites[i];
    std::ostringstream entry;
    entry << one.used << '/' << one.id << '/' << one.cno << '/' << one.azimuth << '/'
          << one.elevation;
    const bool listed = i < store->m_satCount;
    if (listed || entry.str() != "0/0/0/0/0") text << (listed ? " " : " +") << entry.str();
  }
  return text.str();
}

void Update(GpsController* controller, std::string name, std::string value, int key = 0) {
  pps_attrib_t attribute = {};
  attribute.attr_name = &name[0];
  attribute.value = &value[0];
  controller->OnAttributeChange(key, &attribute);
}

TEST(GpsStore, IsReplacedByEveryResponse) {
  const std::string zero = "0 0 0 0 0 0 0";
  const std::string deep(200000, '[');
  std::string many = zero;
  for (int id = 1; id <= 24; ++id) many += " 0/" + std::to_string(id) + "/7/0/0";
  const std::pair<std::string, std::string> kCases[] = {
      {R"({"satellites":[{"id":3,"cno":41.5,"used":true,"azimuth":359,"elevation":-1}],"Angle":123,
           "utc":1420070400123,"ttff":9,"speed":-57,"altitude":0.5,"longitude":121.5,
           "latitude":-31.25,"other":{"speed":1}})",
       "121.5 -31.25 0.5 -57 9 1420070400123 123 1/3/41.5/359/-1"},
      // What is missing, of another type, out of range or elsewhere is zero.
      {"{}", zero},
      {R"({"speed":57,"angle":5,"Longitude":2,"satellites":[]})", "0 0 0 57 0 0 0"},
      {R"({"speed":57.5,"ttff":"9","utc":9223372036854775808,"Angle":2147483648,"longitude":"1",
           "latitude":true,"altitude":null,"satellites":{"id":1}})",
       zero},
      {R"({"latitude":[{"latitude":1}],"position":{"longitude":2,"satellites":[{"id":1}]}})", zero},
      // Elements are read by themselves; those that are no objects are passed.
      {R"({"satellites":[{"id":1,"cno":5,"used":true,"azimuth":6,"elevation":7},{"id":2},4,null,
           [{"id":8}],{"elevation":9,"id":3,"cno":"x","used":1,"azimuth":1.5},{"sat":{"id":6}}]})",
       zero + " 1/1/5/6/7 0/2/0/0/0 0/3/0/0/9 0/0/0/0/0"},
      // The later one of two stands at the place of the first.
      {R"({"satellites":[{"id":1,"cno":5},{"id":2,"cno":6},{"id":1,"used":true},{},{"cno":1}]})",
       zero + " 1/1/0/0/0 0/2/6/0/0 0/0/1/0/0"},
      {"{" + Satellites(25, 7) + "}", many},
      {"{" + Satellites(60, 7) + "}", many},
      // No JSON object.
      {"", zero},
      {"{\"speed\":1", zero},
      {"{\"speed\":3,\"satellites\":" + deep + std::string(deep.size(), ']') + "}",
       "0 0 0 3 0 0 0"},
  };
  GpsController controller(nullptr);
  const std::string full = R"({"speed":1,"ttff":2,"utc":3,"Angle":4,"longitude":5,"latitude":6,)";
  for (const auto& [response, store] : kCases) {
    Update(&controller, "dat", full + "\"altitude\":7," + Satellites(24, 9) + "}");
    Update(&controller, "dat", response);
    EXPECT_EQ(Store(), store) << response.substr(0, 200);
  }
  Update(&controller, "dat", full + "\"altitude\":7," + Satellites(24, 9) + "}");
  const std::string kept = Store();
  Update(&controller, "dat", "{}", 1);  // another file's
  Update(&controller, "Dat", "{}");
  Update(&controller, "err", "gone");
  controller.UpdateData(nullptr);
  pps_attrib_t nameless = pps_attrib_t();
  controller.UpdateData(&nameless);
  EXPECT_EQ(Store(), kept);
  GpsData::GetInstance()->Reset();
  EXPECT_EQ(Store(), "0 0 0 0 0 0 4");  // all but the angle
}

TEST(GpsLifecycle, KeepsOneObjectAndAsksEveryTime) {
  TempRoot root;
  FakeManager pps(root, "/pps");
  const int descriptors = CountDescriptors(::getpid());
  {
    GpsController controller(nullptr);
    auto opened = Await(&pps);
    EXPECT_TRUE(controller.Init());
    Connection service = std::move(opened.get().connection);
    for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(controller.Init() && controller.Start());
      EXPECT_EQ(Next(service), kRequest);
    }
    EXPECT_FALSE(pps.Accept(milliseconds(20)));
    // Registered once: one request a suspension, also for two in a row.
    service.Send("@control\nerr::suspended\n");
    EXPECT_EQ(Next(service), kRequest);
    service.Send("@control\nerr::other\nerr::Suspended\nerror::suspended\n-err\nnoise\n\n");
    service.Send("err::suspended\n" + Response("\"speed\":8").substr(9) + "err::suspended");
    EXPECT_EQ(Next(service), kRequest);
    EXPECT_EQ(Next(service), kRequest);
    EXPECT_EQ(Next(service, milliseconds(20)), "");
    EXPECT_EQ(Store(), "0 0 0 8 0 0 0");

    EXPECT_TRUE(controller.Stop() && controller.Close());
    EXPECT_TRUE(IsClosed(service));
    EXPECT_FALSE(controller.Start());  // delivers, but its request goes nowhere
    EXPECT_TRUE(controller.Stop() && controller.Close());
  }
  EXPECT_EQ(CountDescriptors(::getpid()), descriptors);
}

// The service on a geolocation object that the test serves; nothing else is below /pps.
class Geolocation : public ServiceOnUnit {
 protected:
  void SetUp() override {
    ServiceOnUnit::SetUp();
    EXPECT_EQ(StopService(), 0);
    pps_ = std::make_unique<FakeManager>(root_, "/pps");
    auto opened = Await(pps_.get());
    StartService();
    service_end_ = opened.get().connection;
    EXPECT_EQ(Next(service_end_), kRequest);
  }
  void TearDown() override {
    EXPECT_EQ(StopService(), 0) << service_->Errors();
    EXPECT_TRUE(log_->Has(6, "_KRV_[Close]-Close\n"));
    EXPECT_TRUE(IsClosed(service_end_));
  }

  // Publishes a response and waits until it was taken in: the suspension behind it is answered.
  void Publish(const std::string& members) {
    service_end_.Send(Response(members) + "err::suspended\n");
    EXPECT_EQ(Next(service_end_), kRequest);
  }

  // Asks, and takes in the request for fixes that each command makes.
  Bytes Ask(std::uint8_t sub) {
    const Bytes reply = station_->Ask(kGps, sub);
    EXPECT_EQ(Next(service_end_), kRequest);
    return reply;
  }

  std::unique_ptr<FakeManager> pps_;
  Connection service_end_{-1};
};

TEST_F(Geolocation, AnswersFromTheStore) {
  const std::string nowhere = Hex(Bytes(16));
  const auto text = [](const char* speed) { return Hex(Padded(Text(speed), 78)); };
  EXPECT_EQ(Hex(Ask(0)), "00");
  EXPECT_EQ(Hex(Ask(2)), nowhere);
  const std::tuple<std::string, std::uint8_t, std::string> kCases[] = {
      {R"("longitude":1,"latitude":-2.5)", 2, "00 00 00 00 00 00 f0 3f 00 00 00 00 00 00 04 c0"},
      {R"("speed":57)", 3, text("57.0")},
      {R"("speed":57)", 2, nowhere},  // it came without a position
      {R"("speed":0)", 3, text("0.0")},
      {R"("speed":-2147483648)", 3, text("-2147483648.0")},
      {R"("speed":"57")", 3, text("0.0")},
      {R"("satellites":[{"id":5,"cno":43.7},{"id":12,"cno":0.9}])", 0,
       "02 05 00 00 2b 0c 00 00 00"},
      {R"("satellites":[{"id":261,"cno":70000.9},{"id":-1,"cno":-1.5}])", 0,
       "02 05 01 11 70 ff ff ff ff"},
      // The top byte is not sent; what does not fit 32 bits is clamped.
      {R"("satellites":[{"id":1,"cno":33554433},{"id":2,"cno":1e300},{"id":3,"cno":2147483648}])",
       0, "03 01 00 00 01 02 ff ff ff 03 ff ff ff"},
      {R"("satellites":[{"id":1,"cno":-1e300},{"id":2,"cno":false},{"id":3,"cno":"43"}])", 0,
       "03 01 00 00 00 02 00 00 00 03 00 00 00"},
      {Satellites(20, 40), 0, Hex(List(19, 40))},
      {Satellites(60, 40), 0, Hex(List(19, 40))},
  };
  for (const auto& [response, sub, reply] : kCases) {
    Publish(response);
    EXPECT_EQ(Hex(Ask(sub)), reply) << response;
  }
}

TEST_F(Geolocation, TracesEachStep) {
  Lines expected;
  const auto expect = [&](const Lines& cause) {
    EXPECT_EQ(Next(service_end_), kRequest);
    expected.insert(expected.end(), cause.begin(), cause.end());
    expected.insert(expected.end(),
                    {"6[SendGpsReq]-SendGpsReq?\n", "6[SendGpsReq]-Send:\n" + kRequest,
                     "6[SendGpsReq]-SendGpsReq!\n"});
  };
  log_->Clear();
  for (const std::uint8_t sub : Bytes{1, 8, 255}) {  // nothing but the request
    station_->Do(kGps, sub);
    expect({"6[Init]-Init\n", "6[Start]-Start\n"});
  }
  service_end_.Send("err::suspended\n");
  expect({"6[UpdateData]-\nerr:suspended\n"});
  const auto traced = [&] {
    return Logged(log_.get(), {"Init", "Start", "UpdateData", "SendGpsReq"});
  };
  EXPECT_TRUE(Eventually([&] { return traced().size() == expected.size(); }));
  EXPECT_EQ(traced(), expected);
}

TEST_F(Geolocation, NeverMixesTwoOfTenThousandFixes) {
  const int kFixes = 10000;
  std::atomic<int> sent{0};
  std::atomic<int> requests{0};
  std::thread feeder([&] {
    while (sent < kFixes) {
      const int fix = sent + 1;
      const std::string number = std::to_string(fix);
      service_end_.Send(Response("\"longitude\":" + number + "," + Satellites(fix % 24 + 1, fix) +
                                 ",\"latitude\":" + number));
      sent = fix;
      while (service_end_.Receive(milliseconds(0))) ++requests;
    }
  });
  int asked = 0, torn = 0;
  for (; sent < kFixes && !HasFailure(); asked += 2) {
    const Bytes position = station_->Ask(kGps, 2);
    EXPECT_EQ(position.size(), 16U);
    if (!std::equal(position.begin(), position.begin() + 8, position.begin() + 8)) ++torn;
    if (!IsWhole(station_->Ask(kGps, 0))) ++torn;
  }
  feeder.join();
  while (service_end_.Receive(milliseconds(50))) ++requests;
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(requests, asked);
}

class Navigation : public RecordedService {
 protected:
  // The text of the reply to an angle query while the status object holds `status`.
  std::string Angle(const std::string& status) {
    pps_->Hold("/zelmar/navigation/status", status);
    const Bytes reply = Ask(kGps, 4);
    const std::string text(reply.begin(), std::find(reply.begin(), reply.end(), 0));
    EXPECT_EQ(reply, Padded(Text(text), 78));
    return text;
  }
  std::string AngleOf(const std::string& dat) {
    return Angle("msgres:json:{\"msg\":1,\"dat\":\"" + dat + "\"}");
  }
};

TEST_F(Navigation, TakesCommands) {
  const std::string geolocation = "rwc 666 " + kGeolocation;
  const std::string write = "w 666 /zelmar/navigation/command";
  const std::tuple<int, Bytes, std::string> kRequests[] = {
      {5, {}, "5"}, {6, {1}, "2"}, {6, {2, 1}, "3"}, {7, {}, "10"}, {6, {0}, ""},
      {6, {3}, ""}, {6, {}, ""},   {1, {}, ""},      {8, {1}, ""},  {255, {1}, ""}};
  pps_->Hold("/zelmar/navigation/command", "");
  for (const auto& [sub, parameters, number] : kRequests) {
    Do(kGps, static_cast<std::uint8_t>(sub), parameters);
    Lines requests = {geolocation};
    if (!number.empty()) requests.push_back(write + " msg:json:{\"cmd\":" + number + "}");
    EXPECT_EQ(asked, requests) << sub << " " << Hex(parameters);
    EXPECT_EQ(told, "");
    EXPECT_EQ(log_->Texts(2),
              (Lines{"_KRV_[Init]-Open PPS false.\n", "_KRV_[Init]-GpsController  Init  false\n"}));
  }
  const std::string status = "msgres:json:{\"msg\":7,\"dat\":\"angle=12.5\"}\n";
  EXPECT_EQ(Angle(status), "12.5");
  EXPECT_EQ(told, "read buf is(\n'" + status +
                      "') \nmsg('7' \ndat(angle=12.5) \nfrmStr(angle=12.5) \nstrExt(12.5) \n");
  EXPECT_EQ(asked,
            (Lines{geolocation, write + " msg:json:{\"cmd\":1}", "r 0 /zelmar/navigation/status"}));
  pps_->Refuse("/zelmar/navigation/command", ENOENT);
  pps_->Refuse("/zelmar/navigation/status", ENOENT);
  EXPECT_EQ(Ask(kGps, 4), Bytes(78));
  EXPECT_EQ(told, Unopened("/zelmar/navigation/command") + Unopened("/zelmar/navigation/status"));
}

TEST_F(Navigation, AnswersTheAngle) {
  pps_->Hold("/zelmar/navigation/command", "");
  // The angle is taken out first and cut then.
  const std::string sevens(900, '7');
  const std::pair<std::string, std::string> kAngles[] = {
      {"a=b=c", "c"},
      {"x=", ""},
      {"12.5", "    "},
      {"", "    "},
      {sevens + "=9", "9"},
      {"x=" + sevens.substr(0, 78), sevens.substr(0, 77)},
      {"x=" + sevens, sevens.substr(0, 77)}};
  for (const auto& [dat, angle] : kAngles) EXPECT_EQ(AngleOf(dat), angle) << dat;
  AngleOf("12.5");
  EXPECT_EQ(told.substr(told.find(" \ndat(")), " \ndat(12.5) \nfrmStr(12.5) \n");

  // Nothing to answer: the number that was read, and the decoder's status.
  const std::tuple<std::string, std::string, std::string> kMissing[] = {
      {"", "0", "3"},
      {"dat::x=1\nmsg:n:1\n", "0", "3"},
      {"msgres::x=1\nmsg:n:1\ndat::x=1\n", "0", "2"},
      {"msgres:json:{\"msg\":4}\n", "4", "3"},
      {"msgres:json:{\"msg\":4,\"dat\":5}\n", "4", "2"},
      {"msgres:json:{\"res\":{\"msg\":4,\"dat\":\"x=1\"}}\n", "0", "3"}};
  for (const auto& [object, msg, status] : kMissing) {
    EXPECT_EQ(Angle(object), "") << object;
    EXPECT_EQ(told,
              "read buf is(\n'" + object + "') \nmsg('" + msg +
                  "' \ndat is NULL\xEF\xBC\x81 \npps_decoder_*() failed.pps_decoder_status (" +
                  status + ")\n");
  }
  EXPECT_EQ(Angle("msgres:json:{\"dat\":\"x=1\"}\n"), "1");  // the number is not needed
  EXPECT_EQ(told,
            "read buf is(\n'msgres:json:{\"dat\":\"x=1\"}\n') \nmsg('0' \ndat(x=1) \n"
            "pps_decoder_*() failed.pps_decoder_status (3)\nfrmStr(x=1) \nstrExt(1) \n");
  EXPECT_EQ(Angle(sevens + sevens + ":\nmsgres:json:{\"dat\":\"x=1\"}"), "");
}

}  // namespace
}  // namespace support
