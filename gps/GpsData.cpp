#include "GpsData.h"

#include <algorithm>

GpsData* GpsData::GetInstance() {
  static GpsData instance;
  return &instance;
}

GpsData::GpsData()
    : m_mutex(),
      m_satCount(0),
      m_speed(0),
      m_ttff(0),
      m_longitude(0.0),
      m_latitude(0.0),
      m_altitude(0.0),
      m_utc(0),
      m_satellites(),
      m_angle(0.0) {
  ::pthread_mutex_init(&m_mutex, nullptr);
}

GpsData::~GpsData() { ::pthread_mutex_destroy(&m_mutex); }

void GpsData::Reset() {
  const GpsDataLock lock(this);
  m_satCount = 0;
  m_speed = 0;
  m_ttff = 0;
  m_longitude = 0.0;
  m_latitude = 0.0;
  m_altitude = 0.0;
  m_utc = 0;
  std::fill(m_satellites, m_satellites + GPS_MAX_SATELLITES, GpsSatellite());
}
