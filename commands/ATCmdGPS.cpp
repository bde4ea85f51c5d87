#include "ATCmdGPS.h"

#include <fcntl.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "GpsData.h"
#include "misc.h"
#include "platform/logbase.h"
#include "platform/pps_guards.h"
#include "platform/print.h"

namespace {

const char kNaviCommand[] = "/pps/zelmar/navigation/command";
const char kNaviStatus[] = "/pps/zelmar/navigation/status";

enum GPS_SUB_CMD {
  GPS_SENSITIVITY = 0,
  GPS_POSITION = 2,
  GPS_SPEED = 3,
  GPS_ANGLE = 4,
  // Named by the navigation commands that they send.
  GPS_NAVI_5 = 5,
  GPS_NAVI_2_OR_3 = 6,
  GPS_NAVI_10 = 7,
};

const std::size_t kObjectSize = 1024;     // of the navigation status, as read
const std::size_t kNaviCommandSize = 78;  // of a navigation command's line

const int kBytesPerSatellite = 4;
const int kMaxListed = (CmdGPS::kReplySize - 1) / kBytesPerSatellite;
static_assert(kMaxListed == 19, "what the reply buffer has room for");

const char kNoAngle[] = "    ";

// C/N0 as a 32-bit integer, truncated toward zero; out of range it is clamped, not finite it is 0.
std::int32_t ToInteger(double cno) {
  if (!std::isfinite(cno)) return 0;
  if (cno >= static_cast<double>(std::numeric_limits<std::int32_t>::max())) {
    return std::numeric_limits<std::int32_t>::max();
  }
  if (cno <= static_cast<double>(std::numeric_limits<std::int32_t>::min())) {
    return std::numeric_limits<std::int32_t>::min();
  }
  return static_cast<std::int32_t>(cno);
}

// An IEEE 754 double, little-endian.
void PutDouble(unsigned char* bytes, double value) {
  std::uint64_t bits;
  static_assert(sizeof(bits) == sizeof(value), "a double has 64 bits");
  std::memcpy(&bits, &value, sizeof(bits));
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
}

}  // namespace

const int CmdGPS::kReplySize;

CmdGPS::CmdGPS() : m_gpsController(nullptr) { Init(); }

CmdGPS::~CmdGPS() { Close(); }

bool CmdGPS::Init() {
  if (!m_gpsController.Init()) {
    LOGBASE(LOG_LEV_ERROR, "Init", "GpsController  Init  false\n");
    return false;
  }
  if (!m_gpsController.Start()) {
    LOGBASE(LOG_LEV_ERROR, "Init", "GpsController Start  false\n");
    return false;
  }
  return true;
}

bool CmdGPS::Close() {
  if (!m_gpsController.Stop()) {
    LOGBASE(LOG_LEV_ERROR, "Close", "controller  Stop  false\n");
    return false;
  }
  if (!m_gpsController.Close()) {
    LOGBASE(LOG_LEV_ERROR, "Close", "controller  Close  false\n");
    return false;
  }
  return true;
}

bool CmdGPS::Work(pkg* record) {
  if (!GetHead(record)) return false;
  Init();
  switch (m_subCmd) {
    case GPS_SENSITIVITY: {
      unsigned char list[kReplySize] = {0};
      int length = 0;
      GetSensitivityBuf(list, length);
      Reply(list, length);
      break;
    }
    case GPS_POSITION:
      SendPosition();
      break;
    case GPS_SPEED:
      SendSpeed();
      break;
    case GPS_ANGLE:
      SendAngle();
      break;
    case GPS_NAVI_5:
      SendMsg2Navi(NAVI_MSG_5);
      break;
    case GPS_NAVI_2_OR_3:
      if (Selector(record) == 1) SendMsg2Navi(NAVI_MSG_2);
      if (Selector(record) == 2) SendMsg2Navi(NAVI_MSG_3);
      break;
    case GPS_NAVI_10:
      SendMsg2Navi(NAVI_MSG_10);
      break;
    default:
      break;
  }
  return true;
}

