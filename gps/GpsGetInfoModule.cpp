#include "GpsGetInfoModule.h"

#include <fcntl.h>

#include "platform/logbase.h"

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
  pps_encoder_t encoder;
  pps_encoder_initialize(&encoder, false);
  pps_encoder_start_object(&encoder, "@control");
  pps_encoder_add_string(&encoder, "msg", "location");
  pps_encoder_add_string(&encoder, "id", kRequestId);
  pps_encoder_start_object(&encoder, "dat");
  pps_encoder_add_int(&encoder, "period", kPeriod);
  pps_encoder_add_string(&encoder, "provider", "gnss");
  pps_encoder_add_string(&encoder, "fix_type", "best");
  pps_encoder_end_object(&encoder);
  pps_encoder_end_object(&encoder);

  bool written = false;
  const char* const text = pps_encoder_buffer(&encoder);
  if (text == nullptr) {
    LOGBASE(LOG_LEV_ERROR, "SendGpsReq", "create decoder false.");
  } else {
    written = WritePPS(text, pps_encoder_length(&encoder));
    if (written) {
      LOGBASE(LOG_LEV_DEBUG, "SendGpsReq", "Send:\n%s", text);
    } else {
      LOGBASE(LOG_LEV_DEBUG, "SendGpsReq", "Send Request false.");
    }
  }
  pps_encoder_cleanup(&encoder);
  LOGBASE(LOG_LEV_DEBUG, "SendGpsReq", "SendGpsReq!\n");
  return written;
}

}  // namespace ZMCAR
}  // namespace NXQ
