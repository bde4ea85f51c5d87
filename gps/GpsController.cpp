#include "GpsController.h"

#include <algorithm>
#include <cstring>

#include "GpsData.h"
#include "platform/logbase.h"
#include "platform/pps_guards.h"

namespace {

// One position response, taken apart.
struct Position {
  double latitude;
  double longitude;
  double altitude;
  int speed;
  int ttff;
  std::int64_t utc;
  int angle;
  int satCount;
  GpsSatellite satellites[GPS_MAX_SATELLITES];
};

// Enters a satellite: over the one with its id, or behind the others. One too many is left out.
void Collect(const GpsSatellite& satellite, Position* position) {
  GpsSatellite* const end = position->satellites + position->satCount;
  GpsSatellite* const place =
      std::find_if(position->satellites, end,
                   [&satellite](const GpsSatellite& known) { return known.id == satellite.id; });
  if (place == end) {
    if (position->satCount == GPS_MAX_SATELLITES) return;
    ++position->satCount;
  }
  *place = satellite;
}

// Reads the elements of the array that the decoder stands in.
void ParseSatellites(pps_decoder_t* decoder, Position* position) {
  for (int left = pps_decoder_length(decoder); left > 0; --left) {
    if (pps_decoder_type(decoder, nullptr) != PPS_TYPE_OBJECT ||
        pps_decoder_push(decoder, nullptr) != PPS_DECODER_OK) {
      pps_decoder_next(decoder);
      continue;
    }
    GpsSatellite satellite = GpsSatellite();
    int id = 0;
    int azimuth = 0;
    int elevation = 0;
    pps_decoder_get_int(decoder, "id", &id);
    pps_decoder_get_double(decoder, "cno", &satellite.cno);
    pps_decoder_get_bool(decoder, "used", &satellite.used);
    pps_decoder_get_int(decoder, "azimuth", &azimuth);
    pps_decoder_get_int(decoder, "elevation", &elevation);
    pps_decoder_pop(decoder);
    satellite.id = id;
    satellite.azimuth = azimuth;
    satellite.elevation = elevation;
    Collect(satellite, position);
  }
}

// Parses `text` in place. What is not a JSON object gives all zeros.
void ParsePosition(char* text, Position* position) {
  *position = Position();
  platform::Decoder decoder;
  pps_decoder_parse_json_str(decoder.Get(), text);
  if (pps_decoder_type(decoder.Get(), nullptr) == PPS_TYPE_OBJECT &&
      pps_decoder_push(decoder.Get(), nullptr) == PPS_DECODER_OK) {
    pps_decoder_get_double(decoder.Get(), "latitude", &position->latitude);
    pps_decoder_get_double(decoder.Get(), "longitude", &position->longitude);
    pps_decoder_get_double(decoder.Get(), "altitude", &position->altitude);
    pps_decoder_get_int(decoder.Get(), "speed", &position->speed);
    pps_decoder_get_int(decoder.Get(), "ttff", &position->ttff);
    pps_decoder_get_int64(decoder.Get(), "utc", &position->utc);
    pps_decoder_get_int(decoder.Get(), "Angle", &position->angle);
    if (pps_decoder_push_array(decoder.Get(), "satellites") == PPS_DECODER_OK) {
      ParseSatellites(decoder.Get(), position);
      pps_decoder_pop(decoder.Get());
    }
    pps_decoder_pop(decoder.Get());
  }
}

void Publish(const Position& position) {
  GpsData* const store = GpsData::GetInstance();
  const GpsDataLock lock(store);
  store->m_latitude = position.latitude;
  store->m_altitude = position.altitude;
  store->m_speed = position.speed;
  store->m_longitude = position.longitude;
  store->m_ttff = position.ttff;
  store->m_satCount = position.satCount;
  store->m_utc = position.utc;
  store->m_angle = static_cast<double>(position.angle);
  std::copy(position.satellites, position.satellites + GPS_MAX_SATELLITES, store->m_satellites);
}

}  // namespace

GpsController::GpsController(NXQ::ZMCAR::IViewMessage* view)
    : PublicController(view), m_infoModule(this) {}

void GpsController::OnAttributeChange(int key, pps_attrib_t* attribute) {
  if (key == m_infoModule.GetKey()) {
    UpdateData(attribute);
  } else {
    PublicController::OnAttributeChange(key, attribute);
  }
}

bool GpsController::Init() {
  if (!m_infoModule.Open()) {
    LOGBASE(LOG_LEV_ERROR, "Init", "Open PPS false.\n");
    return false;
  }
  if (!PublicController::Init()) {
    LOGBASE(LOG_LEV_ERROR, "Init", "PublicController::Init() return false\n");
    return false;
  }
  LOGBASE(LOG_LEV_DEBUG, "Init", "Init\n");
  return true;
}

bool GpsController::Start() {
  AddFile(m_infoModule.GetKey(), &m_infoModule);
  if (!FilesControlBase::Start()) {
    LOGBASE(LOG_LEV_ERROR, "Start", "Public Controller start false.");
    return false;
  }
  LOGBASE(LOG_LEV_DEBUG, "Start", "Start\n");
  return m_infoModule.SendGpsReq();
}

bool GpsController::Stop() {
  RemoveFile(m_infoModule.GetKey());
  return FilesControlBase::Stop();
}

bool GpsController::Close() {
  m_infoModule.Close();
  PublicController::Close();
  LOGBASE(LOG_LEV_DEBUG, "Close", "Close\n");
  return true;
}

void GpsController::UpdateData(pps_attrib_t* attribute) {
  if (attribute == nullptr || attribute->attr_name == nullptr || attribute->value == nullptr) {
    return;
  }
  if (std::strcmp(attribute->attr_name, "dat") == 0) {
    Position position;
    ParsePosition(attribute->value, &position);
    Publish(position);
  } else if (std::strcmp(attribute->attr_name, "err") == 0 &&
             std::strcmp(attribute->value, "suspended") == 0) {
    LOGBASE(LOG_LEV_DEBUG, "UpdateData", "\n%s:%s\n", attribute->attr_name, attribute->value);
    m_infoModule.SendGpsReq();
  }
}
