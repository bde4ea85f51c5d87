// The control object of the geolocation service.
#ifndef KORVANDIS_GPS_GPSGETINFOMODULE_H
#define KORVANDIS_GPS_GPSGETINFOMODULE_H

#include "PPSFileBase.h"

namespace NXQ {
namespace ZMCAR {

class GpsGetInfoModule : public PPSFileBase {
 public:
  // `listener` gets the object's changes, under key 0.
  explicit GpsGetInfoModule(IPPSOnChange* listener);

  // Asks for periodic fixes. True when the request was written. Any thread.
  bool SendGpsReq();
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_GPS_GPSGETINFOMODULE_H
