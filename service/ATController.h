// The central controller: owns the MCU link and hands it the packets that arrive.
#ifndef KORVANDIS_SERVICE_ATCONTROLLER_H
#define KORVANDIS_SERVICE_ATCONTROLLER_H

#include "ATMcuFile.h"
#include "FilesControlBase.h"

// Constructed, initialised, started, stopped and closed by main; packets arrive on its delivery
// thread, on which every test command runs.
class ATController : public NXQ::ZMCAR::FilesControlBase, public NXQ::ZMCAR::IMcuRecvData {
 public:
  ATController();
  ~ATController() override;

  // The controller has no PPS files.
  void OnAttributeChange(int key, pps_attrib_t* attribute) override;

  // Opens the link and registers it. The result is the framework's: a link that cannot be opened
  // does not keep the service from running.
  bool Init() override;
  // Unregisters and closes the link.
  bool Close() override;
  bool Start() override;
  bool Stop() override;
  // True when packets are delivered. When Start could not have that, each call tries it again.
  bool Attend();

  void OnRecvData(unsigned char* data, int size) override;

 private:
  ATMcuFile m_mcuFile;
  bool m_started;  // main's thread only
};

#endif  // KORVANDIS_SERVICE_ATCONTROLLER_H
