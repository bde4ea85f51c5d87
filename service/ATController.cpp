#include "ATController.h"

#include "platform/logbase.h"

ATController::ATController() : m_mcuFile(this), m_started(false) {}

ATController::~ATController() {
  // The link and its commands go before the framework's part: no packet may come in after them.
  FilesControlBase::Stop();
}

void ATController::OnAttributeChange(int, pps_attrib_t*) {}

bool ATController::Init() {
  const bool ready = FilesControlBase::Init();
  m_mcuFile.Open();
  AddFile(m_mcuFile.GetKey(), &m_mcuFile);
  LOGBASE(LOG_LEV_DEBUG, "Init", "Init!\n");
  return ready;
}

bool ATController::Close() {
  RemoveFile(m_mcuFile.GetKey());
  m_mcuFile.Close();
  LOGBASE(LOG_LEV_DEBUG, "Close", "Close!\n");
  return FilesControlBase::Close();
}

bool ATController::Start() {
  m_started = FilesControlBase::Start();
  LOGBASE(LOG_LEV_DEBUG, "Start", "Start!\n");
  return m_started;
}

bool ATController::Attend() {
  if (!m_started) m_started = FilesControlBase::Start();
  return m_started;
}

bool ATController::Stop() { return FilesControlBase::Stop(); }

void ATController::OnRecvData(unsigned char* data, int size) {
  LOGBASE(LOG_LEV_DEBUG, "OnRecvData", "OnRecvData++++++!\n");
  m_mcuFile.ProcessDataPacket(data, size);
  LOGBASE(LOG_LEV_DEBUG, "OnRecvData", "OnRecvData------!\n");
}