void CmdGPS::GetSensitivityBuf(unsigned char* buffer, int& length) {
  GpsData* const store = GpsData::GetInstance();
  const GpsDataLock lock(store);
  const int count = store->m_satCount < kMaxListed ? store->m_satCount : kMaxListed;
  length = 0;
  buffer[length++] = static_cast<unsigned char>(count);
  for (int i = 0; i < count; ++i) {
    const GpsSatellite& satellite = store->m_satellites[i];
    const std::uint32_t cno = static_cast<std::uint32_t>(ToInteger(satellite.cno));
    buffer[length++] = static_cast<unsigned char>(satellite.id & 0xFF);
    buffer[length++] = static_cast<unsigned char>(cno >> 16);
    buffer[length++] = static_cast<unsigned char>(cno >> 8);
    buffer[length++] = static_cast<unsigned char>(cno);
  }
}

void CmdGPS::SendPosition() {
  unsigned char data[2 * sizeof(double)];
  {
    GpsData* const store = GpsData::GetInstance();
    const GpsDataLock lock(store);
    PutDouble(data, store->m_longitude);
    PutDouble(data + sizeof(double), store->m_latitude);
  }
  Reply(data, sizeof(data));
}

void CmdGPS::SendSpeed() {
  int speed = 0;
  {
    GpsData* const store = GpsData::GetInstance();
    const GpsDataLock lock(store);
    speed = store->m_speed;
  }
  char text[kReplySize] = {0};
  std::snprintf(text, sizeof(text), "%0.1f", static_cast<double>(speed));
  Reply(reinterpret_cast<const unsigned char*>(text), sizeof(text));
}

void CmdGPS::SendAngle() {
  char text[kReplySize] = {0};
  SendMsg2Navi(NAVI_MSG_ANGLE);
  GetAngle(text);
  Reply(reinterpret_cast<const unsigned char*>(text), sizeof(text));
}

bool CmdGPS::SendMsg2Navi(E_NAVI_MSG_CMD command) {
  char text[kNaviCommandSize] = {0};
  std::snprintf(text, sizeof(text), "msg:json:{\"cmd\":%d}", static_cast<int>(command));
  return WritePPS(kNaviCommand, text, O_WRONLY) != 0;
}

void CmdGPS::GetAngle(char* buffer) {
  char object[kObjectSize];
  if (!ReadText(kNaviStatus, object, sizeof(object))) return;
  platform::PrintError("read buf is(\n'%s') \n", object);

  platform::Decoder decoder;
  int msg = 0;
  const char* dat = nullptr;
  pps_decoder_parse_pps_str(decoder.Get(), object);
  if (pps_decoder_push(decoder.Get(), nullptr) == PPS_DECODER_OK) {
    if (pps_decoder_push(decoder.Get(), "msgres") == PPS_DECODER_OK) {
      pps_decoder_get_int(decoder.Get(), "msg", &msg);
      pps_decoder_get_string(decoder.Get(), "dat", &dat);
      pps_decoder_pop(decoder.Get());
    }
    pps_decoder_pop(decoder.Get());
  }
  platform::PrintError("msg('%d' \n", msg);

  // The text may be longer than the reply: its angle is taken out before it is cut. It came out of
  // the object's text, so it fits.
  char angle[sizeof(object) + sizeof(kNoAngle)] = {0};
  if (dat != nullptr) {
    CopyText(angle, sizeof(object), dat);
    platform::PrintError("dat(%s) \n", dat);
  } else {
    platform::PrintError("dat is NULL\xEF\xBC\x81 \n");
  }
  const int status = pps_decoder_status(decoder.Get(), true);
  if (status != PPS_DECODER_OK) {
    platform::PrintError("pps_decoder_*() failed.pps_decoder_status (%d)\n", status);
  }
  if (dat == nullptr) return;
  GetAngleStr(angle);
  CopyText(buffer, kReplySize, angle);
}

void CmdGPS::GetAngleStr(char* text) {
  if (text == nullptr) return;
  platform::PrintError("frmStr(%s) \n", text);
  const char* const last = std::strrchr(text, '=');
  if (last == nullptr) {
    std::memcpy(text, kNoAngle, sizeof(kNoAngle));
    return;
  }
  std::memmove(text, last + 1, std::strlen(last + 1) + 1);
  platform::PrintError("strExt(%s) \n", text);
}
