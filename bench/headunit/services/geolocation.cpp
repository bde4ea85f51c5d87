#include "geolocation.h"

#include <pps.h>

#include <cstdint>
#include <utility>

#include "../log.h"
#include "platform/pps_guards.h"

namespace headunit {
namespace {

const char kControl[] = "/pps/services/geolocation/control?server,backlog=4096";
const int kMostPeriod = 3600;    // seconds
const int kTimeToFirstFix = 27;  // seconds, as after a warm start
const std::size_t kMostClients = 1024;

std::int64_t NowMilliseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void Encode(const Satellite& satellite, pps_encoder_t* encoder) {
  pps_encoder_start_object(encoder, nullptr);
  pps_encoder_add_int(encoder, "id", satellite.id);
  pps_encoder_add_double(encoder, "cno", satellite.cno);
  pps_encoder_add_bool(encoder, "used", satellite.used);
  pps_encoder_add_int(encoder, "azimuth", satellite.azimuth);
  pps_encoder_add_int(encoder, "elevation", satellite.elevation);
  pps_encoder_end_object(encoder);
}

void Encode(const Fix& fix, pps_encoder_t* encoder) {
  pps_encoder_start_object(encoder, "dat");
  pps_encoder_add_double(encoder, "latitude", fix.latitude);
  pps_encoder_add_double(encoder, "longitude", fix.longitude);
  pps_encoder_add_double(encoder, "altitude", fix.altitude);
  pps_encoder_add_int(encoder, "speed", fix.speed);
  pps_encoder_add_int(encoder, "ttff", kTimeToFirstFix);
  pps_encoder_add_int64(encoder, "utc", NowMilliseconds());
  pps_encoder_add_int(encoder, "Angle", fix.angle);
  pps_encoder_start_array(encoder, "satellites");
  for (const Satellite& satellite : fix.satellites) Encode(satellite, encoder);
  pps_encoder_end_array(encoder);
  pps_encoder_end_object(encoder);
}

}  // namespace

Geolocation::Geolocation(EventLoop* loop, Drive drive)
    : loop_(loop),
      drive_(std::move(drive)),
      server_(loop, kControl, false, [this](const std::string& text, bool) { OnMessage(text); }) {
  // A manager that comes back announces every client anew.
  server_.SetOpened([this] { ForgetAll(); });
}

Geolocation::~Geolocation() { ForgetAll(); }

void Geolocation::OnMessage(const std::string& text) {
  const std::size_t line_end = text.find('\n');
  const std::string head = text.substr(0, line_end);
  if (head.compare(0, 2, "+@") == 0) return;  // nothing to do until it asks
  if (head.compare(0, 2, "-@") == 0) {
    Forget(head.substr(2));
  } else if (head.compare(0, 1, "@") == 0) {
    OnRequest(head.substr(1), AttributesOf(text));
  }
}

void Geolocation::OnRequest(const std::string& address, const std::vector<PpsLine>& attributes) {
  std::string message;
  std::string id;
  std::string provider;
  std::string fix_type;
  int period = 0;
  bool right = true;
  for (const PpsLine& attribute : attributes) {
    if (attribute.name == "msg" && attribute.encoding.empty()) {
      message = attribute.value;
    } else if (attribute.name == "id" && attribute.encoding.empty()) {
      id = attribute.value;
    } else if (attribute.name == "dat" && attribute.encoding == "json") {
      right = right && ParseJson(attribute.value, {{"period", &period}},
                                 {{"provider", &provider}, {"fix_type", &fix_type}});
    } else {
      right = false;
    }
  }
  if (!right || message != "location" || id.empty() || provider != "gnss" || fix_type != "best" ||
      period < 1 || period > kMostPeriod ||
      (clients_.size() >= kMostClients && clients_.count(address) == 0)) {
    Log(_SLOG_ERROR, "geolocation: malformed request of '%s'", address.c_str());
    return;
  }
  Client* const client = &clients_[address];
  const std::chrono::milliseconds wanted = std::chrono::seconds(period);
  const bool keeps_pace = client->timer != 0 && client->period == wanted;
  client->asked = true;
  client->id = id;
  client->period = wanted;
  if (suspended_ || keeps_pace) return;
  Pause(client);
  Serve(address);
}

void Geolocation::Forget(const std::string& address) {
  const auto client = clients_.find(address);
  if (client == clients_.end()) return;
  Pause(&client->second);
  clients_.erase(client);
}

void Geolocation::ForgetAll() {
  for (auto& client : clients_) Pause(&client.second);
  clients_.clear();
}

void Geolocation::Pause(Client* client) {
  loop_->CancelTimer(client->timer);
  client->timer = 0;
}

void Geolocation::Serve(const std::string& address) {
  const auto entry = clients_.find(address);
  if (entry == clients_.end()) return;
  Client* const client = &entry->second;
  server_.Write(FormatFix(address, client));
  const std::chrono::milliseconds pause = rate_.count() > 0 ? rate_ : client->period;
  client->timer = loop_->AddTimer(pause, [this, address] { Serve(address); });
}

std::string Geolocation::FormatFix(const std::string& address, Client* client) {
  static const Fix kNoFix;
  const bool has_fix = !lost_ && !drive_.empty();
  const Fix& fix = has_fix ? drive_[client->next++ % drive_.size()] : kNoFix;

  platform::Encoder encoder;
  pps_encoder_start_object(encoder.Get(), address.c_str());
  pps_encoder_add_string(encoder.Get(), "msg", "location");
  pps_encoder_add_string(encoder.Get(), "id", client->id.c_str());
  Encode(fix, encoder.Get());
  pps_encoder_end_object(encoder.Get());
  const char* const text = pps_encoder_buffer(encoder.Get());
  return text == nullptr ? "" : text;
}

// --- faults, from any thread --------------------------------------------------------------------

void Geolocation::Suspend(bool once) {
  loop_->Post([this, once] {
    suspended_ = !once;
    for (auto& entry : clients_) {
      Client* const client = &entry.second;
      if (!client->asked) continue;
      Pause(client);
      client->asked = false;
      server_.Write("@" + entry.first + "\nerr::suspended\n");
    }
  });
}

void Geolocation::Resume() {
  loop_->Post([this] {
    suspended_ = false;
    for (auto& entry : clients_) {
      if (entry.second.asked && entry.second.timer == 0) Serve(entry.first);
    }
  });
}

void Geolocation::SetRate(std::chrono::milliseconds period) {
  loop_->Post([this, period] {
    rate_ = period;
    for (auto& entry : clients_) {
      if (entry.second.timer == 0) continue;
      Pause(&entry.second);
      Serve(entry.first);
    }
  });
}

void Geolocation::SetLost(bool lost) {
  loop_->Post([this, lost] { lost_ = lost; });
}

}  // namespace headunit
