#include "GpsGetInfoModule.h"

#include <fcntl.h>

#include "platform/logbase.h"
#include "platform/pps_guards.h"

namespace NXQ {
namespace ZMCAR {
namespace {

const fileTagInfo g_PPSInfo = {0, "/pps/services/geolocation/control?wait,backlog=30",
                               O_RDWR | O_CREAT, 0666};

const char kRequestId[] = "10";
const int kPeriod = 1;  // seconds between fixes

}  // namespace

GpsGetInfoModule::GpsGetInfoModule(IPPSOnChange* listener) : PPSFileBase(g_PPSInfo, listener) {}

bool GpsGetInfoModule::SendGpsReq() {
  LOGBASE(LOG_LEV_DEBUG, "SendGpsReq", "SendGpsReq?\n");
  platform::Encoder encoder;
  pps_encoder_start_object(encoder.Get(), "@control");
  pps_encoder_add_string(encoder.Get(), "msg", "location");
  pps_encoder_add_string(encoder.Get(), "id", kRequestId);
  pps_encoder_start_object(encoder.Get(), "dat");
  pps_encoder_add_int(encoder.Get(), "period", kPeriod);
  pps_encoder_add_string(encoder.Get(), "provider", "gnss");
  pps_encoder_add_string(encoder.Get(), "fix_type", "best");
  pps_encoder_end_object(encoder.Get());
  pps_encoder_end_object(encoder.Get());

  bool written = false;
  const char* const text = pps_encoder_buffer(encoder.Get());
  if (text == nullptr) {
    LOGBASE(LOG_LEV_ERROR, "SendGpsReq", "create decoder false.");
  } else {
    written = WritePPS(text, pps_encoder_length(encoder.Get()));
    if (written) {
      LOGBASE(LOG_LEV_DEBUG, "SendGpsReq", "Send:\n%s", text);
    } else {
      LOGBASE(LOG_LEV_DEBUG, "SendGpsReq", "Send Request false.");
    }
  }
  LOGBASE(LOG_LEV_DEBUG, "SendGpsReq", "SendGpsReq!\n");
  return written;
}

}  // namespace ZMCAR
}  // namespace NXQ
