// The latest position fix and satellite view of the unit.
#ifndef KORVANDIS_GPS_GPSDATA_H
#define KORVANDIS_GPS_GPSDATA_H

#include <pthread.h>

#include <cstdint>

const int GPS_MAX_SATELLITES = 24;

struct GpsSatellite {
  bool used;  // in the fix
  std::int32_t id;
  double cno;              // carrier-to-noise density, dB-Hz
  std::int32_t azimuth;    // degrees
  std::int32_t elevation;  // degrees
};

// The process's one store. The delivery thread of the GpsController replaces its members together,
// the thread of the test commands reads them; both hold m_mutex meanwhile and take no other lock.
// Values are as the geolocation service reports them; what a response lacks is 0.
class GpsData {
 public:
  GpsData();
  ~GpsData();
  GpsData(const GpsData&) = delete;
  GpsData& operator=(const GpsData&) = delete;

  // Never null; the first call, from whichever thread, constructs it. It lives until the process
  // exits.
  static GpsData* GetInstance();

  // Sets everything to zero but m_angle. Takes m_mutex.
  void Reset();

  pthread_mutex_t m_mutex;  // guards every other member
  std::int32_t m_satCount;  // valid entries at the front of m_satellites
  std::int32_t m_speed;
  std::int32_t m_ttff;  // time to first fix
  double m_longitude;   // degrees
  double m_latitude;    // degrees
  double m_altitude;
  std::int64_t m_utc;
  // Distinct by id, in the order in which the response names them first; zero from m_satCount on.
  GpsSatellite m_satellites[GPS_MAX_SATELLITES];
  double m_angle;
};

// Holds the store's mutex.
class GpsDataLock {
 public:
  explicit GpsDataLock(GpsData* store) : m_store(store) { ::pthread_mutex_lock(&m_store->m_mutex); }
  ~GpsDataLock() { ::pthread_mutex_unlock(&m_store->m_mutex); }
  GpsDataLock(const GpsDataLock&) = delete;
  GpsDataLock& operator=(const GpsDataLock&) = delete;

 private:
  GpsData* const m_store;
};

#endif  // KORVANDIS_GPS_GPSDATA_H
