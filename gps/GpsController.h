// Keeps the GPS data store fed: asks the geolocation service for periodic fixes and takes them in.
#ifndef KORVANDIS_GPS_GPSCONTROLLER_H
#define KORVANDIS_GPS_GPSCONTROLLER_H

#include "GpsGetInfoModule.h"
#include "PublicController.h"

// Init, Start, Stop and Close run on the owner's thread, one at a time, and may be repeated: each
// Init opens a lost object anew, each Start asks for fixes again. Changes arrive on the
// controller's own thread. The owner stops and closes it before it is destroyed.
class GpsController : public NXQ::ZMCAR::PublicController {
 public:
  // `view` may be null.
  explicit GpsController(NXQ::ZMCAR::IViewMessage* view);

  void OnAttributeChange(int key, pps_attrib_t* attribute) override;

  // Opens the geolocation object and prepares delivery; true only if both succeed.
  bool Init() override;
  // Closes the object. True.
  bool Close() override;
  // Starts delivery and asks for fixes; true when the request was written.
  bool Start() override;
  bool Stop() override;

  // Takes one attribute of the geolocation object: a position response in "dat" replaces the whole
  // store, a suspension in "err" is answered with a new request, all else is ignored. The value's
  // text is changed. The store's mutex is held only while the members are assigned.
  void UpdateData(pps_attrib_t* attribute);

 private:
  NXQ::ZMCAR::GpsGetInfoModule m_infoModule;
};

#endif  // KORVANDIS_GPS_GPSCONTROLLER_H
