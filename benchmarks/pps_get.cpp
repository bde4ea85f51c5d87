// One value of the unit, through the PPS manager and as a D-Bus property on a private bus.
//
// Usage: pps_get [ROUNDS [GETS]]. PPS: open the object, read its text, close, and take the
// attribute out with the decoder, as the service does for each request. D-Bus:
// org.freedesktop.DBus.Properties.Get on a connection that stays open, through dbus-daemon, to a
// program that knows the one property, and the text taken out of the answer. Both in turn in each
// round; a pair gives one ratio of its medians.
#include <dbus/dbus.h>
#include <pps.h>

#include "platform/pps_guards.h"
#include "setup.h"

namespace {

const char kObject[] = "/pps/services/bluetooth/settings";
const char kAttribute[] = "mac";
const std::size_t kTextSize = 1024;  // of the object, with its end

const char kName[] = "net.korvandis.Settings";
const char kPath[] = "/net/korvandis/settings";
const char kProperties[] = "org.freedesktop.DBus.Properties";

// --- PPS ----------------------------------------------------------------------------------------

std::string GetByPps() {
  char text[kTextSize];
  const platform::Descriptor object(platform::open(kObject, O_RDONLY));
  if (!object.IsOpen()) setup::Fail("no PPS object");
  const ssize_t size = ::read(object.Get(), text, sizeof(text) - 1);
  text[size < 0 ? 0 : size] = '\0';
  platform::Decoder decoder;
  const char* value = "";
  pps_decoder_parse_pps_str(decoder.Get(), text);
  pps_decoder_push(decoder.Get(), nullptr);
  pps_decoder_get_string(decoder.Get(), kAttribute, &value);
  return value;
}

// --- D-Bus --------------------------------------------------------------------------------------

// A bus of its own below `directory`.
class Bus {
 public:
  explicit Bus(const std::string& directory)
      : address_("unix:path=" + directory + "/bus"), daemon_(directory, Words(directory)) {}

  DBusConnection* Connect() const {
    const auto deadline = setup::Clock::now() + std::chrono::milliseconds(setup::kPatienceMs);
    for (;;) {
      DBusConnection* const connection = dbus_connection_open_private(address_.c_str(), nullptr);
      if (connection != nullptr && dbus_bus_register(connection, nullptr) != 0) return connection;
      if (setup::Clock::now() > deadline) setup::Fail("no D-Bus daemon answers");
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

 private:
  std::vector<std::string> Words(const std::string& directory) const {
    const std::string config = directory + "/bus.conf";
    std::ofstream(config)
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><listen>"
        << address_
        << "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow "
           "send_destination=\"*\"/>"
           "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";
    return {"dbus-daemon", "--nofork", "--config-file=" + config};
  }

  const std::string address_;
  const setup::Process daemon_;
};

// Answers Get with the one value, without looking at what is asked for.
DBusHandlerResult Answer(DBusConnection* connection, DBusMessage* message, void* value) {
  if (dbus_message_is_method_call(message, kProperties, "Get") == 0)
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
  DBusMessage* const reply = dbus_message_new_method_return(message);
  DBusMessageIter iterator;
  DBusMessageIter variant;
  dbus_message_iter_init_append(reply, &iterator);
  dbus_message_iter_open_container(&iterator, DBUS_TYPE_VARIANT, "s", &variant);
  dbus_message_iter_append_basic(&variant, DBUS_TYPE_STRING, value);
  dbus_message_iter_close_container(&iterator, &variant);
  dbus_connection_send(connection, reply, nullptr);
  dbus_message_unref(reply);
  return DBUS_HANDLER_RESULT_HANDLED;
}

// Serves the property until the bus ends.
int ServeProperty(const Bus& bus, const std::string& value) {
  DBusConnection* const connection = bus.Connect();
  const char* text = value.c_str();
  dbus_connection_add_filter(connection, Answer, &text, nullptr);
  dbus_bus_request_name(connection, kName, 0, nullptr);
  while (dbus_connection_read_write_dispatch(connection, -1) != 0) {
  }
  return 0;
}

// Empty while the name has no owner.
std::string GetByDBus(DBusConnection* connection) {
  const char* interface = kName;
  const char* property = kAttribute;
  DBusMessage* const call = dbus_message_new_method_call(kName, kPath, kProperties, "Get");
  dbus_message_append_args(call, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &property,
                           DBUS_TYPE_INVALID);
  DBusMessage* const reply =
      dbus_connection_send_with_reply_and_block(connection, call, -1, nullptr);
  dbus_message_unref(call);
  if (reply == nullptr) return "";
  DBusMessageIter iterator;
  DBusMessageIter variant;
  const char* value = "";
  dbus_message_iter_init(reply, &iterator);
  dbus_message_iter_recurse(&iterator, &variant);
  dbus_message_iter_get_basic(&variant, &value);
  const std::string text = value;
  dbus_message_unref(reply);
  return text;
}

// --- the run ------------------------------------------------------------------------------------

// The median time of one get, in seconds. Each must give `expected`.
template <typename Get>
double Measure(long gets, const std::string& expected, Get get) {
  std::vector<double> times;
  for (long i = 0; i < gets; ++i) {
    const auto start = setup::Clock::now();
    const std::string value = get();
    times.push_back(setup::Seconds(setup::Clock::now() - start));
    if (value != expected) setup::Fail("a get gives '" + value + "' instead of '" + expected + "'");
  }
  return setup::Median(std::move(times));
}

int Run(int argc, char** argv) {
  const long rounds = setup::Argument(argc, argv, 1, 21);
  const long gets = setup::Argument(argc, argv, 2, 1000);
  const setup::Unit unit({"--no-services"});
  const std::string expected = GetByPps();
  const Bus bus(unit.root());
  const qnx::ChildProcess server([&] { return ServeProperty(bus, expected); });
  DBusConnection* const connection = bus.Connect();
  for (int i = 0; i < 1000 && GetByDBus(connection).empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

  std::vector<double> ratios, pps, dbus;
  for (long i = 0; i < rounds; ++i) {
    pps.push_back(Measure(gets, expected, GetByPps));
    dbus.push_back(Measure(gets, expected, [&] { return GetByDBus(connection); }));
    ratios.push_back(pps.back() / dbus.back());
  }
  dbus_connection_close(connection);
  dbus_connection_unref(connection);
  std::fprintf(stderr, "PPS %.1f us, D-Bus %.1f us\n", setup::Median(pps) * 1e6,
               setup::Median(dbus) * 1e6);
  setup::Row("PPS get through the manager / D-Bus property get on a private bus",
             setup::Number(setup::Median(ratios), 2), "below 1", setup::Median(ratios) < 1);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
